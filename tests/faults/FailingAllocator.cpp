#include "tests/faults/FailingAllocator.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <string_view>

#include <elf.h>
#include <execinfo.h>
#include <link.h>

namespace qlsdk::faults {

namespace {

std::atomic<Failing> theFailing{Failing::never};
std::atomic<Owner> theOwner{Owner::own};
std::atomic<std::uint64_t> theNumber{0};
std::atomic<std::uint64_t> theCounts[2]{};
std::atomic<bool> haveAllFailed{false};
std::atomic<Frames*> theFirstFailed{nullptr};

struct Range {
    std::uintptr_t first = 0;
    std::uintptr_t last = 0;
};
// Of the objects whose allocations are our own; set before allocations are counted.
std::array<Range, 8> theOwnCode{};

int noteOwnCode(dl_phdr_info* object, std::size_t, void* used) {
    const std::string_view path = object->dlpi_name;
    const std::string_view name = path.substr(path.rfind('/') + 1);
    const bool isOwn = name.empty() || name.starts_with("libstdc++") || name.starts_with("libc.") ||
                       name.starts_with("ld-linux") || name.starts_with("libgcc_s");
    std::size_t& place = *static_cast<std::size_t*>(used);
    for (int i = 0; isOwn && i < object->dlpi_phnum && place < theOwnCode.size(); ++i) {
        const auto& segment = object->dlpi_phdr[i];
        if (segment.p_type != PT_LOAD || (segment.p_flags & PF_X) == 0) continue;
        const std::uintptr_t first = object->dlpi_addr + segment.p_vaddr;
        theOwnCode[place++] = {first, first + segment.p_memsz};
    }
    return 0;
}

Owner ownerOf(const void* caller) noexcept {
    const auto address = reinterpret_cast<std::uintptr_t>(caller);
    const bool isOwn = std::any_of(theOwnCode.begin(), theOwnCode.end(), [address](const Range& range) {
        return address >= range.first && address < range.last;
    });
    return isOwn ? Owner::own : Owner::foreign;
}

bool fails(Owner owner, std::uint64_t count) noexcept {
    if (owner == theOwner && count == theNumber) {
        haveAllFailed = theFailing == Failing::fromThenOn;
        return true;
    }
    return haveAllFailed;
}

}  // namespace

void Frames::take() noexcept {
    count = ::backtrace(addresses, kMost);
}

void failAllocation(Failing failing, Owner owner, std::uint64_t number, Frames& failed) noexcept {
    failed.take();  // The first backtrace of a process loads a library, which needs memory itself.
    failed.count = 0;
    std::size_t used = 0;
    ::dl_iterate_phdr(noteOwnCode, &used);
    theFirstFailed = &failed;
    theOwner = owner;
    theNumber = number;
    theFailing = failing;
}

Counts stopFailing() noexcept {
    theFailing = Failing::never;
    haveAllFailed = false;
    return {.own = theCounts[0], .foreign = theCounts[1]};
}

bool mayAllocate(const void* caller) noexcept {
    if (theFailing.load(std::memory_order_relaxed) == Failing::never) return true;
    const Owner owner = ownerOf(caller);
    if (!fails(owner, ++theCounts[static_cast<int>(owner)])) return true;
    if (Frames* failed = theFirstFailed.exchange(nullptr)) failed->take();
    return false;
}

}  // namespace qlsdk::faults
