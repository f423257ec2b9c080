#pragma once

#include "QLSDKCoreKit/platform/Application.h"

namespace qlsdk {

// Hooks for any view controller that a development build fills with its tweaks screen. Main queue.

/// Lets the user open the tweaks screen by a gesture. Does nothing in this build.
inline void addTweaksGesture(platform::ViewController&) {}

/// Shows the tweaks screen. Does nothing in this build.
inline void showTweaksViewController(platform::ViewController&) {}

}  // namespace qlsdk
