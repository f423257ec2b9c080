#include "QLSDKCoreKit/platform/Diagnostics.h"

#include <array>
#include <cerrno>
#include <map>
#include <random>
#include <stdexcept>
#include <thread>

#include <gtest/gtest.h>

#include "QLSDKCoreKit/platform/internal/testing/FailingAllocations.h"
#include "QLSDKCoreKit/platform/testing/FakePlatform.h"

namespace qlsdk::platform {

namespace {

/// As a person would read it, with how often.
std::vector<std::string> lines(const std::vector<Diagnostic>& diagnostics) {
    std::vector<std::string> found;
    for (const Diagnostic& each : diagnostics) {
        found.push_back(std::to_string(each.times) + "x " + diagnosticLine(each));
    }
    return found;
}

using Lines = std::vector<std::string>;

}  // namespace

TEST(Diagnostics, TellEachFailureOnceAndCountTheOthers) {
    const testing::FakePlatform fakes;
    reportDiagnostic({DiagnosticKind::clock, "before anybody listens", 0, {}, "2 s"});
    reportDiagnostic({DiagnosticKind::clock, "before anybody listens", 0, {}, "3 s"});
    ASSERT_TRUE(fakes.install());
    const auto told = [&fakes] {
        (void)fakes.queues->runSerialQueuesUntilIdle();
        return lines(fakes.diagnostics->told());
    };
    EXPECT_EQ(lines(fakes.diagnostics->told()), Lines{}) << "not on the thread of whoever reports";
    Lines expected = {"2x clock: before anybody listens: 2 s"};
    EXPECT_EQ(told(), expected);

    // Each differs from the first in one thing, and only the detail makes no difference.
    const std::string path = "/a\nb";
    errno = ERANGE;
    reportDiagnostic({DiagnosticKind::failedWrite, "cut", ENOSPC, path});
    reportDiagnostic({DiagnosticKind::unreadableFile, "cut", ENOSPC, path});
    reportDiagnostic({DiagnosticKind::failedWrite, "torn", ENOSPC, path});
    reportDiagnostic({DiagnosticKind::failedWrite, "cut", 0, path});
    reportDiagnostic({DiagnosticKind::failedWrite, "cut", ENOSPC});
    EXPECT_EQ(errno, ERANGE) << "callers look at it afterwards";
    const std::string full = ": No space left on device (errno 28)";
    expected.insert(
        expected.end(),
        {"1x failedWrite: cut: /a\\nb" + full, "1x unreadableFile: cut: /a\\nb" + full,
         "1x failedWrite: torn: /a\\nb" + full, "1x failedWrite: cut: /a\\nb", "1x failedWrite: cut" + full});
    EXPECT_EQ(told(), expected);
    reportDiagnostic({DiagnosticKind::failedWrite, "cut", ENOSPC, path, "again"});
    EXPECT_EQ(told(), expected) << "told once";
    expected[1][0] = '2';
    EXPECT_EQ(lines(diagnostics()), expected) << "and counted";
}

TEST(Diagnostics, AHostsCallbackHearsThemInsteadAndMayThrowAndCallBack) {
    const testing::FakePlatform fakes;
    Platform platform = fakes.platform();
    Lines heard;
    platform.controls.diagnostics = [&heard](const Diagnostic& diagnostic) {
        heard.push_back(diagnosticLine(diagnostic));
        reportDiagnostic({DiagnosticKind::hostCallback, "met in the callback"});
        throw std::runtime_error("the host's");
    };
    ASSERT_EQ(install(std::move(platform)), InstallResult::installed);
    // Longest texts, one byte more, and a character of UTF-8 across the end.
    reportDiagnostic({DiagnosticKind::records, std::string(160, 'c'), 0, std::string(1'024, 'p'),
                      std::string(511, 'd') + "\u00e9"});
    reportDiagnostic({DiagnosticKind::records, std::string(161, 'c'), 0, std::string(1'025, 'p')});
    (void)fakes.queues->runSerialQueuesUntilIdle();
    EXPECT_EQ(heard, (Lines{"records: " + std::string(160, 'c') + ": " + std::string(1'024, 'p') + ": " +
                                std::string(511, 'd'),
                            "hostCallback: met in the callback"}));
    EXPECT_EQ(diagnostics().front().times, 2U);
    EXPECT_TRUE(fakes.diagnostics->told().empty());
}

TEST(Diagnostics, WithoutMemoryForThemAreCountedAndToldWithTheNext) {
    const testing::FakePlatform fakes;
    ASSERT_TRUE(fakes.install());
    {
        const qlsdk::testing::FailingAllocations none;
        reportDiagnostic({DiagnosticKind::failedWrite, "cut", ENOSPC, "/a"});
        reportDiagnostic({DiagnosticKind::failedWrite, "cut", ENOSPC, "/b"});
    }
    reportDiagnostic({DiagnosticKind::failedWrite, "cut", ENOSPC, "/c"});
    (void)fakes.queues->runSerialQueuesUntilIdle();
    EXPECT_EQ(lines(fakes.diagnostics->told()),
              (Lines{"2x resources: no memory to note a failure",
                     "1x failedWrite: cut: /c: No space left on device (errno 28)"}));
}

TEST(Diagnostics, FromManyThreadsNoneIsMissingAndFewAreKept) {
    constexpr int kEach = 4'000;
    constexpr std::size_t kKinds = 15;
    std::vector<std::thread> threads;
    for (unsigned seed = 0; seed < 4; ++seed) {
        threads.emplace_back([seed] {
            std::mt19937 random(seed);
            for (int i = 0; i < kEach; ++i) {
                const auto kind = static_cast<DiagnosticKind>(1 + random() % kKinds);
                // Of the clock's fifteen causes there is room for each, of the others' thirty there is not.
                const unsigned causes = kind == DiagnosticKind::clock ? 15 : 30;
                reportDiagnostic({kind, "cause " + std::to_string(random() % causes)});
            }
        });
    }
    for (std::thread& thread : threads) thread.join();

    std::map<std::pair<DiagnosticKind, std::string>, std::uint64_t> found;
    std::map<DiagnosticKind, std::size_t> ofKind;
    std::uint64_t times = 0;
    for (const Diagnostic& each : diagnostics()) {
        EXPECT_TRUE(found.emplace(std::pair(each.kind, each.cause), each.times).second) << each.cause;
        ++ofKind[each.kind];
        times += each.times;
    }
    EXPECT_EQ(times, 4U * kEach);
    EXPECT_EQ(found.size(), 15 + (kKinds - 1) * 17);
    for (const auto& [kind, count] : ofKind) {
        const bool isClock = kind == DiagnosticKind::clock;
        EXPECT_EQ(count, isClock ? 15U : 17U);
        EXPECT_EQ(found.contains({kind, "further failures of this kind"}), !isClock);
    }
}

}  // namespace qlsdk::platform
