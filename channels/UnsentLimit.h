#pragma once

#include <cstddef>

namespace oxelo {

// The most bytes a connection of ours lets wait unsent in the kernel
// (TCP_NOTSENT_LOWAT). Linux otherwise lets send() take up to the whole send
// buffer, which grows to megabytes: seconds of video that a host which has
// stopped reading never asks for, while every write looks complete. With
// the mark, a write completes only once the link has taken all but these
// bytes, so the write statistics and the late-frame rule see the link as it
// is. 16 KiB is about one and a half frames at 720p30 and 2.5 Mb/s: small
// enough that a stall shows within a frame interval, large enough that the
// next write is there before the link runs dry (bytes in flight are not
// counted; the mark only bounds those not yet sent).
constexpr int kUnsentLowWater = 16 * 1024;

// Sets the mark on a TCP socket. False, with errno set, when the system
// refuses (a kernel without it); the connection then works as before.
bool limitUnsentBytes(int fd);

}  // namespace oxelo
