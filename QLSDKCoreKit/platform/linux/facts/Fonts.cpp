#include "QLSDKCoreKit/platform/Fonts.h"

#include "QLSDKCoreKit/platform/linux/LinuxAdapters.h"

namespace qlsdk::platform {

namespace {

class HeadlessFonts final : public Fonts {
  public:
    std::shared_ptr<const Font> fontWithName(const std::string&, double) override { return nullptr; }
};

}  // namespace

std::shared_ptr<Fonts> makeHeadlessFonts() {
    return std::make_shared<HeadlessFonts>();
}

}  // namespace qlsdk::platform
