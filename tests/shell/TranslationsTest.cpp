#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QTranslator>

#include "live/LiveTexts.h"
#include "shell/options/OptionsTexts.h"

namespace oxelo {
namespace {

// The window's translations are built from the live screen's and the
// options screens' tables: each
// key, looked up by id in the compiled file of each language, gives that
// language's text (an escaped character or a lost message would not).
TEST(TranslationsTest, EveryKeyResolvesByIdInEnglishAndChinese) {
  for (bool chinese : {false, true}) {
    QTranslator translator;
    const QString file = chinese ? ":/i18n/oxelo_zh_CN.qm" : ":/i18n/oxelo_en.qm";
    ASSERT_TRUE(translator.load(file)) << file.toStdString();
    auto texts = liveTexts();
    texts.insert(texts.end(), optionsTexts().begin(), optionsTexts().end());
    for (const auto& text : texts) {
      EXPECT_EQ(translator.translate(nullptr, text.key).toStdString(),
                chinese ? text.chinese : text.english)
          << text.key;
    }
    EXPECT_FALSE(translator.translate(nullptr, "M_CONNECT").isEmpty());
  }
}

}  // namespace
}  // namespace oxelo
