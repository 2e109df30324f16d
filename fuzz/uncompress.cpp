// uncompress.cpp - Uncompress over arbitrary bytes (every block method, the
// short-string blocks of mode 2 included), and Compress/Uncompress round
// trips of the same bytes.

#include <cstdint>
#include <cstdlib>
#include <span>
#include <vector>

#include "transforms/compression.h"

using namespace kp::transforms;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::span<const uint8_t> in(data, size);
    kp_error_record rec{};
    rec.severity = 1;
    kp::CXError err(&rec);

    // Forged values: any header, any block.
    uncompress(in, err);
    uncompress_value(in, 2, err);
    std::vector<uint8_t> out;
    decode_block(in, false, out);
    decode_block(in, true, out);

    // The coders read back what they wrote.
    for (uint32_t mode = 0; mode <= 2; ++mode) {
        err.clear();
        const auto packed = compress_value(in, kKindBuffer, mode, err);
        const auto back = uncompress_value(packed, mode == 2 ? 2 : -1, err);
        if (back.size() != size || !std::equal(back.begin(), back.end(), in.begin())) std::abort();
    }
    std::vector<uint8_t> dict;
    encode_block(kMethodDictionary, in, dict);
    std::vector<uint8_t> back;
    if (!decode_block(dict, false, back) || back.size() != size ||
        !std::equal(back.begin(), back.end(), in.begin()))
        std::abort();
    return 0;
}
