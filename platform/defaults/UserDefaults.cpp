#include "platform/defaults/UserDefaults.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <optional>

#include "platform/log/Log.h"

namespace oxelo {

namespace fs = std::filesystem;

namespace {
std::mutex& standardMutex() {
  static std::mutex mutex;
  return mutex;
}
std::shared_ptr<UserDefaults>& standardSlot() {
  static std::shared_ptr<UserDefaults> slot;
  return slot;
}

// A number read as an integer: truncated toward zero and held to the range of
// long long, since a hand-edited file may hold any number; not a number is 0.
long long saturatedInteger(double value) {
  constexpr double kLimit = 9223372036854775808.0;  // 2^63
  if (std::isnan(value)) return 0;
  if (value >= kLimit) return std::numeric_limits<long long>::max();
  if (value < -kLimit) return std::numeric_limits<long long>::min();
  return static_cast<long long>(value);
}

// The whole file, or none with errno set when it cannot be opened or read.
std::optional<std::string> readAll(const fs::path& file) {
  int fd = ::open(file.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return std::nullopt;
  std::string text;
  char chunk[4096];
  for (;;) {
    ssize_t n = ::read(fd, chunk, sizeof chunk);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) {
      int err = errno;
      ::close(fd);
      if (n < 0) {
        errno = err;
        return std::nullopt;
      }
      return text;
    }
    text.append(chunk, static_cast<size_t>(n));
  }
}

bool writeAll(int fd, const std::string& text) {
  const char* p = text.data();
  size_t left = text.size();
  while (left > 0) {
    ssize_t n = ::write(fd, p, left);
    if (n < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    p += n;
    left -= static_cast<size_t>(n);
  }
  return true;
}
}  // namespace

UserDefaults::UserDefaults(fs::path directory)
    : directory_(std::move(directory)), file_(directory_ / "settings.json") {
  load();
}

UserDefaults::~UserDefaults() {
  bool dirty;
  {
    std::lock_guard lock(mutex_);
    dirty = dirty_;
  }
  if (dirty) synchronize();
}

std::shared_ptr<UserDefaults> UserDefaults::standard() {
  std::lock_guard lock(standardMutex());
  if (!standardSlot()) standardSlot() = std::make_shared<UserDefaults>(configDirectory());
  return standardSlot();
}

void UserDefaults::setStandard(std::shared_ptr<UserDefaults> defaults) {
  std::lock_guard lock(standardMutex());
  standardSlot() = std::move(defaults);
}

fs::path UserDefaults::configDirectory() {
  if (const char* dir = std::getenv("OXELO_CONFIG_DIR"); dir && *dir) return dir;
  if (const char* xdg = std::getenv("XDG_CONFIG_HOME"); xdg && *xdg) return fs::path(xdg) / "oxelo";
  if (const char* home = std::getenv("HOME"); home && *home) {
    return fs::path(home) / ".config" / "oxelo";
  }
  return fs::current_path() / ".oxelo";
}

void UserDefaults::load() {
  std::error_code ec;
  if (!fs::exists(file_, ec)) return;
  auto text = readAll(file_);
  if (!text) {
    // Not the same as a broken file: its contents may be fine, so it is
    // neither moved aside nor replaced by a file made from the defaults.
    unreadable_ = true;
    oxlog("Settings file {} cannot be read ({}); starting from defaults and leaving it as it is",
          file_.string(), std::strerror(errno));
    return;
  }
  Json parsed = Json::parse(*text, nullptr, /*allow_exceptions=*/false);
  if (parsed.is_object()) {
    stored_ = std::move(parsed);
    return;
  }
  // Keep the unreadable file for inspection and start from the defaults.
  auto stamp = std::chrono::duration_cast<std::chrono::seconds>(
                   std::chrono::system_clock::now().time_since_epoch())
                   .count();
  fs::path aside = file_;
  aside += ".corrupt-" + std::to_string(stamp);
  for (int i = 1; fs::exists(aside, ec); ++i) {
    aside = file_;
    aside += ".corrupt-" + std::to_string(stamp) + "-" + std::to_string(i);
  }
  fs::rename(file_, aside, ec);
  if (ec) {
    oxlog(
        "Settings file {} cannot be parsed and cannot be moved aside ({}); starting from defaults",
        file_.string(), ec.message());
  } else {
    oxlog("Settings file {} cannot be parsed; kept as {} and starting from defaults",
          file_.string(), aside.string());
  }
}

void UserDefaults::registerDefaults(const Json& defaults) {
  if (!defaults.is_object()) return;
  std::lock_guard lock(mutex_);
  for (auto& [key, value] : defaults.items()) registered_[key] = value;
}

UserDefaults::Json UserDefaults::objectForKey(const std::string& key) const {
  std::lock_guard lock(mutex_);
  if (auto it = stored_.find(key); it != stored_.end()) return *it;
  if (auto it = registered_.find(key); it != registered_.end()) return *it;
  return nullptr;
}

bool UserDefaults::boolForKey(const std::string& key) const {
  Json v = objectForKey(key);
  if (v.is_boolean()) return v.get<bool>();
  if (v.is_number()) return v.get<double>() != 0;
  if (v.is_string()) {
    auto s = v.get<std::string>();
    return s == "YES" || s == "yes" || s == "true" || std::strtoll(s.c_str(), nullptr, 10) != 0;
  }
  return false;
}

long long UserDefaults::integerForKey(const std::string& key) const {
  Json v = objectForKey(key);
  if (v.is_number_unsigned()) {
    return static_cast<long long>(
        std::min<uint64_t>(v.get<uint64_t>(), std::numeric_limits<long long>::max()));
  }
  if (v.is_number_integer()) return v.get<long long>();
  if (v.is_number()) return saturatedInteger(v.get<double>());
  if (v.is_boolean()) return v.get<bool>() ? 1 : 0;
  // strtoll, unlike atoll, gives the nearest end for digits out of range.
  if (v.is_string()) return std::strtoll(v.get<std::string>().c_str(), nullptr, 10);
  return 0;
}

double UserDefaults::doubleForKey(const std::string& key) const {
  Json v = objectForKey(key);
  if (v.is_number()) return v.get<double>();
  if (v.is_boolean()) return v.get<bool>() ? 1.0 : 0.0;
  if (v.is_string()) return std::atof(v.get<std::string>().c_str());
  return 0.0;
}

std::optional<std::string> UserDefaults::stringForKey(const std::string& key) const {
  Json v = objectForKey(key);
  if (v.is_string()) return v.get<std::string>();
  return std::nullopt;
}

UserDefaults::Json UserDefaults::arrayForKey(const std::string& key) const {
  Json v = objectForKey(key);
  return v.is_array() ? v : Json::array();
}

UserDefaults::Json UserDefaults::dictionaryForKey(const std::string& key) const {
  Json v = objectForKey(key);
  return v.is_object() ? v : Json::object();
}

void UserDefaults::setObject(const std::string& key, Json value) {
  std::lock_guard lock(mutex_);
  if (value.is_null()) {
    stored_.erase(key);
  } else {
    stored_[key] = std::move(value);
  }
  dirty_ = true;
}

void UserDefaults::removeObjectForKey(const std::string& key) { setObject(key, nullptr); }

bool UserDefaults::synchronize() {
  // One writer at a time; the snapshot is taken under the data lock so that
  // readers and writers are held up only for the copy.
  std::lock_guard writeLock(writeMutex_);
  if (unreadable_) {
    oxlog("Settings are not written: {} could not be read and is kept as it is", file_.string());
    return false;
  }
  std::string text;
  {
    std::lock_guard lock(mutex_);
    text = stored_.dump(2);
    dirty_ = false;
  }
  std::error_code ec;
  fs::create_directories(directory_, ec);
  fs::path temp = file_;
  temp += ".tmp";
  // A failed write leaves the values to be written again (at the latest
  // when the store goes away).
  auto failed = [this] {
    std::lock_guard lock(mutex_);
    dirty_ = true;
    return false;
  };
  int fd = ::open(temp.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  if (fd < 0) {
    oxlog("Settings cannot be written to {}: {}", temp.string(), std::strerror(errno));
    return failed();
  }
  bool ok = writeAll(fd, text) && ::fsync(fd) == 0;
  int err = errno;
  ::close(fd);
  if (!ok || ::rename(temp.c_str(), file_.c_str()) != 0) {
    if (ok) err = errno;
    oxlog("Settings cannot be written to {}: {}", file_.string(), std::strerror(err));
    ::unlink(temp.c_str());
    return failed();
  }
  // Make the rename itself durable.
  int dirFd = ::open(directory_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (dirFd >= 0) {
    ::fsync(dirFd);
    ::close(dirFd);
  }
  return true;
}

}  // namespace oxelo
