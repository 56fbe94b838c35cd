#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QTranslator>

#include "live/LiveTexts.h"

namespace oxelo {
namespace {

// The window's translations are built from the live screen's table: each
// key, looked up by id in the compiled file of each language, gives that
// language's text (an escaped character or a lost message would not).
TEST(TranslationsTest, EveryKeyResolvesByIdInEnglishAndChinese) {
  for (bool chinese : {false, true}) {
    QTranslator translator;
    const QString file = chinese ? ":/i18n/oxelo_zh_CN.qm" : ":/i18n/oxelo_en.qm";
    ASSERT_TRUE(translator.load(file)) << file.toStdString();
    for (const auto& text : liveTexts()) {
      EXPECT_EQ(translator.translate(nullptr, text.key).toStdString(),
                chinese ? text.chinese : text.english)
          << text.key;
    }
    EXPECT_FALSE(translator.translate(nullptr, "M_CONNECT").isEmpty());
  }
}

}  // namespace
}  // namespace oxelo
