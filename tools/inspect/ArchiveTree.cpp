#include "tools/inspect/ArchiveTree.h"

#include <algorithm>
#include <string>

#include "tools/inspect/ArchiveClasses.h"
#include "tools/inspect/Hex.h"
#include "tools/inspect/WireMessages.h"
#include <google/protobuf/message.h>

#include "QLSDKCoreKit/events/EventWrapper.h"
#include "QLSDKCoreKit/picoproto/EncodablePicoproto.h"
#include "QLSDKCoreKit/picoproto/MessageContext.h"

namespace quillkit {

namespace {

using qlsdk::EncodablePicoproto;
using qlsdk::EventWrapper;
using qlsdk::Value;
using qlsdk::platform::ArchivedObject;

// Enough to recognise a piece of data by; a line holds no more of it anyway.
constexpr std::size_t kDataShown = 64;

std::string labelled(const std::string& label, const std::string& text) {
    return label.empty() ? text : label + ": " + text;
}

std::string countOf(std::size_t count, const char* one, const char* many) {
    return std::to_string(count) + " " + (count == 1 ? one : many);
}

std::string dataText(const qlsdk::Data& data) {
    const std::size_t shown = std::min(data.size(), kDataShown);
    const std::string hex = hexOf(qlsdk::DataView(data).first(shown));
    return countOf(data.size(), "byte", "bytes") + " <" + hex + (shown < data.size() ? "...>" : ">");
}

std::string scalarText(const Value& value) {
    switch (value.kind()) {
        case Value::Kind::null:
            return "null";
        case Value::Kind::boolean:
            return value.boolValue() ? "true" : "false";
        case Value::Kind::string:
            return '"' + *value.string() + '"';
        case Value::Kind::data:
            return dataText(*value.data());
        case Value::Kind::date:
            return "date, seconds since 1970: " + qlsdk::describe(Value(value.date()->secondsSince1970));
        default:
            return qlsdk::describe(value);
    }
}

void addMessage(Outline& outline, const std::string& label, const EncodablePicoproto& event) {
    const picoproto_ctx_s* ctx = event.ctx();
    if (ctx == nullptr) return outline.line(labelled(label, "message without content"));
    const std::string name = ctx->name == nullptr ? "(unnamed)" : ctx->name;
    const qlsdk::DataView bytes = qlsdk::encodedBytes(*ctx);
    outline.line(labelled(label, name + ", " + countOf(bytes.size(), "byte", "bytes")));
    const Outline::Indent indent(outline);
    if (const auto message = decodeMessage(name, bytes)) return outline.lines(fieldsOf(*message));
    const std::string raw = rawFieldsOf(bytes);
    if (raw.empty() && !bytes.empty())
        return outline.line("does not decode: " + dataText({bytes.begin(), bytes.end()}));
    outline.lines(raw);
}

std::string retryText(const EventWrapper& record) {
    if (!record.isRetry()) return "first attempt to come";
    return "waits for its retry, counted " + std::to_string(record.numRetried()) + ", not before " +
           std::to_string(record.nextRetryTimeMillis()) + " ms since 1970";
}

void addRecord(Outline& outline, const std::string& label, const EventWrapper& record) {
    outline.line(labelled(label, "record " + std::to_string(record.sequenceId()) + ", " + retryText(record)));
    const Outline::Indent indent(outline);
    addObject(outline, "event", ArchivedObject(record.event()));
}

/// True when `object` was a record of a class that is known here.
bool addArchivable(Outline& outline, const std::string& label, const ArchivedObject& object) {
    const auto archivable = object.record();
    if (const auto record = std::dynamic_pointer_cast<EventWrapper>(archivable)) {
        addRecord(outline, label, *record);
    } else if (const auto event = std::dynamic_pointer_cast<EncodablePicoproto>(archivable)) {
        addMessage(outline, label, *event);
    } else if (const auto entity = std::dynamic_pointer_cast<ConfigEntityView>(archivable)) {
        addObject(outline, labelled(label, "entity " + qlsdk::describe(entity->name())), entity->config());
    } else {
        return false;
    }
    return true;
}

}  // namespace

void addValue(Outline& outline, const std::string& label, const Value& value) {
    if (outline.isFull()) return;
    if (const qlsdk::Array* array = value.array()) {
        outline.line(labelled(label, "array of " + countOf(array->size(), "element", "elements")));
        const Outline::Indent indent(outline);
        for (const Value& element : *array) addValue(outline, "-", element);
    } else if (const qlsdk::Dictionary* dictionary = value.dictionary()) {
        outline.line(labelled(label, "dictionary of " + countOf(dictionary->size(), "entry", "entries")));
        const Outline::Indent indent(outline);
        for (const auto& [key, element] : *dictionary) addValue(outline, key, element);
    } else {
        outline.line(labelled(label, scalarText(value)));
    }
}

void addObject(Outline& outline, const std::string& label, const ArchivedObject& object) {
    if (outline.isFull() || addArchivable(outline, label, object)) return;
    if (const auto plain = object.value(); !plain.isNull() || object.isNil())
        return addValue(outline, label, plain);
    if (const auto list = object.list()) {
        outline.line(labelled(label, "array of " + countOf(list->size(), "element", "elements")));
        const Outline::Indent indent(outline);
        for (const ArchivedObject& element : *list) addObject(outline, "-", element);
    } else if (const auto entries = object.entries()) {
        outline.line(labelled(label, "dictionary of " + countOf(entries->size(), "entry", "entries")));
        const Outline::Indent indent(outline);
        for (const auto& [key, element] : *entries) addObject(outline, key, element);
    }
}

}  // namespace quillkit
