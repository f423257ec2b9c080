#include "BenchHost.h"

#include <cstdlib>
#include <filesystem>
#include <limits>
#include <vector>

#include <unistd.h>

#include "QLSDKCoreKit/events/internal/StoredList.h"
#include "QLSDKCoreKit/network/QLPayloadProvider.h"
#include "QLSDKCoreKit/platform/Platform.h"
#include "QLSDKCoreKit/platform/linux/LinuxPlatform.h"
#include "QLSDKCoreKit/values/internal/KeyedListArchive.h"

namespace qlsdk::bench {

namespace {

class AcceptingSession final : public platform::UrlSession {
  public:
    void dataTask(platform::UrlRequest, platform::BodyCeiling, platform::UrlCompletion completion) override {
        completion(
            {.error = {}, .response = platform::UrlResponse{.statusCode = 200, .headers = {}}, .body = {}});
    }
};

/// Sends to a local server what is meant for the real one.
class LocalSession final : public platform::UrlSession {
  public:
    LocalSession(std::string baseUrl, std::shared_ptr<platform::UrlSession> session)
        : baseUrl_(std::move(baseUrl)), session_(std::move(session)) {}

    void dataTask(platform::UrlRequest request, platform::BodyCeiling ceiling,
                  platform::UrlCompletion completion) override {
        constexpr std::string_view kScheme = "https://";
        request.url = baseUrl_ + request.url.substr(request.url.find('/', kScheme.size()));
        session_->dataTask(std::move(request), ceiling, std::move(completion));
    }

  private:
    const std::string baseUrl_;
    const std::shared_ptr<platform::UrlSession> session_;
};

class EmptyBodies final : public AnalyticsEventsQueueDelegate {
  public:
    std::optional<Data> parseEvents(AnalyticsEventsQueue&, const EventList&, std::int64_t) override {
        return Data();
    }
};

}  // namespace

const std::string& home() {
    static const std::string& made = *[] {
        std::string path = std::filesystem::current_path().string() + "/qlsdk-bench.XXXXXX";
        if (::mkdtemp(path.data()) == nullptr) std::abort();
        static std::string removed = path;
        std::atexit([] { std::filesystem::remove_all(removed); });
        return new std::string(path);
    }();
    return made;
}

void installAcceptingPlatform() {
    platform::Platform platform = platform::makeLinuxPlatform({.infoPlist = {}, .home = home(), .http = {}});
    platform.urlSession = std::make_shared<AcceptingSession>();
    (void)platform::install(std::move(platform));
}

void installLocalPlatform(const std::string& baseUrl, const std::string& caFile) {
    platform::HttpOptions http;
    http.caFile = caFile;
    http.proxy = "";
    platform::Platform platform =
        platform::makeLinuxPlatform({.infoPlist = {}, .home = home(), .http = http});
    platform.urlSession = std::make_shared<LocalSession>(baseUrl, platform.urlSession);
    (void)platform::install(std::move(platform));
}

std::shared_ptr<EncodablePicoproto> counterEvent() {
    picoproto_ctx_s* timestamp = picoproto_new("Timestamp");
    picoproto_write_varint_field(timestamp, 1, 1'700'000'000);
    picoproto_write_varint_field(timestamp, 2, 123'456'789);
    picoproto_ctx_s* metric = picoproto_new("CounterMetric");
    picoproto_write_embedded_message_field(metric, 2, timestamp, 1);
    picoproto_write_string_field(metric, 1, "app.started.cold.now");
    picoproto_write_varint_field(metric, 3, 1);
    return std::make_shared<EncodablePicoproto>(metric);
}

std::shared_ptr<AnalyticsEventsQueueDelegate> emptyBodies() {
    static const auto& bodies =
        *new std::shared_ptr<AnalyticsEventsQueueDelegate>(std::make_shared<EmptyBodies>());
    return bodies;
}

std::shared_ptr<AnalyticsEventsQueue> waitingQueue(const std::string& archiveName, std::int64_t length) {
    installAcceptingPlatform();
    const std::string directory = platform::current().directories->cachesDirectory().value_or("");
    platform::KeyedListArchive list(kQLSDKUnsentEventsKey, kQLSDKMaxSequenceIdKey);
    for (std::int64_t i = 1; i <= length; ++i) {
        list.pushFront(std::shared_ptr<platform::Archivable>(
            std::make_shared<EventWrapper>(static_cast<std::uint64_t>(i), counterEvent())));
    }
    QueueFile file(directory + "/" + archiveName);
    if (!file.write(list.file(static_cast<std::uint64_t>(length)))) std::abort();
    return AnalyticsEventsQueue::create("/v1/bench", std::make_shared<QLPayloadProvider>(), archiveName,
                                        std::numeric_limits<std::uint64_t>::max(), emptyBodies());
}

}  // namespace qlsdk::bench
