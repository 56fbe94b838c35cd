#include "filters/GLProgram.h"

#include <algorithm>

#include "filters/GLES.h"
#include "platform/log/Log.h"

namespace oxelo {

namespace {

std::string shaderLog(GLuint shader) {
  GLint length = 0;
  glGetShaderiv(shader, GL_INFO_LOG_LENGTH, &length);
  if (length <= 1) return {};
  std::string text(static_cast<size_t>(length), '\0');
  glGetShaderInfoLog(shader, length, nullptr, text.data());
  text.resize(static_cast<size_t>(length - 1));
  return text;
}

// The shader's name, or 0 with `log` set when it does not compile.
GLuint compileShader(GLenum type, const std::string& source, std::string* log) {
  GLuint shader = glCreateShader(type);
  const char* text = source.c_str();
  glShaderSource(shader, 1, &text, nullptr);
  glCompileShader(shader);
  GLint status = 0;
  glGetShaderiv(shader, GL_COMPILE_STATUS, &status);
  if (status == GL_TRUE) return shader;
  *log = shaderLog(shader);
  glDeleteShader(shader);
  return 0;
}

}  // namespace

GLProgram::GLProgram(const std::string& vertexShader, const std::string& fragmentShader) {
  program_ = glCreateProgram();
  vertShader_ = compileShader(GL_VERTEX_SHADER, vertexShader, &vertexShaderLog_);
  if (!vertShader_) logLine("Failed to compile vertex shader");
  fragShader_ = compileShader(GL_FRAGMENT_SHADER, fragmentShader, &fragmentShaderLog_);
  if (!fragShader_) logLine("Failed to compile fragment shader");
  if (vertShader_) glAttachShader(program_, vertShader_);
  if (fragShader_) glAttachShader(program_, fragShader_);
}

GLProgram::~GLProgram() {
  if (vertShader_) glDeleteShader(vertShader_);
  if (fragShader_) glDeleteShader(fragShader_);
  if (program_) glDeleteProgram(program_);
}

void GLProgram::addAttribute(const std::string& name) {
  if (std::find(attributes_.begin(), attributes_.end(), name) != attributes_.end()) return;
  attributes_.push_back(name);
  glBindAttribLocation(program_, static_cast<GLuint>(attributes_.size() - 1), name.c_str());
}

int GLProgram::attributeIndex(const std::string& name) const {
  auto found = std::find(attributes_.begin(), attributes_.end(), name);
  return found == attributes_.end() ? -1 : static_cast<int>(found - attributes_.begin());
}

int GLProgram::uniformIndex(const std::string& name) const {
  return glGetUniformLocation(program_, name.c_str());
}

bool GLProgram::link() {
  glLinkProgram(program_);
  GLint status = 0;
  glGetProgramiv(program_, GL_LINK_STATUS, &status);
  if (status != GL_TRUE) {
    GLint length = 0;
    glGetProgramiv(program_, GL_INFO_LOG_LENGTH, &length);
    if (length > 1) {
      programLog_.assign(static_cast<size_t>(length), '\0');
      glGetProgramInfoLog(program_, length, nullptr, programLog_.data());
      programLog_.resize(static_cast<size_t>(length - 1));
    }
    return false;
  }
  if (vertShader_) glDeleteShader(vertShader_);
  if (fragShader_) glDeleteShader(fragShader_);
  vertShader_ = fragShader_ = 0;
  initialized_ = true;
  return true;
}

void GLProgram::use() { glUseProgram(program_); }

bool prepareProgram(GLProgram& program, const std::vector<std::string>& extraAttributes) {
  if (program.initialized()) return true;
  program.addAttribute("position");
  program.addAttribute("inputTextureCoordinate");
  for (const auto& name : extraAttributes) program.addAttribute(name);
  if (program.link()) return true;
  oxlog("Program link log: {}", program.programLog());
  oxlog("Fragment shader compile log: {}", program.fragmentShaderLog());
  oxlog("Vertex shader compile log: {}", program.vertexShaderLog());
  return false;
}

}  // namespace oxelo
