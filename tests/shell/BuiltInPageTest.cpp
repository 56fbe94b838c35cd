#include "shell/web/BuiltInPage.h"

#include <gtest/gtest.h>

#include "shell/options/AppLanguages.h"

namespace oxelo {
namespace {

const char* kHead =
    "<html><head><style type='text/css'>body{margin:40px;font-family:'helvetica neue',"
    "'Helvetica';font-size:1.3em;line-height:1.5em;color:#333}a{text-decoration:none;"
    "color:#1C87CA}</style></head><body><div>";

BuiltInPageInput input(std::string help, bool tablet, std::string language) {
  BuiltInPageInput in;
  in.helpText = std::move(help);
  in.homepageUrl = "https://www.maker.test/oxelo";
  in.domain = "www.maker.test";
  in.regionalDomain = "www.maker.cn.test";
  in.tablet = tablet;
  in.firstLanguage = std::move(language);
  return in;
}

struct PageCase {
  const char* name;
  BuiltInPageInput in;
  std::string body;  // between the head and "</div></body></html>"
};

class BuiltInPageTest : public testing::TestWithParam<PageCase> {};

TEST_P(BuiltInPageTest, FillsTheTemplate) {
  EXPECT_EQ(builtInPage(GetParam().in), kHead + GetParam().body + "</div></body></html>");
}

INSTANTIATE_TEST_SUITE_P(
    Pages, BuiltInPageTest,
    testing::Values(
        PageCase{"ContentThenTheLink", input("<p>Hi, phone/tablet 手机/平板. ", false, "en"),
                 "<p>Hi, phone 手机. <a "
                 "href='https://www.maker.test/oxelo'>https://www.maker.test/oxelo</a>"
                 "</p>"},
        PageCase{"DownloadPlaceholderInTheHelpIsGrey", input("<p>Get ##DOWNLOAD_URL##. ", 0, "en"),
                 "<p>Get <span style='color:#888'>https://www.maker.test/oxelo</span>. "
                 "<a href='https://www.maker.test/oxelo'>https://www.maker.test/oxelo</a></p>"},
        PageCase{"TabletWords", input("Your phone/tablet; 您的手机/平板 ", true, "de"),
                 "Your tablet; 您的平板 <a href='https://www.maker.test/oxelo'>"
                 "https://www.maker.test/oxelo</a></p>"},
        PageCase{
            "HanChineseGetsTheRegionalDomainEverywhere",
            input("##DOWNLOAD_URL## ", false, "zh-Hant-TW"),
            "<span style='color:#888'>https://www.maker.cn.test/oxelo</span> "
            "<a href='https://www.maker.cn.test/oxelo'>https://www.maker.cn.test/oxelo</a></p>"},
        PageCase{"OtherChineseKeepsTheDomain", input("", false, "zh-CN"),
                 "<a href='https://www.maker.test/oxelo'>https://www.maker.test/oxelo</a></p>"}),
    [](const auto& info) { return std::string(info.param.name); });

struct LanguageCase {
  const char* name;
  const char* first;
  int index;  // -1: not in the table
};

class AppLanguageTest : public testing::TestWithParam<LanguageCase> {};

TEST_P(AppLanguageTest, TheLastCodeTheLanguageBeginsWith) {
  auto index = appLanguageIndex(GetParam().first);
  EXPECT_EQ(index ? static_cast<int>(*index) : -1, GetParam().index);
}

INSTANTIATE_TEST_SUITE_P(Languages, AppLanguageTest,
                         testing::Values(LanguageCase{"WithRegion", "en-GB", 0},
                                         LanguageCase{"Simplified", "zh-Hans-CN", 1},
                                         LanguageCase{"Traditional", "zh-Hant", 2},
                                         LanguageCase{"BareChineseIsNotInTheTable", "zh", -1},
                                         LanguageCase{"Portugal", "pt-PT", -1},
                                         LanguageCase{"Last", "ca-ES", 23}),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(AppLanguageTest, LocaleNamesBecomeTags) {
  const std::pair<const char*, const char*> cases[] = {
      {"de_DE.UTF-8", "de-DE"},
      {"zh_CN.UTF-8", "zh-Hans-CN"},
      {"zh_TW", "zh-Hant-TW"},
      {"zh_HK.UTF-8", "zh-Hant-HK"},
      {"pt_BR@euro", "pt-BR"},
      {"C.UTF-8", ""},
      {"POSIX", ""},
      {"sv", "sv"},
  };
  for (const auto& [locale, tag] : cases) EXPECT_EQ(languageTagOfLocale(locale), tag) << locale;
}

}  // namespace
}  // namespace oxelo
