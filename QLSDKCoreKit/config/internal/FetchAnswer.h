#pragma once

#include <atomic>
#include <functional>
#include <optional>
#include <utility>

#include "QLSDKCoreKit/config/QLSDKDynamicConfigArchive.h"
#include "QLSDKCoreKit/config/QLSDKDynamicConfigManager.h"

namespace qlsdk {

/// Answers one fetch exactly once: with the first answer given or, when the last owner lets go without one,
/// with nothing. So a request that cannot be built, a session that throws, one that calls back twice and one
/// that drops its completion all end as they should. Any thread.
class FetchAnswer final {
  public:
    using Completion = std::function<void(const std::optional<DynamicConfigEntities>& entities)>;

    explicit FetchAnswer(Completion completion) : completion_(std::move(completion)) {}
    ~FetchAnswer() { give(std::nullopt); }
    FetchAnswer(const FetchAnswer&) = delete;
    FetchAnswer& operator=(const FetchAnswer&) = delete;

    void give(const std::optional<DynamicConfigEntities>& entities) noexcept {
        if (given_.test_and_set()) return;
        try {
            completion_(entities);
        } catch (...) {
            // Without the memory to pass an answer on nobody can be told of it.
        }
    }

  private:
    const Completion completion_;
    std::atomic_flag given_;
};

/// Owes a listener its one answer: a failure, when it is given up without one, as by a task that there was no
/// memory for.
class OwedCallback final {
  public:
    explicit OwedCallback(std::shared_ptr<const DynamicConfigCallback> callback) noexcept
        : callback_(std::move(callback)) {}
    OwedCallback(OwedCallback&& other) noexcept = default;
    OwedCallback& operator=(OwedCallback&&) = delete;
    ~OwedCallback() { give(false); }

    [[nodiscard]] const std::shared_ptr<const DynamicConfigCallback>& callback() const noexcept {
        return callback_;
    }
    /// Somebody else owes the answer now.
    void handOver() noexcept { callback_ = nullptr; }
    void give(bool success) noexcept {
        const auto callback = std::exchange(callback_, nullptr);
        if (callback == nullptr) return;
        try {
            (*callback)(success);
        } catch (...) {
            // The outcome stands; what the listener makes of the news is its own affair, and others still
            // wait.
        }
    }

  private:
    std::shared_ptr<const DynamicConfigCallback> callback_;
};

}  // namespace qlsdk
