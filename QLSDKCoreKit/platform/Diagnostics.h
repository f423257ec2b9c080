#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "QLSDKCoreKit/Export.h"

namespace qlsdk::platform {

/// What kind of thing failed. docs/troubleshooting.md has the remedy for each. New kinds may be added at the
/// end; the numbers of the others stay, and are the same in C.
enum class DiagnosticKind : std::int32_t {
    /// A request ended without an answer: no network, no such host, time-out, reset.
    requestFailed = 1,
    /// A server's certificate could not be verified, or the file of certificate authorities not be read.
    certificate = 2,
    /// An option of the host's cannot be used and was refused.
    invalidOption = 3,
    /// There is no directory to keep state in, or it cannot be written.
    stateDirectory = 4,
    /// The host's or a kit's property list is missing, cannot be read or lacks what is needed.
    propertyList = 5,
    /// A file is there and cannot be read.
    unreadableFile = 6,
    /// A file's content is damaged; it was set aside or counts as absent.
    damagedFile = 7,
    /// A file could not be written, emptied or removed.
    failedWrite = 8,
    /// Records were dropped, lost or held back; the cause says why.
    records = 9,
    /// The clock stands before a time that it has told earlier.
    clock = 10,
    /// The keychain could not do what it was asked.
    keychain = 11,
    /// The system refused memory, a thread or a descriptor.
    resources = 12,
    /// A callback of the host's, or a delegate, threw or dropped its completion.
    hostCallback = 13,
    /// An answer of the server's could not be used; the detail is the parser's complaint.
    serverAnswer = 14,
    /// The random source failed.
    random = 15,
    /// Client auth tokens are sealed with the public development key, so that they prove nothing.
    developmentKey = 16,
};

/// The kind's name as it stands above ("requestFailed"), "unknown" for any other number. Lives for ever.
[[nodiscard]] QLSDK_EXPORT const char* diagnosticKindName(DiagnosticKind kind) noexcept;

/// One thing that failed, as it is told. Never holds a token, a header's value or a body.
struct Diagnostic {
    DiagnosticKind kind{};
    /// Why, in fixed words. Together with the kind, the errno and the path it identifies the failure.
    std::string cause;
    /// The system's error number, 0 where there is none.
    int errorNumber = 0;
    /// The file or directory concerned, empty where there is none. Bytes of the file system, not checked.
    std::string path{};
    /// The words of the library or parser that complained, as they were the first time; may be empty.
    std::string detail{};
    /// How often it has happened in this process; in a child of fork(), its parent's share included.
    std::uint64_t times = 1;
};

/// `diagnostic` as one line for a person, such as "failedWrite: the file cannot be replaced: /home/a/x:
/// No space left on device (errno 28)", control characters escaped. Without a line feed.
[[nodiscard]] QLSDK_EXPORT std::string diagnosticLine(const Diagnostic& diagnostic);

/// What a caller that met a failure says of it; the members are those of `Diagnostic`. Borrowed for the call,
/// so that nothing has to be allocated to say that memory ran out. Longer than 160, 1,024 and 512 bytes,
/// cause, path and detail are cut.
struct DiagnosticReport {
    DiagnosticKind kind{};
    std::string_view cause;
    int errorNumber = 0;
    std::string_view path{};
    std::string_view detail{};
};

/// Says that something failed. Returns at once: whoever hears of it is called later, on a queue of the
/// library's own, and once for each kind, cause, errno and path; further reports are only counted. Of one
/// kind sixteen are told apart; the rest is counted together as "further failures of this kind".
///
/// Any thread, before and after the platform is settled, which this does not do; what comes before is told
/// once it is. Leaves errno as it was. It takes no lock but those of the queue, and these only the first time
/// that a failure is met, so it may be called with locks held, though not with a queue's own. Without memory
/// for it the report is counted as one that could not be kept.
QLSDK_EXPORT void reportDiagnostic(const DiagnosticReport& report) noexcept;

/// All that has been reported in this process until now, oldest first, each with how often. Any thread;
/// neither waits nor settles the platform.
[[nodiscard]] QLSDK_EXPORT std::vector<Diagnostic> diagnostics();

}  // namespace qlsdk::platform
