#pragma once

#include <algorithm>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "QLSDKCoreKit/control/DeliveryCounters.h"
#include "QLSDKCoreKit/events/AnalyticsEventsQueue.h"
#include "QLSDKCoreKit/events/internal/StoredList.h"
#include "QLSDKCoreKit/network/QLPayloadProvider.h"
#include "QLSDKCoreKit/platform/Files.h"
#include "QLSDKCoreKit/platform/Platform.h"
#include "QLSDKCoreKit/platform/testing/FakePlatform.h"
#include "QLSDKCoreKit/values/internal/KeyedListArchive.h"

namespace qlsdk {

inline constexpr const char* kArchiveName = "queue.plist";
inline constexpr const char* kEndpoint = "/v1/test";

/// Writes each record's sequence id as one byte, '?' for what is no record, and keeps what it was asked.
class Recorder final : public AnalyticsEventsQueueDelegate {
  public:
    std::optional<Data> parseEvents(AnalyticsEventsQueue&, const EventList& events,
                                    std::int64_t maxId) override {
        Data body;
        for (const auto& element : events) {
            const auto record = eventWrapperOf(element);
            body.push_back(record != nullptr ? static_cast<std::uint8_t>('0' + record->sequenceId()) : '?');
        }
        bodies.push_back(textOf(body));
        lastMaxId = maxId;
        if (parsed) parsed();
        return body;
    }
    Submission submit(const std::shared_ptr<QLSDKNetworkRequest>& request,
                      const SubmitCompletion& completion) override {
        submitted.push_back(request);
        return send ? send(completion) : Submission::left;
    }
    /// From now on it sends by itself: it keeps the completions.
    void takeOver() {
        send = [this](const SubmitCompletion& completion) {
            completions.push_back(completion);
            return Submission::taken;
        };
    }

    std::vector<std::string> bodies;
    std::int64_t lastMaxId = -1;
    std::function<void()> parsed;
    std::function<Submission(const SubmitCompletion&)> send;
    std::vector<std::shared_ptr<QLSDKNetworkRequest>> submitted;
    std::vector<SubmitCompletion> completions;
};

inline std::shared_ptr<EncodablePicoproto> event() {
    return std::make_shared<EncodablePicoproto>(picoproto_new("Event"));
}

/// Leaves a file as an earlier process would; the records newest first.
inline void leaveArchive(const std::string& path, const EventList& records, std::uint64_t maxId) {
    platform::KeyedListArchive list(kQLSDKUnsentEventsKey, kQLSDKMaxSequenceIdKey);
    list.assign({records.rbegin(), records.rend()});
    ASSERT_TRUE(QueueFile(path).write(list.file(maxId)));
}

/// An upload queue on fakes, driven by hand.
class UploadQueueTest : public ::testing::Test {
  protected:
    void install(platform::HostControls controls = {}) {
        platform::Platform platform = fakes.platform();
        platform.controls = std::move(controls);
        ASSERT_EQ(platform::install(std::move(platform)), platform::InstallResult::installed);
    }
    void makeQueue(std::uint64_t maxEventBuffer) {
        queue = AnalyticsEventsQueue::create(kEndpoint, std::make_shared<QLPayloadProvider>(), kArchiveName,
                                             maxEventBuffer, delegate);
        run();
    }
    void run() { fakes.queues->runSerialQueuesUntilIdle(); }
    void push(int count = 1) {
        for (int i = 0; i < count; ++i) queue->pushEvent(event());
        run();
    }
    void flush() {
        queue->flushQueue();
        run();
    }
    void answer(std::int64_t status, std::string_view retryAfter = {}) {
        platform::HeaderFields headers;
        if (!retryAfter.empty()) headers.set("x-retry-after-millis", retryAfter);
        ASSERT_TRUE(fakes.urlSession->answer(status, headers));
        run();
    }

    [[nodiscard]] std::string path() const { return fakes.directories->path() + "/" + kArchiveName; }
    /// The list on disk: sequence ids, a retry marked by 'r', a spent one by 's'; "none" without a file.
    [[nodiscard]] std::string onDisk(const std::string& file) const {
        const auto archive = readQueueArchive(file);
        if (!archive) return "none";
        std::string text;
        for (const auto& element : archive->unsentEvents) {
            const auto record = eventWrapperOf(element);
            if (!text.empty()) text += ' ';
            text += record == nullptr ? "?" : std::to_string(record->sequenceId());
            if (record != nullptr && record->isRetry()) text += record->numRetried() != 0 ? 's' : 'r';
        }
        return text;
    }
    [[nodiscard]] std::string onDisk() const { return onDisk(path()); }
    /// Of every request so far.
    [[nodiscard]] std::vector<std::string> bodies() const {
        std::vector<std::string> texts;
        for (const auto& request : fakes.urlSession->requests()) {
            texts.push_back(textOf(request.body.value_or(Data())));
        }
        return texts;
    }
    [[nodiscard]] std::string lastBody() const { return bodies().empty() ? "none" : bodies().back(); }
    static std::uint64_t count(platform::Delivery what) {
        return platform::deliveryCounts(kArchiveName).value()[what];
    }

    platform::testing::FakePlatform fakes;
    std::shared_ptr<Recorder> delegate = std::make_shared<Recorder>();
    std::shared_ptr<AnalyticsEventsQueue> queue;
};

}  // namespace qlsdk
