#pragma once

#include <optional>

#include "QLSDKCoreKit/Export.h"
#include "QLSDKCoreKit/values/Data.h"
#include "QLSDKCoreKit/values/Value.h"

namespace qlsdk {

// AES-256 in CBC mode with PKCS#7 padding, for the feature kits. Stateless; any thread.
//
// `key` and `iv` are data, or text in standard base64. Shorter ones are filled up with zero bytes to 32 and
// 16 bytes, longer ones are cut. A key or initialisation vector that is neither data nor decodable text gives
// an absent result: it is never taken for a key of zeros.

/// Absent only on failure; empty data encrypts to one block of 16 bytes.
[[nodiscard]] QLSDK_EXPORT std::optional<Data> ql_secureEncryptWithKey(DataView data, const Value& key,
                                                                       const Value& iv);

/// Absent when the length or the padding is wrong, as it is with another key in all but one of 255 cases: the
/// mode carries no proof of the key.
[[nodiscard]] QLSDK_EXPORT std::optional<Data> ql_secureDecryptWithKey(DataView data, const Value& key,
                                                                       const Value& iv);

}  // namespace qlsdk
