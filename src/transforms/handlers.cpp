// handlers.cpp - the handlers of the data transforms: compression,
// checksums, encodings, phonetic key and encryption.  Each adapts the
// arguments, calls one implementation and hands back the result.
#include <new>

#include "component/bind.h"
#include "component/call.h"
#include "transforms/checksum.h"
#include "transforms/cipher.h"
#include "transforms/compression.h"
#include "transforms/crypt.h"
#include "transforms/encodings.h"
#include "transforms/phonetic.h"

namespace kp::handlers {

namespace {

constexpr uint32_t kErrPhoneticMemory = 80229;

// Runs an implementation: memory exhaustion never leaves the component, it
// becomes the function's failure value, with `id` recorded when not 0.
template <class Body, class Fail> void run(Call& call, uint32_t id, Body&& body, Fail&& fail) {
    try {
        body();
    } catch (const std::bad_alloc&) {
        if (id) call.error().fail(id);
        fail();
    }
}

void ret_any_buffer(Call& call, std::span<const uint8_t> bytes) {
    kp_variant v;
    variant::init(&v);
    variant::set_buffer(&v, bytes);
    call.ret_variant(&v);
    variant::destroy(&v);
}

void ret_any_string(Call& call, std::u16string_view text) {
    kp_variant v;
    variant::init(&v);
    variant::set_string(&v, text);
    call.ret_variant(&v);
    variant::destroy(&v);
}

void crypt(Call& call, int32_t mode, int32_t encoding) {
    const bool is_string = !str::is_binary(call.buffer(0));
    const auto out = transforms::crypt(call.raw(0), is_string, call.str(1), mode, encoding, call.error());
    if (call.error().failed())
        ret_any_string(call, u"");
    else
        ret_any_buffer(call, out);
}

void uncrypt(Call& call, int32_t mode, int32_t encoding) {
    const auto r = transforms::uncrypt_bytes(call.raw(0), call.str(1), mode, encoding, call.error());
    if (r.is_string)
        ret_any_string(call, r.text);
    else
        ret_any_buffer(call, r.bytes);
}

} // namespace

// Compress(buffer) / Compress(string)
KP_HANDLER(Compress_1) {
    Call call(frame, context, args);
    run(
        call, 0, [&] { call.ret_buffer(transforms::compress(call.raw(0), false, call.error())); },
        [&] { call.ret_buffer({}); });
    return 0;
}
KP_HANDLER(Compress_2) {
    Call call(frame, context, args);
    run(
        call, 0, [&] { call.ret_buffer(transforms::compress(call.raw(0), true, call.error())); },
        [&] { call.ret_buffer({}); });
    return 0;
}
KP_HANDLER(Uncompress_1) {
    Call call(frame, context, args);
    run(
        call, 0, [&] { call.ret_buffer(transforms::uncompress(call.raw(0), call.error())); },
        [&] { call.ret_buffer({}); });
    return 0;
}

KP_HANDLER(sComputeCrc16_1) {
    Call call(frame, context, args);
    call.ret_int(transforms::crc16(call.str(0)));
    return 0;
}
KP_HANDLER(sComputeCrc32_1) {
    Call call(frame, context, args);
    call.ret_int(static_cast<int32_t>(transforms::crc32(call.raw(0))));
    return 0;
}
KP_HANDLER(sComputeCrc32_2) {
    Call call(frame, context, args);
    call.ret_int(static_cast<int32_t>(transforms::crc32(call.raw(0), static_cast<uint32_t>(call.i32(1)))));
    return 0;
}

KP_HANDLER(URLEncode_1) {
    Call call(frame, context, args);
    run(
        call, 0, [&] { call.ret_string(transforms::url_encode(call.str(0))); },
        [&] { call.ret_string(u""); });
    return 0;
}
KP_HANDLER(URLDecode_1) {
    Call call(frame, context, args);
    run(
        call, 0, [&] { call.ret_string(transforms::url_decode(call.str(0))); },
        [&] { call.ret_string(u""); });
    return 0;
}
KP_BIND(ZigouigouiARoulette_1, transforms::zigouigoui_a_roulette)

KP_HANDLER(Phonetic_1) {
    Call call(frame, context, args);
    run(
        call, kErrPhoneticMemory, [&] { call.ret_string(transforms::phonetic(call.str(0))); },
        [&] { call.ret_string(u""); });
    return 0;
}

// Crypt and Uncrypt: mode 1 (cryptFast) and encoding 1 (encodeQRT) unless given.
KP_HANDLER(Crypt_1) {
    Call call(frame, context, args);
    run(
        call, transforms::kErrCreateObject,
        [&] { crypt(call, transforms::kCryptFast, transforms::kEncodeQrt); },
        [&] { ret_any_string(call, u""); });
    return 0;
}
KP_HANDLER(Crypt_2) {
    Call call(frame, context, args);
    run(
        call, transforms::kErrCreateObject, [&] { crypt(call, call.i32(2), transforms::kEncodeQrt); },
        [&] { ret_any_string(call, u""); });
    return 0;
}
KP_HANDLER(Crypt_3) {
    Call call(frame, context, args);
    run(
        call, transforms::kErrCreateObject, [&] { crypt(call, call.i32(2), call.i32(3)); },
        [&] { ret_any_string(call, u""); });
    return 0;
}
KP_HANDLER(Uncrypt_1) {
    Call call(frame, context, args);
    run(
        call, transforms::kErrCreateObject,
        [&] { uncrypt(call, transforms::kCryptFast, transforms::kEncodeQrt); },
        [&] { ret_any_string(call, u""); });
    return 0;
}
KP_HANDLER(Uncrypt_2) {
    Call call(frame, context, args);
    run(
        call, transforms::kErrCreateObject, [&] { uncrypt(call, call.i32(2), transforms::kEncodeQrt); },
        [&] { ret_any_string(call, u""); });
    return 0;
}
KP_HANDLER(Uncrypt_3) {
    Call call(frame, context, args);
    run(
        call, transforms::kErrCreateObject, [&] { uncrypt(call, call.i32(2), call.i32(3)); },
        [&] { ret_any_string(call, u""); });
    return 0;
}

// fCrypt and fUncrypt: mode 1 (cryptFast) and no encoding unless given.
KP_HANDLER(fCrypt_1) {
    Call call(frame, context, args);
    run(
        call, transforms::kErrCreateObject,
        [&] {
            call.ret_bool(transforms::fcrypt(call.str(0), call.str(1), call.str(2), transforms::kCryptFast,
                                             transforms::kEncodeNone, call.error()));
        },
        [&] { call.ret_bool(false); });
    return 0;
}
KP_HANDLER(fCrypt_2) {
    Call call(frame, context, args);
    run(
        call, transforms::kErrCreateObject,
        [&] {
            call.ret_bool(transforms::fcrypt(call.str(0), call.str(1), call.str(2), call.i32(3),
                                             transforms::kEncodeNone, call.error()));
        },
        [&] { call.ret_bool(false); });
    return 0;
}
KP_HANDLER(fCrypt_3) {
    Call call(frame, context, args);
    run(
        call, transforms::kErrCreateObject,
        [&] {
            call.ret_bool(transforms::fcrypt(call.str(0), call.str(1), call.str(2), call.i32(3), call.i32(4),
                                             call.error()));
        },
        [&] { call.ret_bool(false); });
    return 0;
}
KP_HANDLER(fUncrypt_1) {
    Call call(frame, context, args);
    run(
        call, transforms::kErrCreateObject,
        [&] {
            call.ret_bool(transforms::funcrypt(call.str(0), call.str(1), call.str(2), transforms::kCryptFast,
                                               transforms::kEncodeNone, call.error()));
        },
        [&] { call.ret_bool(false); });
    return 0;
}
KP_HANDLER(fUncrypt_2) {
    Call call(frame, context, args);
    run(
        call, transforms::kErrCreateObject,
        [&] {
            call.ret_bool(transforms::funcrypt(call.str(0), call.str(1), call.str(2), call.i32(3),
                                               transforms::kEncodeNone, call.error()));
        },
        [&] { call.ret_bool(false); });
    return 0;
}
KP_HANDLER(fUncrypt_3) {
    Call call(frame, context, args);
    run(
        call, transforms::kErrCreateObject,
        [&] {
            call.ret_bool(transforms::funcrypt(call.str(0), call.str(1), call.str(2), call.i32(3),
                                               call.i32(4), call.error()));
        },
        [&] { call.ret_bool(false); });
    return 0;
}

} // namespace kp::handlers
