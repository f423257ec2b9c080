#pragma once

#include <memory>

#include <gio/gio.h>

#include "QLSDKCoreKit/platform/desktop/DestroyWith.h"

namespace qlsdk::platform {

/// One reference to a GObject.
template <typename T>
using ObjectPointer = std::unique_ptr<T, DestroyWith<g_object_unref>>;
using ErrorPointer = std::unique_ptr<GError, DestroyWith<g_error_free>>;
/// A text, or other memory, that GLib allocated.
template <typename T>
using GLibMemory = std::unique_ptr<T, DestroyWith<g_free>>;

/// Passes a smart pointer to a function that fills a `GError**`.
class ErrorOut {
  public:
    explicit ErrorOut(ErrorPointer& target) noexcept : target_(target) {}
    ~ErrorOut() { target_.reset(error_); }
    ErrorOut(const ErrorOut&) = delete;
    ErrorOut& operator=(const ErrorOut&) = delete;
    operator GError**() noexcept { return &error_; }

  private:
    ErrorPointer& target_;
    GError* error_ = nullptr;
};

}  // namespace qlsdk::platform
