#pragma once

#include <atomic>
#include <new>

#include <locale.h>

namespace qlsdk::platform {

/// Gives the calling thread the "C" locale for as long as it lives. The libraries below read and write reals
/// with the C library, and a host that has chosen a locale with a decimal comma must not change our files.
class NumberLocale {
  public:
    /// Throws `std::bad_alloc` when the C library has no memory for the locale.
    NumberLocale() : previous_(uselocale(plain())) {}
    ~NumberLocale() { uselocale(previous_); }
    NumberLocale(const NumberLocale&) = delete;
    NumberLocale& operator=(const NumberLocale&) = delete;

  private:
    static locale_t plain() {
        static constinit std::atomic<locale_t> shared{locale_t{}};
        if (const locale_t made = shared) return made;
        const locale_t fresh = newlocale(LC_ALL_MASK, "C", locale_t{});
        if (fresh == locale_t{}) throw std::bad_alloc();
        locale_t earlier{};
        if (shared.compare_exchange_strong(earlier, fresh)) return fresh;
        freelocale(fresh);
        return earlier;
    }

    const locale_t previous_;
};

}  // namespace qlsdk::platform
