#include "filters/GPUImageYUVConverter.h"

#include <fmt/format.h>

#include <cstdlib>
#include <cstring>
#include <optional>
#include <string_view>

#include "filters/GLES.h"
#include "filters/GLProgram.h"
#include "filters/GPUImageContext.h"
#include "filters/GPUImageFramebuffer.h"
#include "filters/GPUImageFramebufferCache.h"
#include "platform/dispatch/QueueCheck.h"
#include "platform/log/Log.h"

namespace oxelo {

namespace {

const char* const kVertexShader = R"(
attribute vec4 position;
void main() { gl_Position = position; }
)";

// Target pixel (x, y) holds four samples: luma x 4 .. x 4 + 3 of row y while y
// is below the picture's height; below that the chroma rows, laid out as the
// layout's planes are in memory.
const char* const kFragmentShader = R"(
precision highp float;
uniform sampler2D inputImageTexture;
uniform vec2 sourceSize;
uniform float planar;
uniform vec4 lumaRow;
uniform vec4 blueRow;
uniform vec4 redRow;
float luma(float x, float y) {
  vec3 c = texture2D(inputImageTexture, vec2((x + 0.5) / sourceSize.x, (y + 0.5) / sourceSize.y)).rgb;
  return dot(c, lumaRow.rgb) + lumaRow.a;
}
// The mean of the 2 x 2 block of chroma sample (x, y): one linear sample at its centre.
vec3 block(float x, float y) {
  return texture2D(inputImageTexture, vec2((2.0 * x + 1.0) / sourceSize.x, (2.0 * y + 1.0) / sourceSize.y)).rgb;
}
float cb(vec3 c) { return dot(c, blueRow.rgb) + blueRow.a; }
float cr(vec3 c) { return dot(c, redRow.rgb) + redRow.a; }
void main() {
  vec2 p = floor(gl_FragCoord.xy);
  if (p.y < sourceSize.y) {
    float x = p.x * 4.0;
    gl_FragColor = vec4(luma(x, p.y), luma(x + 1.0, p.y), luma(x + 2.0, p.y), luma(x + 3.0, p.y));
    return;
  }
  float row = p.y - sourceSize.y;
  if (planar < 0.5) {
    vec3 a = block(p.x * 2.0, row);
    vec3 b = block(p.x * 2.0 + 1.0, row);
    gl_FragColor = vec4(cb(a), cr(a), cb(b), cr(b));
    return;
  }
  float quarter = sourceSize.y / 4.0;
  bool red = row >= quarter;
  if (red) row -= quarter;
  float perRow = sourceSize.x / 8.0;
  float second = p.x >= perRow ? 1.0 : 0.0;
  float y = row * 2.0 + second;
  float x = (p.x - second * perRow) * 4.0;
  vec3 s0 = block(x, y), s1 = block(x + 1.0, y), s2 = block(x + 2.0, y), s3 = block(x + 3.0, y);
  gl_FragColor = red ? vec4(cr(s0), cr(s1), cr(s2), cr(s3)) : vec4(cb(s0), cb(s1), cb(s2), cb(s3));
}
)";

struct Rows {
  float luma[4], blue[4], red[4];
};

// The rows of the conversion for colours and results in 0 .. 1.
Rows conversionRows(YuvMatrix matrix, bool fullRange) {
  const float kr = matrix == YuvMatrix::bt601 ? 0.299f : 0.2126f;
  const float kb = matrix == YuvMatrix::bt601 ? 0.114f : 0.0722f;
  const float kg = 1.0f - kr - kb;
  const float lumaScale = (fullRange ? 255.0f : 219.0f) / 255.0f;
  const float chromaScale = (fullRange ? 255.0f : 224.0f) / 255.0f;
  const float lumaOffset = fullRange ? 0.0f : 16.0f / 255.0f;
  const float half = 128.0f / 255.0f;
  const float cb = chromaScale / (2.0f * (1.0f - kb));
  const float cr = chromaScale / (2.0f * (1.0f - kr));
  return {{kr * lumaScale, kg * lumaScale, kb * lumaScale, lumaOffset},
          {-kr * cb, -kg * cb, (1.0f - kb) * cb, half},
          {(1.0f - kr) * cr, -kg * cr, -kb * cr, half}};
}

}  // namespace

GPUImageYUVConverter::GPUImageYUVConverter() {
  runSynchronouslyOnVideoProcessingQueue([this] {
    if (!GPUImageContext::useImageProcessingContext()) return;
    program_ = GPUImageContext::sharedImageProcessingContext().programForVertexShaderString(
        kVertexShader, kFragmentShader);
    if (!program_->initialized()) {
      program_->addAttribute("position");
      if (!program_->link()) {
        program_.reset();
        return;
      }
    }
    positionAttribute_ = program_->attributeIndex("position");
  });
}

GPUImageYUVConverter::~GPUImageYUVConverter() = default;

bool gpuYuvConversionPays(const std::string& renderer, const char* override) {
  if (override && std::string_view(override) == "0") return false;
  if (override && std::string_view(override) == "1") return true;
  for (const char* software : {"llvmpipe", "softpipe", "swrast"})
    if (renderer.find(software) != std::string::npos) return false;
  return true;
}

bool GPUImageYUVConverter::preferredOnThisMachine() {
  OX_ASSERT_ON_QUEUE(GPUImageContext::sharedContextQueue());
  static std::optional<bool> logged;  // video processing queue
  const std::string renderer = GPUImageContext::sharedImageProcessingContext().rendererName();
  const char* override = std::getenv("OXELO_GPU_YUV");
  const bool pays = gpuYuvConversionPays(renderer, override);
  if (logged != pays) {
    oxlog("Output pictures: {} on renderer \"{}\"{}",
          pays ? "converted to 4:2:0 on the GPU" : "read back as BGRA", renderer,
          override ? fmt::format(" (OXELO_GPU_YUV={})", override) : std::string());
    logged = pays;
  }
  return pays;
}

std::shared_ptr<PixelBuffer> GPUImageYUVConverter::freeBuffer(PixelFormat format, int width,
                                                              int height, YuvMatrix matrix,
                                                              bool fullRange) {
  auto fits = [&](const PixelBuffer& b) {
    return b.format() == format && b.width() == width && b.height() == height &&
           b.matrix() == matrix && b.fullRange() == fullRange;
  };
  std::shared_ptr<PixelBuffer>* idle = nullptr;
  for (auto& candidate : ring_) {
    if (candidate.use_count() != 1) continue;
    if (fits(*candidate)) return candidate;
    idle = &candidate;
  }
  auto made = PixelBuffer::createYuv(format, width, height, matrix, fullRange);
  if (idle) return *idle = made;  // one of another shape gives way
  return ring_.emplace_back(made);
}

std::shared_ptr<PixelBuffer> GPUImageYUVConverter::convert(GPUImageFramebuffer& source,
                                                           PixelFormat format, YuvMatrix matrix,
                                                           bool fullRange) {
  OX_ASSERT_ON_QUEUE(GPUImageContext::sharedContextQueue());
  const int width = source.pixelWidth();
  const int height = source.pixelHeight();
  if (format == PixelFormat::bgra) return nullptr;
  if (!program_ || width < 8 || height < 4 || width % 8 || height % 4) return nullptr;
  if (!GPUImageContext::useImageProcessingContext()) return nullptr;
  auto picture = freeBuffer(format, width, height, matrix, fullRange);

  GPUTextureOptions options;
  options.minFilter = options.magFilter = GL_NEAREST;
  options.format = GL_RGBA;
  auto target = GPUImageContext::sharedFramebufferCache().fetchFramebufferForSize(
      {width / 4.0, height * 1.5}, options, false);
  target->activateFramebuffer();
  GPUImageContext::setActiveShaderProgram(program_.get());
  const Rows rows = conversionRows(matrix, fullRange);
  glUniform2f(program_->uniformIndex("sourceSize"), float(width), float(height));
  glUniform1f(program_->uniformIndex("planar"), format == PixelFormat::i420 ? 1.0f : 0.0f);
  glUniform4fv(program_->uniformIndex("lumaRow"), 1, rows.luma);
  glUniform4fv(program_->uniformIndex("blueRow"), 1, rows.blue);
  glUniform4fv(program_->uniformIndex("redRow"), 1, rows.red);
  glActiveTexture(GL_TEXTURE2);
  glBindTexture(GL_TEXTURE_2D, source.texture());
  glUniform1i(program_->uniformIndex("inputImageTexture"), 2);
  static const float vertices[8] = {-1, -1, 1, -1, -1, 1, 1, 1};
  // The filters leave the coordinate array on; this program has none.
  glDisableVertexAttribArray(1);
  glEnableVertexAttribArray(static_cast<GLuint>(positionAttribute_));
  glVertexAttribPointer(static_cast<GLuint>(positionAttribute_), 2, GL_FLOAT, GL_FALSE, 0,
                        vertices);
  glDrawArrays(GL_TRIANGLE_STRIP, 0, 4);
  glEnableVertexAttribArray(1);
  glPixelStorei(GL_PACK_ALIGNMENT, 4);

  // The planes as the draw packs them: back to back, rows without padding.
  bool packed = true;
  for (int i = 0; i < picture->planeCount(); ++i)
    packed = packed && picture->planeStride(i) == picture->planeRowBytes(i);
  const size_t total = static_cast<size_t>(width) * static_cast<size_t>(height) * 3 / 2;
  if (!packed) scratch_.resize(total);
  uint8_t* into = packed ? picture->plane(0) : scratch_.data();
  glReadPixels(0, 0, width / 4, height * 3 / 2, GL_RGBA, GL_UNSIGNED_BYTE, into);
  target->unlock();
  if (!packed) {
    const uint8_t* from = scratch_.data();
    for (int i = 0; i < picture->planeCount(); ++i) {
      const size_t rowBytes = picture->planeRowBytes(i);
      for (int y = 0; y < picture->planeHeight(i); ++y, from += rowBytes)
        std::memcpy(picture->plane(i) + static_cast<size_t>(y) * picture->planeStride(i), from,
                    rowBytes);
    }
  }
  return picture;
}

}  // namespace oxelo
