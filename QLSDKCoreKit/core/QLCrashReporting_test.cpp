#include "QLSDKCoreKit/core/QLCrashReporting.h"

#include <stdexcept>
#include <string>
#include <thread>

#include <gmock/gmock.h>

#include "QLSDKCoreKit/core/QLCrashLogger.h"
#include "QLSDKCoreKit/core/internal/RecordingLogger_test.h"

namespace qlsdk {
namespace {

using ::testing::ElementsAre;

TEST(QLCrashReporting, ReportsReachTheInstalledClassOnly) {
    {
        testing::RecordingLogger logger;
        QLLogAssertAsHandledException("name %s", "reason %@ %n");
        EXPECT_THAT(logger.reports(), ElementsAre("name %s: reason %@ %n"));

        QLSetHandledExceptionLogger(&QLBaseCrashLogger::Class::object());
        QLLogAssertAsHandledException("name", "for the default class");
        EXPECT_EQ(logger.reports().size(), 1U);
    }
    QLLogAssertAsHandledException("name", "fills the empty slot again");
}

TEST(QLCrashReporting, AThrowingLoggerDoesNoHarm) {
    testing::RecordingLogger logger;
    logger.onReport = [] { throw std::runtime_error("logger"); };
    QLLogAssertAsHandledException("a", "1");
    QLLogAssertAsHandledException("b", "2");
    EXPECT_THAT(logger.reports(), ElementsAre("a: 1", "b: 2"));
}

TEST(QLCrashReporting, ReportsOfTheLoggersOwnEndAtASmallDepthOnTheirThread) {
    testing::RecordingLogger logger;
    int depth = 0;
    logger.onReport = [&depth, here = std::this_thread::get_id()] {
        if (std::this_thread::get_id() != here) return;
        if (++depth == 4) {
            std::thread([] { QLLogAssertAsHandledException("other thread", "5"); }).join();
        }
        if (depth < 10) QLLogAssertAsHandledException("inner", std::to_string(depth).c_str());
        if (depth == 2) throw std::runtime_error("logger");
    };
    for (int round = 0; round < 2; ++round) {
        depth = round * 10;
        QLLogAssertAsHandledException("outer", "0");
    }
    EXPECT_THAT(logger.reports(),
                ElementsAre("outer: 0", "inner: 1", "inner: 2", "inner: 3", "other thread: 5", "outer: 0"));
}

TEST(QLCrashReporting, AClassWithoutTheOperationDropsReports) {
    static constexpr QLHandledExceptionLoggerClass kMute{nullptr};
    QLSetHandledExceptionLogger(&kMute);
    QLLogAssertAsHandledException("name", "reason");
    QLSetHandledExceptionLogger(nullptr);
}

TEST(QLBaseCrashLogger, ClassOperationsReachTheSharedInstanceWhichDoesNothing) {
    QLBaseCrashLogger::Class::logHandledException({"name", "reason"});
    QLBaseCrashLogger::Class::startServicesWithCrashDelegate(nullptr);
    EXPECT_NE(dynamic_cast<QLBaseCrashLogger*>(QLSharedCrashLogger()), nullptr);
    EXPECT_EQ(QLSharedCrashLogger(), QLSharedCrashLogger());
}

}  // namespace
}  // namespace qlsdk
