#include <gtest/gtest.h>

#include <string>

#include "test_util.h"
#include "transforms/bytes.h"
#include "transforms/checksum.h"
#include "transforms/coders.h"
#include "transforms/compression.h"
#include "transforms/lzw.h"

namespace kp::transforms {
namespace {

using test::ErrorBox;

// Packs codes of given widths into bytes, least or most significant bit first.
std::vector<uint8_t> pack(const std::vector<std::pair<uint32_t, unsigned>>& codes, bool msb_first) {
    std::vector<uint8_t> out;
    uint64_t buf = 0;
    unsigned bits = 0;
    for (auto [code, width] : codes) {
        if (msb_first) {
            buf = (buf << width) | code;
            bits += width;
            while (bits >= 8)
                out.push_back(static_cast<uint8_t>(buf >> (bits -= 8)));
        } else {
            buf |= static_cast<uint64_t>(code) << bits;
            bits += width;
            for (; bits >= 8; bits -= 8, buf >>= 8)
                out.push_back(static_cast<uint8_t>(buf));
        }
    }
    if (bits) out.push_back(static_cast<uint8_t>(msb_first ? buf << (8 - bits) : buf));
    return out;
}

std::vector<uint8_t> block(uint8_t method, const std::vector<uint8_t>& payload, uint32_t length) {
    std::vector<uint8_t> b(11 + payload.size());
    b[0] = method;
    put_u32(&b[1], static_cast<uint32_t>(payload.size()));
    put_u32(&b[5], length);
    std::copy(payload.begin(), payload.end(), b.begin() + 11);
    return b;
}

// A buffer value of `mode` holding `body`.
std::vector<uint8_t> value(uint32_t mode, const std::vector<uint8_t>& body) {
    std::vector<uint8_t> v(5 + body.size());
    put_u32(&v[1], mode);
    std::copy(body.begin(), body.end(), v.begin() + 5);
    return v;
}

TEST(Compress, StoredBlockBehindTheHeader) {
    ErrorBox e;
    const std::vector<uint8_t> data = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10};
    const auto out = compress(data, false, e.err);
    // A buffer, compressLZW, a stored block of 14 bytes: the count 10 and the data.
    EXPECT_EQ(out, (std::vector<uint8_t>{0, 1, 0, 0, 0, 0, 14, 0, 0, 0, 10, 0,
                                         0, 0, 1, 2, 3, 4, 5,  6, 7, 8, 9,  10}));
    EXPECT_EQ(compress(data, true, e.err)[0], 2);
    EXPECT_EQ(uncompress(out, e.err), data);
    EXPECT_FALSE(e.err.failed());
}

// Blocks are a stored format: short, dictionary-filling, long-run, random and periodic inputs
// keep giving the same bytes, and read back.
TEST(Lzw, BlocksOfKnownInputsNeverChange) {
    std::vector<std::vector<uint8_t>> inputs;
    for (std::size_t n : {20u, 21u, 1000u, 65536u, 300000u, 3000000u})
        inputs.push_back(test::mixed_bytes(n, 7));
    inputs.push_back(std::vector<uint8_t>(500000, 'a'));
    inputs.push_back(test::random_bytes(5000, 3));
    inputs.emplace_back();
    for (uint32_t i = 0; i < 2000000; ++i)
        inputs.back().push_back(static_cast<uint8_t>((i * 7919u) >> (i % 13)));
    const struct {
        std::size_t size;
        uint32_t crc;
    } expected[] = {{25, 0xB3C639F0u},    {26, 0x16514669u},     {670, 0xCAC0F4DEu},
                    {41176, 0x0271DAF7u}, {173489, 0x81DE844Eu}, {1728102, 0x93E34964u},
                    {1260, 0x26470803u},  {5005, 0x4DB1C872u},   {1597458, 0x7A63F46Cu}};
    LzwCoder coder; // one coder for all: nothing carries over between blocks
    for (std::size_t k = 0; k < inputs.size(); ++k) {
        std::vector<uint8_t> out;
        coder.encode(inputs[k], out);
        EXPECT_EQ(out.size(), expected[k].size) << k;
        EXPECT_EQ(crc32(out), expected[k].crc) << k;
        if (out[0] != kMethodLzw) continue;
        std::vector<uint8_t> back;
        ASSERT_TRUE(coder.decode(std::span(out).subspan(11), get_u32(&out[5]), back));
        EXPECT_EQ(back, inputs[k]);
    }
}

TEST(Lzw, HandMadeAndForgedStreams) {
    // A clear code: the next code is a single byte and 258 is defined anew.
    const auto a = 'a' + 1u, b = 'b' + 1u;
    std::vector<uint8_t> out;
    ASSERT_TRUE(
        LzwCoder().decode(pack({{a, 9}, {b, 9}, {0, 9}, {b, 9}, {a, 9}, {258, 9}, {257, 9}}, false), 6, out));
    EXPECT_EQ(std::string(out.begin(), out.end()), "abbaba");
    const std::vector<uint8_t> keep = {7, 7};
    auto check = [&](const std::vector<uint8_t>& payload, uint32_t length) {
        std::vector<uint8_t> out2 = keep;
        EXPECT_FALSE(LzwCoder().decode(payload, length, out2));
        EXPECT_EQ(out2, keep);
    };
    check(pack({{300, 9}}, false), 4);                           // first code is not a byte
    check(pack({{a, 9}, {400, 9}}, false), 4);                   // beyond the dictionary
    check(pack({{a, 9}, {257, 9}}, false), 4);                   // ends early
    check(pack({{a, 9}, {b, 9}}, false), 4);                     // payload runs out
    check({}, 0xFFFFFFFFu);                                      // 4 GB promised, nothing given
    check(pack({{a, 9}, {a, 9}, {258, 9}, {259, 9}}, false), 3); // overruns the length
}

TEST(Dictionary, HandMadeBlocksAndEncoder) {
    // a, b (256 = "ab"), escape 0 = 256 (257 = "ba"), a, end; a, b, a, widen to 10 bits, 257, end.
    for (const auto& payload :
         {pack({{'a', 9}, {'b', 9}, {256, 9}, {0, 9}, {'a', 9}, {256, 9}, {3, 9}}, true),
          pack({{'a', 9}, {'b', 9}, {'a', 9}, {256, 9}, {2, 9}, {257, 10}, {256, 10}, {3, 10}}, true)}) {
        std::vector<uint8_t> out;
        ASSERT_TRUE(decode_block(block(kMethodDictionary, payload, 5), false, out));
        EXPECT_EQ(std::string(out.begin(), out.end()), "ababa");
    }
    for (std::size_t n : {0u, 1u, 21u, 4095u, 64001u, 1u << 20, 5000u}) {
        const auto data = n == 5000 ? test::random_bytes(n, 1) : test::mixed_bytes(n, 9);
        std::vector<uint8_t> b, back;
        encode_block(kMethodDictionary, data, b);
        if (n > 1000) {
            EXPECT_EQ(b[0], n == 5000 ? kMethodStored : kMethodDictionary) << n;
        }
        ASSERT_TRUE(decode_block(b, false, back)) << n;
        EXPECT_EQ(back, data) << n;
    }
}

TEST(Uncompress, BadInputAndCorruptShortStrings) {
    // Mode 1: unknown method, stored length beyond the data, 4 GB promised, payload beyond the data.
    std::vector<uint8_t> unknown(26, 0), stored(35, 1), beyond = block(kMethodLzw, {1, 2, 3}, 10);
    unknown[0] = 9;
    stored[0] = 0;
    put_u32(&stored[1], 0xFFFFFFFFu);
    put_u32(&beyond[1], 1000);
    const struct {
        std::vector<uint8_t> in;
        uint32_t id;
        std::vector<uint8_t> out;
    } cases[] = {
        {{}, 0, {}},
        {value(7, {0, 0, 0, 0}), kErrCompressionMode, {}},
        {{0, 1, 0}, 0, {}}, // a truncated header
        {value(1, unknown), 0, {}},
        {value(1, stored), 0, {}},
        {value(1, beyond), 0, {}},
        {value(1, block(kMethodLzw, pack({{'a' + 1u, 9}, {257, 9}}, false), 0xFFFFFFFFu)), 0, {}},
        {value(0, {100, 0, 0, 0, 1, 2, 3}), 0, {1, 2, 3}}}; // a count beyond the data gives the bytes present
    for (const auto& [in, id, out] : cases) {
        ErrorBox e;
        EXPECT_EQ(uncompress(in, e.err), out) << in.size();
        EXPECT_EQ(e.err.id(), id) << in.size();
        EXPECT_EQ(e.err.failed(), id != 0);
    }
    ErrorBox three; // mode 3 asked of the compression
    EXPECT_TRUE(compress_value(std::vector<uint8_t>{1, 2}, 0, 3, three.err).empty());
    EXPECT_EQ(three.err.id(), kErrCompressionMode);
    EXPECT_EQ(three.err.severity(), 2);
    std::vector<uint8_t> out;
    EXPECT_FALSE(short_string::decode(std::vector<uint8_t>{5, 0xFF, 0xFF, 0xFF, 0xFF, 0x0F}, out));
    EXPECT_FALSE(short_string::decode(std::vector<uint8_t>{5, 4, 0x80, 0x05}, out)); // copy before the start
    EXPECT_FALSE(short_string::decode(std::vector<uint8_t>{5, 4, 0x05, 1}, out));    // run beyond the block
    EXPECT_TRUE(out.empty());
    // Trailing padding after the last token is ignored.
    ASSERT_TRUE(short_string::decode(std::vector<uint8_t>{5, 2, 0x01, 'h', 'i', 0}, out));
    EXPECT_EQ(std::string(out.begin(), out.end()), "hi");
}

} // namespace
} // namespace kp::transforms
