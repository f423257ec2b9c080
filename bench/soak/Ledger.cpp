#include "Ledger.h"

#include <algorithm>

namespace qlsdk::soak {

void Ledger::note(std::uint64_t sequenceId, Attempt attempt) {
    if (sequenceId == 0 || sequenceId >= states_.size()) {
        ++wrong_;
        return;
    }
    State& state = states_[sequenceId];
    if (state != State::neverSent && state != State::failedOnce) {
        ++wrong_;
    } else if (attempt == Attempt::failed) {
        state = state == State::neverSent ? State::failedOnce : State::failedTwice;
    } else {
        state = attempt == Attempt::delivered ? State::delivered : State::refused;
    }
}

Ledger::Totals Ledger::totals() const {
    const auto count = [this](State wanted) {
        return static_cast<std::uint64_t>(std::count(states_.begin() + 1, states_.end(), wanted));
    };
    return {.delivered = count(State::delivered),
            .refused = count(State::refused),
            .dropped = count(State::failedTwice),
            .lost = count(State::neverSent) + count(State::failedOnce),
            .wrong = wrong_};
}

}  // namespace qlsdk::soak
