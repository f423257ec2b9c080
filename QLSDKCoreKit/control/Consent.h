#pragma once

#include "QLSDKCoreKit/Export.h"
#include "QLSDKCoreKit/platform/HostControls.h"
#include "QLSDKCoreKit/platform/Queues.h"

namespace qlsdk::platform {

/// What holds now. While a refusal is being carried out it holds, whatever has been said since. Any thread.
[[nodiscard]] QLSDK_EXPORT Consent consent();

/// Changes what holds. Any thread, any time after `install`; returns at once. `completion`, which may be
/// null, is called once, on a queue of the library's own, when the change has been carried out or a later one
/// has overtaken it. Where memory has run out and none is left for the queue's task, it is called on the
/// thread that was to give it, which may be the caller's, inside this call.
///
/// `refused` holds when this returns: no request starts any more, and pushed events are dropped. What is
/// under way is cancelled, the archives are deleted, and only then `completion` is called. A request that a
/// delegate sends by itself is not the library's to cancel; like every other that fails in spite of the
/// refusal, its records are not kept. What the operating system has been given already may still be on its
/// way. Not touched: the stored configuration, the installation id, the dates of the last heartbeats. Needs
/// no memory and never throws: what could not be deleted for want of memory is deleted by the next call, or
/// when its queue is made or used again, and is never sent.
///
/// `granted` sends what waits on disk without waiting for another event; after a refusal, collecting begins
/// anew. `undecided` lets what is under way end; a batch that fails then is kept as ever. Both wait their
/// turn while a refusal is being carried out. In a child of a fork() that hit such a moment the refusal
/// stays. Both throw when the library has not been used yet and there is no memory to start it
/// (`std::bad_alloc`); nothing has changed then, and `completion` is not called.
QLSDK_EXPORT void setConsent(Consent consent, Task completion = nullptr);

}  // namespace qlsdk::platform
