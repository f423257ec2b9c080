#pragma once

namespace qlsdk::platform {

/// curl makes socket pairs for itself, one to be woken by and one for each name that it looks up, which the
/// programs that the host starts would inherit. These functions mark them. A program that is started between
/// the making of a pair and its marking, which is one turn of curl, still gets it; not through fork(), which
/// waits for our threads.

/// Marks one end of a pair, and the other end with it. Does nothing to a socket of another kind or one that
/// is marked already. Needs /proc to find the other end.
void closePairOnExec(int end) noexcept;

/// Marks the pair that `multi`, a curl multi handle which nobody has polled yet, is woken by. False when it
/// has none, because the system had no descriptors left: such a handle would sleep through every wake-up.
[[nodiscard]] bool closeWakeUpOnExec(void* multi) noexcept;

}  // namespace qlsdk::platform
