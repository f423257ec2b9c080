#include "tools/page/EventStream.h"

#include <charconv>

namespace quillkit {

namespace {

/// How soon a browser connects again.
constexpr int kRetryMillis = 1000;

}  // namespace

std::string eventText(std::string_view name, std::uint64_t id, std::string_view data) {
    std::string text = "event: " + std::string(name) + "\n";
    if (id != 0) text += "id: " + std::to_string(id) + "\n";
    // A line of its own for each line of the data: a bare end of line would end the event.
    text += "data: ";
    for (const char c : data) {
        if (c == '\n') {
            text += "\ndata: ";
        } else if (c != '\r') {
            text += c;
        }
    }
    return text + "\n\n";
}

std::uint64_t lastEventId(std::string_view text) {
    std::uint64_t id = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), id);
    return error == std::errc{} && end == text.data() + text.size() ? id : 0;
}

EventStream::EventStream(RequestRing& ring, StateSource state, std::uint64_t lastId)
    // An id that was never given is of an earlier collector on the same port.
    : ring_(ring),
      state_(std::move(state)),
      lastId_(lastId > ring.lastId() ? 0 : lastId),
      isFirst_(lastId_ == 0) {}

std::string EventStream::next() {
    std::string text = toldState_.empty() ? "retry: " + std::to_string(kRetryMillis) + "\n\n" : "";
    if (std::string state = state_(); state != toldState_) {
        text += eventText("state", 0, state);
        toldState_ = std::move(state);
    }
    for (const auto& recorded : ring_.after(lastId_, kBatch)) {
        text += gapBefore(recorded->id);
        text += eventText("request", recorded->id, recorded->summary);
        lastId_ = recorded->id;
        isFirst_ = false;
    }
    return text;
}

std::string EventStream::gapBefore(std::uint64_t id) const {
    // What was cleared, or was gone before this client came, it does not miss.
    const std::uint64_t known = std::max(lastId_, ring_.clearedUpTo());
    if (isFirst_ || id <= known + 1) return "";
    return eventText("gap", 0, std::to_string(id - known - 1));
}

}  // namespace quillkit
