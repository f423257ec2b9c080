#pragma once

#include <memory>

#include "QLSDKCoreKit/Export.h"
#include "QLSDKCoreKit/platform/Application.h"
#include "QLSDKCoreKit/platform/Fonts.h"
#include "QLSDKCoreKit/platform/NotificationCenter.h"
#include "QLSDKCoreKit/platform/Url.h"

namespace qlsdk {

// The host's application object. All of these belong on the main queue. On a system without a user interface
// nothing can be opened, nothing runs from right to left, and there is no view controller.

/// Opens `url` with whatever the system has for it. `completion`, which may be null, hears the outcome once:
/// later, on the main queue, where the application object has the modern call; where it has only the legacy
/// one, inside this call. What it throws in there is swallowed.
QLSDK_EXPORT void openURL(const platform::Url& url, platform::OpenCompletion completion);

/// True when the user interface runs from right to left.
[[nodiscard]] QLSDK_EXPORT bool isRTL();

/// The controller that is shown on top: from the key window's root along the presented ones. Navigation and
/// tab containers are not entered. Null without a key window. A chain that runs in a circle is left after
/// 1000 steps, with the controller reached by then.
[[nodiscard]] QLSDK_EXPORT std::shared_ptr<platform::ViewController> topViewController();

// The fonts that the client setup names, at `pointSize` points. Null when the system does not know the name:
// there is no fallback to another font. Any thread.

[[nodiscard]] QLSDK_EXPORT std::shared_ptr<const platform::Font> qlsdkRegularFontOfSize(double pointSize);
[[nodiscard]] QLSDK_EXPORT std::shared_ptr<const platform::Font> qlsdkBoldFontOfSize(double pointSize);

/// The library's own notification center, so that its notifications never reach the observers of the
/// process's default one. Made on first use, never destroyed. Any thread.
[[nodiscard]] QLSDK_EXPORT platform::NotificationCenter& qlsdkCenter();

// Hooks for any view controller that a development build fills with its tweaks screen. Main queue.

/// Lets the user open the tweaks screen by a gesture. Does nothing in this build.
inline void addTweaksGesture(platform::ViewController&) {}

/// Shows the tweaks screen. Does nothing in this build.
inline void showTweaksViewController(platform::ViewController&) {}

}  // namespace qlsdk
