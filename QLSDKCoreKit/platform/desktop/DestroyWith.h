#pragma once

namespace qlsdk::platform {

/// A deleter for smart pointers to what C libraries allocate.
template <auto destroy>
struct DestroyWith {
    void operator()(auto* object) const noexcept { destroy(object); }
};

}  // namespace qlsdk::platform
