#include "QLSDKCoreKit/config/QLSDKDynamicConfigManager.h"

#include <atomic>
#include <cassert>
#include <cstddef>
#include <optional>
#include <set>
#include <string_view>
#include <utility>

#include "QLSDKCoreKit/config/QLSDKDynamicConfigArchive.h"
#include "QLSDKCoreKit/config/internal/FetchAnswer.h"
#include "QLSDKCoreKit/control/ConsentGate.h"
#include "QLSDKCoreKit/core/QLAppEnvironment.h"
#include "QLSDKCoreKit/core/internal/ConfigUpdate.h"
#include "QLSDKCoreKit/network/QLPayloadProvider.h"
#include "QLSDKCoreKit/network/QLSDKNetworkRequest.h"
#include "QLSDKCoreKit/platform/Bundle.h"
#include "QLSDKCoreKit/platform/Diagnostics.h"
#include "QLSDKCoreKit/platform/Json.h"
#include "QLSDKCoreKit/platform/Platform.h"
#include "QLSDKCoreKit/platform/internal/ForkSafeOnce.h"
#include "QLSDKCoreKit/values/internal/JsonWriter.h"

namespace qlsdk {

namespace {

constexpr std::string_view kQuery =
    "query($kitVersion: String!) {config(kitVersion: $kitVersion) {avatoonLearnedSearch{enabled}}}";
constexpr std::int64_t kStatusOk = 200;
constexpr platform::BodyCeiling kBodyCeiling{std::size_t{1} << 20};

std::string kitVersionOfLibrary() {
    // Any object of the library's own names its bundle. A bundle without a version is sent as an empty one.
    const char* version = QLKitVersionForClass(platform::libraryAddress());
    return version != nullptr ? version : "";
}

void reportUnusableAnswer(const char* cause, std::string detail = {}) {
    // A dry run's empty answer is nobody's fault.
    if (platform::current().controls.dryRun) return;
    platform::reportDiagnostic(
        {.kind = platform::DiagnosticKind::serverAnswer, .cause = cause, .detail = std::move(detail)});
}

// The session tells by itself why a request has ended without an answer.
bool isGood(const platform::UrlResult& result) {
    if (result.error || !result.response) return false;
    const std::int64_t status = result.response->statusCode;
    if (status != kStatusOk) {
        reportUnusableAnswer("the configuration's answer has another status than 200",
                             std::to_string(status));
    }
    return status == kStatusOk;
}

}  // namespace

/// The manager behind its header; the fetch holds on to it, and so do tasks.
class QLSDKDynamicConfigManager::Core : public std::enable_shared_from_this<Core> {
  public:
    Core(QLSDKDynamicConfigArchive archive, std::string kitVersion);
    ~Core();
    Core(const Core&) = delete;
    Core& operator=(const Core&) = delete;

    void updateIfNecessary(std::shared_ptr<const DynamicConfigCallback> callback);
    [[nodiscard]] std::shared_ptr<const QLSDKDynamicConfigEntity> dynamicConfig(
        const std::string& name) const;

    // Written on the queue and by the setters.
    std::atomic<QLSDKDynamicConfigState> state{QLSDKDynamicConfigStateIdle};
    std::atomic<bool> wasFetchFromNetworkSuccessful{false};

  private:
    /// Hears what was fetched, absent for a failed fetch; exactly once, on any thread.
    using FetchCompletion = std::function<void(const std::optional<DynamicConfigEntities>& entities)>;

    struct Landing;

    void update(OwedCallback& owed);
    void awaitConsent();
    void fetchIfConsented();
    void answerCallbacks(bool success);
    void _fetchLatestConfig(FetchCompletion completion) const;
    [[nodiscard]] std::optional<platform::UrlRequest> fetchRequest() const;
    void _handleFetchCompletion(const std::optional<DynamicConfigEntities>& entities);
    [[nodiscard]] static std::optional<DynamicConfigEntities> entitiesIn(DataView body);
    [[nodiscard]] static DynamicConfigEntities _parseJsonConfig(const Dictionary& config);

    // Set once in the constructor.
    const QLSDKDynamicConfigArchive configArchive_;
    const std::string kitVersion_;
    const std::shared_ptr<platform::SerialQueue> queue_;

    // Written by whoever loses an answer.
    std::atomic<bool> answerWasLost_{false};

    // Belong to `queue_`.
    std::set<std::shared_ptr<const DynamicConfigCallback>> updateCallbacks_;
    platform::ConsentGate::KeeperId keeper_ = 0;
};

/// The way of a fetch's answer back to the queue. Where there is no memory for it, the next to ask is told.
struct QLSDKDynamicConfigManager::Core::Landing {
    explicit Landing(std::shared_ptr<Core> owner) noexcept : manager(std::move(owner)) {}
    Landing(const Landing&) = delete;
    Landing& operator=(const Landing&) = delete;
    ~Landing() {
        if (!isHeard) manager->answerWasLost_ = true;
    }

    const std::shared_ptr<Core> manager;
    /// Belongs to the queue, and to the destructor.
    bool isHeard = false;
};

QLSDKDynamicConfigManager::Core::Core(QLSDKDynamicConfigArchive archive, std::string kitVersion)
    : configArchive_(archive),
      kitVersion_(std::move(kitVersion)),
      queue_(platform::current().queues->makeSerialQueue("com.quill.connect.QLSDKDynamicConfigManager")) {}

QLSDKDynamicConfigManager::Core::~Core() {
    platform::consentGate().removeKeeper(keeper_);
    // Only those that still wait for consent: a fetch under way keeps the manager alive.
    answerCallbacks(false);
}

void QLSDKDynamicConfigManager::Core::updateIfNecessary(
    std::shared_ptr<const DynamicConfigCallback> callback) {
    if (callback == nullptr || *callback == nullptr) return;
    OwedCallback owed(std::move(callback));
    try {
        // Strongly: a callback that was taken is called, even when the manager's owner has given it up.
        queue_->async([self = shared_from_this(), taken = std::make_shared<OwedCallback>(std::move(owed))] {
            self->update(*taken);
        });
    } catch (...) {
        // Without the memory for a task the callback hears of a failure, from whoever owes it the answer.
    }
}

void QLSDKDynamicConfigManager::Core::update(OwedCallback& owed) {
    assert(queue_->isCurrent());
    const QLSDKDynamicConfigState now = state;
    if (now != QLSDKDynamicConfigStateIdle && now != QLSDKDynamicConfigStateFetching) {
        owed.give(wasFetchFromNetworkSuccessful);
        return;
    }
    updateCallbacks_.insert(owed.callback());
    owed.handOver();
    if (now == QLSDKDynamicConfigStateFetching) {
        if (answerWasLost_) _handleFetchCompletion(std::nullopt);
        return;
    }
    if (!platform::maySend(platform::consentGate().consent())) awaitConsent();
    fetchIfConsented();
}

/// So that the answer is not missed, the caller looks at the consent once more afterwards.
void QLSDKDynamicConfigManager::Core::awaitConsent() {
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

void QLSDKDynamicConfigManager::Core::fetchIfConsented() {
    assert(queue_->isCurrent());
    if (state != QLSDKDynamicConfigStateIdle || updateCallbacks_.empty()) return;
    const platform::Consent consent = platform::consentGate().consent();
    if (!platform::mayKeep(consent)) return answerCallbacks(false);
    if (!platform::maySend(consent)) return;
    state = QLSDKDynamicConfigStateFetching;
    try {
        // Strongly, as above: the callbacks wait in the manager.
        const auto landing = std::make_shared<Landing>(shared_from_this());
        _fetchLatestConfig([landing](const std::optional<DynamicConfigEntities>& entities) {
            landing->manager->queue_->async([landing, entities] {
                landing->isHeard = true;
                landing->manager->_handleFetchCompletion(entities);
            });
        });
    } catch (...) {
        // There was no memory to ask; that is the outcome of the one fetch.
        _handleFetchCompletion(std::nullopt);
    }
}

void QLSDKDynamicConfigManager::Core::_fetchLatestConfig(FetchCompletion completion) const {
    // Answers with a failed fetch if it is given up on any path below or by the session.
    const auto answer = std::make_shared<FetchAnswer>(std::move(completion));
    try {
        std::optional<platform::UrlRequest> request = fetchRequest();
        if (!request) return;
        // The session's thread only hands the result over, in the order in which results come; whatever it
        // holds is looked at on the queue.
        platform::current().urlSession->dataTask(
            std::move(*request), kBodyCeiling, [answer, queue = queue_](platform::UrlResult result) {
                queue->async([answer, result = std::move(result)] {
                    answer->give(isGood(result) ? entitiesIn(result.body) : std::nullopt);
                });
            });
    } catch (...) {
        // Nobody will answer; the end of `answer` says so.
    }
}

std::optional<platform::UrlRequest> QLSDKDynamicConfigManager::Core::fetchRequest() const {
    const std::optional<std::string> body = platform::serializeJson(
        Dictionary{{"query", kQuery}, {"variables", Dictionary{{"kitVersion", kitVersion_}}}});
    if (!body) return std::nullopt;
    QLSDKNetworkRequest request("/v1/config", "POST", std::make_shared<QLPayloadProvider>());
    request.setHttpBody(dataOf(*body));
    request.setContentType("application/json;charset=utf-8");
    return request.toUrlRequest();
}

std::optional<DynamicConfigEntities> QLSDKDynamicConfigManager::Core::entitiesIn(DataView body) {
    const std::optional<Value> root = platform::parseJson(body, {.bytes = kBodyCeiling.bytes});
    const Value config = root ? (*root)["data"]["config"] : Value();
    if (config.dictionary() == nullptr) {
        reportUnusableAnswer("the configuration's answer holds no object \"config\" in an object \"data\"");
        return std::nullopt;
    }
    return _parseJsonConfig(*config.dictionary());
}

DynamicConfigEntities QLSDKDynamicConfigManager::Core::_parseJsonConfig(const Dictionary& config) {
    DynamicConfigEntities entities;
    for (const auto& [name, value] : config) {
        if (name.empty() || value.dictionary() == nullptr) continue;
        entities.emplace(name, std::make_shared<QLSDKDynamicConfigEntity>(name, value));
    }
    return entities;
}

void QLSDKDynamicConfigManager::Core::_handleFetchCompletion(
    const std::optional<DynamicConfigEntities>& entities) {
    assert(queue_->isCurrent());
    const bool success = configArchive_.archiveSync(entities);
    wasFetchFromNetworkSuccessful = success;
    answerCallbacks(success);
    state = QLSDKDynamicConfigStateDone;
}

void QLSDKDynamicConfigManager::Core::answerCallbacks(bool success) {
    for (const auto& callback : std::exchange(updateCallbacks_, {})) OwedCallback(callback).give(success);
}

std::shared_ptr<const QLSDKDynamicConfigEntity> QLSDKDynamicConfigManager::Core::dynamicConfig(
    const std::string& name) const {
    const std::optional<DynamicConfigEntities> entities = configArchive_.unarchiveSync();
    if (!entities) return nullptr;
    const auto found = entities->find(name);
    return found != entities->end() ? found->second : nullptr;
}

QLSDKDynamicConfigManager& QLSDKDynamicConfigManager::shared() {
    // Never destroyed: a fetch may still call back while the process ends.
    static constinit platform::ForkSafeOnce<std::shared_ptr<QLSDKDynamicConfigManager>> shared;
    return *shared.get([] { return create(); });
}

std::shared_ptr<QLSDKDynamicConfigManager> QLSDKDynamicConfigManager::create() {
    return create(QLSDKDynamicConfigArchive(), kitVersionOfLibrary());
}

std::shared_ptr<QLSDKDynamicConfigManager> QLSDKDynamicConfigManager::create(
    QLSDKDynamicConfigArchive archive, std::string kitVersion) {
    return std::shared_ptr<QLSDKDynamicConfigManager>(
        new QLSDKDynamicConfigManager(std::make_shared<Core>(archive, std::move(kitVersion))));
}

QLSDKDynamicConfigManager::QLSDKDynamicConfigManager(std::shared_ptr<Core> core) noexcept
    : core_(std::move(core)) {}

QLSDKDynamicConfigManager::~QLSDKDynamicConfigManager() = default;

void QLSDKDynamicConfigManager::updateIfNecessary(std::shared_ptr<const DynamicConfigCallback> callback) {
    core_->updateIfNecessary(std::move(callback));
}

std::shared_ptr<const QLSDKDynamicConfigEntity> QLSDKDynamicConfigManager::dynamicConfig(
    const std::string& name) const {
    return core_->dynamicConfig(name);
}

QLSDKDynamicConfigState QLSDKDynamicConfigManager::state() const noexcept {
    return core_->state;
}

void QLSDKDynamicConfigManager::setState(QLSDKDynamicConfigState state) noexcept {
    core_->state = state;
}

bool QLSDKDynamicConfigManager::wasFetchFromNetworkSuccessful() const noexcept {
    return core_->wasFetchFromNetworkSuccessful;
}

void QLSDKDynamicConfigManager::setWasFetchFromNetworkSuccessful(bool successful) noexcept {
    core_->wasFetchFromNetworkSuccessful = successful;
}

// Declared in core, which starts the library: the one arrow between folders that runs upwards.
void requestConfigUpdate(std::function<void(bool success)> completion) {
    QLSDKDynamicConfigManager::shared().updateIfNecessary(
        std::make_shared<const DynamicConfigCallback>(std::move(completion)));
}

}  // namespace qlsdk
