#include "encoding/ColourTags.h"

namespace oxelo {

YCbCrMatrix ColourTags::effectiveConversionMatrix() const {
  if (conversionMatrix != YCbCrMatrix::unset) return conversionMatrix;
  if (matrixTag != YCbCrMatrix::unset) return matrixTag;
  return YCbCrMatrix::bt601;
}

ColourTags colourTagsFor(const std::optional<std::string>& colorspace, bool isCamBT601) {
  if (colorspace == "None") return {};
  if (colorspace == "Auto") {
    return {YCbCrMatrix::unset, isCamBT601 ? YCbCrMatrix::bt601 : YCbCrMatrix::bt709, true};
  }
  if (colorspace == "BT.601") return {YCbCrMatrix::bt601, YCbCrMatrix::bt601, true};
  return {YCbCrMatrix::bt709, YCbCrMatrix::bt709, true};
}

const char* matrixName(YCbCrMatrix matrix) {
  switch (matrix) {
    case YCbCrMatrix::bt601:
      return "ITU_R_601_4";
    case YCbCrMatrix::bt709:
      return "ITU_R_709_2";
    case YCbCrMatrix::unset:
      break;
  }
  return "(null)";
}

const char* primariesName(const ColourTags& tags) {
  return tags.bt709PrimariesAndTransfer ? "ITU_R_709_2" : "(null)";
}

const char* transferFunctionName(const ColourTags& tags) {
  return tags.bt709PrimariesAndTransfer ? "ITU_R_709_2" : "(null)";
}

}  // namespace oxelo
