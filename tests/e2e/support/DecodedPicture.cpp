#include "tests/e2e/support/DecodedPicture.h"

#include <sys/wait.h>

#include <fmt/format.h>
#include <cstdio>
#include <cstdlib>

namespace oxelo::test {

Rgb DecodedPicture::at(int x, int y) const {
  const size_t i =
      (static_cast<size_t>(y) * static_cast<size_t>(width) + static_cast<size_t>(x)) * 3;
  return {rgb[i], rgb[i + 1], rgb[i + 2]};
}

std::optional<DecodedPicture> decodePictureAt(const std::string& file, double seconds, int width,
                                              int height, std::string& error) {
  // Seeking before the input decodes from the key frame before `seconds` and
  // drops the pictures ahead of it, so the first picture out is the one shown
  // at that time. Area scaling averages each patch's inside.
  const std::string command = fmt::format(
      "ffmpeg -nostdin -v error -ss {:.3f} -i '{}' -frames:v 1 -vf scale={}:{}:flags=area "
      "-f rawvideo -pix_fmt rgb24 -",
      seconds, file, width, height);
  FILE* pipe = popen(command.c_str(), "r");
  if (!pipe) {
    error = "cannot run: " + command;
    return std::nullopt;
  }
  DecodedPicture picture{width, height, {}};
  picture.rgb.resize(static_cast<size_t>(width) * static_cast<size_t>(height) * 3);
  const size_t got = std::fread(picture.rgb.data(), 1, picture.rgb.size(), pipe);
  const int status = pclose(pipe);
  if (got != picture.rgb.size() || !WIFEXITED(status) || WEXITSTATUS(status) != 0) {
    error =
        fmt::format("{} gave {} of {} bytes, status {}", command, got, picture.rgb.size(), status);
    return std::nullopt;
  }
  return picture;
}

std::string colourName(Rgb c, int tolerance) {
  struct Named {
    const char* name;
    Rgb value;
  };
  static constexpr Named kPrimaries[] = {{"red", {255, 0, 0}},
                                         {"green", {0, 255, 0}},
                                         {"blue", {0, 0, 255}},
                                         {"white", {255, 255, 255}}};
  for (const auto& [name, v] : kPrimaries) {
    if (std::abs(c.r - v.r) <= tolerance && std::abs(c.g - v.g) <= tolerance &&
        std::abs(c.b - v.b) <= tolerance)
      return name;
  }
  return fmt::format("other({},{},{})", c.r, c.g, c.b);
}

std::array<std::string, 4> cornerColours(const DecodedPicture& p) {
  const int left = p.width / 16, right = p.width - 1 - p.width / 16;
  const int top = p.height / 16, bottom = p.height - 1 - p.height / 16;
  return {colourName(p.at(left, top)), colourName(p.at(right, top)), colourName(p.at(left, bottom)),
          colourName(p.at(right, bottom))};
}

}  // namespace oxelo::test
