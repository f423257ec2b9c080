#include "tools/testing/RunningCollector.h"

#include <fstream>

namespace quillkit::testing {

namespace {

std::vector<std::string> collectWords(const std::string& directory, const std::string& state,
                                      const std::vector<std::string>& options) {
    std::vector<std::string> words{QUILLKIT_BINARY, "collect",
                                   "--port",        "0",
                                   "--log",         directory + "/log.jsonl",
                                   "--state",       state.empty() ? directory + "/state" : state};
    words.insert(words.end(), options.begin(), options.end());
    return words;
}

}  // namespace

RunningCollector::RunningCollector(const std::vector<std::string>& options, const std::string& state)
    : process_(collectWords(directory_.path(), state, options)),
      address_(process_.nextLine().value_or("")),
      authorityFile_(process_.nextLine().value_or("")) {}

std::vector<std::string> RunningCollector::curl(const std::string& path,
                                                const std::vector<std::string>& options) const {
    std::vector<std::string> words{"curl", "--silent",     "--cacert",      authorityFile_, "--noproxy",
                                   "*",    "--connect-to", "::" + address_, "--write-out",  "%{http_code}"};
    words.insert(words.end(), options.begin(), options.end());
    words.push_back(kApiUrl + path);
    return words;
}

Finished RunningCollector::post(const std::string& path, const std::string& body,
                                const std::vector<std::string>& options) const {
    const std::string file = writeFile(directory_.path() + "/body", body);
    std::vector<std::string> words{"--data-binary", "@" + file};
    words.insert(words.end(), options.begin(), options.end());
    return runToEnd(curl(path, words));
}

std::vector<nlohmann::ordered_json> RunningCollector::logged() const {
    std::vector<nlohmann::ordered_json> lines;
    std::ifstream file(directory_.path() + "/log.jsonl");
    for (std::string line; std::getline(file, line);) lines.push_back(nlohmann::ordered_json::parse(line));
    return lines;
}

std::string writeFile(const std::string& path, const std::string& content) {
    std::ofstream(path, std::ios::binary) << content;
    return path;
}

}  // namespace quillkit::testing
