#pragma once

#include <string>
#include <string_view>

namespace qlsdk::platform {

/// Whether the ELF file defines a symbol of this name, or the type information of a C++ class of this name
/// that stands in no named namespace. Local symbols count, which the loader does not know; a stripped file
/// has lost them. False for a file that cannot be read. Any thread; allocates.
[[nodiscard]] bool fileDefines(const std::string& file, std::string_view name);

/// The same for the program and every shared object that is loaded now.
[[nodiscard]] bool isSymbolLoaded(const std::string& name);

}  // namespace qlsdk::platform
