#pragma once

#include <optional>
#include <string>

#include "QLSDKCoreKit/Export.h"

namespace qlsdk::platform {

/// A NUL-terminated copy of `text` that lives until the process ends, the same pointer for the same text;
/// null for an absent one. For C functions that return text which the caller does not own. Meant for facts
/// with few different values. Any thread.
[[nodiscard]] const char* internedText(const std::optional<std::string>& text);

}  // namespace qlsdk::platform
