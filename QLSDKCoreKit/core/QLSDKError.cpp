#include "QLSDKCoreKit/core/QLSDKError.h"

#include <utility>

#include "QLSDKCoreKit/platform/Platform.h"

namespace qlsdk {

namespace {

constexpr std::int64_t kLoggedOutStatus = 401;

std::optional<std::string> textEntry(const Dictionary& userInfo, std::string_view key) {
    const Value* value = userInfo.find(key);
    const std::string* text = value != nullptr ? value->string() : nullptr;
    return text != nullptr ? std::optional(*text) : std::nullopt;
}

}  // namespace

Error::Error(std::string domain, std::int64_t code, Dictionary userInfo)
    : domain_(std::move(domain)), code_(code), userInfo_(std::move(userInfo)) {}

std::optional<std::string> Error::localizedDescription() const {
    return textEntry(userInfo_, NSLocalizedDescriptionKey);
}

std::optional<std::string> Error::localizedFailureReason() const {
    return textEntry(userInfo_, NSLocalizedFailureReasonErrorKey);
}

Error errorWithStatusCode(std::int64_t statusCode, std::string_view description, std::string_view reason) {
    Error error(kQLSDKErrorDomain, statusCode,
                {{std::string(NSLocalizedDescriptionKey), description},
                 {std::string(NSLocalizedFailureReasonErrorKey), reason}});
    error.origin_ = Error::Origin::library;
    return error;
}

Error logoutErrorWithReason(std::string_view reason) {
    const auto bundle = platform::current().bundles->bundleForAddress(platform::libraryAddress());
    return errorWithStatusCode(kLoggedOutStatus, bundle->localizedString("force_logged_out"), reason);
}

std::int64_t statusCode(const Error& error) noexcept {
    // On purpose: the origin decides and not the domain's text, which anybody may write into an error.
    return error.origin_ == Error::Origin::library ? error.code_ : kQLSDKNSErrorStatusCodeUnknown;
}

}  // namespace qlsdk
