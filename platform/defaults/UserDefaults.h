#pragma once

#include <filesystem>
#include <memory>
#include <mutex>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

namespace oxelo {

// The key-value store that every subsystem reads by key (NSUserDefaults).
// One JSON document in the configuration directory, with registered defaults
// layered under the stored values: a read finds the stored value, else the
// registered default, else the neutral value (0, false, empty, none).
//
// Safe for concurrent readers and writers on any thread. Writes change memory
// at once; synchronize() makes them durable (write a temporary file, fsync,
// rename), so that a failed write (a full disk) leaves the old file whole. A
// file that cannot be parsed is kept aside under a new name and the store
// starts empty, with a log line; one that cannot be read at all is left where
// it is and never replaced: the store starts empty and synchronize() fails.
class UserDefaults {
 public:
  using Json = nlohmann::json;

  // A store backed by `directory`/settings.json; the directory is created on
  // the first synchronize().
  explicit UserDefaults(std::filesystem::path directory);
  ~UserDefaults();

  // The process-wide store. Until setStandard() it is the store in
  // configDirectory().
  static std::shared_ptr<UserDefaults> standard();
  static void setStandard(std::shared_ptr<UserDefaults> defaults);
  // $OXELO_CONFIG_DIR, else $XDG_CONFIG_HOME/oxelo, else ~/.config/oxelo.
  static std::filesystem::path configDirectory();

  const std::filesystem::path& filePath() const { return file_; }

  // Layers `defaults` under the stored values; never overwrites them.
  void registerDefaults(const Json& defaults);

  // The stored value, else the registered default, else null.
  Json objectForKey(const std::string& key) const;
  bool boolForKey(const std::string& key) const;
  // Numbers, and digits in a string, out of the range of long long read as
  // its nearest end; fractions are truncated toward zero.
  long long integerForKey(const std::string& key) const;
  double doubleForKey(const std::string& key) const;
  float floatForKey(const std::string& key) const { return static_cast<float>(doubleForKey(key)); }
  // None when the value is missing or not a string.
  std::optional<std::string> stringForKey(const std::string& key) const;
  // Empty array / object when missing or of another type.
  Json arrayForKey(const std::string& key) const;
  Json dictionaryForKey(const std::string& key) const;

  void setObject(const std::string& key, Json value);
  void setBool(const std::string& key, bool value) { setObject(key, value); }
  void setInteger(const std::string& key, long long value) { setObject(key, value); }
  void setDouble(const std::string& key, double value) { setObject(key, value); }
  void setFloat(const std::string& key, float value) { setObject(key, static_cast<double>(value)); }
  void setString(const std::string& key, const std::string& value) { setObject(key, value); }
  void removeObjectForKey(const std::string& key);

  // Writes the stored values durably. Returns false, with a log line, when
  // the file cannot be written; memory keeps the values.
  bool synchronize();

 private:
  void load();

  std::filesystem::path directory_;
  std::filesystem::path file_;
  mutable std::mutex mutex_;
  Json stored_ = Json::object();
  Json registered_ = Json::object();
  bool dirty_ = false;
  bool unreadable_ = false;  // set by load() only
  std::mutex writeMutex_;
};

}  // namespace oxelo
