#include <iostream>
#include <optional>

#include "tools/cli/Failure.h"
#include "tools/commands/Commands.h"
#include "tools/host/HostOptions.h"
#include "tools/inspect/JsonText.h"
#include <nlohmann/json.hpp>

#include "QLSDKCoreKit/deeplink/QLSDKDeepLinker.h"
#include "QLSDKCoreKit/platform/Json.h"
#include "QLSDKCoreKit/platform/Platform.h"

namespace quillkit {

namespace {

using qlsdk::Dictionary;

constexpr std::array<Option, 6> kLinkOptions{
    {{"--metadata", "JSON", "object with information about the request"},
     {"--payload", "JSON", "object with the feature's content"},
     {"--query", "K=V", "extra query parameter; may be given again", Occurrence::repeated},
     {"--fingerprint", "", "adds a fresh client auth token to the metadata"},
     {"--open", "", "opens the link and reports the outcome"},
     kJsonOption}};

qlsdk::QLSDKDeepLinkFeature featureNamed(const std::string& name) {
    if (name == "camera") return qlsdk::QLSDKDeepLinkFeatureCamera;
    if (name == "oauth2") return qlsdk::QLSDKDeepLinkFeatureOAuth2;
    if (name == "preview") return qlsdk::QLSDKDeepLinkFeaturePreview;
    throw UsageError("unknown feature '" + name + "', only camera, oauth2 and preview");
}

std::optional<Dictionary> objectArgument(const Arguments& arguments, std::string_view option) {
    const auto text = arguments.value(option);
    if (!text.has_value()) return std::nullopt;
    const auto value = qlsdk::platform::parseJson(qlsdk::bytesOf(*text));
    if (value.has_value() && value->dictionary() != nullptr) return *value->dictionary();
    throw UsageError(std::string(option) + " wants a JSON object, not '" + *text + "'");
}

std::optional<Dictionary> queriesArgument(const Arguments& arguments) {
    if (!arguments.has("--query")) return std::nullopt;
    Dictionary queries;
    for (const std::string& text : arguments.valuesOf("--query")) {
        const std::size_t equals = text.find('=');
        if (equals == std::string::npos) throw UsageError("--query wants K=V, not '" + text + "'");
        queries.set(text.substr(0, equals), text.substr(equals + 1));
    }
    return queries;
}

/// Opens as a host does whose main queue this thread pumps. True when something took the link.
bool open(const qlsdk::QLSDKDeepLinker& linker, bool fingerprint) {
    const auto mainQueue = qlsdk::platform::current().queues->mainQueue();
    std::optional<bool> outcome;
    linker.connectWithFpAuth(fingerprint, [&](bool success) {
        outcome = success;
        mainQueue->stop();
    });
    mainQueue->run();
    return outcome.value_or(false);
}

int link(const Arguments& arguments) {
    const qlsdk::QLSDKDeepLinker linker(featureNamed(arguments.operands().front()),
                                        objectArgument(arguments, "--metadata"),
                                        objectArgument(arguments, "--payload"), queriesArgument(arguments));
    (void)installHost(arguments);
    const bool fingerprint = arguments.has("--fingerprint");
    const auto url = linker.linkWithFpAuth(fingerprint);
    if (!url.has_value()) throw Failure("no link can be made of this");
    const bool opens = arguments.has("--open");
    if (arguments.has(kJsonOption.name)) {
        nlohmann::ordered_json json{{"link", url->absoluteString()}};
        if (opens) json["opened"] = open(linker, fingerprint);
        printJson(json);
        return json.value("opened", true) ? 0 : 1;
    }
    std::cout << url->absoluteString() << std::endl;
    if (!opens) return 0;
    const bool opened = open(linker, fingerprint);
    std::cout << (opened ? "opened\n" : "not opened: nothing here opens such links\n");
    return opened ? 0 : 1;
}

}  // namespace

Subcommand linkCommand() {
    return {
        .name = "link",
        .operandNames = "camera|oauth2|preview",
        .operandCount = {1, 1},
        .operandWords = "camera oauth2 preview",
        .summary = "prints a link into the companion app, and opens it",
        .description =
            "With --open the link goes to what the desktop has registered for it, and the exit status is 0\n"
            "when that took it. A fingerprint is made afresh each time, so the link opened carries another\n"
            "one than the link printed.\n",
        .options = joined(kLinkOptions, kHostOptions),
        .run = link};
}

}  // namespace quillkit
