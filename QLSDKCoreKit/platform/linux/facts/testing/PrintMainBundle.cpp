// Prints what the library takes for the main bundle of this program.
#include <iostream>

#include "QLSDKCoreKit/platform/linux/LinuxAdapters.h"

int main(int count, char**) {
    using namespace qlsdk::platform;
    if (count > 1) {
        // The library's text instead.
        const auto library = makeLinuxBundles({}, makeLinuxLocale())->bundleForAddress(libraryAddress());
        std::cout << library->localizedString("force_logged_out");
        return 0;
    }
    const auto bundle = makeLinuxBundles({}, makeLinuxLocale())->mainBundle();
    std::cout << bundle->path() << ' ' << bundle->textForInfoDictionaryKey("CFBundleVersion").value_or("none")
              << ' ' << bundle->localizedString("greeting");
}
