#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "QLSDKCoreKit/events/AnalyticsEventsQueue.h"

namespace qlsdk::bench {

/// The directory below which everything of this run lies; made on first use, on the disk of the working
/// directory, and removed at exit.
const std::string& home();

/// Installs the Linux platform below `home()`, with an HTTP session that accepts every request at once. The
/// first call counts.
void installAcceptingPlatform();

/// Installs the Linux platform below `home()`, with requests going to a server at `baseUrl` in place of the
/// real one. The first call counts.
void installLocalPlatform(const std::string& baseUrl, const std::string& caFile);

/// One counter as the library's users make it.
std::shared_ptr<EncodablePicoproto> counterEvent();

/// Builds bodies that hold nothing, so that a queue's own work is what is measured.
std::shared_ptr<AnalyticsEventsQueueDelegate> emptyBodies();

/// A queue that never publishes by itself, with `length` records loaded from its file.
std::shared_ptr<AnalyticsEventsQueue> waitingQueue(const std::string& archiveName, std::int64_t length);

}  // namespace qlsdk::bench
