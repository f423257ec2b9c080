// Prints what the library takes for the main bundle of this program.
#include <iostream>

#include "QLSDKCoreKit/platform/linux/internal/LinuxAdapters.h"

int main() {
    using namespace qlsdk::platform;
    const auto bundle = makeLinuxBundles({}, makeLinuxLocale())->mainBundle();
    std::cout << bundle->path() << ' ' << bundle->textForInfoDictionaryKey("CFBundleVersion").value_or("none")
              << ' ' << bundle->localizedString("greeting");
}
