#include <iostream>

#include "ArchiveClasses.h"
#include "ArchiveTree.h"
#include "Failure.h"
#include "LinkOutline.h"
#include "Subcommand.h"

#include "QLSDKCoreKit/platform/Files.h"
#include "QLSDKCoreKit/platform/PropertyList.h"

namespace quillkit {

namespace {

constexpr std::size_t kFileCeiling = std::size_t{64} << 20;

void addFile(Outline& outline, const std::string& path) {
    const auto bytes = qlsdk::platform::readFile(path, kFileCeiling);
    if (!bytes.has_value()) throw Failure("cannot read " + path);
    if (const auto archive = readArchive(*bytes)) {
        addObject(outline, "keyed archive", *archive);
    } else if (const auto propertyList = qlsdk::platform::parsePropertyList(*bytes)) {
        addValue(outline, "property list", *propertyList);
    } else {
        throw Failure(path +
                      " is neither a keyed archive of known classes nor a property list, or is damaged");
    }
}

int inspect(const Arguments& arguments) {
    const std::string& subject = arguments.operands().front();
    Outline outline;
    if (isLink(subject)) {
        addLink(outline, subject);
    } else {
        addFile(outline, subject);
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
        .options = {},
        .run = inspect};
}

}  // namespace quillkit
