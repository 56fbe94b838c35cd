#include "capture/GPUImageVideoCamera.h"

#include <cstring>
#include <map>

#include "filters/GLES.h"
#include "filters/GLProgram.h"
#include "filters/GPUImageContext.h"
#include "filters/GPUImageFilter.h"
#include "filters/GPUImageFramebuffer.h"
#include "filters/GPUImageFramebufferCache.h"
#include "platform/defaults/SettingsKeys.h"
#include "platform/defaults/UserDefaults.h"
#include "platform/log/Log.h"

namespace oxelo {

const ColourConversionMatrix kColorConversion601 = {1.164f, 1.164f, 1.164f,  0.0f, -0.392f,
                                                    2.017f, 1.596f, -0.813f, 0.0f};
const ColourConversionMatrix kColorConversion601FullRange = {1.0f,   1.0f, 1.0f,    0.0f, -0.343f,
                                                             1.765f, 1.4f, -0.711f, 0.0f};
const ColourConversionMatrix kColorConversion709 = {1.164f, 1.164f, 1.164f,  0.0f, -0.213f,
                                                    2.112f, 1.793f, -0.533f, 0.0f};

namespace {

// The two stages differ only in the luma offset of video range.
const char* const kFullRangeFragmentShader = R"(
varying highp vec2 textureCoordinate;
uniform sampler2D luminanceTexture;
uniform sampler2D chrominanceTexture;
uniform mediump mat3 colorConversionMatrix;
void main() {
  mediump vec3 yuv;
  yuv.x = texture2D(luminanceTexture, textureCoordinate).r;
  yuv.yz = texture2D(chrominanceTexture, textureCoordinate).ra - vec2(0.5, 0.5);
  lowp vec3 rgb = colorConversionMatrix * yuv;
  gl_FragColor = vec4(rgb, 1.0);
}
)";

const char* const kVideoRangeFragmentShader = R"(
varying highp vec2 textureCoordinate;
uniform sampler2D luminanceTexture;
uniform sampler2D chrominanceTexture;
uniform mediump mat3 colorConversionMatrix;
void main() {
  mediump vec3 yuv;
  yuv.x = texture2D(luminanceTexture, textureCoordinate).r - (16.0 / 255.0);
  yuv.yz = texture2D(chrominanceTexture, textureCoordinate).ra - vec2(0.5, 0.5);
  lowp vec3 rgb = colorConversionMatrix * yuv;
  gl_FragColor = vec4(rgb, 1.0);
}
)";

// A rotation mode as the 2 x 2 matrix that takes a vertex position (-1 to 1)
// to its texture coordinate (centred, -1 to 1).
using ModeMatrix = std::array<int, 4>;  // a, b, c, d: t = (a x + b y, c x + d y)

ModeMatrix matrixOfMode(uint64_t mode) {
  const float* t = GPUImageFilter::textureCoordinatesForRotation(mode);
  // Columns: the change of the coordinate along x and along y.
  return {static_cast<int>(t[2] - t[0]), static_cast<int>(t[4] - t[0]),
          static_cast<int>(t[3] - t[1]), static_cast<int>(t[5] - t[1])};
}

// The mode that turns a picture `degrees` counter-clockwise (a multiple of 90).
uint64_t modeOfTurn(int32_t degrees) {
  switch (((degrees % 360) + 360) % 360) {
    case 90:
      return kRotateLeft;
    case 180:
      return kRotate180;
    case 270:
      return kRotateRight;
    default:
      return kRotationNone;
  }
}

// Rows: back off, back on, front off, front on; columns: orientations 1 to 4.
constexpr uint64_t kRotationTable[4][4] = {
    {2, 1, 0, 7},
    {5, 7, 4, 3},
    {2, 1, 7, 0},
    {5, 6, 3, 4},
};

uint64_t phoneRotationMode(AVCaptureDevicePosition position, bool mirror, int64_t orientation) {
  if (orientation < 1 || orientation > 4) return kRotationNone;
  const int row = (position == AVCaptureDevicePositionFront ? 2 : 0) + (mirror ? 1 : 0);
  return kRotationTable[row][orientation - 1];
}

// The two plane textures of the conversion for one frame size, made once
// for the context and kept with it like its programs: every camera input
// draws from them in turn, on the video processing queue. A new size gets
// textures of its own rather than new storage for the old ones: llvmpipe
// loses the storage of luminance textures that are deleted or specified
// again (a camera switch streams a frame or two at the new camera's own
// format before the chosen one), and a camera has few sizes.
struct PlaneTextures {
  GLuint luminance = 0;
  GLuint chrominance = 0;
};
PlaneTextures& planeTexturesFor(int32_t width, int32_t height, bool& made) {
  static std::map<std::pair<int32_t, int32_t>, PlaneTextures> bySize;
  PlaneTextures& textures = bySize[{width, height}];
  made = textures.luminance == 0;
  if (made) {
    GLuint names[2];
    glGenTextures(2, names);
    textures.luminance = names[0];
    textures.chrominance = names[1];
  }
  return textures;
}

// Why there is no camera at `position`: the backend's problem with a camera
// it found but cannot use, where it has one.
CameraError noDeviceError(const CameraSystem& cameras, AVCaptureDevicePosition position) {
  for (const auto& problem : cameras.unavailable())
    if (problem.reason) return problem.reason;
  if (cameras.devices().empty())
    return cameras.backend() == "v4l2" ? CameraError::noCamera()
                                       : CameraError{CameraErrorCode::noCamera, "no camera"};
  return {CameraErrorCode::noCamera,
          std::string("no camera at the ") +
              (position == AVCaptureDevicePositionFront ? "front" : "back")};
}

// How the phone's cameras sit: the back sensor a quarter turn one way, the
// front one the other way.
int32_t phoneSensorRotation(AVCaptureDevicePosition position) {
  return position == AVCaptureDevicePositionFront ? 90 : 270;
}
constexpr int64_t kLandscapeRight = 3;

}  // namespace

uint64_t composeRotationModes(uint64_t first, uint64_t then) {
  const ModeMatrix f = matrixOfMode(first), t = matrixOfMode(then);
  const ModeMatrix product = {f[0] * t[0] + f[1] * t[2], f[0] * t[1] + f[1] * t[3],
                              f[2] * t[0] + f[3] * t[2], f[2] * t[1] + f[3] * t[3]};
  for (uint64_t mode = 0; mode < 8; ++mode)
    if (matrixOfMode(mode) == product) return mode;
  return kRotationNone;  // unreachable: the eight modes are a group
}

uint64_t cameraRotationMode(AVCaptureDevicePosition position, bool mirror, int64_t orientation,
                            const CameraMounting& mounting) {
  if (mounting.facing == CameraFacing::external) {
    return composeRotationModes(
        modeOfTurn(mounting.sensorRotation),
        phoneRotationMode(AVCaptureDevicePositionBack, mirror, kLandscapeRight));
  }
  return composeRotationModes(modeOfTurn(mounting.sensorRotation - phoneSensorRotation(position)),
                              phoneRotationMode(position, mirror, orientation));
}

std::shared_ptr<GPUImageVideoCamera> GPUImageVideoCamera::create(
    const std::string& sessionPreset, AVCaptureDevicePosition position,
    std::shared_ptr<CameraSystem> cameras, CameraError* error) {
  auto fail = [error](CameraError reason) -> std::shared_ptr<GPUImageVideoCamera> {
    if (error) *error = std::move(reason);
    return nullptr;
  };
  if (!cameras) cameras = CameraSystem::current();
  if (!cameras) return fail({CameraErrorCode::noCamera, "no camera"});
  auto defaults = UserDefaults::standard();
  std::vector<std::string> types;
  if (position == AVCaptureDevicePositionBack) {
    const long long backType = defaults ? defaults->integerForKey(keys::backCameraType) : 0;
    const std::string deviceType =
        defaults ? defaults->stringForKey(keys::deviceType).value_or("") : std::string();
    if (backType <= 0 && (deviceType == AVCaptureDeviceTypeBuiltInTelephotoCamera ||
                          deviceType == AVCaptureDeviceTypeBuiltInUltraWideCamera)) {
      types.push_back(deviceType);
    } else if (backType == 1) {
      types.push_back(AVCaptureDeviceTypeBuiltInDualCamera);
    } else if (backType == 2) {
      types.push_back(AVCaptureDeviceTypeBuiltInDualWideCamera);
    } else if (backType == 3) {
      types.push_back(AVCaptureDeviceTypeBuiltInTripleCamera);
    }
  }
  types.push_back(AVCaptureDeviceTypeBuiltInWideAngleCamera);
  auto found = CaptureDeviceDiscoverySession::discoverySessionWithDeviceTypes(
                   types, AVMediaTypeVideo, position, cameras)
                   .devices();
  if (found.empty()) return fail(noDeviceError(*cameras, position));
  // The session takes the preset's format; a preset the camera cannot
  // deliver makes no camera input, and the caller falls back.
  auto device = found.front();
  auto format = device->formatForSessionPreset(sessionPreset);
  if (!format) {
    oxlog("Couldn't add video output");
    return fail({CameraErrorCode::unsupported,
                 "the camera " + device->localizedName() + " has no format for " + sessionPreset});
  }
  if (device->lockForConfiguration()) {
    device->setActiveFormat(format);
    device->unlockForConfiguration();
  }
  std::shared_ptr<GPUImageVideoCamera> camera(
      new GPUImageVideoCamera(std::move(cameras), std::move(device), sessionPreset));
  camera->captureSession_ = std::make_shared<CameraSession>(camera->weak_from_this());
  camera->captureSession_->setDevice(camera->inputCamera());
  if (!camera->setUp()) {
    return fail({CameraErrorCode::failed,
                 "no picture processing: " +
                     GPUImageContext::sharedImageProcessingContext().failureReason()});
  }
  return camera;
}

GPUImageVideoCamera::GPUImageVideoCamera(std::shared_ptr<CameraSystem> cameras,
                                         std::shared_ptr<CaptureDevice> device,
                                         std::string sessionPreset)
    : cameras_(std::move(cameras)),
      inputCamera_(std::move(device)),
      captureSessionPreset_(std::move(sessionPreset)) {}

bool GPUImageVideoCamera::setUp() {
  bool ok = true;
  runSynchronouslyOnVideoProcessingQueue([&] {
    if (!GPUImageContext::useImageProcessingContext()) {
      ok = false;
      return;
    }
    auto& context = GPUImageContext::sharedImageProcessingContext();
    for (auto [conversion, fragment] :
         {std::pair{&fullRangeConversion_, kFullRangeFragmentShader},
          std::pair{&videoRangeConversion_, kVideoRangeFragmentShader}}) {
      auto program = context.programForVertexShaderString(kGPUImageVertexShaderString, fragment);
      if (!prepareProgram(*program)) {
        ok = false;
        return;
      }
      conversion->program = program;
      conversion->position = program->attributeIndex("position");
      conversion->textureCoordinate = program->attributeIndex("inputTextureCoordinate");
      conversion->luminanceUniform = program->uniformIndex("luminanceTexture");
      conversion->chrominanceUniform = program->uniformIndex("chrominanceTexture");
      conversion->matrixUniform = program->uniformIndex("colorConversionMatrix");
    }
    const auto* extensions = reinterpret_cast<const char*>(glGetString(GL_EXTENSIONS));
    unpackRowLength_ = extensions && std::strstr(extensions, "GL_EXT_unpack_subimage");
  });
  return ok;
}

GPUImageVideoCamera::~GPUImageVideoCamera() {
  takingFrames_ = false;
  if (captureSession_) captureSession_->stopRunning();
  finishFrameInWork();
}

void GPUImageVideoCamera::finishFrameInWork() {
  // No delivery starts after the session's stop; a frame already handed to
  // the video processing queue is drawn before the caller goes on, so that
  // no GL work of this camera outlives it (nor, at exit, the process's
  // libraries).
  runSynchronouslyOnVideoProcessingQueue([] {});
}

CameraError GPUImageVideoCamera::startCameraCapture() {
  if (captureSession_->isRunning()) return {};
  if (auto error = captureSession_->startRunning()) {
    oxlog("Camera capture: {}", error.message);
    return error;
  }
  takingFrames_ = true;
  return {};
}

void GPUImageVideoCamera::stopCameraCapture() {
  takingFrames_ = false;
  if (captureSession_->isRunning()) captureSession_->stopRunning();
  finishFrameInWork();
}

bool GPUImageVideoCamera::isRunning() const { return captureSession_->isRunning(); }

std::shared_ptr<CaptureDevice> GPUImageVideoCamera::inputCamera() const {
  std::lock_guard lock(inputMutex_);
  return inputCamera_;
}

AVCaptureDevicePosition GPUImageVideoCamera::cameraPosition() const {
  auto device = inputCamera();
  return device ? device->position() : AVCaptureDevicePositionUnspecified;
}

bool GPUImageVideoCamera::isFrontFacingCameraPresent() const {
  return cameras_->defaultDeviceWithDeviceType(AVCaptureDeviceTypeBuiltInWideAngleCamera,
                                               AVMediaTypeVideo,
                                               AVCaptureDevicePositionFront) != nullptr;
}

bool GPUImageVideoCamera::isBackFacingCameraPresent() const {
  return cameras_->defaultDeviceWithDeviceType(AVCaptureDeviceTypeBuiltInWideAngleCamera,
                                               AVMediaTypeVideo,
                                               AVCaptureDevicePositionBack) != nullptr;
}

long long GPUImageVideoCamera::backCameraType() const {
  auto defaults = UserDefaults::standard();
  return defaults ? defaults->integerForKey(keys::backCameraType) : 0;
}

bool GPUImageVideoCamera::exchangeInput(const std::shared_ptr<CaptureDevice>& device) {
  if (!device) return false;
  const bool changed = !captureSession_->setDevice(device);
  {
    std::lock_guard lock(inputMutex_);
    inputCamera_ = captureSession_->device();
  }
  setOutputImageOrientation(outputImageOrientation_);
  return changed;
}

bool GPUImageVideoCamera::selectCameraByPosition(AVCaptureDevicePosition position,
                                                 const std::string& deviceType) {
  auto device = cameras_->defaultDeviceWithDeviceType(deviceType, AVMediaTypeVideo, position);
  if (!device) return false;
  return exchangeInput(device) && inputCamera() == device;
}

void GPUImageVideoCamera::selectCameraByIndex(int64_t index) {
  AVCaptureDevicePosition position = AVCaptureDevicePositionBack;
  std::vector<std::string> types;
  switch (index) {
    case 0:
      if (!isFrontFacingCameraPresent()) return;
      position = AVCaptureDevicePositionFront;
      types = {AVCaptureDeviceTypeBuiltInWideAngleCamera};
      break;
    case 1:
      types = {AVCaptureDeviceTypeBuiltInUltraWideCamera, AVCaptureDeviceTypeBuiltInTripleCamera,
               AVCaptureDeviceTypeBuiltInDualCamera};
      break;
    case 2:
      types = {AVCaptureDeviceTypeBuiltInWideAngleCamera, AVCaptureDeviceTypeBuiltInTripleCamera,
               AVCaptureDeviceTypeBuiltInDualCamera};
      break;
    default:
      types = {AVCaptureDeviceTypeBuiltInTelephotoCamera, AVCaptureDeviceTypeBuiltInTripleCamera,
               AVCaptureDeviceTypeBuiltInDualCamera};
      break;
  }
  auto device = cameras_->defaultDeviceWithDeviceType(types.front(), AVMediaTypeVideo, position);
  if (!device) {
    auto found = CaptureDeviceDiscoverySession::discoverySessionWithDeviceTypes(
                     types, AVMediaTypeVideo, position, cameras_)
                     .devices();
    if (found.empty()) return;
    device = found.front();
  }
  exchangeInput(device);
}

void GPUImageVideoCamera::rotateCamera() {
  if (!isFrontFacingCameraPresent()) return;
  const long long t = backCameraType();
  auto current = inputCamera();
  const bool atBack = current && current->position() == AVCaptureDevicePositionBack;
  if (atBack && t == 0) {
    std::shared_ptr<CaptureDevice> next;
    if (current->deviceType() == AVCaptureDeviceTypeBuiltInWideAngleCamera) {
      next = cameras_->defaultDeviceWithDeviceType(AVCaptureDeviceTypeBuiltInTelephotoCamera,
                                                   AVMediaTypeVideo, AVCaptureDevicePositionBack);
    } else if (current->deviceType() == AVCaptureDeviceTypeBuiltInUltraWideCamera) {
      next = cameras_->defaultDeviceWithDeviceType(AVCaptureDeviceTypeBuiltInWideAngleCamera,
                                                   AVMediaTypeVideo, AVCaptureDevicePositionBack);
    }
    if (next) {
      exchangeInput(next);
      return;
    }
  }
  AVCaptureDevicePosition target = AVCaptureDevicePositionFront;
  std::vector<std::string> types = {AVCaptureDeviceTypeBuiltInWideAngleCamera};
  if (!atBack) {
    target = AVCaptureDevicePositionBack;
    if (t < 1) {
      types = {AVCaptureDeviceTypeBuiltInUltraWideCamera,
               AVCaptureDeviceTypeBuiltInWideAngleCamera};
    } else if (t == 1) {
      types = {AVCaptureDeviceTypeBuiltInDualCamera, AVCaptureDeviceTypeBuiltInWideAngleCamera};
    } else if (t == 2) {
      types = {AVCaptureDeviceTypeBuiltInDualWideCamera, AVCaptureDeviceTypeBuiltInWideAngleCamera};
    } else if (t == 3) {
      types = {AVCaptureDeviceTypeBuiltInTripleCamera, AVCaptureDeviceTypeBuiltInWideAngleCamera};
    }
  }
  auto found = CaptureDeviceDiscoverySession::discoverySessionWithDeviceTypes(
                   types, AVMediaTypeVideo, target, cameras_)
                   .devices();
  // The exchange with no device only leaves the camera as it is.
  exchangeInput(found.empty() ? nullptr : found.front());
}

void GPUImageVideoCamera::setFrameRate(int32_t frameRate) {
  frameRate_ = frameRate;
  auto device = inputCamera();
  if (!device || !device->lockForConfiguration()) return;
  // A rate outside the active format's ranges is refused by the device and
  // the timing stays; nothing more is said about it.
  const CaptureTime duration =
      frameRate > 0 ? CaptureTime::make(1, frameRate) : CaptureTime::invalid();
  device->setActiveVideoMinFrameDuration(duration);
  device->setActiveVideoMaxFrameDuration(duration);
  device->unlockForConfiguration();
}

void GPUImageVideoCamera::setOutputImageOrientation(int64_t orientation) {
  outputImageOrientation_ = orientation;
  updateOrientationSendToTargets();
}

void GPUImageVideoCamera::setHorizontallyMirrorFrontFacingCamera(bool mirror) {
  mirrorFront_ = mirror;
  updateOrientationSendToTargets();
}

void GPUImageVideoCamera::setHorizontallyMirrorRearFacingCamera(bool mirror) {
  mirrorRear_ = mirror;
  updateOrientationSendToTargets();
}

void GPUImageVideoCamera::setDelegate(std::weak_ptr<GPUImageVideoCameraDelegate> delegate) {
  runSynchronouslyOnVideoProcessingQueue([&] { delegate_ = std::move(delegate); });
}

void GPUImageVideoCamera::updateOrientationSendToTargets() {
  auto device = inputCamera();
  const AVCaptureDevicePosition position =
      device ? device->position() : AVCaptureDevicePositionUnspecified;
  const bool mirror = position == AVCaptureDevicePositionFront ? mirrorFront_ : mirrorRear_;
  const uint64_t mode = cameraRotationMode(position, mirror, outputImageOrientation_,
                                           device ? device->mounting() : CameraMounting{});
  runSynchronouslyOnVideoProcessingQueue([&] {
    outputRotation_ = kRotationNone;
    internalRotation_ = mode;
    for (size_t i = 0; i < targets_.size(); ++i)
      targets_[i]->setInputRotation(outputRotation_, targetTextureIndices_[i]);
  });
}

void GPUImageVideoCamera::addTarget(std::shared_ptr<GPUImageInput> target, int textureLocation) {
  if (!target) return;
  GPUImageOutput::addTarget(target, textureLocation);
  runSynchronouslyOnVideoProcessingQueue(
      [&] { target->setInputRotation(outputRotation_, textureLocation); });
}

void GPUImageVideoCamera::cameraDidOutputFrame(const CameraFramePtr& frame) {
  // Not the session's own state: its lock is held while it waits for this
  // thread to finish a delivery (a stop, an exchange of cameras).
  if (!takingFrames_) return;
  if (!frameRenderingSemaphore_.tryWait()) return;  // the last frame is still in work
  runAsynchronouslyOnVideoProcessingQueue([weak = weak_from_this(), frame] {
    auto self = weak.lock();
    if (!self) return;
    auto delegate = self->delegate_.lock();
    if (delegate) delegate->willOutputSampleBuffer(frame);
    self->processVideoSampleBuffer(frame, delegate);
    // The frame itself goes with this task; its planes are no longer read.
    self->frameRenderingSemaphore_.signal();
  });
}

void GPUImageVideoCamera::cameraStreamDidEnd(const CameraError& error) {
  takingFrames_ = false;
  oxlog("Camera capture ended: {}", error.message);
  runAsynchronouslyOnVideoProcessingQueue([weak = weak_from_this(), error] {
    auto self = weak.lock();
    if (!self) return;
    if (auto delegate = self->delegate_.lock()) delegate->cameraDidFail(error);
  });
}

void GPUImageVideoCamera::processVideoSampleBuffer(
    const CameraFramePtr& sample, const std::shared_ptr<GPUImageVideoCameraDelegate>& delegate) {
  if (capturePaused_) return;
  const CameraFrame& frame = *sample;
  isFullYUVRange_ = frame.range == ColourRange::full;
  if (frame.matrix != ColourMatrix::bt601) {
    preferredConversion_ = &kColorConversion709;
  } else {
    preferredConversion_ = isFullYUVRange_ ? &kColorConversion601FullRange : &kColorConversion601;
  }
  const double time = frame.presentationTime;
  const int32_t width = frame.width(), height = frame.height();
  if (width < 1 || height < 1) return;
  if (width != imageBufferWidth_ && height != imageBufferHeight_) {
    imageBufferWidth_ = width;
    imageBufferHeight_ = height;
  }
  if (delegate && internalRotation_ == kRotationNone && delegate->outputFrameWithoutDrawing(sample))
    return;
  if (!GPUImageContext::useImageProcessingContext()) return;
  uploadPlanes(frame);
  GPUSize size{static_cast<double>(width), static_cast<double>(height)};
  if (rotationSwapsWidthAndHeight(internalRotation_)) size = {size.height, size.width};
  convertYUVToRGBOutput(size, isFullYUVRange_);
  updateTargetsForVideoCamera(size, time);
}

void GPUImageVideoCamera::uploadPlanes(const CameraFrame& frame) {
  const auto planes = frame.planes();
  bool resize = false;
  const PlaneTextures& shared = planeTexturesFor(frame.width(), frame.height(), resize);
  planeLuminance_ = shared.luminance;
  planeChrominance_ = shared.chrominance;
  glPixelStorei(GL_UNPACK_ALIGNMENT, 1);
  const GLuint units[2] = {GL_TEXTURE4, GL_TEXTURE5};
  const GLuint textures[2] = {shared.luminance, shared.chrominance};
  for (int i = 0; i < 2; ++i) {
    const CameraFramePlane& plane = planes[static_cast<size_t>(i)];
    const GLenum format = plane.bytesPerTexel == 1 ? GL_LUMINANCE : GL_LUMINANCE_ALPHA;
    glActiveTexture(units[i]);
    glBindTexture(GL_TEXTURE_2D, textures[i]);
    const int rowBytes = plane.width * plane.bytesPerTexel;
    const uint8_t* pixels = plane.data;
    bool rowLength = false;
    if (plane.stride != rowBytes) {
      if (unpackRowLength_ && plane.stride % plane.bytesPerTexel == 0) {
        glPixelStorei(GL_UNPACK_ROW_LENGTH_EXT, plane.stride / plane.bytesPerTexel);
        rowLength = true;
      } else {
        scratch_.resize(static_cast<size_t>(rowBytes) * static_cast<size_t>(plane.height));
        for (int y = 0; y < plane.height; ++y)
          std::memcpy(scratch_.data() + static_cast<size_t>(y) * static_cast<size_t>(rowBytes),
                      plane.data + static_cast<size_t>(y) * static_cast<size_t>(plane.stride),
                      static_cast<size_t>(rowBytes));
        pixels = scratch_.data();
      }
    }
    if (resize) {
      glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_LINEAR);
      glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_LINEAR);
      glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, GL_CLAMP_TO_EDGE);
      glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, GL_CLAMP_TO_EDGE);
      glTexImage2D(GL_TEXTURE_2D, 0, static_cast<GLint>(format), plane.width, plane.height, 0,
                   format, GL_UNSIGNED_BYTE, pixels);
    } else {
      glTexSubImage2D(GL_TEXTURE_2D, 0, 0, 0, plane.width, plane.height, format, GL_UNSIGNED_BYTE,
                      pixels);
    }
    if (rowLength) glPixelStorei(GL_UNPACK_ROW_LENGTH_EXT, 0);
    if (const GLenum error = glGetError(); error != GL_NO_ERROR)
      oxlog("Error uploading camera plane {}: 0x{:x}", i, error);
  }
  glPixelStorei(GL_UNPACK_ALIGNMENT, 4);
}

void GPUImageVideoCamera::convertYUVToRGBOutput(GPUSize rotatedSize, bool fullRange) {
  Conversion& conversion = fullRange ? fullRangeConversion_ : videoRangeConversion_;
  if (!conversion.program) return;
  GPUImageContext::setActiveShaderProgram(conversion.program.get());
  outputFramebuffer_ = GPUImageContext::sharedFramebufferCache().fetchFramebufferForSize(
      rotatedSize, outputTextureOptions, false);
  outputFramebuffer_->activateFramebuffer();
  glClearColor(0.0f, 0.0f, 0.0f, 1.0f);
  glClear(GL_COLOR_BUFFER_BIT);
  glActiveTexture(GL_TEXTURE4);
  glBindTexture(GL_TEXTURE_2D, planeLuminance_);
  glUniform1i(conversion.luminanceUniform, 4);
  glActiveTexture(GL_TEXTURE5);
  glBindTexture(GL_TEXTURE_2D, planeChrominance_);
  glUniform1i(conversion.chrominanceUniform, 5);
  glUniformMatrix3fv(conversion.matrixUniform, 1, GL_FALSE, preferredConversion_->data());
  const auto position = static_cast<GLuint>(conversion.position);
  const auto coordinate = static_cast<GLuint>(conversion.textureCoordinate);
  glEnableVertexAttribArray(position);
  glEnableVertexAttribArray(coordinate);
  glVertexAttribPointer(position, 2, GL_FLOAT, GL_FALSE, 0, GPUImageFilter::defaultVertices());
  glVertexAttribPointer(coordinate, 2, GL_FLOAT, GL_FALSE, 0,
                        GPUImageFilter::textureCoordinatesForRotation(internalRotation_));
  glDrawArrays(GL_TRIANGLE_STRIP, 0, 4);
}

void GPUImageVideoCamera::updateTargetsForVideoCamera(GPUSize size, double time) {
  if (!outputFramebuffer_) return;
  for (size_t i = 0; i < targets_.size(); ++i) {
    GPUImageInput& target = *targets_[i];
    if (!target.enabled()) continue;
    const int index = targetTextureIndices_[i];
    target.setInputRotation(outputRotation_, index);
    if (&target != targetToIgnoreForUpdates_) {
      target.setInputSize(size, index);
      target.setCurrentlyReceivingMonochromeInput(target.wantsMonochromeInput());
    }
    target.setInputFramebuffer(outputFramebuffer_, index);
  }
  outputFramebuffer_->unlock();
  outputFramebuffer_.reset();
  for (size_t i = 0; i < targets_.size(); ++i) {
    GPUImageInput& target = *targets_[i];
    if (!target.enabled() || &target == targetToIgnoreForUpdates_) continue;
    target.newFrameReadyAtTime(time, targetTextureIndices_[i]);
  }
}

}  // namespace oxelo
