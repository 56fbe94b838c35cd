#include "filters/GPUImageContext.h"

#include <cstring>

#include "filters/GLES.h"
#include "filters/GLProgram.h"
#include "filters/GPUImageFramebufferCache.h"
#include "platform/dispatch/QueueCheck.h"
#include "platform/log/Log.h"

namespace oxelo {

struct GPUImageContext::Egl {
  EGLDisplay display = EGL_NO_DISPLAY;
  EGLContext context = EGL_NO_CONTEXT;
  EGLSurface surface = EGL_NO_SURFACE;  // a 1 x 1 pbuffer where surfaceless is not offered
};

namespace {

bool hasExtension(const char* list, const char* name) {
  if (!list) return false;
  const size_t length = std::strlen(name);
  for (const char* p = std::strstr(list, name); p; p = std::strstr(p + 1, name)) {
    const bool startsWord = p == list || p[-1] == ' ';
    const bool endsWord = p[length] == ' ' || p[length] == '\0';
    if (startsWord && endsWord) return true;
  }
  return false;
}

std::string eglFailure(const char* step) {
  return fmt::format("GL context: {} failed (EGL error 0x{:04x})", step, eglGetError());
}

// The display: Mesa's surfaceless platform when the client library offers
// it (no window system needed), else the default display.
EGLDisplay openDisplay(bool* surfaceless) {
  const char* clientExtensions = eglQueryString(EGL_NO_DISPLAY, EGL_EXTENSIONS);
  *surfaceless = false;
  if (hasExtension(clientExtensions, "EGL_MESA_platform_surfaceless")) {
    auto getPlatformDisplay = reinterpret_cast<PFNEGLGETPLATFORMDISPLAYEXTPROC>(
        eglGetProcAddress("eglGetPlatformDisplayEXT"));
    if (getPlatformDisplay) {
      EGLDisplay display =
          getPlatformDisplay(EGL_PLATFORM_SURFACELESS_MESA, EGL_DEFAULT_DISPLAY, nullptr);
      if (display != EGL_NO_DISPLAY) {
        *surfaceless = true;
        return display;
      }
    }
  }
  return eglGetDisplay(EGL_DEFAULT_DISPLAY);
}

// Makes an OpenGL ES 2 context current on the calling thread, or says why not.
std::string createContext(GPUImageContext::Egl& egl) {
  bool surfaceless = false;
  egl.display = openDisplay(&surfaceless);
  if (egl.display == EGL_NO_DISPLAY) return "GL context: no EGL display on this machine";
  EGLint major = 0, minor = 0;
  if (!eglInitialize(egl.display, &major, &minor)) {
    egl.display = EGL_NO_DISPLAY;
    return eglFailure("eglInitialize");
  }
  if (!eglBindAPI(EGL_OPENGL_ES_API)) return eglFailure("eglBindAPI(OpenGL ES)");
  const bool noSurface = surfaceless || hasExtension(eglQueryString(egl.display, EGL_EXTENSIONS),
                                                     "EGL_KHR_surfaceless_context");
  const EGLint configAttributes[] = {EGL_RENDERABLE_TYPE,
                                     EGL_OPENGL_ES2_BIT,
                                     EGL_SURFACE_TYPE,
                                     EGL_PBUFFER_BIT,
                                     EGL_RED_SIZE,
                                     8,
                                     EGL_GREEN_SIZE,
                                     8,
                                     EGL_BLUE_SIZE,
                                     8,
                                     EGL_ALPHA_SIZE,
                                     8,
                                     EGL_NONE};
  EGLConfig config = nullptr;
  EGLint count = 0;
  if (!eglChooseConfig(egl.display, configAttributes, &config, 1, &count) || count < 1)
    return "GL context: the EGL display offers no OpenGL ES 2 configuration";
  const EGLint contextAttributes[] = {EGL_CONTEXT_CLIENT_VERSION, 2, EGL_NONE};
  egl.context = eglCreateContext(egl.display, config, EGL_NO_CONTEXT, contextAttributes);
  if (egl.context == EGL_NO_CONTEXT) return eglFailure("eglCreateContext(OpenGL ES 2)");
  if (!noSurface) {
    const EGLint pbufferAttributes[] = {EGL_WIDTH, 1, EGL_HEIGHT, 1, EGL_NONE};
    egl.surface = eglCreatePbufferSurface(egl.display, config, pbufferAttributes);
    if (egl.surface == EGL_NO_SURFACE) return eglFailure("eglCreatePbufferSurface");
  }
  if (!eglMakeCurrent(egl.display, egl.surface, egl.surface, egl.context))
    return eglFailure("eglMakeCurrent");
  return {};
}

}  // namespace

void runSynchronouslyOnVideoProcessingQueue(const Task& task) {
  auto queue = GPUImageContext::sharedContextQueue();
  if (queue->isCurrent()) {
    task();
    return;
  }
  queue->runSync(task);
}

void runAsynchronouslyOnVideoProcessingQueue(Task task) {
  auto queue = GPUImageContext::sharedContextQueue();
  if (queue->isCurrent()) {
    task();
    return;
  }
  queue->post(std::move(task));
}

GPUImageContext::GPUImageContext()
    : contextQueue_(Queue::create("video processing queue")), egl_(std::make_unique<Egl>()) {}

GPUImageContext& GPUImageContext::sharedImageProcessingContext() {
  // Lives as long as the process: frames may be in flight while it exits.
  static GPUImageContext* context = new GPUImageContext();
  return *context;
}

std::shared_ptr<Queue> GPUImageContext::sharedContextQueue() {
  return sharedImageProcessingContext().contextQueue_;
}

GPUImageFramebufferCache& GPUImageContext::sharedFramebufferCache() {
  auto& context = sharedImageProcessingContext();
  static std::once_flag once;
  std::call_once(once,
                 [&] { context.framebufferCache_ = std::make_unique<GPUImageFramebufferCache>(); });
  return *context.framebufferCache_;
}

bool GPUImageContext::useImageProcessingContext() {
  return sharedImageProcessingContext().makeCurrent();
}

bool GPUImageContext::makeCurrent() {
  OX_ASSERT_ON_QUEUE(contextQueue_);
  if (egl_->context != EGL_NO_CONTEXT && eglGetCurrentContext() == egl_->context) return true;
  if (tried_) {
    if (egl_->context == EGL_NO_CONTEXT) return false;
    return eglMakeCurrent(egl_->display, egl_->surface, egl_->surface, egl_->context);
  }
  tried_ = true;
  std::string failure = createContext(*egl_);
  if (!failure.empty()) {
    if (egl_->context != EGL_NO_CONTEXT) eglDestroyContext(egl_->display, egl_->context);
    egl_->context = EGL_NO_CONTEXT;
    logLine(failure);
    std::lock_guard lock(failureMutex_);
    failureReason_ = std::move(failure);
    return false;
  }
  glDisable(GL_DEPTH_TEST);
  glGetIntegerv(GL_MAX_TEXTURE_SIZE, &maxTextureSize_);
  return true;
}

std::string GPUImageContext::failureReason() const {
  std::lock_guard lock(failureMutex_);
  return failureReason_;
}

std::string GPUImageContext::rendererName() {
  if (!makeCurrent()) return {};
  const auto* name = reinterpret_cast<const char*>(glGetString(GL_RENDERER));
  return name ? name : "";
}

void GPUImageContext::setActiveShaderProgram(GLProgram* program) {
  auto& context = sharedImageProcessingContext();
  if (!context.makeCurrent()) return;
  if (context.currentShaderProgram_ == program) return;
  context.currentShaderProgram_ = program;
  if (program) program->use();
}

std::shared_ptr<GLProgram> GPUImageContext::programForVertexShaderString(
    const std::string& vertexShader, const std::string& fragmentShader) {
  OX_ASSERT_ON_QUEUE(contextQueue_);
  const std::string key = "V: " + vertexShader + " - F: " + fragmentShader;
  auto found = shaderProgramCache_.find(key);
  if (found != shaderProgramCache_.end()) return found->second;
  auto program = std::make_shared<GLProgram>(vertexShader, fragmentShader);
  shaderProgramCache_.emplace(key, program);
  return program;
}

GPUSize GPUImageContext::sizeThatFitsWithinATextureForSize(GPUSize size) {
  auto& context = sharedImageProcessingContext();
  const double limit = context.maxTextureSize_;
  if (limit <= 0 || (size.width <= limit && size.height <= limit)) return size;
  if (size.width > size.height) return {limit, std::floor(limit / size.width * size.height)};
  return {std::floor(limit / size.height * size.width), limit};
}

void GPUImageContext::finish() {
  if (useImageProcessingContext()) glFinish();
}

}  // namespace oxelo
