#include "filters/LFGPUImageBeautyFilter.h"

#include "filters/GLProgram.h"
#include "filters/GPUImageContext.h"

namespace oxelo {

namespace {

const char* const kBeautyFragmentShader = R"(
precision highp float;
varying highp vec2 textureCoordinate;
uniform sampler2D inputImageTexture;
uniform highp vec2 singleStepOffset;
uniform highp vec4 params;
uniform highp float brightness;
const highp vec3 W = vec3(0.299, 0.587, 0.114);
// By columns: red = 1.1102 r - 0.0598 g - 0.061 b, and so on.
const highp mat3 saturateMatrix = mat3(1.1102, -0.0598, -0.061,
                                       -0.0774, 1.0826, -0.1186,
                                       -0.0228, -0.0228, 1.1772);
float greenAt(vec2 offset) {
  return texture2D(inputImageTexture, textureCoordinate + singleStepOffset * offset).g;
}
float hardLight(float color) {
  if (color <= 0.5) return color * color * 2.0;
  return 1.0 - ((1.0 - color) * (1.0 - color) * 2.0);
}
void main() {
  vec3 centralColor = texture2D(inputImageTexture, textureCoordinate).rgb;
  float sampleColor = centralColor.g * 22.0;
  sampleColor += greenAt(vec2(0.0, -10.0));
  sampleColor += greenAt(vec2(0.0, 10.0));
  sampleColor += greenAt(vec2(-10.0, 0.0));
  sampleColor += greenAt(vec2(10.0, 0.0));
  sampleColor += greenAt(vec2(5.0, -8.0));
  sampleColor += greenAt(vec2(5.0, 8.0));
  sampleColor += greenAt(vec2(-5.0, 8.0));
  sampleColor += greenAt(vec2(-5.0, -8.0));
  sampleColor += greenAt(vec2(8.0, -5.0));
  sampleColor += greenAt(vec2(8.0, 5.0));
  sampleColor += greenAt(vec2(-8.0, 5.0));
  sampleColor += greenAt(vec2(-8.0, -5.0));
  sampleColor += greenAt(vec2(0.0, -6.0)) * 2.0;
  sampleColor += greenAt(vec2(0.0, 6.0)) * 2.0;
  sampleColor += greenAt(vec2(6.0, 0.0)) * 2.0;
  sampleColor += greenAt(vec2(-6.0, 0.0)) * 2.0;
  sampleColor += greenAt(vec2(-4.0, -4.0)) * 2.0;
  sampleColor += greenAt(vec2(-4.0, 4.0)) * 2.0;
  sampleColor += greenAt(vec2(4.0, -4.0)) * 2.0;
  sampleColor += greenAt(vec2(4.0, 4.0)) * 2.0;
  sampleColor += greenAt(vec2(-2.0, -2.0)) * 3.0;
  sampleColor += greenAt(vec2(-2.0, 2.0)) * 3.0;
  sampleColor += greenAt(vec2(2.0, -2.0)) * 3.0;
  sampleColor += greenAt(vec2(2.0, 2.0)) * 3.0;
  sampleColor = sampleColor / 62.0;
  float highPass = centralColor.g - sampleColor + 0.5;
  for (int i = 0; i < 5; i++) highPass = hardLight(highPass);
  float lumance = dot(centralColor, W);
  float alpha = pow(lumance, params.r);
  vec3 smoothColor = centralColor + (centralColor - vec3(highPass)) * alpha * 0.1;
  smoothColor.r = clamp(pow(smoothColor.r, params.g), 0.0, 1.0);
  smoothColor.g = clamp(pow(smoothColor.g, params.g), 0.0, 1.0);
  smoothColor.b = clamp(pow(smoothColor.b, params.g), 0.0, 1.0);
  vec3 lvse = vec3(1.0) - (vec3(1.0) - smoothColor) * (vec3(1.0) - centralColor);
  vec3 bianliang = max(smoothColor, centralColor);
  vec3 rouguang = 2.0 * centralColor * smoothColor + centralColor * centralColor
      - 2.0 * centralColor * centralColor * smoothColor;
  vec3 color = mix(centralColor, lvse, alpha);
  color = mix(color, bianliang, alpha);
  color = mix(color, rouguang, params.b);
  vec3 saturated = color * saturateMatrix;
  color = mix(color, saturated, params.a);
  gl_FragColor = vec4(color + vec3(brightness), 1.0);
}
)";

}  // namespace

LFGPUImageBeautyFilter::LFGPUImageBeautyFilter() : GPUImageFilter(kBeautyFragmentShader) {
  runSynchronouslyOnVideoProcessingQueue([this] {
    if (!filterProgram_) return;
    paramsUniform_ = filterProgram_->uniformIndex("params");
    brightnessUniform_ = filterProgram_->uniformIndex("brightness");
    singleStepOffsetUniform_ = filterProgram_->uniformIndex("singleStepOffset");
  });
  setParams(beautyLevel_, toneLevel_);
  setBrightLevel(brightLevel_);
}

void LFGPUImageBeautyFilter::setParams(double beauty, double tone) {
  setFloatVec4({static_cast<float>(1.0 - 0.6 * beauty), static_cast<float>(1.0 - 0.3 * beauty),
                static_cast<float>(0.1 + 0.3 * tone), static_cast<float>(0.1 + 0.3 * tone)},
               paramsUniform_);
}

void LFGPUImageBeautyFilter::setBeautyLevel(double level) {
  beautyLevel_ = level;
  setParams(beautyLevel_, toneLevel_);
}

void LFGPUImageBeautyFilter::setBrightLevel(double level) {
  brightLevel_ = level;
  setFloat(static_cast<float>(0.6 * (level - 0.5)), brightnessUniform_, filterProgram_.get());
}

void LFGPUImageBeautyFilter::setInputSize(GPUSize size, int index) {
  GPUImageFilter::setInputSize(size, index);
  if (size.width <= 0 || size.height <= 0 || size == stepFor_) return;
  stepFor_ = size;
  setPoint(static_cast<float>(2.0 / size.width), static_cast<float>(2.0 / size.height),
           "singleStepOffset");
}

}  // namespace oxelo
