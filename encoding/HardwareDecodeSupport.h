#pragma once

#include <string>

namespace oxelo {

// Whether this device decodes HEVC in hardware: a VA-API driver on the
// render node offers the HEVC Main profile with a decode entry point. False
// where there is no render node, no driver, or no such profile. The answer of
// the default node is worked out once and kept. Any thread.
bool isHevcHardwareDecodeSupported();

// The same question for one render node, asked afresh.
bool isHevcHardwareDecodeSupportedOn(const std::string& renderNode);

}  // namespace oxelo
