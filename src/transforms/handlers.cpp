// handlers.cpp - the handlers of the data transforms: compression,
// checksums, encodings, phonetic key and encryption.  Each adapts the
// arguments, calls one implementation and hands back the result; memory
// exhaustion becomes the function's failure value (see bind.h).
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

// Crypt's and Uncrypt's any value: a buffer or a string.  One that holds no
// value (a failure, or memory that ran out) reaches the VM as the empty
// string, the failure value of both.
struct Ciphered {
    variant::Value value;
};

Ciphered crypt_value(bind::StringOrBuffer data, std::u16string_view password, int32_t mode, int32_t encoding,
                     CXError& e) {
    const auto out = transforms::crypt(data.bytes(), !data.binary(), password, mode, encoding, e);
    if (e.failed()) return {};
    return {bind::any_buffer(out)};
}

Ciphered uncrypt_value(std::span<const uint8_t> data, std::u16string_view password, int32_t mode,
                       int32_t encoding, CXError& e) {
    const auto r = transforms::uncrypt_bytes(data, password, mode, encoding, e);
    return {r.is_string ? bind::any_string(r.text) : bind::any_buffer(r.bytes)};
}

} // namespace

} // namespace kp::handlers

namespace kp::bind {
template <> struct Result<handlers::Ciphered> {
    static constexpr bool accepts(uint32_t c) { return c == KP_T_ANY; }
    static void put(Call& c, handlers::Ciphered& r) {
        if (variant::type_of(r.value.get()) == KP_T_NONE) r.value = any_string(u"");
        c.ret_variant(r.value.get());
    }
};
} // namespace kp::bind

namespace kp::handlers {

using transforms::kCryptFast;
using transforms::kEncodeQrt;
using transforms::kErrCreateObject;

// Compress(buffer) / Compress(string); running out of memory records nothing.
KP_BIND_NOMEM(Compress_1, 0,
              [](std::span<const uint8_t> v, CXError& e) { return transforms::compress(v, false, e); })
KP_BIND_NOMEM(Compress_2, 0,
              [](std::span<const uint8_t> v, CXError& e) { return transforms::compress(v, true, e); })
KP_BIND_NOMEM(Uncompress_1, 0, transforms::uncompress)

// The checksums reach the VM as 32-bit integers (CRC-16 zero-extended).
KP_BIND(sComputeCrc16_1, [](std::u16string_view text) -> int32_t { return transforms::crc16(text); })
KP_BIND(sComputeCrc32_1,
        [](std::span<const uint8_t> v) { return static_cast<int32_t>(transforms::crc32(v)); })
KP_BIND(sComputeCrc32_2, [](std::span<const uint8_t> v, int32_t previous) {
    return static_cast<int32_t>(transforms::crc32(v, static_cast<uint32_t>(previous)));
})

KP_BIND_NOMEM(URLEncode_1, 0, transforms::url_encode)
KP_BIND_NOMEM(URLDecode_1, 0, transforms::url_decode)
KP_BIND(ZigouigouiARoulette_1, transforms::zigouigoui_a_roulette)

KP_BIND_NOMEM(Phonetic_1, kErrPhoneticMemory, transforms::phonetic)

// Crypt and Uncrypt (data, password): mode 1 (cryptFast) and encoding 1
// (encodeQRT) unless given.  fCrypt and fUncrypt (source, destination,
// password): mode 1 and no encoding unless given.
template <auto F, typename Data> struct ValueCipher {
    static auto of1(Data data, std::u16string_view password, CXError& e) {
        return F(data, password, kCryptFast, kEncodeQrt, e);
    }
    static auto of2(Data data, std::u16string_view password, int32_t mode, CXError& e) {
        return F(data, password, mode, kEncodeQrt, e);
    }
};
using ValueCrypt = ValueCipher<crypt_value, bind::StringOrBuffer>;
using ValueUncrypt = ValueCipher<uncrypt_value, std::span<const uint8_t>>;

KP_BIND_NOMEM(Crypt_1, kErrCreateObject, ValueCrypt::of1)
KP_BIND_NOMEM(Crypt_2, kErrCreateObject, ValueCrypt::of2)
KP_BIND_NOMEM(Crypt_3, kErrCreateObject, crypt_value)
KP_BIND_NOMEM(Uncrypt_1, kErrCreateObject, ValueUncrypt::of1)
KP_BIND_NOMEM(Uncrypt_2, kErrCreateObject, ValueUncrypt::of2)
KP_BIND_NOMEM(Uncrypt_3, kErrCreateObject, uncrypt_value)

} // namespace kp::handlers
