#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "tools/page/RequestRing.h"

namespace quillkit {

/// One server-sent event. `id` 0 has none, so that the client keeps the last. `data` may be any text.
[[nodiscard]] std::string eventText(std::string_view name, std::uint64_t id, std::string_view data);

/// The id that a client names as its last: a decimal number; 0 for anything else.
[[nodiscard]] std::uint64_t lastEventId(std::string_view text);

/// What one client of the page has still to be told. It keeps no queue: all it needs is the id up to which it
/// has told, so that a client that reads slowly costs nothing and misses what the ring has dropped meanwhile,
/// which it is told. For one thread at a time.
class EventStream {
  public:
    using StateSource = std::function<std::string()>;
    static constexpr std::size_t kBatch = 100;

    /// `ring` is borrowed. `state` gives the page's state, a text that is not empty. A client that has seen
    /// nothing begins with `lastId` 0.
    EventStream(RequestRing& ring, StateSource state, std::uint64_t lastId);

    /// The next events: the state when it is another than the last told, and at most `kBatch` requests. Empty
    /// when there is nothing new.
    [[nodiscard]] std::string next();

  private:
    [[nodiscard]] std::string gapBefore(std::uint64_t id) const;

    RequestRing& ring_;
    const StateSource state_;
    std::uint64_t lastId_;
    bool isFirst_;
    std::string toldState_;
};

}  // namespace quillkit
