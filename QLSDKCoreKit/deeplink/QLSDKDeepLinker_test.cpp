#include "QLSDKCoreKit/deeplink/QLSDKDeepLinker.h"

#include <cmath>
#include <vector>

#include <gmock/gmock.h>

#include "QLSDKCoreKit/network/QLSDKPayload.h"
#include "QLSDKCoreKit/platform/Json.h"
#include "QLSDKCoreKit/platform/testing/FakePlatform.h"
#include "QLSDKCoreKit/values/testing/Python.h"

namespace qlsdk {
namespace {

using platform::testing::FakePlatform;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

constexpr auto kOutsideTheTable = static_cast<QLSDKDeepLinkFeature>(3);

/// A link taken apart by another program: "base", and every query with its value; the encoded ones as JSON.
Value decoded(const std::optional<platform::Url>& link) {
    if (!link) return "no link";
    const Data parts = platform::testing::runPython(R"(
import base64, json, sys
from urllib.parse import unquote
base, query = sys.stdin.read().split("?")
parts = {"base": base}
for pair in query.split("&"):
    name, value = (unquote(text, errors="strict") for text in pair.split("="))
    try: value = json.loads(base64.b64decode(value, validate=True))
    except ValueError: pass
    assert name not in parts
    parts[name] = value
print(json.dumps(parts))
)",
                                                    bytesOf(link->absoluteString()));
    return platform::parseJson(parts).value_or("no JSON");
}

class QLSDKDeepLinkerTest : public ::testing::Test {
  protected:
    void SetUp() override {
        fakes.bundles->setLibrary({{"CFBundleVersion", "1.3.4"}});
        ASSERT_TRUE(fakes.install());
    }

    /// Everything the handler heard by the time the main queue is idle.
    std::vector<bool> connect(const QLSDKDeepLinker& linker, bool fpAuth = false) {
        std::vector<bool> outcomes;
        linker.connectWithFpAuth(fpAuth, [&](bool success) {
            EXPECT_TRUE(fakes.queues->main()->isCurrent());
            outcomes.push_back(success);
        });
        EXPECT_THAT(outcomes, IsEmpty()) << "called inside the call that gave it";
        EXPECT_THAT(fakes.application->opened, IsEmpty()) << "opened inside the call";
        fakes.queues->main()->drain();
        return outcomes;
    }

    FakePlatform fakes;
};

TEST_F(QLSDKDeepLinkerTest, ChoosesTheBaseByTheFeatureAlone) {
    const std::pair<QLSDKDeepLinkFeature, const char*> bases[] = {
        {QLSDKDeepLinkFeatureCamera, "quillo://camera/1"},
        {QLSDKDeepLinkFeatureOAuth2, "quilloaccesskitv1://oauth2"},
        {QLSDKDeepLinkFeaturePreview, "quillo://preview/1"},
    };
    for (const auto& [feature, base] : bases) {
        const QLSDKDeepLinker linker(feature, std::nullopt, std::nullopt, std::nullopt);
        EXPECT_EQ(decoded(linker.linkWithFpAuth(false)),
                  Value(Dictionary{
                      {"base", base}, {"metadata", Dictionary{{"version", "1.3.4"}}}, {"link", "abc"}}));
    }
}

TEST_F(QLSDKDeepLinkerTest, CarriesMetadataPayloadAndQueriesUnchanged) {
    const Dictionary metadata{{"version", "9"}, {"fingerprint", "mine"}, {"n", Array{1, 2.5, true, Value()}}};
    const Dictionary payload{{"text", "\xC3\xA9 ~?>~?> & = + # \" \\ /"}, {"deep", Dictionary{{"x", -1}}}};
    const Dictionary additional{{"a b", "1+1=2&c#d \xC3\xA9"}, {"link", "x"}, {"number", 5}};
    const QLSDKDeepLinker linker(QLSDKDeepLinkFeaturePreview, metadata, payload, additional);
    EXPECT_EQ(decoded(linker.linkWithFpAuth(false)),
              Value(Dictionary{{"base", "quillo://preview/1"},
                               {"metadata", Dictionary{{"version", "1.3.4"},
                                                       {"fingerprint", "mine"},
                                                       {"n", Array{1, 2.5, true, Value()}}}},
                               {"payload", payload},
                               {"a b", "1+1=2&c#d \xC3\xA9"},
                               {"number", "5"},
                               {"link", "abc"}}));
    EXPECT_EQ(linker.metadata(), metadata) << "the linker's own metadata was changed";
}

TEST_F(QLSDKDeepLinkerTest, EncodesAnEmptyPayloadAndLetsQueriesReplaceEncodedOnes) {
    const QLSDKDeepLinker empty(QLSDKDeepLinkFeatureCamera, std::nullopt, Dictionary(), std::nullopt);
    EXPECT_EQ(empty.linkWithFpAuth(false)->absoluteString(),
              "quillo://camera/1?metadata=eyJ2ZXJzaW9uIjoiMS4zLjQifQ%3D%3D&payload=e30%3D&link=abc");
    const QLSDKDeepLinker replaced(QLSDKDeepLinkFeatureCamera, std::nullopt, Dictionary(),
                                   Dictionary{{"metadata", "m"}, {"payload", "p"}});
    EXPECT_EQ(replaced.linkWithFpAuth(false)->absoluteString(),
              "quillo://camera/1?metadata=m&payload=p&link=abc");
}

TEST_F(QLSDKDeepLinkerTest, CarriesAFreshTokenPerLinkAsFingerprint) {
    const QLSDKDeepLinker linker(QLSDKDeepLinkFeatureOAuth2, Dictionary{{"fingerprint", "mine"}},
                                 std::nullopt, std::nullopt);
    const Value first = decoded(linker.linkWithFpAuth(true))["metadata"]["fingerprint"];
    const Value second = decoded(linker.linkWithFpAuth(true))["metadata"]["fingerprint"];
    EXPECT_NE(first, second);
    for (const Value& fingerprint : {first, second}) {
        ASSERT_NE(fingerprint.string(), nullptr);
        const auto token = openToken(*fingerprint.string());
        ASSERT_TRUE(token);
        EXPECT_EQ(token->bundleIdentifier, "com.example.app");
        EXPECT_EQ(token->createdMillis, 1'700'000'000'000);
    }

    fakes.random->failAfter(0, 35);
    EXPECT_EQ(decoded(linker.linkWithFpAuth(true))["metadata"], Value(Dictionary{{"version", "1.3.4"}}))
        << "without a token there is no fingerprint, the caller's neither";
}

TEST_F(QLSDKDeepLinkerTest, OpensItsLinkOnTheMainQueueAndPassesTheOutcomeOn) {
    for (const bool outcome : {true, false}) {
        fakes.application->opened.clear();
        fakes.application->opens = outcome;
        const QLSDKDeepLinker linker(QLSDKDeepLinkFeatureCamera, std::nullopt, std::nullopt, std::nullopt);
        EXPECT_THAT(connect(linker), ElementsAre(outcome));
        EXPECT_THAT(fakes.application->opened, ElementsAre(linker.linkWithFpAuth(false)->absoluteString()));
    }
}

TEST_F(QLSDKDeepLinkerTest, ReportsSuccessWhateverTheLegacyOpenCallAnswers) {
    fakes.application->call = platform::OpenCall::legacy;
    fakes.application->opens = false;
    EXPECT_THAT(connect({QLSDKDeepLinkFeatureCamera, std::nullopt, std::nullopt, std::nullopt}),
                ElementsAre(true));
    EXPECT_THAT(fakes.application->opened, SizeIs(1));
}

TEST_F(QLSDKDeepLinkerTest, OpensNothingAndReportsFailureWithoutALink) {
    const auto camera = [](const Value& metadata, std::optional<Dictionary> payload) {
        return QLSDKDeepLinker(QLSDKDeepLinkFeatureCamera, Dictionary{{"x", metadata}}, std::move(payload),
                               std::nullopt);
    };
    const QLSDKDeepLinker linkers[] = {
        {kOutsideTheTable, std::nullopt, std::nullopt, std::nullopt},
        camera("\xFF", std::nullopt),
        camera(std::nan(""), std::nullopt),
        camera(Data{1, 2}, std::nullopt),
        camera(Date{1}, std::nullopt),
        camera(1, Dictionary{{"deep", Array{Dictionary{{"y", -INFINITY}}}}}),
        camera(1, Dictionary{{"\xC3", 1}}),
    };
    for (const QLSDKDeepLinker& linker : linkers) {
        EXPECT_EQ(linker.linkWithFpAuth(true), std::nullopt);
        EXPECT_THAT(connect(linker, true), ElementsAre(false));
    }
    EXPECT_THAT(fakes.application->opened, IsEmpty());
}

TEST_F(QLSDKDeepLinkerTest, NeedsNoHandler) {
    const QLSDKDeepLinker linker(QLSDKDeepLinkFeatureCamera, std::nullopt, std::nullopt, std::nullopt);
    linker.connectWithFpAuth(false, nullptr);
    fakes.application->call = platform::OpenCall::legacy;
    QLSDKDeepLinker(kOutsideTheTable, {}, {}, {}).connectWithFpAuth(false, nullptr);
    linker.connectWithFpAuth(false, nullptr);
    fakes.queues->main()->drain();
    EXPECT_THAT(fakes.application->opened, SizeIs(2));
}

TEST_F(QLSDKDeepLinkerTest, AsksWhetherItsMainSchemeCanBeOpened) {
    EXPECT_TRUE(QLSDKDeepLinker::isQuilloInstalled());
    fakes.application->canOpen = false;
    EXPECT_FALSE(QLSDKDeepLinker::isQuilloInstalled());
    EXPECT_THAT(fakes.application->asked, ElementsAre("quillo://", "quillo://"));
}

TEST(QLSDKDeepLinker, LeavesOutWhatTheHostDoesNotHave) {
    const FakePlatform fakes;
    fakes.bundles->setMain({});
    ASSERT_TRUE(fakes.install());
    const QLSDKDeepLinker linker(QLSDKDeepLinkFeatureCamera, Dictionary{{"version", "9"}}, std::nullopt,
                                 Dictionary{{"link", "x"}});
    EXPECT_EQ(decoded(linker.linkWithFpAuth(false)),
              Value(Dictionary{{"base", "quillo://camera/1"}, {"metadata", Dictionary()}}));
}

}  // namespace
}  // namespace qlsdk
