#include <optional>
#include <string_view>

#include "QLSDKCoreKit/c/QLSDK.h"
#include "QLSDKCoreKit/c/internal/Facade.h"
#include "QLSDKCoreKit/c/internal/Growing.h"
#include "QLSDKCoreKit/deeplink/QLSDKDeepLinker.h"
#include "QLSDKCoreKit/platform/Json.h"
#include "QLSDKCoreKit/platform/Platform.h"

namespace {

using qlsdk::answerOr;
using qlsdk::Dictionary;
using qlsdk::QLSDKDeepLinker;

/// Reads one JSON text; what is there and is no object leaves no link.
class Objects {
  public:
    std::optional<Dictionary> read(const char* json) {
        if (json == nullptr) return std::nullopt;
        const auto value = qlsdk::platform::parseJson(qlsdk::bytesOf(std::string_view(json)));
        if (value && value->dictionary() != nullptr) return *value->dictionary();
        areValid_ = false;
        return std::nullopt;
    }
    [[nodiscard]] bool areValid() const noexcept { return areValid_; }

  private:
    bool areValid_ = true;
};

std::optional<QLSDKDeepLinker> linkerOf(const std::optional<QLSDKLink>& link) {
    if (!link) return std::nullopt;
    Objects objects;
    const auto metadata = objects.read(link->metadataJson);
    const auto payload = objects.read(link->payloadJson);
    const auto queries = objects.read(link->additionalQueriesJson);
    if (!objects.areValid()) return std::nullopt;
    return std::optional<QLSDKDeepLinker>(
        std::in_place, static_cast<qlsdk::QLSDKDeepLinkFeature>(link->feature), metadata, payload, queries);
}

}  // namespace

size_t QLSDKMakeLink(const QLSDKLink* link, char* buffer, size_t capacity) {
    const auto text = answerOr(std::optional<std::string>(), [link]() -> std::optional<std::string> {
        const auto given = qlsdk::fromHost(link);
        const auto linker = linkerOf(given);
        const auto url = linker ? linker->linkWithFpAuth(given->withFingerprint) : std::nullopt;
        return url ? std::optional(url->absoluteString()) : std::nullopt;
    });
    return qlsdk::giveText(text, buffer, capacity);
}

void QLSDKOpenLink(const QLSDKLink* link, void (*callback)(bool success, void* context), void* context) {
    const auto owed = qlsdk::owedTo(callback, context);
    if (owed == nullptr) return;
    qlsdk::runSwallowing([link, &owed] {
        const auto tell = [owed](bool success) { owed->give(success); };
        const auto given = qlsdk::fromHost(link);
        if (const auto linker = linkerOf(given))
            return linker->connectWithFpAuth(given->withFingerprint, tell);
        qlsdk::platform::current().queues->mainQueue()->async([tell] { tell(false); });
    });
}

bool QLSDKCanOpenLinks() {
    return answerOr(false, [] { return QLSDKDeepLinker::isQuilloInstalled(); });
}
