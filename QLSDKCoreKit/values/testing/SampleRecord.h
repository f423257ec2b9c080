#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "QLSDKCoreKit/values/KeyedArchive.h"

namespace qlsdk::platform::testing {

/// A record with a field of every kind, as plain data.
struct SampleRecord final : Archivable {
    std::int64_t number = 0;
    bool flag = false;
    std::optional<Data> bytes;
    std::optional<std::string> text;
    ArchivedObject child;

    [[nodiscard]] std::string_view archivedClassName() const noexcept override { return "Sample"; }
    void encodeWithCoder(KeyedEncoder& encoder) const override;

    static std::shared_ptr<Archivable> initWithCoder(KeyedDecoder& decoder);
};

/// The classes that the archives of these tests may name.
[[nodiscard]] std::span<const ArchivableClass> sampleClasses();

/// The structure of an archive's content as text, shared parts written out.
[[nodiscard]] std::string render(const ArchivedObject& object);

}  // namespace qlsdk::platform::testing
