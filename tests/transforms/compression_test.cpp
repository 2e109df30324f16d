#include <gtest/gtest.h>

#include <map>
#include <random>
#include <set>

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

std::vector<uint8_t> value_header(uint8_t kind, uint32_t mode) {
    std::vector<uint8_t> v{kind};
    append_u32(v, mode);
    return v;
}

TEST(Compress, StoredAndLzwBlocksBehindTheHeader) {
    ErrorBox e;
    const std::vector<uint8_t> data = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10};
    const auto out = compress(data, false, e.err);
    ASSERT_EQ(out.size(), 24u);
    EXPECT_EQ(out[0], 0);            // buffer
    EXPECT_EQ(get_u32(&out[1]), 1u); // compressLZW
    EXPECT_EQ(out[5], 0);            // stored block
    EXPECT_EQ(get_u32(&out[6]), 14u);
    EXPECT_EQ(get_u32(&out[10]), 10u);
    EXPECT_TRUE(std::equal(data.begin(), data.end(), out.begin() + 14));
    EXPECT_EQ(compress(data, true, e.err)[0], 2);
    EXPECT_EQ(uncompress(out, e.err), data);
    EXPECT_FALSE(e.err.failed());
    ErrorBox e2;
    const auto text = test::mixed_bytes(1 << 20, 11);
    const auto out2 = compress(text, false, e2.err);
    EXPECT_EQ(out2[5], kMethodLzw);
    EXPECT_EQ(get_u32(&out2[6]), out2.size() - 5 - 11);
    EXPECT_EQ(get_u32(&out2[10]), text.size() + 4);
    EXPECT_LT(out2.size(), text.size() * 3 / 4);
    for (std::size_t n : {20u, 64u, 64000u}) {
        const auto noise = compress(test::random_bytes(n, 5), false, e2.err);
        EXPECT_EQ(noise[5], kMethodStored) << n;
        EXPECT_EQ(noise.size(), 5 + 5 + 4 + n);
    }
}

TEST(Compress, RoundTripsEveryModeAndSize) {
    for (std::size_t n : test::round_trip_sizes()) {
        for (int kind = 0; kind < 2; ++kind) {
            const auto data =
                kind ? test::mixed_bytes(n, static_cast<uint32_t>(n)) : test::random_bytes(n, 3);
            for (uint32_t mode = 0; mode <= 2; ++mode) {
                ErrorBox e;
                const auto packed = compress_value(data, kKindBuffer, mode, e.err);
                const auto back = uncompress_value(packed, mode == 2 ? 2 : -1, e.err);
                ASSERT_EQ(back, data) << "size " << n << " mode " << mode << " kind " << kind;
                ASSERT_FALSE(e.err.failed());
                if (mode == 2) {
                    EXPECT_LE(packed.size(), 3 * n + 4); // 1.5 x n + 2 characters
                }
            }
        }
    }
}

TEST(Lzw, LiteralCodesOfKnownInputs) {
    const std::vector<uint8_t> data(40, 0xFF);
    std::vector<uint8_t> out;
    LzwCoder().encode(data, out);
    ASSERT_EQ(out[0], kMethodLzw);
    EXPECT_EQ(out[11], 0x00); // 256 in 9 bits, least significant bit first
    EXPECT_EQ(out[12] & 1, 1);
    std::vector<uint8_t> back;
    ASSERT_TRUE(LzwCoder().decode(std::span(out).subspan(11), 40, back));
    EXPECT_EQ(back, data);
    // a b ab aba ba bab abab ababa b, then the end code; all 9 bits wide.
    const std::string text = "ababababababababababab";
    std::vector<uint8_t> out2;
    LzwCoder().encode(std::vector<uint8_t>(text.begin(), text.end()), out2);
    const auto a = 'a' + 1u, b = 'b' + 1u;
    const auto codes =
        pack({{a, 9}, {b, 9}, {258, 9}, {260, 9}, {259, 9}, {262, 9}, {261, 9}, {264, 9}, {b, 9}, {257, 9}},
             false);
    ASSERT_EQ(out2.size(), 11 + codes.size());
    EXPECT_EQ(out2[0], kMethodLzw);
    EXPECT_EQ(get_u32(&out2[1]), codes.size());
    EXPECT_EQ(get_u32(&out2[5]), text.size());
    EXPECT_EQ(std::vector<uint8_t>(out2.begin() + 11, out2.end()), codes);
}

// The encoder's blocks are a stored format: these inputs (short, filling
// the dictionary many times over, one long run, incompressible, periodic)
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

// The encoder written plainly: a map for the dictionary, a set for the
// format's table, codes written one at a time.
std::vector<uint8_t> plain_lzw(const std::vector<uint8_t>& in) {
    std::vector<uint8_t> out;
    const std::size_t n = in.size();
    if (n < LzwCoder::kMinInput) {
        append_stored_block(in, out);
        return out;
    }
    std::map<uint32_t, uint32_t> dict;
    std::set<uint32_t> taken;
    std::vector<uint8_t> codes;
    uint32_t width = 9, threshold = 512, next = 258;
    uint64_t buf = 0;
    unsigned bits = 0;
    double best = 0;
    auto emit = [&](uint32_t code) {
        for (buf |= uint64_t{code} << bits, bits += width; bits >= 8; bits -= 8, buf >>= 8)
            codes.push_back(static_cast<uint8_t>(buf));
    };
    auto reset = [&] {
        dict.clear(), taken.clear();
        width = 9, threshold = 512, next = 258, best = 0;
    };
    auto paying = [&] { return 11 + codes.size() < n + 3; };
    std::size_t i = 0;
    while (i < n && paying()) {
        uint32_t cur = in[i++] + 1u;
        for (auto it = i < n ? dict.find(cur << 8 | in[i]) : dict.end(); it != dict.end();
             it = i < n ? dict.find(cur << 8 | in[i]) : dict.end())
            cur = it->second, ++i;
        emit(cur);
        if (!paying()) break;
        const uint32_t byte = i < n ? in[i] : 15u;
        if (next == 65536) {
            const double ratio = (1.0 - static_cast<double>(codes.size()) / static_cast<double>(i)) * 100.0;
            best = std::max(best, ratio);
            if (best > ((100.0 - best) * 0.01 < 0.2 ? 0.2 : 0.0) + ratio) emit(0), reset();
            continue;
        }
        uint32_t s = ((byte * 256u + cur) * 2u + 1u) & 0x1FFFFu;
        for (uint32_t k = 0; taken.count(s) && k <= 10; ++k)
            s = k == 10 ? ~0u : ((s + k + 1019u) & 0xFFFFu) * 2u;
        if (s == ~0u) {
            if (width < 16 && next == threshold) ++width;
            emit(0), reset();
            continue;
        }
        taken.insert(s);
        dict[cur << 8 | byte] = next++;
        if (width < 16 && next > threshold) threshold *= 2, ++width;
    }
    if (paying()) emit(257);
    if (bits > 0) codes.push_back(static_cast<uint8_t>(buf));
    if (!paying()) {
        append_stored_block(in, out);
        return out;
    }
    out = {kMethodLzw, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};
    put_u32(&out[1], static_cast<uint32_t>(codes.size()));
    put_u32(&out[5], static_cast<uint32_t>(n));
    out.insert(out.end(), codes.begin(), codes.end());
    return out;
}

// The encoder against the plain one on inputs of every kind: random sizes
// of text with binary stretches, of a few distinct bytes (long matches,
// dense dictionaries), of random bytes (stored blocks).
TEST(Lzw, EncoderMatchesThePlainOneOnRandomInputs) {
    std::mt19937 rng(27);
    LzwCoder coder;
    for (int round = 0; round < 24; ++round) {
        const std::size_t size = rng() % (round < 12 ? 5000 : 400000);
        std::vector<uint8_t> in = test::mixed_bytes(size, rng());
        if (round % 3 == 1)
            for (auto& b : in)
                b = static_cast<uint8_t>(b % (2 + round));
        if (round % 6 == 2) in = test::random_bytes(size, rng());
        std::vector<uint8_t> out;
        coder.encode(in, out);
        ASSERT_EQ(out, plain_lzw(in)) << "round " << round << ", " << size << " bytes";
    }
}

TEST(Lzw, PeriodsHandMadeAndForgedStreams) {
    // Strings that repeat themselves (code = next free code) and overlapping
    // copies at every short distance.
    for (std::size_t period : {1u, 2u, 3u, 15u, 16u, 17u, 250u}) {
        std::vector<uint8_t> data(1 << 20), packed, back;
        for (std::size_t i = 0; i < data.size(); ++i)
            data[i] = static_cast<uint8_t>(i % period * 7);
        LzwCoder().encode(data, packed);
        ASSERT_EQ(packed[0], kMethodLzw);
        ASSERT_TRUE(decode_block(packed, false, back)) << period;
        ASSERT_EQ(back, data) << period;
    }
    // a, b (258 = "ab"), 258, then 260 before it exists: the previous string
    // followed by its own first byte ("ab" + "a").
    const auto a = 'a' + 1u, b = 'b' + 1u;
    auto p = pack({{a, 9}, {b, 9}, {258, 9}, {260, 9}, {257, 9}}, false);
    std::vector<uint8_t> out;
    ASSERT_TRUE(LzwCoder().decode(p, 7, out));
    EXPECT_EQ(std::string(out.begin(), out.end()), "abababa");

    // A clear code: the next code is a single byte and 258 is defined anew.
    p = pack({{a, 9}, {b, 9}, {0, 9}, {b, 9}, {a, 9}, {258, 9}, {257, 9}}, false);
    out.clear();
    ASSERT_TRUE(LzwCoder().decode(p, 6, out));
    EXPECT_EQ(std::string(out.begin(), out.end()), "abbaba");
    const std::vector<uint8_t> keep = {7, 7};
    auto check = [&](const std::vector<uint8_t>& payload, uint32_t length) {
        std::vector<uint8_t> out2 = keep;
        EXPECT_FALSE(LzwCoder().decode(payload, length, out2));
        EXPECT_EQ(out2, keep);
    };
    check(pack({{300, 9}}, false), 4);                                         // first code is not a byte
    check(pack({{'a' + 1u, 9}, {400, 9}}, false), 4);                          // beyond the dictionary
    check(pack({{'a' + 1u, 9}, {257, 9}}, false), 4);                          // ends early
    check(pack({{'a' + 1u, 9}, {'b' + 1u, 9}}, false), 4);                     // payload runs out2
    check({}, 0xFFFFFFFFu);                                                    // 4 GB promised, nothing given
    check(pack({{'a' + 1u, 9}, {'a' + 1u, 9}, {258, 9}, {259, 9}}, false), 3); // overruns the length
}

TEST(Dictionary, HandMadeBlocksAndEncoder) {
    // a, b (adds 256 = "ab"), escape 0 = code 256 (adds 257 = "ba"), a, end.
    const auto payload = pack({{'a', 9}, {'b', 9}, {256, 9}, {0, 9}, {'a', 9}, {256, 9}, {3, 9}}, true);
    std::vector<uint8_t> out;
    ASSERT_TRUE(decode_block(block(kMethodDictionary, payload, 5), false, out));
    EXPECT_EQ(std::string(out.begin(), out.end()), "ababa");

    // a, b, a (257 = "ba"), widen to 10 bits, 257, end at 10 bits.
    const auto wide =
        pack({{'a', 9}, {'b', 9}, {'a', 9}, {256, 9}, {2, 9}, {257, 10}, {256, 10}, {3, 10}}, true);
    out.clear();
    ASSERT_TRUE(decode_block(block(kMethodDictionary, wide, 5), false, out));
    EXPECT_EQ(std::string(out.begin(), out.end()), "ababa");
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
    ErrorBox e;
    EXPECT_TRUE(uncompress({}, e.err).empty());
    EXPECT_FALSE(e.err.failed());
    // Mode field 7, and mode 3 asked of the compression.
    auto v = value_header(0, 7);
    append_u32(v, 0);
    EXPECT_TRUE(uncompress(v, e.err).empty());
    EXPECT_EQ(e.err.id(), kErrCompressionMode);
    ErrorBox three;
    EXPECT_TRUE(compress_value(std::vector<uint8_t>{1, 2}, 0, 3, three.err).empty());
    EXPECT_EQ(three.err.id(), kErrCompressionMode);
    EXPECT_EQ(three.err.severity(), 2);

    // Behind a header of mode 1: an unknown method, a stored length beyond
    // the data, 4 GB promised by an LZW block, a payload length beyond the data.
    std::vector<uint8_t> unknown(26, 0), stored(35, 1);
    unknown[0] = 9;
    stored[0] = 0;
    put_u32(&stored[1], 0xFFFFFFFFu);
    auto beyond = block(kMethodLzw, {1, 2, 3}, 10);
    put_u32(&beyond[1], 1000);
    for (const auto& body :
         {std::vector<uint8_t>{}, unknown, stored,
          block(kMethodLzw, pack({{'a' + 1u, 9}, {257, 9}}, false), 0xFFFFFFFFu), beyond}) {
        auto value =
            body.empty() ? std::vector<uint8_t>{0, 1, 0} : value_header(0, 1); // or a truncated header
        value.insert(value.end(), body.begin(), body.end());
        ErrorBox e2;
        EXPECT_TRUE(uncompress(value, e2.err).empty()) << value.size();
        EXPECT_FALSE(e2.err.failed());
    }
    // A count beyond the data gives the bytes present.
    auto s = value_header(0, 0);
    append_u32(s, 100);
    s.insert(s.end(), {1, 2, 3});
    EXPECT_EQ(uncompress(s, e.err), (std::vector<uint8_t>{1, 2, 3}));
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
