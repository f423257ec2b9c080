#pragma once

#include <locale.h>

namespace qlsdk::platform {

/// Gives the calling thread the "C" locale for as long as it lives. The libraries below read and write reals
/// with the C library, and a host that has chosen a locale with a decimal comma must not change our files.
class NumberLocale {
  public:
    NumberLocale() noexcept : previous_(uselocale(plain())) {}
    ~NumberLocale() { uselocale(previous_); }
    NumberLocale(const NumberLocale&) = delete;
    NumberLocale& operator=(const NumberLocale&) = delete;

  private:
    static locale_t plain() noexcept {
        static const locale_t locale = newlocale(LC_ALL_MASK, "C", locale_t{});
        return locale;
    }

    locale_t previous_;
};

}  // namespace qlsdk::platform
