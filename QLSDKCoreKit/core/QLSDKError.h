#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "QLSDKCoreKit/Export.h"
#include "QLSDKCoreKit/core/QLSDKConstants.h"
#include "QLSDKCoreKit/values/Value.h"

namespace qlsdk {

/// The entry of an error's user information that tells the user what happened.
inline constexpr std::string_view NSLocalizedDescriptionKey = "NSLocalizedDescriptionKey";
/// The entry that says why.
inline constexpr std::string_view NSLocalizedFailureReasonErrorKey = "NSLocalizedFailureReasonErrorKey";

/// What went wrong: a domain, a code within it, and information for people. An immutable value; any thread.
class QLSDK_EXPORT Error {
  public:
    /// An error of somebody else's: `statusCode` does not trust its code, whatever `domain` says.
    Error(std::string domain, std::int64_t code, Dictionary userInfo = {});

    [[nodiscard]] const std::string& domain() const noexcept { return domain_; }
    [[nodiscard]] std::int64_t code() const noexcept { return code_; }
    [[nodiscard]] const Dictionary& userInfo() const noexcept { return userInfo_; }

    /// The text entries of `userInfo`; absent when it has none.
    [[nodiscard]] std::optional<std::string> localizedDescription() const;
    [[nodiscard]] std::optional<std::string> localizedFailureReason() const;

  private:
    friend QLSDK_EXPORT Error errorWithStatusCode(std::int64_t, std::string_view, std::string_view);
    friend QLSDK_EXPORT std::int64_t statusCode(const Error&) noexcept;

    enum class Origin { elsewhere, library };

    std::string domain_;
    std::int64_t code_;
    Dictionary userInfo_;
    Origin origin_ = Origin::elsewhere;
};

/// A new error of the library's domain. `statusCode` is an HTTP-like status and is not checked; the user
/// information holds exactly `description` and `reason`.
[[nodiscard]] QLSDK_EXPORT Error errorWithStatusCode(std::int64_t statusCode, std::string_view description,
                                                     std::string_view reason);

/// The error of a user whom the service has logged out: status 401, described by the library's text
/// "force_logged_out" in the user's language, or by that key itself where there is no translation.
[[nodiscard]] QLSDK_EXPORT Error logoutErrorWithReason(std::string_view reason);

/// The code of an error that this library made, or a copy of one; `kQLSDKNSErrorStatusCodeUnknown` for any
/// other, also for one that merely names the same domain.
[[nodiscard]] QLSDK_EXPORT std::int64_t statusCode(const Error& error) noexcept;

}  // namespace qlsdk
