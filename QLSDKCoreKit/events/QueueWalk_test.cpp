// An upload queue on a random walk, beside a model that keeps its list as simply as can be.

#include <random>

#include "QLSDKCoreKit/events/internal/BatchContexts.h"
#include "QLSDKCoreKit/events/internal/UploadQueue_test.h"

namespace qlsdk {
namespace {

using platform::Delivery;

constexpr std::size_t kRoom = 10;
constexpr std::size_t kMostUploads = 2;
constexpr std::uint64_t kBuffer = 4;

struct Record {
    std::uint64_t id;
    /// Of its message; absent for a record without one.
    std::optional<std::size_t> bytes;
    bool isRetry = false;
    int numRetried = 0;
    std::int64_t next = 0;
};
using Records = std::vector<Record>;

std::string idsOf(const Records& records) {
    std::string text;
    for (const Record& record : records) text += std::to_string(record.id) + ' ';
    return text;
}

/// What the queue has to do, in the order in which its operations come.
class Model {
  public:
    void push(std::optional<std::size_t> bytes) {
        later([this, bytes] {
            list.insert(list.begin(), {.id = ++lastId, .bytes = bytes});
            if (list.size() >= kBuffer) publish();
        });
    }
    void publish() {
        later([this] { runOnce(); });
    }
    /// Of the oldest upload. `delay` is absent, or the server's in milliseconds.
    void answer(std::int64_t status, std::optional<std::int64_t> delay) {
        Records batch = uploads.front();
        uploads.erase(uploads.begin());
        for (Record& record : batch) record.numRetried += record.isRetry ? 1 : 0;
        if (status == 200) batch.clear();
        std::erase_if(batch, [](const Record& record) { return record.numRetried != 0; });
        for (Record& record : batch) {
            record.isRetry = true;
            record.next = delay ? now + *delay : 0;
        }
        if (status != 200) {
            later([this, batch] {
                for (const Record& record : batch) list.insert(list.begin(), record);
            });
        }
        if (std::exchange(owesRun, false)) publish();
    }
    void settle() {
        while (!operations.empty()) {
            const auto operation = operations.front();
            operations.erase(operations.begin());
            operation();
        }
    }
    [[nodiscard]] std::string onDisk() const {
        std::string text;
        for (const Record& record : list) {
            if (!text.empty()) text += ' ';
            text += std::to_string(record.id);
            if (record.isRetry) text += record.numRetried != 0 ? 's' : 'r';
        }
        return text;
    }

    Records list;
    std::vector<Records> uploads;
    std::vector<std::string> bodies;
    /// What a delegate finds in the file, when it is asked for a batch and when it is given a request.
    std::vector<std::string> seen;
    std::int64_t now = 0;
    std::uint64_t filtered = 0;
    std::uint64_t divided = 0;
    std::uint64_t putOff = 0;

  private:
    void later(std::function<void()> operation) { operations.push_back(std::move(operation)); }

    void runOnce() {
        if (uploads.size() == kMostUploads) {
            owesRun = true;
            ++putOff;
            return;
        }
        const Records before = list;
        seen.push_back(onDisk());
        Records batch = list;
        Records deferred;
        for (std::size_t i = batch.size(); i-- > 0;) {
            if (!batch[i].bytes) {
                batch.pop_back();
                ++filtered;
                continue;
            }
            if (!batch[i].isRetry) continue;
            ++batch[i].numRetried;
            if (batch[i].next < now) continue;
            deferred.insert(deferred.begin(), batch[i]);
            batch.erase(batch.begin() + static_cast<std::ptrdiff_t>(i));
        }
        const Records left = dividedFrom(batch);
        // The list as it was, but for what has gone.
        list.clear();
        for (const Record& record : before) {
            const auto isRecord = [&](const Record& other) { return other.id == record.id; };
            const auto waits = std::find_if(deferred.begin(), deferred.end(), isRecord);
            if (waits != deferred.end()) list.push_back(*waits);
            if (std::any_of(left.begin(), left.end(), isRecord)) list.push_back(record);
        }
        if (!left.empty()) publish();
        if (batch.empty()) return;
        seen.push_back(onDisk());
        bodies.push_back(idsOf(batch));
        uploads.push_back(batch);
    }

    /// Takes out of the batch what does not fit into it.
    Records dividedFrom(Records& batch) {
        const auto isTooLarge = [](const Record& record) { return record.bytes > kRoom; };
        std::size_t room = 0;
        for (const Record& record : batch) room += record.bytes.value_or(0);
        if (room <= kRoom) return {};
        filtered += std::erase_if(batch, isTooLarge);
        Records byAge = batch;
        std::sort(byAge.begin(), byAge.end(), [](const auto& a, const auto& b) { return a.id < b.id; });
        std::size_t used = 0;
        bool isFull = false;
        Records left;
        for (const Record& record : byAge) {
            if (!record.bytes) continue;
            used += *record.bytes;
            isFull = isFull || used > kRoom;
            if (isFull) left.push_back(record);
        }
        std::erase_if(batch, [&left](const Record& record) {
            return std::any_of(left.begin(), left.end(),
                               [&](const auto& other) { return other.id == record.id; });
        });
        divided += left.empty() ? 0 : 1;
        return left;
    }

    std::uint64_t lastId = 0;
    bool owesRun = false;
    std::vector<std::function<void()>> operations;
};

/// A body of sequence ids, with room for messages of so many bytes together.
class Narrow final : public AnalyticsEventsQueueDelegate {
    std::optional<Data> parseEvents(AnalyticsEventsQueue&, const EventList& events, std::int64_t) override {
        look();
        std::string body;
        for (const auto& element : events) {
            body += std::to_string(eventWrapperOf(element)->sequenceId()) + ' ';
        }
        return dataOf(body);
    }
    std::size_t recordsThatFit(AnalyticsEventsQueue&, const EventList& events) override {
        std::size_t used = 0;
        std::size_t count = 0;
        for (auto element = events.rbegin(); element != events.rend(); ++element, ++count) {
            const picoproto_ctx_s* message = contextOf(*element);
            used += message != nullptr ? message->length : 0;
            if (used > kRoom) break;
        }
        return count;
    }
    Submission submit(const std::shared_ptr<QLSDKNetworkRequest>&, const SubmitCompletion&) override {
        look();
        return Submission::left;
    }

  public:
    std::function<void()> look;
};

class QueueWalk : public UploadQueueTest {
  protected:
    void step(int choice, int size) {
        if (choice < 5) {
            // One in sixteen is too large, and one has no message.
            const std::optional<std::size_t> bytes =
                size == 15 ? std::nullopt : std::optional(size == 14 ? kRoom + 1 : size % 6);
            model.push(bytes);
            const Data content(bytes.value_or(0), 'x');
            queue->pushEvent(bytes ? std::make_shared<EncodablePicoproto>(
                                         picoproto_new_from_bytes("Event", content.data(), *bytes))
                                   : nullptr);
        } else if (choice == 5) {
            model.publish();
            queue->flushQueue();
        } else if (choice == 6) {
            model.now += 1000;
            fakes.clock->advance(1.0);
        } else if (fakes.urlSession->waiting() > 0) {
            const std::int64_t status = size < 7 ? 200 : 500;
            const bool delays = size > 11;
            model.answer(status, delays ? std::optional(2500) : std::nullopt);
            platform::HeaderFields headers;
            if (delays) headers.set("X-Retry-After-Millis", "2500");
            fakes.urlSession->answer(status, headers);
        }
    }

    Model model;
    std::shared_ptr<Narrow> narrow = std::make_shared<Narrow>();
};

TEST_F(QueueWalk, SendsKeepsAndDividesAsTheModelDoes) {
    install();
    fakes.urlSession->setMostUploadsOfAQueue(kMostUploads);
    model.now = static_cast<std::int64_t>(fakes.clock->secondsSince1970() * 1000);
    std::vector<std::string> seen;
    narrow->look = [&] { seen.push_back(onDisk()); };
    queue = AnalyticsEventsQueue::create(kEndpoint, nullptr, kArchiveName, kBuffer, narrow);
    queue->flushQueue();
    run();
    seen.clear();
    std::minstd_rand random{20};
    for (int i = 0; i < 1500; ++i) {
        for (auto operations = random() % 8; operations > 0; --operations) {
            step(static_cast<int>(random() % 10), static_cast<int>(random() % 16));
        }
        run();
        model.settle();
        ASSERT_EQ(bodies(), model.bodies) << "step " << i;
        ASSERT_EQ(seen, model.seen) << "step " << i;
        ASSERT_EQ(count(Delivery::filtered), model.filtered) << "step " << i;
        ASSERT_EQ(onDisk(), model.onDisk()) << "step " << i;
        ASSERT_EQ(fakes.urlSession->waiting(), model.uploads.size());
    }
    std::vector<platform::Diagnostic> told = fakes.diagnostics->told();
    std::erase_if(told, [](const auto& one) { return one.kind == platform::DiagnosticKind::developmentKey; });
    ASSERT_EQ(told.size(), 1u);
    EXPECT_EQ(told.front().kind, platform::DiagnosticKind::records);
    EXPECT_GT(model.divided, 50u);
    EXPECT_GT(model.putOff, 50u);
}

}  // namespace
}  // namespace qlsdk
