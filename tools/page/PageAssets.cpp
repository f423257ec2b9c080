#include "tools/page/PageAssets.h"

#include <algorithm>

namespace quillkit {

const PageAsset* pageAssetNamed(std::string_view name) {
    const auto assets = pageAssets();
    const auto found = std::find_if(assets.begin(), assets.end(),
                                    [name](const PageAsset& asset) { return asset.name == name; });
    return found == assets.end() ? nullptr : &*found;
}

std::string_view contentTypeOf(std::string_view name) {
    if (name.ends_with(".html")) return "text/html;charset=utf-8";
    if (name.ends_with(".css")) return "text/css;charset=utf-8";
    if (name.ends_with(".js")) return "text/javascript;charset=utf-8";
    return "image/svg+xml";
}

}  // namespace quillkit
