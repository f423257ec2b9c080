#include <iostream>

#include "tools/commands/Commands.h"
#include "tools/host/HostOptions.h"
#include "tools/inspect/ArchiveTree.h"
#include "tools/inspect/JsonText.h"
#include <nlohmann/json.hpp>

#include "QLSDKCoreKit/core/ApplicationHelpers.h"
#include "QLSDKCoreKit/core/QLAppEnvironment.h"
#include "QLSDKCoreKit/core/QLSDKClientSetup.h"
#include "QLSDKCoreKit/core/QLSDKTweaks.h"
#include "QLSDKCoreKit/network/QLSDKNetworkRequest.h"
#include "QLSDKCoreKit/platform/Platform.h"
#include "QLSDKCoreKit/storage/QLSDKInstallation.h"

namespace quillkit {

namespace {

using qlsdk::Value;

constexpr double kPointSize = 12;

Value textOrNull(const char* text) {
    return text == nullptr ? Value() : Value(text);
}

Value textOrNull(const std::optional<std::string>& text) {
    return text.has_value() ? Value(*text) : Value();
}

/// One thing that the library sees.
struct Fact {
    std::string label;
    Value value;
};

/// Facts about one thing.
struct Section {
    std::string title;
    std::vector<Fact> facts;
};

constexpr std::string_view kFontName = "name";
constexpr std::string_view kFontFile = "file";

Value fontFact(const std::string& name, const std::shared_ptr<const qlsdk::platform::Font>& font) {
    return qlsdk::Dictionary{{std::string(kFontName), name},
                             {std::string(kFontFile), font == nullptr ? Value() : Value(font->file)}};
}

Section bundleFacts() {
    const auto bundle = qlsdk::platform::current().bundles->mainBundle();
    const auto& setup = qlsdk::QLSDKClientSetup::sharedInstance();
    const Value redirect =
        setup.redirectURL().has_value() ? Value(setup.redirectURL()->absoluteString()) : Value();
    return {"main bundle",
            {{"path", bundle->path()},
             {"identifier", bundle->objectForInfoDictionaryKey(qlsdk::platform::kBundleIdentifierKey)},
             {"version", bundle->objectForInfoDictionaryKey(qlsdk::platform::kBundleVersionKey)},
             {"client id", setup.clientID()},
             {"redirect URL", redirect},
             {"scopes", setup.scopes()},
             {"regular font",
              fontFact(setup.font().regularFontName(), qlsdk::qlsdkRegularFontOfSize(kPointSize))},
             {"bold font", fontFact(setup.font().boldFontName(), qlsdk::qlsdkBoldFontOfSize(kPointSize))}}};
}

Section environmentFacts() {
    return {"environment",
            {{"user agent", qlsdk::QLSDKNetworkRequest::userAgent()},
             {"architecture", textOrNull(QLArchitecture())},
             {"locale", textOrNull(QLLocale())},
             {"runs with a debugger", QLIsRunningWithDebugger()},
             {"runs tests", QLIsRunningTests()},
             {"is an extension", QLIsRunningExtension()},
             {"kit version", textOrNull(QLKitVersionForClass(nullptr))}}};
}

Section storageFacts() {
    return {"storage and service",
            {{"installation id", textOrNull(qlsdk::QLSDKInstallation().installationId())},
             {"caches directory", textOrNull(qlsdk::platform::current().directories->cachesDirectory())},
             {"API base URL", qlsdk::QLSDKTweaks::shared().quillKitApiBaseUrl()}}};
}

void addFact(Outline& outline, const Fact& fact) {
    const Value name = fact.value[kFontName];
    if (name.isNull()) return addValue(outline, fact.label, fact.value);
    const Value file = fact.value[kFontFile];
    outline.line(fact.label + ": \"" + *name.string() +
                 (file.isNull() ? "\", unknown to this platform" : "\" " + *file.string()));
}

std::string outlineOf(std::span<const Section> sections) {
    Outline outline;
    for (const Section& section : sections) {
        // Where the main bundle lies stands beside its title.
        const bool isPlace = section.facts.front().label == "path";
        outline.line(isPlace ? section.title + ": " + *section.facts.front().value.string() : section.title);
        const Outline::Indent indent(outline);
        for (const Fact& fact : std::span(section.facts).subspan(isPlace ? 1 : 0)) addFact(outline, fact);
    }
    return outline.text();
}

/// "redirect URL" is "redirectUrl".
std::string keyOf(std::string_view label) {
    std::string key;
    bool isFirstOfWord = false;
    for (const char c : label) {
        const bool isUpper = c >= 'A' && c <= 'Z';
        const bool isLower = c >= 'a' && c <= 'z';
        if (isFirstOfWord && isLower) {
            key += static_cast<char>(c - 'a' + 'A');
        } else if (!isFirstOfWord && isUpper) {
            key += static_cast<char>(c - 'A' + 'a');
        } else if (c != ' ') {
            key += c;
        }
        isFirstOfWord = c == ' ';
    }
    return key;
}

nlohmann::ordered_json jsonOf(std::span<const Section> sections) {
    JsonText text;
    nlohmann::ordered_json json;
    for (const Section& section : sections) {
        nlohmann::ordered_json& object = json[keyOf(section.title)];
        for (const Fact& fact : section.facts) object[keyOf(fact.label)] = text.of(fact.value);
    }
    return json;
}

int probe(const Arguments& arguments) {
    (void)installHost(arguments);
    const std::array<Section, 3> sections{bundleFacts(), environmentFacts(), storageFacts()};
    if (arguments.has(kJsonOption.name)) {
        printJson(jsonOf(sections));
    } else {
        std::cout << outlineOf(sections);
    }
    return 0;
}

}  // namespace

Subcommand probeCommand() {
    return {.name = "probe",
            .operandNames = "",
            .operandCount = {0, 0},
            .summary = "prints what the library sees of its host, the device and itself",
            .description =
                "Makes an installation id when there is none yet, as the library would. Sends nothing.\n",
            .options = joined(std::array{kJsonOption}, kHostOptions),
            .run = probe};
}

}  // namespace quillkit
