#pragma once

#include <atomic>
#include <ostream>
#include <span>
#include <string>

namespace qlsdk::faults {

/// What a host in a process of its own starts with. Made before that process is.
struct HostSetup {
    std::string home;
    std::string connectTo;
    std::string caFile;
};

/// What the server answers uploads with; shared by the processes.
using Status = std::atomic<int>;

/// What a host does while allocations fail. Each answer that it is owed comes once, with the next call of its
/// kind at the latest.
struct Scenario {
    const char* name;
    /// Done before allocations fail.
    void (*prepare)(const HostSetup& setup, Status& status);
    void (*run)(const HostSetup& setup);
    /// Whether what the earlier process left is there.
    bool findsFiles = false;
    /// With memory again: what is wrong with what came of it, null when nothing is.
    const char* (*complaint)(const HostSetup& setup) = nullptr;
};

/// For the test's output.
inline void PrintTo(const Scenario& scenario, std::ostream* out) {
    *out << scenario.name;
}

[[nodiscard]] std::span<const Scenario> scenarios();

/// Leaves records of every kind, defaults and a configuration in the home, as an earlier process does.
void leaveFiles(const HostSetup& setup, Status& status);

/// With memory again: starts the library unless it has been, and sends a metric. What is wrong, null when
/// nothing is.
[[nodiscard]] const char* complaintAfterwards(const HostSetup& setup, Status& status);

}  // namespace qlsdk::faults
