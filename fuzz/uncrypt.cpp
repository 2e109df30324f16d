// uncrypt.cpp - Uncrypt over arbitrary text with each encoding, cipher and
// compression mode; and Crypt/Uncrypt round trips of the same bytes.
//
// Input: byte 0 picks the mode (7 or more: a raw 32-bit mode follows),
// byte 1 the encoding (0..3, 4..255 any number), the rest is the text.

#include <fuzzer/FuzzedDataProvider.h>

#include <cstdint>
#include <cstdlib>
#include <vector>

#include "transforms/crypt.h"

using namespace kp::transforms;

namespace {
constexpr int32_t kModes[] = {1, 2, 3, 0x10001, 0x20002, 0x4000001, 0x10000};
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider fdp(data, size);
    const uint8_t pick = fdp.ConsumeIntegral<uint8_t>();
    const int32_t mode = pick < 7 ? kModes[pick] : fdp.ConsumeIntegral<int32_t>();
    const uint8_t e = fdp.ConsumeIntegral<uint8_t>();
    const int32_t encoding = e < 128 ? e % 4 : e;
    const std::vector<uint8_t> text = fdp.ConsumeRemainingBytes<uint8_t>();

    kp_error_record rec{};
    rec.severity = 1;
    kp::CXError err(&rec);
    uncrypt_bytes(text, u"pw", mode, encoding, err);
    uncrypt_bytes(text, u"", mode | kCryptAnsi, encoding, err);

    // Round trip through the encoders that read back whatever they wrote.
    if (pick < 7 && encoding >= 0 && encoding <= 2) {
        err.clear();
        const int32_t ansi_mode = mode | kCryptAnsi;
        const auto c = crypt(text, false, u"pw", ansi_mode, encoding, err);
        if (err.failed()) std::abort();
        const auto r = uncrypt_bytes(c, u"pw", ansi_mode, encoding, err);
        if (err.failed() || !r.is_string || r.text.size() != text.size()) std::abort();
    }
    return 0;
}
