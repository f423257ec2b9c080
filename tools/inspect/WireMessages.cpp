#include "tools/inspect/WireMessages.h"

#include <array>
#include <limits>

#include <google/protobuf/text_format.h>
#include <google/protobuf/unknown_field_set.h>
#include <wire/heartbeat.pb.h>
#include <wire/kit_events.pb.h>
#include <wire/metrics.pb.h>

namespace quillkit {

namespace {

using google::protobuf::Message;

const Message* prototypeNamed(std::string_view name) {
    const std::array<const Message*, 9> all{&wire::HearbeatBatch::default_instance(),
                                            &wire::Heartbeat::default_instance(),
                                            &wire::DeviceEnvironmentInfo::default_instance(),
                                            &wire::Timestamp::default_instance(),
                                            &wire::Metrics::default_instance(),
                                            &wire::CounterMetric::default_instance(),
                                            &wire::TimerMetric::default_instance(),
                                            &wire::KitEventBase::default_instance(),
                                            &wire::ServerEvent::default_instance()};
    for (const Message* message : all) {
        if (message->GetDescriptor()->name() == name) return message;
    }
    return nullptr;
}

std::string printed(const Message& message, bool oneLine) {
    google::protobuf::TextFormat::Printer printer;
    printer.SetSingleLineMode(oneLine);
    // Text that is UTF-8 stays readable; everything else comes out as escapes.
    printer.SetUseUtf8StringEscaping(true);
    std::string text;
    printer.PrintToString(message, &text);
    return text;
}

bool fits(qlsdk::DataView bytes) {
    return bytes.size() <= static_cast<std::size_t>(std::numeric_limits<int>::max());
}

}  // namespace

std::unique_ptr<Message> decodeMessage(std::string_view name, qlsdk::DataView bytes) {
    const Message* prototype = prototypeNamed(name);
    if (prototype == nullptr || !fits(bytes)) return nullptr;
    std::unique_ptr<Message> message(prototype->New());
    if (!message->ParseFromArray(bytes.data(), static_cast<int>(bytes.size()))) return nullptr;
    return message;
}

const google::protobuf::Descriptor* descriptorNamed(std::string_view name) {
    const Message* prototype = prototypeNamed(name);
    return prototype == nullptr ? nullptr : prototype->GetDescriptor();
}

std::string fieldsOf(const Message& message) {
    return printed(message, false);
}

std::string fieldsOnOneLine(const Message& message) {
    return printed(message, true);
}

std::string rawFieldsOf(qlsdk::DataView bytes) {
    google::protobuf::UnknownFieldSet fields;
    if (!fits(bytes) || !fields.ParseFromArray(bytes.data(), static_cast<int>(bytes.size()))) return {};
    std::string text;
    google::protobuf::TextFormat::PrintUnknownFieldsToString(fields, &text);
    return text;
}

}  // namespace quillkit
