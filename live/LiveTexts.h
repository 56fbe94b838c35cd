#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace oxelo {

// The texts the live screen shows, by localisation key (V_ live view, A_
// alert buttons, S_ free sentences), in English and in Chinese. The Qt layer
// turns the table into its translation files, with the key as the id; the
// plain classes pass keys, never texts, except where a text is built from
// values (the statistics line) or chosen by language (the permission alert).
struct LiveText {
  const char* key;
  const char* english;
  const char* chinese;
};

// Every key the live screen uses, in a fixed order.
const std::vector<LiveText>& liveTexts();

// The English (or the Chinese) text of `key`; the key itself when it is not
// in the table.
std::string liveText(std::string_view key, bool chinese = false);

// Whether the user's first preferred language is a Chinese one written in
// Han characters: the first entry of LANGUAGE, else LC_ALL, LC_MESSAGES,
// LANG, read as a language tag ("zh_CN.UTF-8", "zh-Hans"). Any thread.
bool prefersChinese();

}  // namespace oxelo
