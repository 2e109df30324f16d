// base64_decode.cpp - encodeQRT and encodeBASE64 decoding arbitrary UTF-16
// text (byte 0 picks the encoder, the rest are little-endian units), with
// the vector code the processor has checked against the portable code:
// the same bytes, the same count, and the count of the counting pass.  The
// same input's bytes are encoded both ways too and must read back.

#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "transforms/encodings.h"

using namespace kp::transforms;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    const int32_t number = (data[0] & 1) ? kEncodeBase64 : kEncodeQrt;
    ++data, --size;
    std::u16string text(size / 2, u'\0');
    for (size_t i = 0; i < text.size(); ++i) {
        text[i] = static_cast<char16_t>(data[2 * i] | data[2 * i + 1] << 8);
        // Mostly alphabet and line breaks, so that the vector blocks run.
        if (data[2 * i + 1] == 0xFF) text[i] = (data[2 * i] & 1) ? u'\r' : u'\n';
    }
    const auto plain = make_encoder(number, Base64Simd::None);
    const auto fast = make_encoder(number);
    const std::vector<uint8_t> a = plain->decode(text), b = fast->decode(text);
    if (a != b || a.size() != plain->decode(text, nullptr) || b.size() != fast->decode(text, nullptr))
        std::abort();

    const std::vector<uint8_t> bytes(data, data + size);
    const std::u16string x = plain->encode(bytes), y = fast->encode(bytes);
    if (x != y || fast->decode(y) != bytes) std::abort();
    return 0;
}
