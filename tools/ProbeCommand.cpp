#include <iostream>

#include "ArchiveTree.h"
#include "HostOptions.h"
#include "Subcommand.h"

#include "QLSDKCoreKit/core/FontHelpers.h"
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

void addFont(Outline& outline, const std::string& label, const std::string& name,
             const std::shared_ptr<const qlsdk::platform::Font>& font) {
    outline.line(label + ": \"" + name +
                 (font == nullptr ? "\", unknown to this platform" : "\" " + font->file));
}

void addPropertyList(Outline& outline) {
    const auto bundle = qlsdk::platform::current().bundles->mainBundle();
    const auto& setup = qlsdk::QLSDKClientSetup::sharedInstance();
    outline.line("main bundle: " + bundle->path());
    const Outline::Indent indent(outline);
    addValue(outline, "identifier",
             bundle->objectForInfoDictionaryKey(qlsdk::platform::kBundleIdentifierKey));
    addValue(outline, "version", bundle->objectForInfoDictionaryKey(qlsdk::platform::kBundleVersionKey));
    addValue(outline, "client id", setup.clientID());
    addValue(outline, "redirect URL",
             setup.redirectURL().has_value() ? Value(setup.redirectURL()->absoluteString()) : Value());
    addValue(outline, "scopes", setup.scopes());
    addFont(outline, "regular font", setup.font().regularFontName(),
            qlsdk::qlsdkRegularFontOfSize(kPointSize));
    addFont(outline, "bold font", setup.font().boldFontName(), qlsdk::qlsdkBoldFontOfSize(kPointSize));
}

void addEnvironment(Outline& outline) {
    outline.line("environment");
    const Outline::Indent indent(outline);
    addValue(outline, "user agent", qlsdk::QLSDKNetworkRequest::userAgent());
    addValue(outline, "architecture", textOrNull(QLArchitecture()));
    addValue(outline, "locale", textOrNull(QLLocale()));
    addValue(outline, "runs with a debugger", QLIsRunningWithDebugger());
    addValue(outline, "runs tests", QLIsRunningTests());
    addValue(outline, "is an extension", QLIsRunningExtension());
    addValue(outline, "kit version", textOrNull(QLKitVersionForClass(nullptr)));
}

void addStorage(Outline& outline) {
    outline.line("storage and service");
    const Outline::Indent indent(outline);
    addValue(outline, "installation id", textOrNull(qlsdk::QLSDKInstallation().installationId()));
    addValue(outline, "caches directory",
             textOrNull(qlsdk::platform::current().directories->cachesDirectory()));
    addValue(outline, "API base URL", qlsdk::QLSDKTweaks::shared().quillKitApiBaseUrl());
}

int probe(const Arguments& arguments) {
    (void)installHost(arguments);
    Outline outline;
    addPropertyList(outline);
    addEnvironment(outline);
    addStorage(outline);
    std::cout << outline.text();
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
            .options = {kHostOptions.begin(), kHostOptions.end()},
            .run = probe};
}

}  // namespace quillkit
