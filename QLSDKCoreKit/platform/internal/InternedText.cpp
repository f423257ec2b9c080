#include "QLSDKCoreKit/platform/internal/InternedText.h"

#include <mutex>
#include <set>

#include "QLSDKCoreKit/platform/internal/ForkSafeMutex.h"
#include "QLSDKCoreKit/platform/internal/ForkSafeOnce.h"

namespace qlsdk::platform {

const char* internedText(const std::optional<std::string>& text) {
    if (!text) return nullptr;
    struct Pool {
        ForkSafeMutex mutex;
        std::set<std::string> texts;
    };
    // Never destroyed: the pointers handed out must stay valid while the process ends.
    static constinit ForkSafeOnce<Pool> leaked;
    Pool& pool = leaked.get([] { return Pool(); });
    const std::lock_guard lock(pool.mutex);
    return pool.texts.insert(*text).first->c_str();
}

}  // namespace qlsdk::platform
