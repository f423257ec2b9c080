#include "FlakyServer.h"

#include <cstring>
#include <string>
#include <utility>

#include "QLSDKCoreKit/events/AnalyticsEventsQueue.h"

namespace qlsdk::soak {

namespace {

constexpr std::array<std::int64_t, FlakyServer::kKinds> kStatusCodes = {200, 500, 403, 429, 0};
/// Of a hundred answers.
constexpr std::array<unsigned, FlakyServer::kKinds> kShares = {60, 15, 5, 10, 10};

Attempt attemptOf(FlakyServer::Kind kind) {
    if (kind == FlakyServer::ok) return Attempt::delivered;
    return kind == FlakyServer::refusal ? Attempt::refused : Attempt::failed;
}

}  // namespace

void FlakyServer::dataTask(platform::UrlRequest request, platform::BodyCeiling,
                           platform::UrlCompletion completion) {
    thread_->async(
        [this, body = std::move(request.body).value_or(Data()), completion = std::move(completion)] {
            const Kind kind = nextKind();
            ++answers_[kind];
            noteRecords(body, kind);
            completion(resultOf(kind));
        });
}

FlakyServer::Kind FlakyServer::nextKind() {
    if (calm_) return ok;
    auto draw = static_cast<unsigned>(random_() % 100);
    int kind = 0;
    while (draw >= kShares[static_cast<std::size_t>(kind)]) draw -= kShares[static_cast<std::size_t>(kind++)];
    return static_cast<Kind>(kind);
}

platform::UrlResult FlakyServer::resultOf(Kind kind) {
    if (kind == noAnswer) return {.error = platform::UrlError{7, "no answer"}, .response = {}, .body = {}};
    platform::UrlResponse response{.statusCode = kStatusCodes[kind], .headers = {}};
    if (kind == tooMany) {
        const auto delayMillis = 1 + static_cast<std::int64_t>(random_()) % kLongestDelayMillis;
        response.headers.set(kQLSDKRetryAfterHeader, std::to_string(delayMillis));
    }
    return {.error = {}, .response = std::move(response), .body = {}};
}

void FlakyServer::noteRecords(const Data& body, Kind kind) {
    for (std::size_t i = 0; i + sizeof(std::uint64_t) <= body.size(); i += sizeof(std::uint64_t)) {
        std::uint64_t sequenceId = 0;
        std::memcpy(&sequenceId, body.data() + i, sizeof sequenceId);
        ledger_.note(sequenceId, attemptOf(kind));
    }
}

std::optional<Data> SequenceIds::parseEvents(AnalyticsEventsQueue&, const EventList& events, std::int64_t) {
    Data body(events.size() * sizeof(std::uint64_t));
    for (std::size_t i = 0; i < events.size(); ++i) {
        const std::uint64_t sequenceId = eventWrapperOf(events[i])->sequenceId();
        std::memcpy(body.data() + i * sizeof sequenceId, &sequenceId, sizeof sequenceId);
    }
    return body;
}

}  // namespace qlsdk::soak
