#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/defaults/UserDefaults.h"

namespace oxelo {

// One language the program can be switched to: its name as the options
// screen lists it and its code as the setting `AppleLanguages` stores it.
struct AppLanguage {
  const char* name;
  const char* code;
};

// The languages in the order the options screen lists them.
const std::vector<AppLanguage>& appLanguages();

// The entry for `firstLanguage`: the last code of the table that the text
// begins with ("zh-Hans-CN" finds "zh-Hans"); none when no code matches.
std::optional<size_t> appLanguageIndex(std::string_view firstLanguage);

// A POSIX locale name as a language tag: "de_DE.UTF-8" "de-DE", "zh_CN"
// "zh-Hans-CN", "zh_TW" and "zh_HK" "zh-Hant-..", "C" and "POSIX" empty.
std::string languageTagOfLocale(std::string_view locale);

// The user's first preferred language: the first entry of the stored
// `AppleLanguages` (the choice made in the options), else the first
// language of LANGUAGE, LC_ALL, LC_MESSAGES or LANG as a tag; empty when
// none is set. Any thread.
std::string preferredFirstLanguage(const UserDefaults& defaults);

}  // namespace oxelo
