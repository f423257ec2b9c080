#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

#include "QLSDKCoreKit/platform/Diagnostics.h"

namespace qlsdk::platform {

/// What has failed in this process: one entry for each failure that is told apart, never removed, and each a
/// counter. A list that only grows at its head, without a lock: any thread may add to it, with any lock held,
/// and a child of fork() finds it whole.
class DiagnosticsRecord {
  public:
    /// Sixteen of each kind are kept apart, and this many in all.
    static constexpr std::size_t kMostOfOneKind = 16;
    static constexpr std::size_t kMost = 255;

    constexpr DiagnosticsRecord() noexcept = default;
    DiagnosticsRecord(const DiagnosticsRecord&) = delete;
    DiagnosticsRecord& operator=(const DiagnosticsRecord&) = delete;

    /// The one of the process, there before anything else is and never destroyed.
    [[nodiscard]] static DiagnosticsRecord& shared() noexcept;

    /// Counts the failure; true when it is the first of its identity.
    bool add(DiagnosticReport report) noexcept;

    /// True when something has not been told yet.
    [[nodiscard]] bool hasNew() const noexcept;

    /// Calls `tell` for each entry that has not been told, oldest first, those included that come meanwhile.
    /// By one thread at a time. Without memory for one, it and what follows stay new.
    void tellNew(const std::function<void(const Diagnostic&)>& tell) noexcept;

    /// Oldest first.
    [[nodiscard]] std::vector<Diagnostic> all() const;

  private:
    struct Entry {
        DiagnosticKind kind{};
        int errorNumber = 0;
        std::string_view cause;
        std::string_view path{};
        std::string_view detail{};
        std::size_t position = 0;
        Entry* older = nullptr;
        std::atomic<std::uint64_t> times{1};
        std::atomic<bool> isTold{false};
    };

    [[nodiscard]] static Entry* make(const DiagnosticReport& report, Entry* older) noexcept;
    [[nodiscard]] static bool isSame(const Entry& entry, const DiagnosticReport& report) noexcept;
    [[nodiscard]] static Diagnostic diagnosticOf(const Entry& entry);
    [[nodiscard]] static Entry* find(Entry* newest, const DiagnosticReport& report) noexcept;
    [[nodiscard]] static bool hasRoom(const Entry* newest, DiagnosticKind kind) noexcept;
    [[nodiscard]] Entry* oldestNew() const noexcept;

    // The end of the list, for reports that there was no memory for; no entry while its count is zero.
    Entry lost_{.kind = DiagnosticKind::resources, .cause = "no memory to note a failure", .times{0}};
    std::atomic<Entry*> newest_{&lost_};
};

}  // namespace qlsdk::platform
