#pragma once

#include <fmt/format.h>

#include <functional>
#include <string>
#include <string_view>

namespace oxelo {

// Free text log lines, no levels, to standard error with a time stamp (the
// journal under systemd). The system's own log texts are passed as they stand.
// Any thread.
void logLine(std::string_view text);

template <typename... Args>
void oxlog(fmt::format_string<Args...> format, Args&&... args) {
  logLine(fmt::format(format, std::forward<Args>(args)...));
}

// Tests capture lines here; a sink replaces standard error until it is reset
// with an empty function.
void setLogSink(std::function<void(const std::string&)> sink);

}  // namespace oxelo
