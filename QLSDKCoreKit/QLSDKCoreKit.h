#pragma once

/// The core library of the Quillo kits: start here.
///
/// There is no initialisation call and nothing to shut down. The first use of `QLSDKClientSetup` reads the
/// host's property list; a host that wants its own platform parts installs them before that
/// (platform/Platform.h). What holds everywhere (threads, nulls, ownership, errors) stands in
/// docs/conventions.md.

// The host and its configuration.
#include "QLSDKCoreKit/core/ApplicationHelpers.h"
#include "QLSDKCoreKit/core/QLSDKClientSetup.h"
#include "QLSDKCoreKit/core/QLSDKConstants.h"
#include "QLSDKCoreKit/core/QLSDKError.h"
#include "QLSDKCoreKit/core/QLSDKTweaks.h"

// Questions about the process, and reports of broken expectations.
#include "QLSDKCoreKit/core/QLAppEnvironment.h"
#include "QLSDKCoreKit/core/QLCrashLogger.h"
#include "QLSDKCoreKit/core/QLCrashReporting.h"

// Helpers that the kits share.
#include "QLSDKCoreKit/core/Helpers.h"
#include "QLSDKCoreKit/network/DataEncryption.h"

// Telemetry: heartbeats, metrics, and a kit's own events.
#include "QLSDKCoreKit/events/AnalyticsEventsQueue.h"
#include "QLSDKCoreKit/events/QLSDKHeartbeatEventsQueue.h"
#include "QLSDKCoreKit/events/QLSDKOperationalMetricsQueue.h"
#include "QLSDKCoreKit/picoproto/QuillKitEvents.h"
#include "QLSDKCoreKit/picoproto/picoproto.h"

// Requests to the web service, and the token that signs them.
#include "QLSDKCoreKit/network/QLPayloadProvider.h"
#include "QLSDKCoreKit/network/QLSDKNetworkRequest.h"
#include "QLSDKCoreKit/network/QLSDKPayload.h"
#include "QLSDKCoreKit/network/TokenOpener.h"

// Secure storage, remote configuration, links into the companion app.
#include "QLSDKCoreKit/config/QLSDKDynamicConfigManager.h"
#include "QLSDKCoreKit/deeplink/QLSDKDeepLinker.h"
#include "QLSDKCoreKit/storage/QLSDKInstallation.h"
#include "QLSDKCoreKit/storage/QLSDKKeychainManager.h"

// The ground it stands on, what became of each event, and what failed.
#include "QLSDKCoreKit/control/Consent.h"
#include "QLSDKCoreKit/control/DeliveryCounters.h"
#include "QLSDKCoreKit/platform/Diagnostics.h"
#include "QLSDKCoreKit/platform/Platform.h"
