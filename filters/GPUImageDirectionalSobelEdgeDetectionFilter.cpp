#include "filters/GPUImageDirectionalSobelEdgeDetectionFilter.h"

namespace oxelo {

namespace {

const char* const kDirectionalSobelFragmentShader = R"(
precision mediump float;
varying vec2 textureCoordinate;
varying vec2 leftTextureCoordinate;
varying vec2 rightTextureCoordinate;
varying vec2 topTextureCoordinate;
varying vec2 topLeftTextureCoordinate;
varying vec2 topRightTextureCoordinate;
varying vec2 bottomTextureCoordinate;
varying vec2 bottomLeftTextureCoordinate;
varying vec2 bottomRightTextureCoordinate;
uniform sampler2D inputImageTexture;
void main() {
  float bottomLeftIntensity = texture2D(inputImageTexture, bottomLeftTextureCoordinate).r;
  float topRightIntensity = texture2D(inputImageTexture, topRightTextureCoordinate).r;
  float topLeftIntensity = texture2D(inputImageTexture, topLeftTextureCoordinate).r;
  float bottomRightIntensity = texture2D(inputImageTexture, bottomRightTextureCoordinate).r;
  float leftIntensity = texture2D(inputImageTexture, leftTextureCoordinate).r;
  float rightIntensity = texture2D(inputImageTexture, rightTextureCoordinate).r;
  float bottomIntensity = texture2D(inputImageTexture, bottomTextureCoordinate).r;
  float topIntensity = texture2D(inputImageTexture, topTextureCoordinate).r;
  vec2 gradientDirection;
  gradientDirection.x = -bottomLeftIntensity - 2.0 * leftIntensity - topLeftIntensity
      + bottomRightIntensity + 2.0 * rightIntensity + topRightIntensity;
  gradientDirection.y = -topLeftIntensity - 2.0 * topIntensity - topRightIntensity
      + bottomLeftIntensity + 2.0 * bottomIntensity + bottomRightIntensity;
  float gradientMagnitude = length(gradientDirection);
  vec2 normalizedDirection = normalize(gradientDirection);
  normalizedDirection = sign(normalizedDirection) * floor(abs(normalizedDirection) + 0.617316);
  normalizedDirection = (normalizedDirection + 1.0) * 0.5;
  gl_FragColor = vec4(gradientMagnitude, normalizedDirection.x, normalizedDirection.y, 1.0);
}
)";

}  // namespace

GPUImageDirectionalSobelEdgeDetectionFilter::GPUImageDirectionalSobelEdgeDetectionFilter()
    : GPUImage3x3TextureSamplingFilter(kDirectionalSobelFragmentShader) {}

}  // namespace oxelo
