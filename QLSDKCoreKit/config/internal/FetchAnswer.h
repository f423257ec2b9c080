#pragma once

#include <atomic>
#include <functional>
#include <optional>
#include <utility>

#include "QLSDKCoreKit/config/QLSDKDynamicConfigArchive.h"

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

}  // namespace qlsdk
