#include "tools/testing/HostApplication.h"

namespace quillkit::testing {

HostApplication::HostApplication() {
    writeFile(plist_, R"(<?xml version="1.0" encoding="UTF-8"?><plist version="1.0"><dict>
        <key>CFBundleIdentifier</key><string>com.example.app</string>
        <key>CFBundleVersion</key><string>4.2</string>
        <key>QLSDKClientId</key><string>client-7</string></dict></plist>)");
}

std::string HostApplication::cacheFile(const std::string& name) const {
    return home_ + "/cache/com.example.app/" + name;
}

Finished HostApplication::run(const std::vector<std::string>& words) const {
    return run(words, {});
}

Finished HostApplication::run(const RunningCollector& collector,
                              const std::vector<std::string>& words) const {
    return run(words, {"--connect-to", collector.address(), "--ca", collector.authorityFile()});
}

Finished HostApplication::run(const std::vector<std::string>& words,
                              const std::vector<std::string>& options) const {
    // In front of the operands, which may end with ones behind "--".
    std::vector<std::string> all{QUILLKIT_BINARY, words.at(0), "--info-plist", plist_, "--home", home_};
    all.insert(all.end(), options.begin(), options.end());
    all.insert(all.end(), words.begin() + 1, words.end());
    return runToEnd(all);
}

}  // namespace quillkit::testing
