#pragma once

#include <optional>
#include <string>

namespace oxelo {

enum class YCbCrMatrix { unset, bt601, bt709 };

// The colour properties of a video encoder session, from the settings
// `colorspace` (a text) and `isCamBT601` (written by video capture at the end
// of the previous capture):
//
//   colorspace  conversion matrix  matrix tag             primaries, transfer
//   "None"      -                  -                      -
//   "Auto"      -                  601 if isCamBT601,     BT.709
//                                  else 709
//   "BT.601"    601                601                    BT.709
//   other/none  709                709                    BT.709
//
// The conversion matrix is the one the BGRA pictures are turned to YCbCr
// with; where it is not set the tag's matrix is used, and with no tag at all
// BT.601, the matrix that untagged video is read with. That matrix
// (effectiveConversionMatrix()) and limited range are what is coded: a YCbCr
// picture made with another matrix or in full range is converted to them
// rather than coded under tags that would not describe it.
struct ColourTags {
  YCbCrMatrix conversionMatrix = YCbCrMatrix::unset;
  YCbCrMatrix matrixTag = YCbCrMatrix::unset;
  bool bt709PrimariesAndTransfer = false;

  YCbCrMatrix effectiveConversionMatrix() const;
  bool anySet() const {
    return conversionMatrix != YCbCrMatrix::unset || matrixTag != YCbCrMatrix::unset ||
           bt709PrimariesAndTransfer;
  }
  friend bool operator==(const ColourTags&, const ColourTags&) = default;
};

ColourTags colourTagsFor(const std::optional<std::string>& colorspace, bool isCamBT601);

// The tags as the platform names them ("ITU_R_709_2", "ITU_R_601_4"), "(null)"
// where unset: for the log lines at the first key frame.
const char* matrixName(YCbCrMatrix matrix);
const char* primariesName(const ColourTags& tags);
const char* transferFunctionName(const ColourTags& tags);

}  // namespace oxelo
