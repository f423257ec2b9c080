#include "QLSDKCoreKit/platform/InternedText.h"

#include <mutex>
#include <set>

namespace qlsdk::platform {

const char* internedText(const std::optional<std::string>& text) {
    if (!text) return nullptr;
    struct Pool {
        std::mutex mutex;
        std::set<std::string> texts;
    };
    // Never destroyed: the pointers handed out must stay valid while the process ends.
    static Pool& pool = *new Pool;
    const std::lock_guard lock(pool.mutex);
    return pool.texts.insert(*text).first->c_str();
}

}  // namespace qlsdk::platform
