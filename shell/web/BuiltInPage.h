#pragma once

#include <string>
#include <string_view>

#include "shell/web/MakerAddresses.h"

namespace oxelo {

// The template of the browser's built-in page, with the placeholders
// ##CONTENT## and ##HOMEPAGE_URL##.
extern const char* const kBuiltInPageTemplate;

// What the built-in page is made from.
struct BuiltInPageInput {
  std::string helpText;  // the text S_HELP in the program's language; may hold ##DOWNLOAD_URL##
  std::string homepageUrl = maker::homepageUrl;
  std::string domain = maker::domain;  // the maker's domain in the addresses
  // Takes the domain's place for Chinese in Han characters.
  std::string regionalDomain = maker::regionalDomain;
  bool tablet = false;
  std::string firstLanguage;  // the user's first preferred language, a tag
};

// The page from the template: the help text for ##CONTENT##, the homepage
// for ##HOMEPAGE_URL## and, grey, for ##DOWNLOAD_URL##; the device words
// "phone/tablet" ("手机/平板") made the one of this device; and, where the
// first language begins with "zh-Han", the regional domain in place of the
// maker's everywhere.
std::string builtInPage(const BuiltInPageInput& input);

}  // namespace oxelo
