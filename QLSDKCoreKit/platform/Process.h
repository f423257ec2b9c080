#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "QLSDKCoreKit/Export.h"

namespace qlsdk::platform {

/// The answer of the kernel's query for this process's own record.
struct ProcessRecord {
    /// 0 when the query succeeded.
    int result = 0;
    /// Process flags; `kProcessTraced` is the one the library reads.
    std::uint32_t flags = 0;
};

inline constexpr std::uint32_t kProcessTraced = 0x800;

/// Port: questions about the running process. Any thread.
class QLSDK_EXPORT Process {
  public:
    virtual ~Process() = default;

    /// The environment variable as it is now; absent when it is not set.
    [[nodiscard]] virtual std::optional<std::string> environmentVariable(const std::string& name) = 0;

    /// True when something named `name` is loaded: a class where the system has classes; elsewhere a symbol,
    /// or the type information of a C++ class, of the program or a shared object, exported or not. May read
    /// their files.
    [[nodiscard]] virtual bool isClassLoaded(const std::string& name) = 0;

    /// A result other than 0 is fatal to the process that asks for its debugger, so an adapter reports one
    /// only where the kernel's query itself is broken, not where it merely has nothing to say.
    [[nodiscard]] virtual ProcessRecord processRecord() = 0;

    /// The processor type and subtype in the numbers of the "hw.cputype" and "hw.cpusubtype" queries:
    /// 7 x86, 12 ARM (subtypes 6, 9, 13), 0x01000007 x86_64, 0x0100000C 64-bit ARM; 0 when unknown.
    [[nodiscard]] virtual std::uint32_t cpuType() = 0;
    [[nodiscard]] virtual std::uint32_t cpuSubtype() = 0;
};

}  // namespace qlsdk::platform
