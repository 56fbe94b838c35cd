#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace oxelo {

// A GL shader program of one vertex and one fragment text. Attributes are
// bound to their index in the order they are added. Shared through the
// context's program cache; linked once (initialized() tells). Video
// processing queue only.
class GLProgram {
 public:
  // Compiles both shaders and attaches them; a failure is logged ("Failed to
  // compile vertex shader" / "... fragment shader") and its compiler log kept.
  GLProgram(const std::string& vertexShader, const std::string& fragmentShader);
  ~GLProgram();
  GLProgram(const GLProgram&) = delete;
  GLProgram& operator=(const GLProgram&) = delete;

  void addAttribute(const std::string& name);
  // -1 for a name never added.
  int attributeIndex(const std::string& name) const;
  int uniformIndex(const std::string& name) const;
  // Links; on success deletes both shaders and marks the program initialized.
  bool link();
  void use();

  bool initialized() const { return initialized_; }
  uint32_t program() const { return program_; }
  const std::string& vertexShaderLog() const { return vertexShaderLog_; }
  const std::string& fragmentShaderLog() const { return fragmentShaderLog_; }
  const std::string& programLog() const { return programLog_; }

 private:
  std::vector<std::string> attributes_;
  uint32_t program_ = 0;
  uint32_t vertShader_ = 0;
  uint32_t fragShader_ = 0;
  bool initialized_ = false;
  std::string vertexShaderLog_;
  std::string fragmentShaderLog_;
  std::string programLog_;
};

// Makes `program` usable by a node: adds "position" and
// "inputTextureCoordinate" and links, unless it was linked before. On a
// failed link logs the three log texts and answers false; the caller then
// drops the program.
bool prepareProgram(GLProgram& program, const std::vector<std::string>& extraAttributes = {});

}  // namespace oxelo
