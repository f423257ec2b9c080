#include <algorithm>
#include <atomic>
#include <cstring>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include "QLSDKCoreKit/platform/conformance/KeychainConformance.h"
#include "QLSDKCoreKit/platform/desktop/DesktopPlatform.h"
#include "QLSDKCoreKit/platform/desktop/testing/SessionBus.h"

// Each suite here wants a session in another state; CMakeLists.txt says which.
namespace qlsdk::platform {

namespace conformance {

std::shared_ptr<Keychain> makeEmptySecretKeychain() {
    const auto keychain = makeDesktopPlatform().keychain;
    (void)keychain->itemDelete({{std::string(kSecClass), std::string(kSecClassGenericPassword)}});
    return keychain;
}

INSTANTIATE_TEST_SUITE_P(Secret, KeychainConformance,
                         ::testing::Values(KeychainFactory{"Secret", &makeEmptySecretKeychain}));

}  // namespace conformance

namespace {

using ::testing::Contains;
using ::testing::HasSubstr;
using ::testing::Not;
using testing::SessionBus;

constexpr const char* kServicePath = "/org/freedesktop/secrets";

Dictionary query(const std::string& key) {
    return {{std::string(kSecClass), std::string(kSecClassGenericPassword)},
            {std::string(kSecAttrService), "com.example.app..QLSDK"},
            {std::string(kSecAttrGeneric), dataOf(key)},
            {std::string(kSecAttrAccount), dataOf(key)},
            {std::string(kSecAttrSynchronizable), false}};
}

Dictionary item(const std::string& key, const std::string& text = "text") {
    Dictionary attributes = query(key);
    attributes.set(kSecValueData, dataOf(text));
    return attributes;
}

void expectEveryCallToAnswer(Keychain& keychain, OSStatus status) {
    Value result = "before";
    Dictionary wantsData = query("k");
    wantsData.set(kSecReturnData, true);
    EXPECT_EQ(keychain.itemCopyMatching(wantsData, &result), status);
    EXPECT_EQ(keychain.itemCopyMatching(query("missing"), &result), status);
    EXPECT_EQ(keychain.itemAdd(item("k")), status);
    EXPECT_EQ(keychain.itemAdd(item("new")), status);
    EXPECT_EQ(keychain.itemUpdate(query("k"), {{std::string(kSecValueData), dataOf("x")}}), status);
    EXPECT_EQ(keychain.itemDelete(query("k")), status);
    EXPECT_EQ(result, Value("before"));
}

// The object path in an answer of the bus.
std::string pathIn(const std::string& answer) {
    const std::size_t start = std::min(answer.find('/'), answer.size());
    return answer.substr(start, answer.find('\'', start) - start);
}

class SecretKeychain : public ::testing::Test {
  protected:
    const std::shared_ptr<Keychain> keychain = conformance::makeEmptySecretKeychain();
};

TEST_F(SecretKeychain, KeepsItsItemsInTheDefaultCollectionForOthersToSee) {
    ASSERT_EQ(keychain->itemAdd(item("k", "text")), errSecSuccess);
    SessionBus bus;
    const std::string found =
        bus.callSecretService("/org/freedesktop/secrets/aliases/default", "Collection", "SearchItems",
                              "({'account': 'aw=='},)");  // "k" in base64
    const std::string session =
        bus.callSecretService(kServicePath, "Service", "OpenSession", "('plain', <''>)");
    const std::string secret =
        bus.callSecretService(pathIn(found), "Item", "GetSecret", "(objectpath '" + pathIn(session) + "',)");
    EXPECT_THAT(secret, HasSubstr("[0x74, 0x65, 0x78, 0x74]"));
}

TEST_F(SecretKeychain, AValueOfNoStorableKindIsRefused) {
    const std::pair<std::string_view, Value> oddities[] = {
        {kSecAttrService, 1.5},      {kSecAttrService, std::string("a\0b", 3)},
        {kSecAttrService, "\xFF"},   {kSecAttrAccount, "no data"},
        {kSecAttrSynchronizable, 1}, {kSecAttrAccessible, Data()}};
    for (const auto& [attribute, value] : oddities) {
        Dictionary odd = item("k");
        odd.set(attribute, value);
        EXPECT_EQ(keychain->itemAdd(odd), errSecParam) << attribute;
        EXPECT_EQ(keychain->itemUpdate(query("k"), {{std::string(attribute), value}}), errSecParam)
            << attribute;
        EXPECT_EQ(keychain->itemCopyMatching(odd, nullptr), errSecParam) << attribute;
        EXPECT_EQ(keychain->itemDelete(odd), errSecParam) << attribute;
    }
    Dictionary odd = query("k");
    odd.set(kSecValueData, "no data");
    EXPECT_EQ(keychain->itemAdd(odd), errSecParam);
}

TEST_F(SecretKeychain, AnUpdateOfAttributesKeepsTheRest) {
    ASSERT_EQ(keychain->itemAdd(item("k", "kept")), errSecSuccess);
    const std::string access(kSecAttrAccessibleAfterFirstUnlockThisDeviceOnly);
    ASSERT_EQ(keychain->itemUpdate(query("k"), {{std::string(kSecAttrAccessible), access}}), errSecSuccess);
    Dictionary changed = query("k");
    changed.set(kSecAttrAccessible, access);
    Value result;
    EXPECT_EQ(keychain->itemCopyMatching(changed, &result), errSecSuccess);
    EXPECT_EQ(result, Value(dataOf("kept")));
}

TEST_F(SecretKeychain, OneOfManyThreadsAddsAnItem) {
    std::atomic<int> added{0};
    std::atomic<int> duplicates{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            const OSStatus status = keychain->itemAdd(item("k"));
            if (status == errSecSuccess) ++added;
            if (status == errSecDuplicateItem) ++duplicates;
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(added, 1);
    EXPECT_EQ(duplicates, 3);
}

// The host's loop may run on another thread, or not at all; neither may matter to us, nor we to it.
TEST_F(SecretKeychain, LeavesTheHostsMainContextAlone) {
    bool dispatched = false;
    const guint source = g_idle_add(
        [](gpointer flag) -> gboolean {
            *static_cast<bool*>(flag) = true;
            return G_SOURCE_CONTINUE;
        },
        &dispatched);
    EXPECT_EQ(keychain->itemAdd(item("here")), errSecSuccess);
    ASSERT_TRUE(g_main_context_acquire(nullptr));
    std::thread([&] { EXPECT_EQ(keychain->itemAdd(item("elsewhere")), errSecSuccess); }).join();
    g_main_context_release(nullptr);
    EXPECT_FALSE(dispatched);
    g_source_remove(source);
}

// The child lacks GLib's threads, but perhaps not the locks that they held.
TEST_F(SecretKeychain, AChildOfForkHearsThatItIsNotAvailable) {
    ASSERT_EQ(keychain->itemAdd(item("k")), errSecSuccess);
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) ::_exit(keychain->itemCopyMatching(query("k"), nullptr) == errSecNotAvailable ? 0 : 1);
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
}

TEST(LockedSecretKeychain, SaysSoAndNeverAsksTheUser) {
    const auto keychain = conformance::makeEmptySecretKeychain();
    ASSERT_EQ(keychain->itemAdd(item("k")), errSecSuccess);
    SessionBus bus;
    SessionBus monitor;
    bus.callSecretService(kServicePath, "Service", "Lock",
                          "([objectpath '/org/freedesktop/secrets/aliases/default'],)");
    monitor.watchCalls();
    expectEveryCallToAnswer(*keychain, errSecInteractionNotAllowed);
    bus.callSecretService(kServicePath, "Test", "EndOfTest", "()");
    const std::vector<std::string> calls = monitor.callsUntil("org.freedesktop.Secret.Test.EndOfTest");
    EXPECT_THAT(calls, Contains("org.freedesktop.Secret.Service.SearchItems"));
    EXPECT_THAT(calls, Not(Contains("org.freedesktop.Secret.Service.Unlock")));
    EXPECT_THAT(calls, Not(Contains("org.freedesktop.Secret.Prompt.Prompt")));
}

TEST(UninitialisedSecretKeychain, IsEmptyAndWaitsForTheUserToMakeACollection) {
    const auto keychain = makeDesktopPlatform().keychain;
    EXPECT_EQ(keychain->itemCopyMatching(query("k"), nullptr), errSecItemNotFound);
    EXPECT_EQ(keychain->itemDelete(query("k")), errSecItemNotFound);
    EXPECT_EQ(keychain->itemAdd(item("k")), errSecInteractionNotAllowed);
}

TEST(AbsentSecretKeychain, IsNotAvailable) {
    expectEveryCallToAnswer(*makeDesktopPlatform().keychain, errSecNotAvailable);
}

TEST(SilentSecretKeychain, IsNotAvailableWhenItsBusNeverAnswers) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const std::string path = std::string(::getenv("XDG_RUNTIME_DIR")) + "/silent";
    std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
    const int socket = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    ASSERT_EQ(::bind(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    ASSERT_EQ(::listen(socket, 1), 0);
    ::setenv("DBUS_SESSION_BUS_ADDRESS", ("unix:path=" + path).c_str(), 1);
    EXPECT_EQ(makeDesktopPlatform().keychain->itemCopyMatching(query("k"), nullptr), errSecNotAvailable);
    ::close(socket);
}

}  // namespace
}  // namespace qlsdk::platform
