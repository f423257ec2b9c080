#pragma once

#include "QLSDKCoreKit/values/Data.h"

namespace qlsdk::platform {

/// Whether an XML text is harmless enough to be handed to a parser: of moderate size, without NUL bytes,
/// without declarations of its own (entities that expand), and not nested too deep. It need not be
/// well-formed.
[[nodiscard]] bool isHarmlessXml(DataView bytes) noexcept;

}  // namespace qlsdk::platform
