#include "QLSDKCoreKit/platform/internal/LibraryAddresses.h"

#include <algorithm>
#include <array>

#include "QLSDKCoreKit/platform/Bundle.h"

// Every plain symbol of the library, from the list of those it exports. Weak, so that a program that calls
// none of them is not linked with all of them.
extern "C" {
#define QLSDK_SYMBOL(name) [[gnu::weak]] extern const char name[];
#include "LibrarySymbols.inc"
#undef QLSDK_SYMBOL
// Defined in the shared library only.
[[gnu::weak, gnu::visibility("hidden")]] extern const char qlsdkSharedLibrary[];
}

namespace qlsdk::platform {

namespace {

const char kAddress[] = "library";

/// Those of the constants that are texts, so that their value is an address of ours, too.
constexpr std::array kTexts = {kQLOAuth2ClientLogoutError,      kQLSDKErrorDomain,
                               kQLSDKKeychainServiceNameSuffix, kQLSDKMaxSequenceIdKey,
                               kQLSDKRetryAfterHeader,          kQLSDKUnsentEventsKey};

bool isTextAt(const char* constant, const void* address) noexcept {
    return constant != nullptr && *reinterpret_cast<const char* const*>(constant) == address;
}

}  // namespace

const void* libraryAddress() noexcept {
    return kAddress;
}

bool isLibraryAddress(const void* address) noexcept {
    if (address == nullptr) return false;
    if (address == kAddress) return true;
    const std::array symbols = {
#define QLSDK_SYMBOL(name) static_cast<const void*>(name),
#include "LibrarySymbols.inc"
#undef QLSDK_SYMBOL
    };
    return std::find(symbols.begin(), symbols.end(), address) != symbols.end() ||
           std::any_of(kTexts.begin(), kTexts.end(),
                       [address](const char* text) { return isTextAt(text, address); });
}

bool isSharedLibrary() noexcept {
    return static_cast<const void*>(qlsdkSharedLibrary) != nullptr;
}

}  // namespace qlsdk::platform
