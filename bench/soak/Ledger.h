#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace qlsdk::soak {

/// What one answer made of a record.
enum class Attempt { delivered, refused, failed };

/// The life of every record by its sequence id, as the server sees it. One thread at a time.
class Ledger {
  public:
    /// Its memory is in use from the start, so that it does not look like growth later.
    explicit Ledger(std::size_t records) : states_(records + 1, State::neverSent) {}

    void note(std::uint64_t sequenceId, Attempt attempt);

    struct Totals {
        std::uint64_t delivered = 0;
        std::uint64_t refused = 0;
        /// Failed twice, and so given up.
        std::uint64_t dropped = 0;
        /// Never sent at all, or failed once and not sent again.
        std::uint64_t lost = 0;
        /// Sent a third time, sent after it had arrived, or known to nobody.
        std::uint64_t wrong = 0;
    };
    [[nodiscard]] Totals totals() const;

  private:
    enum class State : std::uint8_t { neverSent, failedOnce, failedTwice, delivered, refused };

    /// By sequence id; the first belongs to none.
    std::vector<State> states_;
    std::uint64_t wrong_ = 0;
};

}  // namespace qlsdk::soak
