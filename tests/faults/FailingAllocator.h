#pragma once

#include <cstddef>
#include <cstdint>

/// Lets allocations of this process fail, on whichever thread and in whichever library they happen.
namespace qlsdk::faults {

enum class Failing { never, once, fromThenOn };

/// Whose allocation it is: the program's, the library's in it and the C and C++ libraries', or that of any
/// other shared object by itself.
enum class Owner { own, foreign };

/// Where one call stood; addresses of code.
struct Frames {
    static constexpr int kMost = 48;
    void* addresses[kMost] = {};
    int count = 0;

    void take() noexcept;
};

struct Counts {
    std::uint64_t own = 0;
    std::uint64_t foreign = 0;
};

/// From now on allocations are counted, and that owner's one with that number (the first is 1) fails, or it
/// and all that follow, of whichever owner. `failed` hears where the first of them was; it lives as long as
/// the process.
void failAllocation(Failing failing, Owner owner, std::uint64_t number, Frames& failed) noexcept;

/// All succeed again. How many there were since.
Counts stopFailing() noexcept;

/// For those who stand in for an allocation function: false when the allocation for that caller has to fail.
[[nodiscard]] bool mayAllocate(const void* caller) noexcept;

}  // namespace qlsdk::faults
