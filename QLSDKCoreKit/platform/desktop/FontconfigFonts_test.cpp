#include <filesystem>
#include <string>

#include <gtest/gtest.h>

#include "QLSDKCoreKit/platform/desktop/DesktopPlatform.h"

namespace qlsdk::platform {
namespace {

TEST(FontconfigFonts, KnowsAFontByItsExactNameAndTakesNoOtherForIt) {
    const auto fonts = makeDesktopPlatform().fonts;
    struct Case {
        const char* name;
        const char* file;
    };
    for (const Case& known :
         {Case{"DejaVuSans-Bold", "DejaVuSans-Bold.ttf"}, Case{"DejaVu Sans Bold", "DejaVuSans-Bold.ttf"},
          Case{"DejaVu Sans", "DejaVuSans.ttf"}}) {
        const auto font = fonts->fontWithName(known.name, 12.5);
        ASSERT_NE(font, nullptr) << known.name;
        EXPECT_EQ(font->name, known.name);
        EXPECT_EQ(font->pointSize, 12.5);
        EXPECT_EQ(std::filesystem::path(font->file).filename(), known.file);
    }
    for (const char* unknown :
         {"AvenirNext-Medium", "dejavusans-bold", "DejaVuSansBold", "Sans", "DejaVu*", ""}) {
        EXPECT_EQ(fonts->fontWithName(unknown, 12), nullptr) << unknown;
    }
}

}  // namespace
}  // namespace qlsdk::platform
