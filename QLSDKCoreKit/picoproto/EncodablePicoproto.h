#pragma once

#include <memory>
#include <string_view>

#include "QLSDKCoreKit/picoproto/picoproto.h"
#include "QLSDKCoreKit/platform/Export.h"
#include "QLSDKCoreKit/platform/KeyedArchive.h"

namespace qlsdk {

/// One encoded message that can be archived: owns a writer context for as long as it lives.
///
/// In an archive it is a record with the keys "QLSDKPicoProtoData", "QLSDKPicoProtoDataLength" and
/// "QLSDKPicoProtoName". Not synchronised; the upload queue hands it from thread to thread.
class QLSDK_EXPORT EncodablePicoproto final : public platform::Archivable {
  public:
    static constexpr std::string_view kClassName = "EncodablePicoproto";

    /// Takes ownership of `ctx`, which may be null.
    explicit EncodablePicoproto(picoproto_ctx_s* ctx) noexcept : ctx_(ctx) {}
    ~EncodablePicoproto() override { picoproto_free(ctx_); }
    EncodablePicoproto(const EncodablePicoproto&) = delete;
    EncodablePicoproto& operator=(const EncodablePicoproto&) = delete;

    /// Reads the record form. A length that disagrees with the data counts only as far as there is data; a
    /// message over the writer's ceiling comes back empty, one without a name nameless.
    [[nodiscard]] static std::shared_ptr<platform::Archivable> initWithCoder(platform::KeyedDecoder& decoder);
    [[nodiscard]] static bool supportsSecureCoding() noexcept { return true; }

    /// Borrowed; may be null.
    [[nodiscard]] picoproto_ctx_s* ctx() const noexcept { return ctx_; }
    /// Plain assignment: the earlier context is not freed and becomes the caller's.
    void setCtx(picoproto_ctx_s* ctx) noexcept { ctx_ = ctx; }

    [[nodiscard]] std::string_view archivedClassName() const noexcept override { return kClassName; }
    void encodeWithCoder(platform::KeyedEncoder& encoder) const override;

  private:
    picoproto_ctx_s* ctx_;
};

}  // namespace qlsdk
