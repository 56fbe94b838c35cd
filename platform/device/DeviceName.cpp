#include "platform/device/DeviceName.h"

#include <limits.h>
#include <unistd.h>

#include <fstream>
#include <sstream>

namespace oxelo {

namespace {

constexpr std::string_view kKey = "PRETTY_HOSTNAME";

bool isSpace(char c) { return c == ' ' || c == '\t' || c == '\r'; }

// The value of one assignment, from the character after '='.
std::string parseValue(std::string_view text) {
  size_t i = 0;
  while (i < text.size() && isSpace(text[i])) ++i;
  std::string value;
  if (i < text.size() && text[i] == '\'') {
    size_t end = text.find('\'', i + 1);
    return std::string(text.substr(i + 1, end == std::string_view::npos ? end : end - i - 1));
  }
  if (i < text.size() && text[i] == '"') {
    for (++i; i < text.size() && text[i] != '"'; ++i) {
      if (text[i] == '\\' && i + 1 < text.size()) ++i;
      value += text[i];
    }
    return value;
  }
  for (; i < text.size(); ++i) {
    if (text[i] == '\\' && i + 1 < text.size()) ++i;
    value += text[i];
  }
  while (!value.empty() && isSpace(value.back())) value.pop_back();
  return value;
}

}  // namespace

std::optional<std::string> parsePrettyHostName(std::string_view text) {
  std::optional<std::string> found;
  while (!text.empty()) {
    size_t end = text.find('\n');
    std::string_view line = text.substr(0, end);
    text = end == std::string_view::npos ? std::string_view() : text.substr(end + 1);
    while (!line.empty() && isSpace(line.front())) line.remove_prefix(1);
    if (line.empty() || line.front() == '#' || line.front() == ';') continue;
    size_t equals = line.find('=');
    if (equals == std::string_view::npos) continue;
    std::string_view key = line.substr(0, equals);
    while (!key.empty() && isSpace(key.back())) key.remove_suffix(1);
    if (key != kKey) continue;
    found = parseValue(line.substr(equals + 1));
  }
  if (found && found->empty()) return std::nullopt;
  return found;
}

std::optional<std::string> readPrettyHostName(const std::filesystem::path& machineInfo) {
  std::ifstream in(machineInfo);
  if (!in) return std::nullopt;
  std::stringstream text;
  text << in.rdbuf();
  return parsePrettyHostName(text.str());
}

std::string hostName() {
  char name[HOST_NAME_MAX + 1] = {};
  if (gethostname(name, sizeof name - 1) != 0) return {};
  return name;
}

std::string deviceName() { return deviceName("/etc/machine-info"); }

std::string deviceName(const std::filesystem::path& machineInfo) {
  if (auto pretty = readPrettyHostName(machineInfo)) return *pretty;
  return hostName();
}

}  // namespace oxelo
