#include <charconv>
#include <future>
#include <iostream>

#include "Failure.h"
#include "HostOptions.h"
#include "JsonText.h"
#include "SendActions.h"
#include "Subcommand.h"
#include <nlohmann/json.hpp>

#include "QLSDKCoreKit/config/QLSDKDynamicConfigManager.h"

namespace quillkit {

namespace {

constexpr std::array<Option, 4> kConfigOptions{
    {{"--type", "TYPE", "of a value: bool, long, double or string"},
     {"--default", "V", "of a value: what to print when there is none of that type"},
     {"--wait", "SECONDS", "of an update: how long to wait for the outcome; 10 without it"},
     kJsonOption}};

std::string requiredValue(const Arguments& arguments, std::string_view option) {
    const auto value = arguments.value(option);
    if (!value.has_value()) throw UsageError("get wants " + std::string(option));
    return *value;
}

bool boolArgument(const std::string& text) {
    if (text == "true" || text == "1") return true;
    if (text == "false" || text == "0") return false;
    throw UsageError("--default wants true or false, not '" + text + "'");
}

double doubleArgument(const std::string& text) {
    double number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error == std::errc{} && end == text.data() + text.size()) return number;
    throw UsageError("--default wants a number, not '" + text + "'");
}

int update(const Arguments& arguments) {
    if (arguments.operands().size() != 1) throw UsageError("update takes no operand");
    const std::chrono::seconds wait = waitArgument(arguments);
    (void)installHost(arguments);
    // Shared with the callback, which may outlive this wait.
    const auto outcome = std::make_shared<std::promise<bool>>();
    qlsdk::QLSDKDynamicConfigManager::shared().updateIfNecessary(
        std::make_shared<const qlsdk::DynamicConfigCallback>(
            [outcome](bool success) { outcome->set_value(success); }));
    auto answer = outcome->get_future();
    if (answer.wait_for(wait) != std::future_status::ready) throw Failure("no outcome in the time given");
    const bool success = answer.get();
    if (arguments.has(kJsonOption.name)) {
        printJson({{"success", success}});
        return success ? 0 : 1;
    }
    std::cout << (success ? "success: stored until it is read once\n" : "failure: nothing was stored\n");
    return success ? 0 : 1;
}

/// What a getter of the wanted type answers; without an entity that is the default.
std::string valueOf(const qlsdk::QLSDKDynamicConfigEntity& entity,
                    const qlsdk::QLSDKDynamicConfigEntity::KeyPath& path, const std::string& type,
                    const std::string& fallback) {
    if (type == "bool") return entity.boolValue(path, boolArgument(fallback)) ? "true" : "false";
    if (type == "long") {
        return std::to_string(
            entity.longValue(path, integerArgument(fallback, "--default", INT64_MIN, INT64_MAX)));
    }
    if (type == "double") return qlsdk::describe(entity.doubleValue(path, doubleArgument(fallback)));
    if (type == "string") return entity.stringValue(path, fallback).value_or(fallback);
    throw UsageError("unknown type '" + type + "'");
}

/// The printed value as JSON of the wanted type.
nlohmann::ordered_json jsonValue(const std::string& value, const std::string& type) {
    if (type == "string") return value;
    auto json = nlohmann::ordered_json::parse(value, nullptr, false);
    // JSON has no infinity.
    return json.is_discarded() ? nullptr : std::move(json);
}

int get(const Arguments& arguments) {
    const std::vector<std::string>& operands = arguments.operands();
    if (operands.size() < 3) throw UsageError("get wants a name and at least one key");
    const std::string type = requiredValue(arguments, "--type");
    const std::string fallback = requiredValue(arguments, "--default");
    const qlsdk::QLSDKDynamicConfigEntity nothing(std::nullopt, qlsdk::Value());
    // Before the read, which consumes the file: wrong usage must not cost the configuration.
    (void)valueOf(nothing, {}, type, fallback);
    (void)installHost(arguments);

    const auto entity = qlsdk::QLSDKDynamicConfigManager::shared().dynamicConfig(operands[1]);
    if (entity == nullptr) std::cerr << "quillkit: no configuration '" << operands[1] << "' is stored\n";
    const qlsdk::QLSDKDynamicConfigEntity::KeyPath path(operands.begin() + 2, operands.end());
    const std::string value = valueOf(entity != nullptr ? *entity : nothing, path, type, fallback);
    if (arguments.has(kJsonOption.name)) {
        printJson({{"name", operands[1]},
                   {"path", path},
                   {"stored", entity != nullptr},
                   {"value", jsonValue(value, type)}});
        return 0;
    }
    std::cout << value << "\n";
    return 0;
}

int config(const Arguments& arguments) {
    const std::string& action = arguments.operands().front();
    if (action == "update") return update(arguments);
    if (action == "get") return get(arguments);
    throw UsageError("cannot " + action + " the configuration, only update and get");
}

}  // namespace

Subcommand configCommand() {
    return {
        .name = "config",
        .operandNames = "update | get NAME KEY...",
        .operandCount = {1, SIZE_MAX},
        .summary = "fetches the remote configuration, and reads a value of it",
        .description =
            "get wants --type and --default and prints the value at the path of keys in the configuration\n"
            "NAME, or the default. The first read after an update takes the stored file away, whatever\n"
            "it asks for; later reads find nothing.\n",
        .options = joined(kConfigOptions, kHostOptions),
        .run = config};
}

}  // namespace quillkit
