#include "shell/web/BuiltInPage.h"

#include <fmt/format.h>

namespace oxelo {

const char* const kBuiltInPageTemplate =
    "<html><head><style type='text/css'>body{margin:40px;font-family:'helvetica "
    "neue','Helvetica';font-size:1.3em;line-height:1.5em;color:#333}a{text-decoration:none;color:#"
    "1C87CA}</style></head><body><div>##CONTENT##<a "
    "href='##HOMEPAGE_URL##'>##HOMEPAGE_URL##</a></p></div></body></html>";

namespace {

void replaceAll(std::string& text, std::string_view from, std::string_view to) {
  if (from.empty()) return;
  for (size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size()))
    text.replace(at, from.size(), to);
}

}  // namespace

std::string builtInPage(const BuiltInPageInput& input) {
  std::string page = kBuiltInPageTemplate;
  replaceAll(page, "##CONTENT##", input.helpText);
  replaceAll(page, "##HOMEPAGE_URL##", input.homepageUrl);
  replaceAll(page, "##DOWNLOAD_URL##",
             fmt::format("<span style='color:#888'>{}</span>", input.homepageUrl));
  replaceAll(page, "phone/tablet", input.tablet ? "tablet" : "phone");
  replaceAll(page, "手机/平板", input.tablet ? "平板" : "手机");
  if (input.firstLanguage.starts_with("zh-Han"))
    replaceAll(page, input.domain, input.regionalDomain);
  return page;
}

}  // namespace oxelo
