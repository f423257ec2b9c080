#include "tools/inspect/JsonText.h"

#include <iostream>

#include "tools/cli/Failure.h"
#include "tools/inspect/ArchiveClasses.h"
#include "tools/inspect/Hex.h"
#include "tools/inspect/MessageJson.h"
#include "tools/inspect/WireMessages.h"
#include <google/protobuf/message.h>
#include <nlohmann/json.hpp>

#include "QLSDKCoreKit/events/EventWrapper.h"
#include "QLSDKCoreKit/picoproto/EncodablePicoproto.h"
#include "QLSDKCoreKit/picoproto/MessageContext.h"

namespace quillkit {

namespace {

using nlohmann::ordered_json;
using qlsdk::Value;
using qlsdk::platform::ArchivedObject;

ordered_json scalarOf(const Value& value) {
    switch (value.kind()) {
        case Value::Kind::null:
            return nullptr;
        case Value::Kind::boolean:
            return value.boolValue();
        case Value::Kind::integer:
            return value.longValue();
        case Value::Kind::unsignedInteger:
            return static_cast<std::uint64_t>(value.longValue());
        case Value::Kind::real:
            return value.doubleValue();
        case Value::Kind::data:
            return {{"data", hexOf(*value.data())}};
        case Value::Kind::date:
            return {{"date", value.date()->secondsSince1970}};
        default:
            return *value.string();
    }
}

ordered_json eventJson(const qlsdk::EncodablePicoproto& event) {
    const picoproto_ctx_s* ctx = event.ctx();
    if (ctx == nullptr) return {{"message", nullptr}};
    const std::string name = ctx->name == nullptr ? "" : ctx->name;
    const qlsdk::DataView bytes = qlsdk::encodedBytes(*ctx);
    ordered_json json{{"message", name}, {"bytes", hexOf(bytes)}};
    if (const auto message = decodeMessage(name, bytes)) {
        json["fields"] = jsonOf(*message);
    } else {
        json["rawFields"] = rawFieldsOf(bytes);
    }
    return json;
}

}  // namespace

ordered_json JsonText::of(const Value& value) {
    count();
    if (const qlsdk::Array* array = value.array()) {
        ordered_json json = ordered_json::array();
        for (const Value& element : *array) json.push_back(of(element));
        return json;
    }
    if (const qlsdk::Dictionary* dictionary = value.dictionary()) {
        ordered_json json = ordered_json::object();
        for (const auto& [key, element] : *dictionary) json[key] = of(element);
        return json;
    }
    return scalarOf(value);
}

ordered_json JsonText::of(const ArchivedObject& object) {
    count();
    if (ordered_json json = ofArchivable(object); !json.is_null()) return json;
    if (const auto plain = object.value(); !plain.isNull() || object.isNil()) return of(plain);
    ordered_json json;
    if (const auto list = object.list()) {
        json = ordered_json::array();
        for (const ArchivedObject& element : *list) json.push_back(of(element));
    } else if (const auto entries = object.entries()) {
        json = ordered_json::object();
        for (const auto& [key, element] : *entries) json[key] = of(element);
    }
    return json;
}

ordered_json JsonText::ofArchivable(const ArchivedObject& object) {
    const auto archivable = object.record();
    if (const auto record = std::dynamic_pointer_cast<qlsdk::EventWrapper>(archivable)) {
        ordered_json json{{"sequenceId", record->sequenceId()}, {"retries", record->numRetried()}};
        if (record->isRetry()) json["notBeforeMillis"] = record->nextRetryTimeMillis();
        json["event"] = of(ArchivedObject(record->event()));
        return json;
    }
    if (const auto event = std::dynamic_pointer_cast<qlsdk::EncodablePicoproto>(archivable)) {
        return eventJson(*event);
    }
    if (const auto entity = std::dynamic_pointer_cast<ConfigEntityView>(archivable)) {
        ordered_json json{{"entity", nullptr}, {"config", of(entity->config())}};
        if (entity->name().has_value()) json["entity"] = *entity->name();
        return json;
    }
    return nullptr;
}

void JsonText::count() {
    if (++count_ <= kCeiling) return;
    throw Failure("it holds more than " + std::to_string(kCeiling) + " values; see it without --json");
}

void printJson(const ordered_json& json) {
    std::cout << json.dump(-1, ' ', false, ordered_json::error_handler_t::replace) << std::endl;
}

}  // namespace quillkit
