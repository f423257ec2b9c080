#pragma once

#include <optional>
#include <string>

#include "QLSDKCoreKit/Export.h"
#include "QLSDKCoreKit/platform/Url.h"
#include "QLSDKCoreKit/values/Value.h"

namespace qlsdk {

/// The names of the two fonts the feature kits write with. Immutable; any thread. Both are always set;
/// whether the system knows them shows only when a font is asked for (FontHelpers.h).
class QLSDK_EXPORT QLSDKFont {
  public:
    /// `fontConfig`: a dictionary with the font names under "regular" and "bold", or null. Without "regular"
    /// the defaults "AvenirNext-Medium" and "AvenirNext-DemiBold" are taken, whatever "bold" holds; without
    /// "bold" the regular name serves for both. A name that is no text is taken as its rendering.
    explicit QLSDKFont(const Value& fontConfig);

    [[nodiscard]] const std::string& regularFontName() const noexcept { return regularFontName_; }
    [[nodiscard]] const std::string& boldFontName() const noexcept { return boldFontName_; }

  private:
    std::string regularFontName_;
    std::string boldFontName_;
};

/// The host application's configuration: the entry of the library.
///
/// Read once, from the main bundle's property list, when the shared instance is first asked for; a change of
/// the file needs a new process. Immutable afterwards and never destroyed. Any thread. No value is checked:
/// what the property list holds is what the getters answer, and a missing key reads as null.
///
/// The first access also starts the library: it queues one remote-configuration update on the main queue. The
/// update never runs inside the call that caused it.
class QLSDK_EXPORT QLSDKClientSetup {
  public:
    /// The one setup. A missing "QLSDKClientId" is reported once as a handled assertion; the setup exists all
    /// the same. The port that reads the property list must not call this: it would wait for itself.
    static QLSDKClientSetup& sharedInstance();

    QLSDKClientSetup(const QLSDKClientSetup&) = delete;
    QLSDKClientSetup& operator=(const QLSDKClientSetup&) = delete;

    /// "QLSDKClientId" as stored, so a number stays a number; null when missing.
    [[nodiscard]] Value clientID() const;

    /// `clientID` as it stands on the wire and in header fields: a text as it is, anything else rendered;
    /// absent when null.
    [[nodiscard]] std::optional<std::string> clientIDText() const;

    /// "QLSDKRedirectUrl" as a URL; absent when it is missing, no text, empty or no URL.
    [[nodiscard]] std::optional<platform::Url> redirectURL() const { return redirectURL_; }

    /// "QLSDKScopes" as stored, normally an array of scope texts; null when missing.
    [[nodiscard]] Value scopes() const { return scopes_; }

    /// The fonts of "QLSDKFonts", or the defaults.
    [[nodiscard]] const QLSDKFont& font() const noexcept { return font_; }

  private:
    /// `infoDictionary`: the main bundle's property list, or null.
    explicit QLSDKClientSetup(const Value& infoDictionary);

    /// Makes, publishes and starts the shared setup, unless another thread has begun to; null then.
    static QLSDKClientSetup* _makeShared();
    void _reportMissingClientId() const noexcept;
    static void _schedulePostInitialization() noexcept;
    static void _postInitialization();
    static bool _shouldOverrideClientId();

    friend std::optional<std::string> clientIDForReports();

    const Value clientID_;
    const std::optional<platform::Url> redirectURL_;
    const Value scopes_;
    const QLSDKFont font_;
};

}  // namespace qlsdk
