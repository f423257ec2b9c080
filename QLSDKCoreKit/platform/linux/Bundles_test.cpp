#include <filesystem>
#include <fstream>

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <stdio.h>
#include <stdlib.h>

#include "QLSDKCoreKit/platform/linux/internal/LinuxAdapters.h"
#include "QLSDKCoreKit/platform/testing/FakeDevice.h"
#include "QLSDKCoreKit/platform/testing/TemporaryDirectories.h"

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

}  // namespace
}  // namespace qlsdk::platform
