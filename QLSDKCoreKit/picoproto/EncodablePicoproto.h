#pragma once

#include <memory>
#include <string_view>
#include <utility>

#include "QLSDKCoreKit/Export.h"
#include "QLSDKCoreKit/picoproto/MessageContext.h"
#include "QLSDKCoreKit/picoproto/picoproto.h"
#include "QLSDKCoreKit/values/KeyedArchive.h"

namespace qlsdk {

/// One encoded message that can be archived: owns a writer context and frees it at its end.
///
/// In an archive it is a record with the keys "QLSDKPicoProtoData", "QLSDKPicoProtoDataLength" and
/// "QLSDKPicoProtoName". Not synchronised; the upload queue hands it from thread to thread.
class QLSDK_EXPORT EncodablePicoproto final : public platform::Archivable {
  public:
    static constexpr std::string_view kClassName = "EncodablePicoproto";

    /// `ctx` may be null.
    explicit EncodablePicoproto(MessageContext ctx) noexcept : ctx_(std::move(ctx)) {}
    /// The same for a context that nothing owns yet. Not for `make_shared`, which may throw before it gets
    /// here: the context would leak.
    explicit EncodablePicoproto(picoproto_ctx_s* ctx) noexcept : ctx_(ctx) {}

    /// Reads the record form. A length that disagrees with the data counts only as far as there is data; a
    /// message over the writer's ceiling comes back empty, one without a name nameless. Throws `bad_alloc`.
    [[nodiscard]] static std::shared_ptr<platform::Archivable> initWithCoder(platform::KeyedDecoder& decoder);
    [[nodiscard]] static bool supportsSecureCoding() noexcept { return true; }

    /// Borrowed; may be null.
    [[nodiscard]] picoproto_ctx_s* ctx() const noexcept { return ctx_.get(); }
    /// Owns `ctx`, which may be null, from now on. Plain assignment: the earlier context is not freed and
    /// belongs to the caller, who asked for it with `ctx()` before.
    void setCtx(picoproto_ctx_s* ctx) noexcept {
        (void)ctx_.release();
        ctx_.reset(ctx);
    }

    [[nodiscard]] std::string_view archivedClassName() const noexcept override { return kClassName; }
    void encodeWithCoder(platform::KeyedEncoder& encoder) const override;

  private:
    MessageContext ctx_;
};

}  // namespace qlsdk
