#include "QLSDKCoreKit/core/QLCrashReporting.h"

#include <stdexcept>
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

TEST(QLCrashReporting, AReportOfTheLoggersOwnIsDroppedOnItsThreadOnly) {
    testing::RecordingLogger logger;
    bool entered = false;
    logger.onReport = [&entered] {
        if (std::exchange(entered, true)) return;
        QLLogAssertAsHandledException("inner", "dropped");
        std::thread([] { QLLogAssertAsHandledException("other thread", "kept"); }).join();
    };
    QLLogAssertAsHandledException("outer", "kept");
    EXPECT_THAT(logger.reports(), ElementsAre("outer: kept", "other thread: kept"));
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
