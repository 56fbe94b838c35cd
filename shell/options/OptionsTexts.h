#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "live/LiveTexts.h"

namespace oxelo {

// The texts of the options screens and the built-in help page, by
// localisation key (O_ options, S_ free sentences), in English and in
// Chinese, in the form of the live screen's table: the Qt layer adds them to
// its translation files with the key as the id.
const std::vector<LiveText>& optionsTexts();

// The English (or the Chinese) text of `key`; the key itself when it is not
// in the table.
std::string optionsText(std::string_view key, bool chinese = false);

}  // namespace oxelo
