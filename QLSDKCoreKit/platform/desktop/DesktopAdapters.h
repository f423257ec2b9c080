#pragma once

#include <memory>

#include "QLSDKCoreKit/platform/Platform.h"

namespace qlsdk::platform {

// One factory per port. All adapters are lazy: making one touches no file, no bus and starts no thread.

/// Launches on a serial queue of `queues`; `locale` decides the layout direction.
[[nodiscard]] std::shared_ptr<Application> makeGioApplication(std::shared_ptr<Queues> queues,
                                                              std::shared_ptr<Locale> locale);
[[nodiscard]] std::shared_ptr<Keychain> makeSecretKeychain();
[[nodiscard]] std::shared_ptr<Fonts> makeFontconfigFonts();

}  // namespace qlsdk::platform
