#pragma once

#include <span>
#include <string_view>

namespace quillkit {

/// A file of tools/page as it stands in the program.
struct PageAsset {
    std::string_view name;
    std::string_view content;
};

/// All of them; the build makes the list.
[[nodiscard]] std::span<const PageAsset> pageAssets();

/// The file of that name; null when there is none.
[[nodiscard]] const PageAsset* pageAssetNamed(std::string_view name);

/// By the name's ending.
[[nodiscard]] std::string_view contentTypeOf(std::string_view name);

}  // namespace quillkit
