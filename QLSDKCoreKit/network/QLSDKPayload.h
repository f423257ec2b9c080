#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "QLSDKCoreKit/Export.h"
#include "QLSDKCoreKit/values/Data.h"

namespace qlsdk {

/// Makes client auth tokens: "v2:NONCE:TAG:SEALED" in upper-case hexadecimal digits, where SEALED is the
/// padded text "bundle identifier:milliseconds since 1970" under a fresh nonce. Stateless; any thread.
class QLSDK_EXPORT QLSDKPayload {
  public:
    QLSDKPayload() = delete;

    /// A fresh token. The data is not used. Absent when the random source fails; the literal "v2:(null)" when
    /// only the sealing does, and that is what is sent.
    [[nodiscard]] static std::optional<std::string> serializePayload(DataView data);

    /// The text that is sealed: the main bundle's identifier ("(null)" without one), a colon and the time in
    /// milliseconds. The data is not used.
    [[nodiscard]] static std::string serialize(DataView data);

    /// "NONCE:TAG:SEALED" for `plaintext`. Absent for an absent text, and when the random source or the
    /// sealing fails.
    [[nodiscard]] static std::optional<std::string> formatSerializedPayload(
        const std::optional<std::string>& plaintext);

    /// `length` rounded up to the next multiple of `blockSize` that is larger than it. A block size of 0 is a
    /// programming error of the caller and answers `length`.
    [[nodiscard]] static std::uint32_t getPaddedLength(std::uint32_t length,
                                                       std::uint32_t blockSize) noexcept;

    /// Two upper-case digits a byte, high half first. A null pointer reads as no bytes.
    [[nodiscard]] static std::string convertBytesToHexString(const std::uint8_t* bytes, std::size_t length);
    [[nodiscard]] static std::string convertDataToHexString(DataView data);
};

/// What a client auth token says.
struct OpenedToken {
    /// The identifier of the app that made it.
    std::string bundleIdentifier;
    /// When it was made, in milliseconds since 1970 by that app's clock.
    std::int64_t createdMillis = 0;
};

/// Opens a client auth token with the key that is built into this library, whatever its app and age; a
/// server's own rules are judged by network/TokenOpener.h. Absent when it is no token, was sealed with
/// another key or was changed on its way. Stateless; any thread.
[[nodiscard]] QLSDK_EXPORT std::optional<OpenedToken> openToken(std::string_view token) noexcept;

}  // namespace qlsdk
