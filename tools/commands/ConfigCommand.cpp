#include <future>
#include <iostream>

#include "tools/cli/Failure.h"
#include "tools/commands/Commands.h"
#include "tools/commands/SendActions.h"
#include "tools/host/HostOptions.h"
#include "tools/inspect/JsonText.h"
#include <nlohmann/json.hpp>

#include "QLSDKCoreKit/config/QLSDKDynamicConfigManager.h"

namespace quillkit {

namespace {

constexpr std::array<Option, 2> kUpdateOptions{{kWaitOption, kJsonOption}};

constexpr std::array<Option, 3> kGetOptions{
    {{"--type", "TYPE", "of the value: bool, long, double or string", Occurrence::required,
      "bool long double string"},
     {"--default", "V", "what to print when there is no value of that type", Occurrence::required,
      "true false"},
     kJsonOption}};

bool boolArgument(const std::string& text) {
    if (text == "true" || text == "1") return true;
    if (text == "false" || text == "0") return false;
    throw UsageError("--default wants true or false, not '" + text + "'");
}

int update(const Arguments& arguments) {
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
    if (type == "double")
        return qlsdk::describe(entity.doubleValue(path, numberArgument(fallback, "--default")));
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
    const std::string type = *arguments.value("--type");
    const std::string fallback = *arguments.value("--default");
    const qlsdk::QLSDKDynamicConfigEntity nothing(std::nullopt, qlsdk::Value());
    // Before the read, which consumes the file: wrong usage must not cost the configuration.
    (void)valueOf(nothing, {}, type, fallback);
    (void)installHost(arguments);

    const auto entity = qlsdk::QLSDKDynamicConfigManager::shared().dynamicConfig(operands[0]);
    if (entity == nullptr) std::cerr << "quillkit: no configuration '" << operands[0] << "' is stored\n";
    const qlsdk::QLSDKDynamicConfigEntity::KeyPath path(operands.begin() + 1, operands.end());
    const std::string value = valueOf(entity != nullptr ? *entity : nothing, path, type, fallback);
    if (arguments.has(kJsonOption.name)) {
        printJson({{"name", operands[0]},
                   {"path", path},
                   {"stored", entity != nullptr},
                   {"value", jsonValue(value, type)}});
        return 0;
    }
    std::cout << value << "\n";
    return 0;
}

}  // namespace

Subcommand configCommand() {
    return {
        .name = "config",
        .summary = "fetches the remote configuration, and reads a value of it",
        .description =
            "get wants --type and --default and prints the value at the path of keys in the configuration\n"
            "NAME, or the default. The first read after an update takes the stored file away, whatever\n"
            "it asks for; later reads find nothing.\n",
        .actions = {{.name = "update", .options = joined(kUpdateOptions, kHostOptions), .run = update},
                    {.name = "get",
                     .operandNames = "NAME KEY...",
                     .operandCount = {2, SIZE_MAX},
                     .options = joined(kGetOptions, kHostOptions),
                     .run = get}}};
}

}  // namespace quillkit
