#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace oxelo::test {

struct Rgb {
  int r = 0, g = 0, b = 0;
};

// One picture of a recorded file as the ffmpeg command line decodes it:
// packed 8-bit RGB rows.
struct DecodedPicture {
  int width = 0;
  int height = 0;
  std::vector<uint8_t> rgb;

  Rgb at(int x, int y) const;
};

// The picture that `file` shows `seconds` into its video, scaled to
// `width` x `height`. None, with the reason in `error`, when ffmpeg fails or
// gives less than a whole picture.
std::optional<DecodedPicture> decodePictureAt(const std::string& file, double seconds, int width,
                                              int height, std::string& error);

// "red", "green", "blue" or "white" for a colour within `tolerance` of that
// primary in every channel (coding shifts colours a little); otherwise
// "other(r,g,b)".
std::string colourName(Rgb colour, int tolerance = 64);

// The colours in the middle of the four corner patches, each an eighth of
// the width and height: top left, top right, bottom left, bottom right.
std::array<std::string, 4> cornerColours(const DecodedPicture& picture);

}  // namespace oxelo::test
