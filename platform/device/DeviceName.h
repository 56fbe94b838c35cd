#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace oxelo {

// The device's user-visible name (UIDevice name): the pretty host name of
// /etc/machine-info, else the host name. Read anew at each call. Any thread.
std::string deviceName();
// The same with the machine-info file given.
std::string deviceName(const std::filesystem::path& machineInfo);

// PRETTY_HOSTNAME of a machine-info file (an environment-style file:
// KEY=VALUE lines, values bare or in single or double quotes, backslash
// escapes, lines starting with '#' or ';' are comments; the last assignment
// wins). None when the file can't be read or the value is missing or empty.
std::optional<std::string> readPrettyHostName(const std::filesystem::path& machineInfo);
// The same on the file's text.
std::optional<std::string> parsePrettyHostName(std::string_view machineInfoText);

// gethostname(); empty if it fails.
std::string hostName();

}  // namespace oxelo
