#pragma once

namespace qlsdk::platform {

/// Whether the address is one of the library's own that others can name: `libraryAddress`, and the plain
/// functions and constants. Where the library is linked into a program or a kit, nothing else tells its code
/// from theirs. Any thread.
[[nodiscard]] bool isLibraryAddress(const void* address) noexcept;

/// Whether this is the shared library, and not one linked into a program or a kit.
[[nodiscard]] bool isSharedLibrary() noexcept;

}  // namespace qlsdk::platform
