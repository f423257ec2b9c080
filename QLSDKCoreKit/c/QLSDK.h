#ifndef QLSDKCOREKIT_C_QLSDK_H
#define QLSDKCOREKIT_C_QLSDK_H

/* The library for hosts in C, and for languages that call C. Every pointer may be NULL; each function says
   what comes of it. */

#include "QLSDKCoreKit/c/QLSDKConfig.h"
#include "QLSDKCoreKit/c/QLSDKEvents.h"
#include "QLSDKCoreKit/c/QLSDKHost.h"
#include "QLSDKCoreKit/c/QLSDKLink.h"
#include "QLSDKCoreKit/core/QLAppEnvironment.h"
#include "QLSDKCoreKit/core/QLCrashReporting.h"
#include "QLSDKCoreKit/core/QLSDKConstants.h"

#endif
