#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

#include "QLSDKCoreKit/events/EventWrapper.h"

namespace qlsdk {

// How the records that are due are divided when not all of them fit into one request, as functions of their
// inputs alone.

/// What becomes of a record that is due.
enum class Share : std::uint8_t {
    taken,
    /// It waits for the next run.
    left,
    /// It will never fit.
    tooLarge,
};

/// How many of the records, newest first, fit into one request, counted from the last on.
using FitQuestion = std::function<std::size_t(const EventList&)>;

/// One share for each element of the batch; none at all when everything fits. Taken are the oldest records,
/// by their sequence ids, and whatever has no message.
[[nodiscard]] std::vector<Share> shareOut(const EventList& batch, const FitQuestion& recordsThatFit);

/// The records of `list` that stay in it, oldest place first: those left, in the state that they had before
/// the filter counted them, and those deferred. `batch` and `deferred` are what the filter made of the list.
[[nodiscard]] EventList stayingOf(const EventList& list, const EventList& batch,
                                  const std::vector<Share>& shares, const EventList& deferred);

/// Removes what is not taken.
void keepTaken(EventList& batch, const std::vector<Share>& shares);

}  // namespace qlsdk
