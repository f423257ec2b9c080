#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "QLSDKCoreKit/Export.h"
#include "QLSDKCoreKit/platform/Application.h"
#include "QLSDKCoreKit/platform/Url.h"
#include "QLSDKCoreKit/values/Value.h"

namespace qlsdk {

/// What a link asks of the companion app. For a value outside the table there is no link.
enum QLSDKDeepLinkFeature : std::uint64_t {
    /// Open the camera: "quillo://camera/1".
    QLSDKDeepLinkFeatureCamera = 0,
    /// Authorise through the app: "quilloaccesskitv1://oauth2".
    QLSDKDeepLinkFeatureOAuth2 = 1,
    /// Show a preview: "quillo://preview/1".
    QLSDKDeepLinkFeaturePreview = 2,
};

/// Builds links into the companion app, Quillo, and opens them through the host's application object.
///
/// A link carries base64 of compact JSON under "metadata" and, when there is one, under "payload"; the
/// additional queries as they are; and the client identifier under "link". Immutable: one linker may be used
/// for any number of connections, from any thread.
class QLSDK_EXPORT QLSDKDeepLinker final {
  public:
    /// `metadata` and `payload` hold what JSON can; an absent payload leaves the parameter out, an empty one
    /// does not. `additionalQueries` holds texts; anything else is rendered as one.
    QLSDKDeepLinker(QLSDKDeepLinkFeature feature, std::optional<Dictionary> metadata,
                    std::optional<Dictionary> payload, std::optional<Dictionary> additionalQueries);

    [[nodiscard]] QLSDKDeepLinkFeature feature() const noexcept { return feature_; }
    [[nodiscard]] const std::optional<Dictionary>& metadata() const noexcept { return metadata_; }
    [[nodiscard]] const std::optional<Dictionary>& payload() const noexcept { return payload_; }
    [[nodiscard]] const std::optional<Dictionary>& additionalQueries() const noexcept {
        return additionalQueries_;
    }

    /// Builds a link on the calling thread and opens it later, on the main queue. `completionHandler`, which
    /// may be null, is called once, on the main queue: with the outcome of the open call where the
    /// application has the modern one, with true whatever happens where it has only the legacy one, and with
    /// false when there is no link to open. Whether the app is installed is not looked at.
    void connectWithFpAuth(bool fpAuth, platform::OpenCompletion completionHandler) const;

    /// The link that `connectWithFpAuth` would open, for those who want to show it. With `fpAuth` its
    /// metadata carry a client auth token, made afresh each time, as "fingerprint". Absent for a feature
    /// outside the table and when metadata or payload hold what JSON cannot: text that is not UTF-8, a number
    /// that is not finite, data, a date. Any thread.
    ///
    /// The library's own entries win over the caller's: "version" and, with `fpAuth`, "fingerprint" in the
    /// metadata, and "link" among the queries. One that has no value is left out, the caller's with it.
    /// Additional queries called "metadata" or "payload" win over the encoded ones.
    [[nodiscard]] std::optional<platform::Url> linkWithFpAuth(bool fpAuth) const;

    /// True when something on the system opens "quillo://" links; always false where the host has not
    /// declared that it asks for this scheme, if the system demands it. Main queue.
    [[nodiscard]] static bool isQuilloInstalled();

  private:
    [[nodiscard]] std::optional<std::string> _schemeBase() const;
    [[nodiscard]] static std::optional<std::string> _encodeParams(const Value& params);
    [[nodiscard]] Dictionary extendedMetadata(bool fpAuth) const;

    const QLSDKDeepLinkFeature feature_;
    const std::optional<Dictionary> metadata_;
    const std::optional<Dictionary> payload_;
    const std::optional<Dictionary> additionalQueries_;
};

}  // namespace qlsdk
