#pragma once

#include <memory>
#include <optional>
#include <string>

#include "QLSDKCoreKit/platform/Platform.h"
#include "QLSDKCoreKit/platform/linux/LinuxPlatform.h"

namespace qlsdk::platform {

// One factory per port. All adapters are lazy: making one touches no file and starts no thread.

[[nodiscard]] std::shared_ptr<Clock> makeLinuxClock();
[[nodiscard]] std::shared_ptr<Random> makeLinuxRandom();
[[nodiscard]] std::shared_ptr<Log> makeLinuxLog();
/// Listens when the environment variable "QLSDK_DIAGNOSTICS" is "stderr".
[[nodiscard]] std::shared_ptr<DiagnosticsSink> makeStderrDiagnostics();
[[nodiscard]] std::shared_ptr<Process> makeLinuxProcess();
[[nodiscard]] std::shared_ptr<Device> makeLinuxDevice();
[[nodiscard]] std::shared_ptr<Locale> makeLinuxLocale();

/// Answers for a host without a user interface; outcomes of open calls arrive on the main queue of `queues`.
[[nodiscard]] std::shared_ptr<Application> makeHeadlessApplication(std::shared_ptr<Queues> queues);
[[nodiscard]] std::shared_ptr<Fonts> makeHeadlessFonts();

/// `infoPlist` and `infoDictionary` as in `LinuxPlatformOptions`; `locale` chooses the language of localized
/// strings.
[[nodiscard]] std::shared_ptr<Bundles> makeLinuxBundles(std::optional<std::string> infoPlist,
                                                        std::shared_ptr<Locale> locale,
                                                        Value infoDictionary = {});

/// The three stores below keep their files in directories named after the main bundle of `bundles`, below the
/// XDG directories or, when it is given, below `home` (see `StateDirectory`).
[[nodiscard]] std::shared_ptr<Directories> makeLinuxDirectories(std::optional<std::string> home,
                                                                std::shared_ptr<Bundles> bundles);
/// Writes that have to wait for another process's lock do so on a queue of `queues`.
[[nodiscard]] std::shared_ptr<UserDefaults> makeLinuxUserDefaults(std::optional<std::string> home,
                                                                  std::shared_ptr<Bundles> bundles,
                                                                  std::shared_ptr<Queues> queues);
[[nodiscard]] std::shared_ptr<Keychain> makeLinuxKeychain(std::optional<std::string> home,
                                                          std::shared_ptr<Bundles> bundles);

/// Both count their work in `activity`.
[[nodiscard]] std::shared_ptr<Queues> makeLinuxQueues(std::shared_ptr<Activity> activity);
[[nodiscard]] std::shared_ptr<UrlSession> makeLinuxUrlSession(const HttpOptions& options,
                                                              std::shared_ptr<Activity> activity);

}  // namespace qlsdk::platform
