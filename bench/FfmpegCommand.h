#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "encoding/ColourTags.h"
#include "encoding/VideoCodecSession.h"

namespace oxelo::bench {

// What the ffmpeg command line is told so that it makes the encode our
// libx264 session makes: the same size and rate, the rate control as the
// session holds it, the same key frame rules and colour conversion.
struct ReferenceEncode {
  int width = 0;
  int height = 0;
  int fps = 0;
  RateControl rate;                 // as LibavVideoCodecSession set it
  int64_t keyFrameInterval = 0;     // the codec's GOP size
  int64_t forcedKeyFrameEvery = 0;  // frames 1, 1 + n, ... are forced (0: none)
  ColourTags colour;
};

// The arguments after "ffmpeg" for an encode of raw BGRA pictures from
// standard input into an H.264 elementary stream in `outputPath`: BGRA to
// planar 4:2:0 with libswscale (bilinear, the conversion matrix, limited
// range), then libx264 with the preset, tune, quality, profile, entropy
// coder, B-frame, GOP, forced key frame, buffer model and x264 options of
// LibavVideoCodecSession.
std::vector<std::string> ffmpegEncodeArguments(const ReferenceEncode& encode,
                                               const std::string& outputPath);

// The same encode of raw NV12 pictures, as the cameras deliver them: no
// conversion, libx264 takes them as they are.
std::vector<std::string> ffmpegNv12EncodeArguments(const ReferenceEncode& encode,
                                                   const std::string& outputPath);

// The arguments of the run whose time is taken off the encode's: the same
// input read and unpacked into pictures, which go to the null output as
// they are (no conversion, no encoder). What is left is the conversion and
// the encode.
std::vector<std::string> ffmpegBaselineArguments(const ReferenceEncode& encode);

}  // namespace oxelo::bench
