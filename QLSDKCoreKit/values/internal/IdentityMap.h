#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace qlsdk::platform {

/// Object addresses to numbers other than 0, in one flat table without an allocation for each entry.
class IdentityMap {
  public:
    /// The number of the object, 0 when there is none yet.
    [[nodiscard]] std::uint32_t find(const void* object) const noexcept {
        return slots_.empty() ? 0 : slots_[placeOf(object)].number;
    }

    /// Notes a number for an object that has none.
    void insert(const void* object, std::uint32_t number) {
        if (2 * (used_ + 1) > slots_.size()) grow();
        slots_[placeOf(object)] = {object, number};
        ++used_;
    }

    void clear() noexcept {
        std::fill(slots_.begin(), slots_.end(), Slot());
        used_ = 0;
    }

  private:
    struct Slot {
        const void* object = nullptr;
        std::uint32_t number = 0;
    };

    // The slot that holds the object, or the free one where it belongs. The table is never full.
    [[nodiscard]] std::size_t placeOf(const void* object) const noexcept {
        const std::size_t mask = slots_.size() - 1;
        // Addresses differ least in their lowest bits; the multiplication spreads the others.
        const std::uint64_t address = reinterpret_cast<std::uintptr_t>(object);
        std::size_t place = static_cast<std::size_t>(address * 0x9E3779B97F4A7C15U >> 20) & mask;
        while (slots_[place].object != nullptr && slots_[place].object != object) place = (place + 1) & mask;
        return place;
    }

    void grow() {
        std::vector<Slot> old(slots_.empty() ? 64 : 2 * slots_.size());
        old.swap(slots_);
        for (const Slot& slot : old) {
            if (slot.object != nullptr) slots_[placeOf(slot.object)] = slot;
        }
    }

    std::vector<Slot> slots_;
    std::size_t used_ = 0;
};

}  // namespace qlsdk::platform
