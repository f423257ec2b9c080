#include <cerrno>
#include <filesystem>
#include <fstream>

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <stdio.h>
#include <stdlib.h>

#include "QLSDKCoreKit/core/QLAppEnvironment.h"
#include "QLSDKCoreKit/core/QLSDKConstants.h"
#include "QLSDKCoreKit/events/AnalyticsEventsQueue.h"
#include "QLSDKCoreKit/picoproto/picoproto.h"
#include "QLSDKCoreKit/platform/internal/LibraryAddresses.h"
#include "QLSDKCoreKit/platform/linux/LinuxAdapters.h"
#include "QLSDKCoreKit/platform/linux/testing/Reported.h"
#include "QLSDKCoreKit/platform/testing/FakeFacts.h"
#include "QLSDKCoreKit/platform/testing/FakeStores.h"

namespace qlsdk::platform {
namespace {

namespace fs = std::filesystem;

void writePropertyList(const std::string& path, const std::string& key, const std::string& text) {
    std::ofstream(path) << "<?xml version=\"1.0\" encoding=\"UTF-8\"?><plist version=\"1.0\"><dict><key>"
                        << key << "</key><string>" << text << "</string></dict></plist>";
}

std::string outputOf(const std::string& command) {
    FILE* pipe = ::popen(command.c_str(), "r");
    if (pipe == nullptr) return "<not run>";
    std::string output(4096, '\0');
    output.resize(::fread(output.data(), 1, output.size(), pipe));
    return ::pclose(pipe) == 0 ? output : "<failed>";
}

std::shared_ptr<Bundles> bundlesWith(std::optional<std::string> infoPlist) {
    return makeLinuxBundles(std::move(infoPlist), std::make_shared<testing::FakeLocale>());
}

TEST(LinuxBundles, FindTheMainPropertyListWhereTheyShould) {
    const testing::TemporaryDirectories home;
    const std::string program = home.path() + "/app";
    fs::copy_file(QLSDK_PRINT_MAIN_BUNDLE, program);
    ASSERT_EQ(::setenv("LC_ALL", "de_DE.UTF-8", 1), 0);
    EXPECT_EQ(outputOf(program), home.path() + " none greeting");

    writePropertyList(home.path() + "/Info.plist", "CFBundleVersion", "beside");
    EXPECT_EQ(outputOf(program), home.path() + " beside greeting");
    writePropertyList(program + ".Info.plist", "CFBundleVersion", "named");
    writePropertyList(program + ".en.strings.plist", "greeting", "Hello");
    EXPECT_EQ(outputOf(program), home.path() + " named Hello");
    writePropertyList(program + ".de.strings.plist", "greeting", "Hallo");
    EXPECT_EQ(outputOf(program), home.path() + " named Hallo");
    writePropertyList(home.path() + "/other.plist", "CFBundleVersion", "environment");
    EXPECT_EQ(outputOf("QLSDK_INFO_PLIST=" + home.path() + "/other.plist " + program),
              home.path() + " environment greeting");
}

TEST(LinuxBundles, TheOptionWinsAndEachListIsReadOnce) {
    const testing::TemporaryDirectories home;
    const std::string list = home.path() + "/Info.plist";
    writePropertyList(list, "CFBundleVersion", "1");
    const auto bundles = bundlesWith(list);
    EXPECT_EQ(bundles->mainBundle()->textForInfoDictionaryKey(kBundleVersionKey), "1");
    writePropertyList(list, "CFBundleVersion", "2");
    EXPECT_EQ(bundles->mainBundle()->textForInfoDictionaryKey(kBundleVersionKey), "1");
}

TEST(LinuxBundles, AListThatCannotBeReadMakesAnEmptyBundle) {
    const testing::TemporaryDirectories home;
    const std::string list = home.path() + "/Info.plist";
    for (const std::string& text :
         {std::string("garbage"), std::string("<plist version=\"1.0\"><array/></plist>"),
          std::string((1 << 20) + 1, ' ')}) {
        std::ofstream(list) << text;
        EXPECT_TRUE(bundlesWith(list)->mainBundle()->infoDictionary().isNull());
    }
    EXPECT_TRUE(testing::hasReported(DiagnosticKind::propertyList, list)) << "no dictionary";
    EXPECT_TRUE(testing::hasReported(DiagnosticKind::propertyList, list, EFBIG));
    fs::remove(list);
    (void)bundlesWith(list)->mainBundle();
    EXPECT_TRUE(testing::hasReported(DiagnosticKind::propertyList, list, ENOENT));
    EXPECT_TRUE(bundlesWith(home.path())->mainBundle()->infoDictionary().isNull());
}

TEST(LinuxBundles, ASharedObjectHasItsOwn) {
    const testing::TemporaryDirectories home;
    const std::string real = home.path() + "/libkit.so.1.2";
    const std::string link = home.path() + "/libkit.so.1";
    fs::copy_file(QLSDK_BUNDLE_PROBE, real);
    fs::create_symlink(real, link);
    writePropertyList(home.path() + "/libkit.1.2.Info.plist", "CFBundleVersion", "out of ldconfig's way");
    void* object = ::dlopen(link.c_str(), RTLD_NOW);
    ASSERT_NE(object, nullptr) << ::dlerror();
    const void* address = ::dlsym(object, "qlsdkBundleProbe");

    const auto bundles = bundlesWith({});
    const auto bundle = bundles->bundleForAddress(address);
    EXPECT_EQ(bundle->path(), home.path());
    EXPECT_EQ(bundle->textForInfoDictionaryKey(kBundleVersionKey), "out of ldconfig's way");
    EXPECT_EQ(bundles->bundleForAddress(address), bundle);
    EXPECT_NE(bundle, bundles->mainBundle());

    writePropertyList(link + ".Info.plist", "CFBundleVersion", "of the link");
    EXPECT_EQ(bundlesWith({})->bundleForAddress(address)->textForInfoDictionaryKey(kBundleVersionKey),
              "of the link");
    writePropertyList(real + ".Info.plist", "CFBundleVersion", "of the file");
    EXPECT_EQ(bundlesWith({})->bundleForAddress(address)->textForInfoDictionaryKey(kBundleVersionKey),
              "of the file");
    ::dlclose(object);
}

// The host changes its directory after it has opened the kit, and perhaps before anybody asks.
TEST(LinuxBundles, ASharedObjectOfARelativeNameIsWhereItWasOpened) {
    const testing::TemporaryDirectories home;
    const fs::path before = fs::current_path();
    const std::pair<const char*, const char*> kits[] = {{"a kit", "./libkit.so"}, {"b", "../b/libkit.so"}};
    for (const auto& [kit, name] : kits) {
        fs::create_directory(home.path() + "/" + kit);
        fs::copy_file(QLSDK_BUNDLE_PROBE, home.path() + "/" + kit + "/libkit.so");
        writePropertyList(home.path() + "/" + kit + "/libkit.so.Info.plist", "CFBundleVersion", kit);
    }
    const auto bundles = bundlesWith({});
    for (const auto& [kit, name] : kits) {
        fs::current_path(home.path() + "/" + kit);
        void* object = ::dlopen(name, RTLD_NOW);
        ASSERT_NE(object, nullptr) << ::dlerror();
        fs::current_path(before);
        const auto bundle = bundles->bundleForAddress(::dlsym(object, "qlsdkBundleProbe"));
        EXPECT_EQ(bundle->textForInfoDictionaryKey(kBundleVersionKey), kit);
        EXPECT_EQ(bundle->path(), home.path() + "/" + kit);
    }
}

TEST(LinuxBundles, TheLibraryKnowsItselfAndNobodyElse) {
    static const char hosts = 0;
    const auto bundles = bundlesWith({});
    const void* const own[] = {libraryAddress(),
                               &kQLSDKErrorDomain,
                               kQLSDKErrorDomain,
                               kQLSDKRetryAfterHeader,
                               reinterpret_cast<const void*>(&QLKitVersionForClass),
                               reinterpret_cast<const void*>(&picoproto_new)};
    for (const void* address : own) {
        EXPECT_EQ(bundles->bundleForAddress(address)->textForInfoDictionaryKey(kBundleVersionKey), "1.3.4");
        EXPECT_TRUE(isLibraryAddress(address)) << "also where the library is a part of the program";
    }
    const void* const foreign[] = {nullptr, &hosts, reinterpret_cast<const void*>(&outputOf)};
    for (const void* address : foreign) {
        EXPECT_EQ(bundles->bundleForAddress(address), bundles->mainBundle());
    }
}

TEST(LinuxBundles, TheLibrarysTextsAreInFilesThatTheHostMayReplace) {
    const testing::TemporaryDirectories home;
    const std::string program = home.path() + "/bin/app";
    fs::create_directories(home.path() + "/bin");
    fs::create_directories(home.path() + "/share/qlsdkcorekit");
    fs::copy_file(QLSDK_PRINT_MAIN_BUNDLE, program);
    const auto text = [&] { return outputOf("LC_ALL=C " + program + " library"); };
    EXPECT_EQ(text(), "force_logged_out");
    fs::copy_file(QLSDK_LIBRARY_STRINGS, home.path() + "/share/qlsdkcorekit/qlsdkcorekit.en.strings.plist");
    EXPECT_EQ(text(), "You have been signed out. Please sign in again.");
    writePropertyList(home.path() + "/bin/qlsdkcorekit.en.strings.plist", "force_logged_out", "Good bye");
    EXPECT_EQ(text(), "Good bye");
    writePropertyList(program + ".Info.plist", "CFBundleVersion", "1");
    writePropertyList(program + ".en.strings.plist", "force_logged_out", "Bye");
    EXPECT_EQ(text(), "Bye");
}

}  // namespace
}  // namespace qlsdk::platform
