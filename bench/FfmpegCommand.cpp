#include "bench/FfmpegCommand.h"

#include <fmt/format.h>

namespace oxelo::bench {

namespace {

std::vector<std::string> inputArguments(const ReferenceEncode& e,
                                        const std::string& pixelFormat = "bgra") {
  return {"-hide_banner", "-nostats",
          "-loglevel",    "error",
          "-f",           "rawvideo",
          "-pix_fmt",     pixelFormat,
          "-s",           fmt::format("{}x{}", e.width, e.height),
          "-r",           std::to_string(e.fps),
          "-i",           "pipe:0"};
}

const char* matrixOption(YCbCrMatrix matrix) {
  return matrix == YCbCrMatrix::bt709 ? "bt709" : "bt601";
}

void append(std::vector<std::string>& to, std::initializer_list<std::string> more) {
  to.insert(to.end(), more.begin(), more.end());
}

// LibavVideoCodecSession::configure() for libx264, and the output.
void appendEncoderArguments(std::vector<std::string>& args, const ReferenceEncode& e,
                            const std::string& outputPath) {
  append(args, {"-c:v",         "libx264",
                "-preset",      "veryfast",
                "-tune",        "zerolatency",
                "-profile:v",   "main",
                "-coder",       "cabac",
                "-forced-idr",  "1",
                "-x264-params", "scenecut=0:aud=0",
                "-bf",          "0",
                "-g",           std::to_string(e.keyFrameInterval),
                "-b:v",         std::to_string(e.rate.averageBitRate),
                "-maxrate",     std::to_string(e.rate.maxBitRate),
                "-bufsize",     std::to_string(e.rate.bufferBits)});
  // LFHardwareVideoEncoder forces frames 1, 1 + n, ...: ffmpeg counts from 0.
  if (e.forcedKeyFrameEvery > 0) {
    append(args, {"-force_key_frames", fmt::format("expr:eq(mod(n,{}),0)", e.forcedKeyFrameEvery)});
  }
  if (e.colour.matrixTag != YCbCrMatrix::unset) {
    append(args, {"-colorspace", e.colour.matrixTag == YCbCrMatrix::bt709 ? "bt709" : "smpte170m"});
  }
  if (e.colour.bt709PrimariesAndTransfer) {
    append(args, {"-color_primaries", "bt709", "-color_trc", "bt709"});
  }
  if (e.colour.anySet()) append(args, {"-color_range", "tv"});
  append(args, {"-f", "h264", "-y", outputPath});
}

}  // namespace

std::vector<std::string> ffmpegEncodeArguments(const ReferenceEncode& e,
                                               const std::string& outputPath) {
  auto args = inputArguments(e);
  // PictureConverter: bilinear, full-range RGB to limited-range 4:2:0.
  append(args,
         {"-vf", fmt::format("scale=flags=bilinear:out_color_matrix={}:out_range=tv,format=yuv420p",
                             matrixOption(e.colour.effectiveConversionMatrix()))});
  appendEncoderArguments(args, e, outputPath);
  return args;
}

std::vector<std::string> ffmpegNv12EncodeArguments(const ReferenceEncode& e,
                                                   const std::string& outputPath) {
  auto args = inputArguments(e, "nv12");
  // libx264 takes NV12 as it is: no conversion on the way.
  append(args, {"-pix_fmt", "nv12"});
  appendEncoderArguments(args, e, outputPath);
  return args;
}

std::vector<std::string> ffmpegBaselineArguments(const ReferenceEncode& e) {
  auto args = inputArguments(e);
  append(args, {"-c:v", "wrapped_avframe", "-f", "null", "-"});
  return args;
}

}  // namespace oxelo::bench
