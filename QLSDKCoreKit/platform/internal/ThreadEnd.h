#pragma once

namespace qlsdk::platform {

/// Something to do when a thread ends. It stands in that thread's own storage, as plain data.
///
/// This takes the place of a thread_local with a destructor: to register one, the C++ runtime allocates, and
/// it ends the process where it has no memory for that.
struct ThreadEnd {
    /// Called on the ending thread, when its thread_local objects are gone. Nothing may be thrown.
    void (*run)();
    /// Belongs to `atThreadEnd`.
    ThreadEnd* next = nullptr;
};

/// Has `end.run` called when the calling thread ends; not for a thread that the process's exit takes along.
/// At most once for each `end`. False when the system has no room for it: nothing will be called then.
[[nodiscard]] bool atThreadEnd(ThreadEnd& end) noexcept;

}  // namespace qlsdk::platform
