#include "QLSDKCoreKit/config/QLSDKDynamicConfigManager.h"

#include <cassert>
#include <cstddef>
#include <string_view>
#include <utility>

#include "QLSDKCoreKit/config/internal/FetchAnswer.h"
#include "QLSDKCoreKit/core/QLAppEnvironment.h"
#include "QLSDKCoreKit/core/internal/ConfigUpdate.h"
#include "QLSDKCoreKit/network/QLPayloadProvider.h"
#include "QLSDKCoreKit/network/QLSDKNetworkRequest.h"
#include "QLSDKCoreKit/platform/Json.h"
#include "QLSDKCoreKit/platform/Platform.h"

namespace qlsdk {

namespace {

constexpr std::string_view kQuery =
    "query($kitVersion: String!) {config(kitVersion: $kitVersion) {avatoonLearnedSearch{enabled}}}";
constexpr std::int64_t kStatusOk = 200;
constexpr platform::BodyCeiling kBodyCeiling{std::size_t{1} << 20};

std::string kitVersionOfLibrary() {
    // Any object of the library's own names its bundle. A bundle without a version is sent as an empty one.
    const char* version = QLKitVersionForClass(kQuery.data());
    return version != nullptr ? version : "";
}

void callSwallowing(const DynamicConfigCallback& callback, bool success) noexcept {
    try {
        callback(success);
    } catch (...) {
        // The outcome stands; what the listener makes of the news is its own affair, and others still wait.
    }
}

}  // namespace

QLSDKDynamicConfigManager& QLSDKDynamicConfigManager::shared() {
    // Never destroyed: a fetch may still call back while the process ends.
    static const auto& shared = *new std::shared_ptr<QLSDKDynamicConfigManager>(create());
    return *shared;
}

std::shared_ptr<QLSDKDynamicConfigManager> QLSDKDynamicConfigManager::create() {
    return create(QLSDKDynamicConfigArchive(), kitVersionOfLibrary());
}

std::shared_ptr<QLSDKDynamicConfigManager> QLSDKDynamicConfigManager::create(
    QLSDKDynamicConfigArchive archive, std::string kitVersion) {
    return std::shared_ptr<QLSDKDynamicConfigManager>(
        new QLSDKDynamicConfigManager(archive, std::move(kitVersion)));
}

QLSDKDynamicConfigManager::QLSDKDynamicConfigManager(QLSDKDynamicConfigArchive archive,
                                                     std::string kitVersion)
    : configArchive_(archive),
      kitVersion_(std::move(kitVersion)),
      queue_(platform::current().queues->makeSerialQueue("com.quill.connect.QLSDKDynamicConfigManager")) {}

QLSDKDynamicConfigManager::~QLSDKDynamicConfigManager() {
    platform::consentGate().removeKeeper(keeper_);
    // Only those that still wait for consent: a fetch under way keeps the manager alive.
    answerCallbacks(false);
}

void QLSDKDynamicConfigManager::updateIfNecessary(std::shared_ptr<const DynamicConfigCallback> callback) {
    if (callback == nullptr || *callback == nullptr) return;
    // Strongly: a callback that was taken is called, even when the manager's owner has given it up.
    queue_->async([self = shared_from_this(), callback = std::move(callback)]() mutable {
        self->update(std::move(callback));
    });
}

void QLSDKDynamicConfigManager::update(std::shared_ptr<const DynamicConfigCallback> callback) {
    assert(queue_->isCurrent());
    const QLSDKDynamicConfigState state = state_;
    if (state != QLSDKDynamicConfigStateIdle && state != QLSDKDynamicConfigStateFetching) {
        callSwallowing(*callback, wasFetchFromNetworkSuccessful_);
        return;
    }
    updateCallbacks_.insert(std::move(callback));
    if (state == QLSDKDynamicConfigStateFetching) return;
    if (!platform::maySend(platform::consentGate().consent())) awaitConsent();
    fetchIfConsented();
}

/// So that the answer is not missed, the caller looks at the consent once more afterwards.
void QLSDKDynamicConfigManager::awaitConsent() {
    assert(queue_->isCurrent());
    if (keeper_ != 0) return;
    const auto changed = [weak = weak_from_this()] {
        const auto self = weak.lock();
        if (self != nullptr) self->queue_->async([self] { self->fetchIfConsented(); });
    };
    platform::ConsentGate& gate = platform::consentGate();
    const auto refused = [changed](const platform::ConsentGate::Refusal&) { changed(); };
    keeper_ = gate.addKeeper({refused, changed, {}}, gate.refusals());
}

void QLSDKDynamicConfigManager::fetchIfConsented() {
    assert(queue_->isCurrent());
    if (state_ != QLSDKDynamicConfigStateIdle || updateCallbacks_.empty()) return;
    const platform::Consent consent = platform::consentGate().consent();
    if (!platform::mayKeep(consent)) return answerCallbacks(false);
    if (!platform::maySend(consent)) return;
    state_ = QLSDKDynamicConfigStateFetching;
    // Strongly, as above: the callbacks wait in the manager.
    _fetchLatestConfig([self = shared_from_this()](const std::optional<DynamicConfigEntities>& entities) {
        self->queue_->async([self, entities] { self->_handleFetchCompletion(entities); });
    });
}

void QLSDKDynamicConfigManager::_fetchLatestConfig(FetchCompletion completion) const {
    // Answers with a failed fetch if it is given up on any path below or by the session.
    const auto answer = std::make_shared<FetchAnswer>(std::move(completion));
    std::optional<platform::UrlRequest> request = fetchRequest();
    if (!request) return;
    platform::current().urlSession->dataTask(
        std::move(*request), kBodyCeiling,
        [answer](const platform::UrlResult& result) { answer->give(entitiesIn(result)); });
}

std::optional<platform::UrlRequest> QLSDKDynamicConfigManager::fetchRequest() const {
    const std::optional<std::string> body = platform::serializeJson(
        Dictionary{{"query", kQuery}, {"variables", Dictionary{{"kitVersion", kitVersion_}}}});
    if (!body) return std::nullopt;
    QLSDKNetworkRequest request("/v1/config", "POST", std::make_shared<QLPayloadProvider>());
    request.setHttpBody(dataOf(*body));
    request.setContentType("application/json;charset=utf-8");
    return request.toUrlRequest();
}

std::optional<DynamicConfigEntities> QLSDKDynamicConfigManager::entitiesIn(
    const platform::UrlResult& result) {
    if (result.error || !result.response || result.response->statusCode != kStatusOk) return std::nullopt;
    const std::optional<Value> root = platform::parseJson(result.body, {.bytes = kBodyCeiling.bytes});
    if (!root) return std::nullopt;
    const Value config = (*root)["data"]["config"];
    if (config.dictionary() == nullptr) return std::nullopt;
    return _parseJsonConfig(*config.dictionary());
}

DynamicConfigEntities QLSDKDynamicConfigManager::_parseJsonConfig(const Dictionary& config) {
    DynamicConfigEntities entities;
    for (const auto& [name, value] : config) {
        if (name.empty() || value.dictionary() == nullptr) continue;
        entities.emplace(name, std::make_shared<QLSDKDynamicConfigEntity>(name, value));
    }
    return entities;
}

void QLSDKDynamicConfigManager::_handleFetchCompletion(const std::optional<DynamicConfigEntities>& entities) {
    assert(queue_->isCurrent());
    const bool success = configArchive_.archiveSync(entities);
    wasFetchFromNetworkSuccessful_ = success;
    answerCallbacks(success);
    state_ = QLSDKDynamicConfigStateDone;
}

void QLSDKDynamicConfigManager::answerCallbacks(bool success) {
    for (const auto& callback : std::exchange(updateCallbacks_, {})) callSwallowing(*callback, success);
}

std::shared_ptr<const QLSDKDynamicConfigEntity> QLSDKDynamicConfigManager::dynamicConfig(
    const std::string& name) const {
    const std::optional<DynamicConfigEntities> entities = configArchive_.unarchiveSync();
    if (!entities) return nullptr;
    const auto found = entities->find(name);
    return found != entities->end() ? found->second : nullptr;
}

// Declared in core, which starts the library: the one arrow between folders that runs upwards.
void requestConfigUpdate(std::function<void(bool success)> completion) {
    QLSDKDynamicConfigManager::shared().updateIfNecessary(
        std::make_shared<const DynamicConfigCallback>(std::move(completion)));
}

}  // namespace qlsdk
