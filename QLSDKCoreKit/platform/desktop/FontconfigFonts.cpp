#include <memory>

#include <fontconfig/fontconfig.h>

#include "QLSDKCoreKit/platform/Fonts.h"
#include "QLSDKCoreKit/platform/desktop/DesktopAdapters.h"
#include "QLSDKCoreKit/platform/desktop/DestroyWith.h"

namespace qlsdk::platform {

namespace {

using Pattern = std::unique_ptr<FcPattern, DestroyWith<FcPatternDestroy>>;
using ObjectSet = std::unique_ptr<FcObjectSet, DestroyWith<FcObjectSetDestroy>>;
using FontSet = std::unique_ptr<FcFontSet, DestroyWith<FcFontSetDestroy>>;

const FcChar8* fontconfigText(const char* text) noexcept {
    return reinterpret_cast<const FcChar8*>(text);
}

// Fontconfig's own comparison of names is not exact: it ignores case and blanks.
bool hasName(const FcPattern* font, const char* property, const std::string& name) {
    FcChar8* candidate = nullptr;
    for (int i = 0; FcPatternGetString(font, property, i, &candidate) == FcResultMatch; ++i) {
        if (name == reinterpret_cast<const char*>(candidate)) return true;
    }
    return false;
}

std::string fileOf(const FcPattern* font) {
    FcChar8* file = nullptr;
    if (FcPatternGetString(font, FC_FILE, 0, &file) != FcResultMatch) return {};
    return reinterpret_cast<const char*>(file);
}

/// Lists fonts where others would match them: a match always finds some font, however far from what was
/// asked. The configuration is the process's current one, read on its first use by the host or by us, and
/// never torn down.
class FontconfigFonts final : public Fonts {
  public:
    std::shared_ptr<const Font> fontWithName(const std::string& name, double pointSize) override {
        for (const char* property : {FC_POSTSCRIPT_NAME, FC_FULLNAME}) {
            const Pattern wanted(FcPatternCreate());
            const ObjectSet answered(FcObjectSetBuild(FC_FILE, property, nullptr));
            if (!wanted || !answered) return nullptr;
            FcPatternAddString(wanted.get(), property, fontconfigText(name.c_str()));
            const FontSet fonts(FcFontList(nullptr, wanted.get(), answered.get()));
            for (int i = 0; fonts && i < fonts->nfont; ++i) {
                if (!hasName(fonts->fonts[i], property, name)) continue;
                return std::make_shared<const Font>(Font{name, pointSize, fileOf(fonts->fonts[i])});
            }
        }
        return nullptr;
    }
};

}  // namespace

std::shared_ptr<Fonts> makeFontconfigFonts() {
    return std::make_shared<FontconfigFonts>();
}

}  // namespace qlsdk::platform
