#pragma once

#include <functional>
#include <memory>
#include <string>

#include "QLSDKCoreKit/Export.h"
#include "QLSDKCoreKit/values/Value.h"

namespace qlsdk::platform {

/// One screen of the host's user interface, as far as the library looks at it.
class QLSDK_EXPORT ViewController {
  public:
    virtual ~ViewController() = default;

    /// The controller shown on top of this one; null when there is none.
    [[nodiscard]] virtual std::shared_ptr<ViewController> presentedViewController() = 0;
};

enum class LayoutDirection { leftToRight = 0, rightToLeft = 1 };

/// Whether the application object has the open call that reports its outcome later (`modern`) or only the one
/// that answers at once (`legacy`). Systems before version 10 have only the latter.
enum class OpenCall { modern, legacy };

using OpenCompletion = std::function<void(bool success)>;

/// Port: the host's application object. All calls belong on the main queue.
class QLSDK_EXPORT Application {
  public:
    virtual ~Application() = default;

    [[nodiscard]] virtual OpenCall openCall() = 0;

    /// The modern call. Starts opening `url` and returns; `completion`, which may be null, is called exactly
    /// once with the real outcome, later, on the main queue.
    virtual void openUrl(const std::string& url, const Dictionary& options, OpenCompletion completion) = 0;

    /// The legacy call. True when something was started for `url`.
    virtual bool openUrl(const std::string& url) = 0;

    /// True when something is registered that opens `url`.
    [[nodiscard]] virtual bool canOpenUrl(const std::string& url) = 0;

    [[nodiscard]] virtual LayoutDirection userInterfaceLayoutDirection() = 0;

    /// The root view controller of the key window; null when there is no key window.
    [[nodiscard]] virtual std::shared_ptr<ViewController> keyWindowRootViewController() = 0;
};

}  // namespace qlsdk::platform
