#pragma once

#include <new>

namespace qlsdk {

/// Why an event never reached its queue.
enum class EventLoss { incompleteMessage, noMemory, exception };

/// Tells the host's diagnostics that an event was dropped. `event` says which, such as the name of its
/// message.
void reportLostEvent(const char* event, EventLoss loss) noexcept;

/// Runs the work that records one event. Telemetry costs its host nothing: what fails costs the event.
template <typename Work>
void recordEvent(const char* event, const Work& work) noexcept {
    try {
        work();
    } catch (const std::bad_alloc&) {
        reportLostEvent(event, EventLoss::noMemory);
    } catch (...) {
        reportLostEvent(event, EventLoss::exception);
    }
}

}  // namespace qlsdk
