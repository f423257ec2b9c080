#include <iostream>

#include "tools/cli/Failure.h"
#include "tools/commands/Commands.h"
#include "tools/inspect/ArchiveClasses.h"
#include "tools/inspect/ArchiveTree.h"
#include "tools/inspect/JsonText.h"
#include "tools/inspect/LinkOutline.h"
#include <nlohmann/json.hpp>

#include "QLSDKCoreKit/events/internal/QueueArchive.h"
#include "QLSDKCoreKit/platform/Files.h"
#include "QLSDKCoreKit/platform/PropertyList.h"

namespace quillkit {

namespace {

using nlohmann::ordered_json;

/// A file that could be read, as one or the other.
struct ReadFile {
    std::optional<qlsdk::platform::ArchivedObject> archive;
    std::optional<qlsdk::Value> propertyList;
};

ReadFile read(const std::string& path) {
    const auto bytes = qlsdk::platform::readFile(path, qlsdk::kQueueArchiveCeilingBytes);
    if (!bytes.has_value()) throw Failure("cannot read " + path);
    ReadFile file{.archive = readArchive(*bytes), .propertyList = std::nullopt};
    if (!file.archive.has_value()) file.propertyList = qlsdk::platform::parsePropertyList(*bytes);
    if (file.archive.has_value() || file.propertyList.has_value()) return file;
    throw Failure(path + " is neither a keyed archive of known classes nor a property list, or is damaged");
}

void addFile(Outline& outline, const ReadFile& file) {
    if (file.archive.has_value()) {
        addObject(outline, "keyed archive", *file.archive);
    } else {
        addValue(outline, "property list", *file.propertyList);
    }
}

ordered_json jsonOf(const ReadFile& file) {
    JsonText json;
    if (file.archive.has_value()) return {{"keyedArchive", json.of(*file.archive)}};
    return {{"propertyList", json.of(*file.propertyList)}};
}

ordered_json jsonOf(const LinkParameter& parameter, JsonText& json) {
    ordered_json object{{"name", parameter.name}, {"value", parameter.value}};
    if (parameter.isEncoded) {
        object["decoded"] = parameter.decoded.has_value() ? json.of(*parameter.decoded) : ordered_json();
    }
    if (parameter.token.has_value()) object["token"] = tokenFields(*parameter.token);
    return object;
}

ordered_json jsonOf(const LinkParts& link) {
    JsonText json;
    ordered_json parameters = ordered_json::array();
    for (const LinkParameter& parameter : link.parameters) parameters.push_back(jsonOf(parameter, json));
    return {{"link", link.base}, {"parameters", std::move(parameters)}};
}

int inspect(const Arguments& arguments) {
    const std::string& subject = arguments.operands().front();
    if (arguments.has(kJsonOption.name)) {
        printJson(isLink(subject) ? jsonOf(readLink(subject)) : jsonOf(read(subject)));
        return 0;
    }
    Outline outline;
    if (isLink(subject)) {
        addLink(outline, readLink(subject));
    } else {
        addFile(outline, read(subject));
    }
    std::cout << outline.text();
    return 0;
}

}  // namespace

Subcommand inspectCommand() {
    return {
        .name = "inspect",
        .operandNames = "FILE|LINK",
        .operandCount = {1, 1},
        .summary = "shows a file or a link of the library as a tree",
        .description =
            "Reads the upload queues' archives, the configuration archive, any other keyed archive of\n"
            "standard classes, and property lists; or decodes a link into the companion app, its metadata,\n"
            "its payload and the token in it. The file is not changed.\n",
        .options = {kJsonOption},
        .run = inspect};
}

}  // namespace quillkit
