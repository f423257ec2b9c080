#ifndef QLSDKCOREKIT_PICOPROTO_PICOPROTO_H
#define QLSDKCOREKIT_PICOPROTO_PICOPROTO_H

#include <stdint.h>

#include "QLSDKCoreKit/Export.h"

/**
 * A minimal, write-only encoder for the Protocol Buffers wire format.
 *
 * One context is one message under construction. Fields appear on the wire in the order of the calls; nothing
 * is sorted, merged, checked or packed. A nested message is built in a context of its own and then embedded.
 * There is no finished state: the bytes may be read at any time and writing may go on afterwards.
 *
 * Every write returns a status: 0, or PICOPROTO_MESSAGE_TOO_LONG when the message would grow past
 * PICOPROTO_MAX_LENGTH, or when there is no memory for it to grow. There is no roll-back: a field whose key
 * was written but whose body was refused leaves the partial field behind, and all that stood before it as it
 * was.
 *
 * A context that could not be made for want of memory is null, and every function takes null: one that writes
 * into it writes nothing and returns PICOPROTO_MESSAGE_TOO_LONG (the repeated ones return 0 where they have
 * nothing to write), but still frees the children that it was to free. So a message may be built without
 * looking at each step: it is whole if the context is there and every status was 0.
 *
 * A context is used by one thread at a time and may move between threads.
 */

#ifdef __cplusplus
extern "C" {
#endif

/** The ceiling of one message in bytes. */
#define PICOPROTO_MAX_LENGTH 131072u
/** The status of a refused write, also for want of memory: the number that the first platforms gave a message
 * too long, everywhere. */
#define PICOPROTO_MESSAGE_TOO_LONG 40

/** The writer of one message. Read the fields freely; only the functions below change them. */
typedef struct picoproto_ctx_s {
    /** The message's name, owned, NUL-terminated, or null. A label; it never reaches the wire. */
    char* name;
    /** Encoded bytes in `buffer` so far. */
    uint64_t length;
    /** Size of `buffer` in bytes, at most PICOPROTO_MAX_LENGTH. */
    uint64_t capacity;
    /** The encoded bytes, owned; valid until the next write. */
    uint8_t* buffer;
} picoproto_ctx_s;

/** A new empty message with room for 1024 bytes. `name` is copied and may be null. Null without the memory
 * for it. Free with `picoproto_free`. */
QLSDK_EXPORT picoproto_ctx_s* picoproto_new(const char* name);

/**
 * A new context that holds a copy of `count` encoded bytes. More than PICOPROTO_MAX_LENGTH bytes, or null
 * with a count, give an empty context: the status of this copy is not reported. Null without the memory for
 * it.
 */
QLSDK_EXPORT picoproto_ctx_s* picoproto_new_from_bytes(const char* name, const uint8_t* bytes,
                                                       uint64_t count);

/** Releases a context and all it owns; null is harmless. */
QLSDK_EXPORT void picoproto_free(picoproto_ctx_s* ctx);

/** Writes `text` up to its NUL; the bytes are not checked to be UTF-8. A null text is an empty one. */
QLSDK_EXPORT int32_t picoproto_write_string_field(picoproto_ctx_s* ctx, uint64_t field, const char* text);

/** One field for each text, in order, up to the first refused one. A null array writes nothing. */
QLSDK_EXPORT int32_t picoproto_write_repeated_string_field(picoproto_ctx_s* ctx, uint64_t field,
                                                           const char* const* texts, uint64_t count);

/**
 * Copies the message in `child`, which is another context, into `ctx`. A null child is an empty message. With
 * a non-zero `free_child` the child is freed in every case, also when the write is refused.
 */
QLSDK_EXPORT int32_t picoproto_write_embedded_message_field(picoproto_ctx_s* ctx, uint64_t field,
                                                            picoproto_ctx_s* child, int free_child);

/**
 * One field for each child, in order, up to the first refused one. With a non-zero `free_children` all of
 * them are freed in every case; a count of 0 frees nothing.
 */
QLSDK_EXPORT int32_t picoproto_write_repeated_embedded_message_field(picoproto_ctx_s* ctx, uint64_t field,
                                                                     picoproto_ctx_s* const* children,
                                                                     uint64_t count, int free_children);

/** Four bytes, least significant first. At the ceiling it reports only a refused key: a refused body returns
 * 0. */
QLSDK_EXPORT int32_t picoproto_write_fixed32_field(picoproto_ctx_s* ctx, uint64_t field, uint32_t value);

/** Eight bytes, least significant first. At the ceiling it reports only a refused key: a refused body returns
 * 0. */
QLSDK_EXPORT int32_t picoproto_write_fixed64_field(picoproto_ctx_s* ctx, uint64_t field, uint64_t value);

/** A base-128 integer. A signed value passes as its two's complement, so that a negative one takes ten bytes.
 */
QLSDK_EXPORT int32_t picoproto_write_varint_field(picoproto_ctx_s* ctx, uint64_t field, uint64_t value);

/** The IEEE-754 bits of `value` as a fixed 64-bit field. */
QLSDK_EXPORT int32_t picoproto_write_double_field(picoproto_ctx_s* ctx, uint64_t field, double value);

/** The IEEE-754 bits of `value`, such that writing them least significant byte first is little-endian. */
QLSDK_EXPORT uint64_t convertHostDoubleToLittle(double value);

#ifdef __cplusplus
}
#endif

#endif
