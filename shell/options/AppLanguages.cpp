#include "shell/options/AppLanguages.h"

#include <cstdlib>

#include "platform/defaults/SettingsKeys.h"

namespace oxelo {

const std::vector<AppLanguage>& appLanguages() {
  static const std::vector<AppLanguage> languages = {
      {"English", "en"},    {"简体中文", "zh-Hans"}, {"繁體中文", "zh-Hant"}, {"日本語", "ja"},
      {"한국어", "ko"},     {"Deutsch", "de"},       {"Pусский", "ru"},       {"Français", "fr"},
      {"Italian", "it"},    {"Español", "es"},       {"Português", "pt-BR"},  {"Polski", "pl"},
      {"Nederlands", "nl"}, {"Arabic", "ar"},        {"ไทย", "th"},           {"Tiếng Việt", "vi"},
      {"Indonesia", "id"},  {"Türkçe", "tr"},        {"Suomi", "fi"},         {"Svenska", "sv"},
      {"Slovenčina", "sk"}, {"Magyar", "hu"},        {"български", "bg"},     {"Català", "ca"},
  };
  return languages;
}

std::optional<size_t> appLanguageIndex(std::string_view firstLanguage) {
  std::optional<size_t> found;
  const auto& languages = appLanguages();
  for (size_t i = 0; i < languages.size(); ++i)
    if (firstLanguage.starts_with(languages[i].code)) found = i;
  return found;
}

std::string languageTagOfLocale(std::string_view locale) {
  locale = locale.substr(0, locale.find_first_of(".@"));
  if (locale == "C" || locale == "POSIX") return {};
  std::string tag(locale);
  for (char& c : tag)
    if (c == '_') c = '-';
  if (!tag.starts_with("zh-")) return tag;
  const std::string region = tag.substr(3);
  if (region.starts_with("Han")) return tag;  // already "zh-Hans-.." or "zh-Hant-.."
  const bool traditional = region == "TW" || region == "HK" || region == "MO";
  return std::string(traditional ? "zh-Hant-" : "zh-Hans-") + region;
}

std::string preferredFirstLanguage(const UserDefaults& defaults) {
  const auto stored = defaults.arrayForKey(keys::AppleLanguages);
  if (!stored.empty() && stored[0].is_string()) return stored[0].get<std::string>();
  for (const char* name : {"LANGUAGE", "LC_ALL", "LC_MESSAGES", "LANG"}) {
    const char* value = std::getenv(name);
    if (!value || !*value) continue;
    std::string_view list(value);
    return languageTagOfLocale(list.substr(0, list.find(':')));
  }
  return {};
}

}  // namespace oxelo
