#pragma once

namespace qlsdk::platform {

/// Hears that there is something new in the record of diagnostics.
class DiagnosticsObserver {
  public:
    virtual ~DiagnosticsObserver() = default;

    /// Any thread, with any lock held but a queue's own: to queue the telling, and no more.
    virtual void hasNew() const noexcept = 0;
};

/// From now on `observer` hears of what is new, at once if there is something already. To be called once,
/// when the platform is settled; `observer` must never be destroyed.
void observeDiagnostics(const DiagnosticsObserver& observer) noexcept;

}  // namespace qlsdk::platform
