#include "tools/inspect/LinkOutline.h"

#include "tools/inspect/ArchiveTree.h"

namespace quillkit {

namespace {

void addToken(Outline& outline, const TokenReport& report) {
    outline.line("token: " + std::string(wordsFor(report.state)));
    if (!report.opened.has_value()) return;
    const Outline::Indent indent(outline);
    outline.line("bundle identifier: " + report.opened->bundleIdentifier);
    outline.line("created: " + std::to_string(report.opened->createdMillis) + " ms since 1970, " +
                 std::to_string(report.ageMillis) + " ms ago");
}

void addParameter(Outline& outline, const LinkParameter& parameter) {
    if (parameter.decoded.has_value()) {
        addValue(outline, parameter.name, *parameter.decoded);
    } else {
        outline.line(parameter.name + ": \"" + parameter.value +
                     (parameter.isEncoded ? "\", which is no base64 of JSON" : "\""));
    }
    if (parameter.token.has_value()) addToken(outline, *parameter.token);
}

}  // namespace

void addLink(Outline& outline, const LinkParts& link) {
    outline.line("link: " + link.base);
    const Outline::Indent indent(outline);
    for (const LinkParameter& parameter : link.parameters) addParameter(outline, parameter);
}

}  // namespace quillkit
