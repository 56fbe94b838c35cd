#include "filters/GPUImageGaussianBlurFilter.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <numbers>

#include "filters/GLES.h"
#include "filters/GLProgram.h"
#include "filters/GPUImageContext.h"

namespace oxelo {

namespace {

constexpr unsigned kMaxVaryingPairs = 7;

std::string printed(float value) {
  char text[32];
  std::snprintf(text, sizeof text, "%f", static_cast<double>(value));
  return text;
}

}  // namespace

std::vector<float> GPUImageGaussianBlurFilter::gaussianWeights(unsigned radius, double sigma) {
  std::vector<float> weights(radius + 1);
  for (unsigned i = 0; i <= radius; ++i) {
    weights[i] = static_cast<float>(std::exp(-double(i * i) / (2.0 * sigma * sigma)) /
                                    std::sqrt(2.0 * std::numbers::pi * sigma * sigma));
  }
  float total = weights[0];
  for (unsigned i = 1; i <= radius; ++i) total += 2.0f * weights[i];
  for (auto& weight : weights) weight /= total;
  return weights;
}

OptimizedBlurPairs optimizedBlurPairs(unsigned radius, double sigma) {
  auto w = GPUImageGaussianBlurFilter::gaussianWeights(radius, sigma);
  w.push_back(0.0f);  // an odd radius pairs its last tap with nothing
  OptimizedBlurPairs pairs;
  const unsigned count = radius - (radius >> 1);
  for (unsigned k = 0; k < count; ++k) {
    const float a = w[2 * k + 1], b = w[2 * k + 2];
    pairs.offsets.push_back((a * float(2 * k + 1) + b * float(2 * k + 2)) / (a + b));
    pairs.weights.push_back(a + b);
  }
  return pairs;
}

std::string GPUImageGaussianBlurFilter::vertexShaderForOptimizedBlur(unsigned radius,
                                                                     double sigma) {
  if (radius == 0) return kGPUImageVertexShaderString;
  const auto pairs = optimizedBlurPairs(radius, sigma);
  const size_t n = std::min<size_t>(pairs.offsets.size(), kMaxVaryingPairs);
  std::string text =
      "attribute vec4 position;\n"
      "attribute vec4 inputTextureCoordinate;\n"
      "uniform float texelWidthOffset;\n"
      "uniform float texelHeightOffset;\n"
      "varying vec2 blurCoordinates[" +
      std::to_string(1 + 2 * n) +
      "];\n"
      "void main() {\n"
      "  gl_Position = position;\n"
      "  vec2 singleStepOffset = vec2(texelWidthOffset, texelHeightOffset);\n"
      "  blurCoordinates[0] = inputTextureCoordinate.xy;\n";
  for (size_t k = 0; k < n; ++k) {
    const std::string offset = printed(pairs.offsets[k]);
    text += "  blurCoordinates[" + std::to_string(2 * k + 1) +
            "] = inputTextureCoordinate.xy + singleStepOffset * " + offset + ";\n";
    text += "  blurCoordinates[" + std::to_string(2 * k + 2) +
            "] = inputTextureCoordinate.xy - singleStepOffset * " + offset + ";\n";
  }
  return text + "}\n";
}

std::string GPUImageGaussianBlurFilter::blurFragmentShader(unsigned radius, double sigma,
                                                           const std::string& sumType,
                                                           const std::string& channel,
                                                           const std::string& output) {
  const auto w = gaussianWeights(radius, sigma);
  const auto pairs = optimizedBlurPairs(radius, sigma);
  const size_t n = std::min<size_t>(pairs.offsets.size(), kMaxVaryingPairs);
  auto read = [&](const std::string& coordinate, float weight) {
    return "  sum += texture2D(inputImageTexture, " + coordinate + ")" + channel + " * " +
           printed(weight) + ";\n";
  };
  std::string text =
      "uniform sampler2D inputImageTexture;\n"
      "uniform highp float texelWidthOffset;\n"
      "uniform highp float texelHeightOffset;\n"
      "varying highp vec2 blurCoordinates[" +
      std::to_string(1 + 2 * n) +
      "];\n"
      "void main() {\n"
      "  lowp " +
      sumType + " sum = " + sumType + "(0.0);\n";
  text += read("blurCoordinates[0]", w[0]);
  for (size_t k = 0; k < n; ++k) {
    text += read("blurCoordinates[" + std::to_string(2 * k + 1) + "]", pairs.weights[k]);
    text += read("blurCoordinates[" + std::to_string(2 * k + 2) + "]", pairs.weights[k]);
  }
  if (pairs.offsets.size() > n) {
    text += "  highp vec2 singleStepOffset = vec2(texelWidthOffset, texelHeightOffset);\n";
    for (size_t k = n; k < pairs.offsets.size(); ++k) {
      const std::string offset = printed(pairs.offsets[k]);
      text += read("blurCoordinates[0] + singleStepOffset * " + offset, pairs.weights[k]);
      text += read("blurCoordinates[0] - singleStepOffset * " + offset, pairs.weights[k]);
    }
  }
  return text + "  gl_FragColor = " + output + ";\n}\n";
}

std::string GPUImageGaussianBlurFilter::fragmentShaderForOptimizedBlur(unsigned radius,
                                                                       double sigma) {
  if (radius == 0) return kGPUImagePassthroughFragmentShaderString;
  return blurFragmentShader(radius, sigma, "vec4", "", "sum");
}

unsigned GPUImageGaussianBlurFilter::sampleRadiusForPixels(double pixels) {
  if (pixels < 1.0) return 0;
  const double v = std::floor(
      std::sqrt(-2.0 * pixels * pixels *
                std::log(0.00390625 * std::sqrt(2.0 * std::numbers::pi * pixels * pixels))));
  const auto radius = static_cast<unsigned>(v);
  return radius + radius % 2;
}

GPUImageGaussianBlurFilter::GPUImageGaussianBlurFilter(const std::string& vertexShader,
                                                       const std::string& fragmentShader)
    : GPUImageTwoPassTextureSamplingFilter(vertexShader, fragmentShader, vertexShader,
                                           fragmentShader) {}

GPUImageGaussianBlurFilter::GPUImageGaussianBlurFilter()
    : GPUImageGaussianBlurFilter(vertexShaderForOptimizedBlur(4, 2.0),
                                 fragmentShaderForOptimizedBlur(4, 2.0)) {}

std::string GPUImageGaussianBlurFilter::vertexShaderFor(unsigned radius, double sigma) const {
  return vertexShaderForOptimizedBlur(radius, sigma);
}

std::string GPUImageGaussianBlurFilter::fragmentShaderFor(unsigned radius, double sigma) const {
  return fragmentShaderForOptimizedBlur(radius, sigma);
}

void GPUImageGaussianBlurFilter::setBlurRadiusInPixels(double pixels) {
  pixels = std::round(pixels);
  if (pixels != blurRadiusInPixels_) {
    blurRadiusInPixels_ = pixels;
    const unsigned radius = sampleRadiusForPixels(pixels);
    switchToVertexShader(vertexShaderFor(radius, pixels), fragmentShaderFor(radius, pixels));
  }
  shouldResizeBlurRadiusWithImageSize_ = false;
}

void GPUImageGaussianBlurFilter::setTexelSpacingMultiplier(double multiplier) {
  runSynchronouslyOnVideoProcessingQueue([&] {
    texelSpacingMultiplier_ = multiplier;
    verticalTexelSpacing_ = multiplier;
    horizontalTexelSpacing_ = multiplier;
    setupFilterForSize(sizeOfFBO());
  });
}

void GPUImageGaussianBlurFilter::switchToVertexShader(const std::string& vertexShader,
                                                      const std::string& fragmentShader) {
  runSynchronouslyOnVideoProcessingQueue([&] {
    if (!GPUImageContext::useImageProcessingContext()) return;
    auto& context = GPUImageContext::sharedImageProcessingContext();
    filterProgram_ = context.programForVertexShaderString(vertexShader, fragmentShader);
    if (prepareProgram(*filterProgram_)) {
      filterPositionAttribute_ = filterProgram_->attributeIndex("position");
      filterTextureCoordinateAttribute_ = filterProgram_->attributeIndex("inputTextureCoordinate");
      filterInputTextureUniform_ = filterProgram_->uniformIndex("inputImageTexture");
      GPUImageContext::setActiveShaderProgram(filterProgram_.get());
      glEnableVertexAttribArray(static_cast<GLuint>(filterPositionAttribute_));
      glEnableVertexAttribArray(static_cast<GLuint>(filterTextureCoordinateAttribute_));
    } else {
      filterProgram_.reset();
    }
    setUpSecondProgram(vertexShader, fragmentShader);
    lookUpStepUniforms();
    setupFilterForSize(sizeOfFBO());
    GPUImageContext::finish();
  });
}

}  // namespace oxelo
