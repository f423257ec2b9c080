#include "QLSDKCoreKit/deeplink/QLSDKDeepLinker.h"

#include <string_view>
#include <utility>

#include "QLSDKCoreKit/core/Helpers.h"
#include "QLSDKCoreKit/core/QLAppEnvironment.h"
#include "QLSDKCoreKit/core/QLSDKClientSetup.h"
#include "QLSDKCoreKit/network/QLSDKPayload.h"
#include "QLSDKCoreKit/platform/Bundle.h"
#include "QLSDKCoreKit/platform/Json.h"
#include "QLSDKCoreKit/platform/Platform.h"
#include "QLSDKCoreKit/values/internal/JsonWriter.h"

namespace qlsdk {

namespace {

constexpr char kQuilloScheme[] = "quillo://";
constexpr char kAccessKitScheme[] = "quilloaccesskitv1://";
constexpr char kPathVersion[] = "1";

std::string versionedBase(std::string_view path) {
    return std::string(kQuilloScheme).append(path) + "/" + kPathVersion;
}

/// An entry without a value is left out, whoever set it before.
void assign(Dictionary& dictionary, std::string_view key, const std::optional<std::string>& text) {
    text ? dictionary.set(key, *text) : dictionary.erase(key);
}

std::optional<std::string> libraryVersion() {
    const char* version = QLKitVersionForClass(platform::libraryAddress());
    return version != nullptr ? std::optional<std::string>(version) : std::nullopt;
}

void open(const platform::Url& link, platform::OpenCompletion completionHandler) {
    platform::Application& application = *platform::current().application;
    if (application.openCall() == platform::OpenCall::modern) {
        application.openUrl(link.absoluteString(), Dictionary(), std::move(completionHandler));
        return;
    }
    // On purpose: unlike `openURL` of the application's helpers, this reports success whatever the legacy
    // call answers.
    (void)application.openUrl(link.absoluteString());
    if (completionHandler) completionHandler(true);
}

}  // namespace

QLSDKDeepLinker::QLSDKDeepLinker(QLSDKDeepLinkFeature feature, std::optional<Dictionary> metadata,
                                 std::optional<Dictionary> payload,
                                 std::optional<Dictionary> additionalQueries)
    : feature_(feature),
      metadata_(std::move(metadata)),
      payload_(std::move(payload)),
      additionalQueries_(std::move(additionalQueries)) {}

void QLSDKDeepLinker::connectWithFpAuth(bool fpAuth, platform::OpenCompletion completionHandler) const {
    platform::current().queues->mainQueue()->async(
        [link = linkWithFpAuth(fpAuth), completionHandler = std::move(completionHandler)]() mutable {
            if (link) {
                open(*link, std::move(completionHandler));
            } else if (completionHandler) {
                completionHandler(false);
            }
        });
}

std::optional<platform::Url> QLSDKDeepLinker::linkWithFpAuth(bool fpAuth) const {
    const std::optional<std::string> base = _schemeBase();
    if (!base) return std::nullopt;

    const std::optional<std::string> metadata = _encodeParams(extendedMetadata(fpAuth));
    if (!metadata) return std::nullopt;
    Dictionary queries{{"metadata", *metadata}};
    if (payload_) {
        const std::optional<std::string> payload = _encodeParams(*payload_);
        if (!payload) return std::nullopt;
        queries.set("payload", *payload);
    }
    if (additionalQueries_) {
        for (const auto& [name, value] : *additionalQueries_) queries.set(name, value);
    }
    assign(queries, "link", QLSDKClientSetup::sharedInstance().clientIDText());
    return buildWithBaseUrlString(*base, queries);
}

Dictionary QLSDKDeepLinker::extendedMetadata(bool fpAuth) const {
    Dictionary extended = metadata_.value_or(Dictionary());
    assign(extended, "version", libraryVersion());
    if (fpAuth) assign(extended, "fingerprint", QLSDKPayload::serializePayload({}));
    return extended;
}

bool QLSDKDeepLinker::isQuilloInstalled() {
    return platform::current().application->canOpenUrl(kQuilloScheme);
}

std::optional<std::string> QLSDKDeepLinker::_schemeBase() const {
    switch (feature_) {
        case QLSDKDeepLinkFeatureCamera:
            return versionedBase("camera");
        case QLSDKDeepLinkFeatureOAuth2:
            return std::string(kAccessKitScheme) + "oauth2";
        case QLSDKDeepLinkFeaturePreview:
            return versionedBase("preview");
    }
    return std::nullopt;
}

std::optional<std::string> QLSDKDeepLinker::_encodeParams(const Value& params) {
    const std::optional<std::string> json = platform::serializeJson(params);
    return json ? std::optional(ql_base64EncodedString(bytesOf(*json))) : std::nullopt;
}

}  // namespace qlsdk
