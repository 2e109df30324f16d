// The transforms through the module: buffers and strings, accented names, error identifiers,
// fCrypt and fUncrypt on a temporary device.
#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <numeric>
#include <tuple>

#include "component/error.h"
#include "support/test_host.h"
#include "test_util.h"
#include "transforms/bytes.h"
#include "transforms/cipher.h"
#include "transforms/encodings.h"

namespace kp::transforms {
namespace {

using kp::host::CallOutcome;
using kp::host::CallStatus;
using kp::host::Value;
using test::text_of;

class TransformsAbi : public ::testing::Test {
  protected:
    kp::test::HostFixture fx;
    void SetUp() override { ASSERT_TRUE(fx.host->loaded()) << fx.host->load_error(); }

    void put(const std::string& rel, const std::vector<uint8_t>& bytes) {
        std::ofstream f(fx.device() / rel, std::ios::binary | std::ios::trunc);
        f.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    }
    std::vector<uint8_t> get(const std::string& rel) const {
        std::ifstream f(fx.device() / rel, std::ios::binary);
        return std::vector<uint8_t>(std::istreambuf_iterator<char>(f), std::istreambuf_iterator<char>());
    }
    std::size_t entries() const {
        return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator(fx.device()), {}));
    }
    CallOutcome call(const char* name, std::vector<Value> args) {
        CallOutcome out = fx.host->call(name, args);
        EXPECT_EQ(CallStatus::Ok, out.status) << name << ": " << out.detail;
        return out;
    }
    CallOutcome run(const char* name, const char16_t* from, const char16_t* to, const char16_t* pw, int mode,
                    int encoding) {
        std::vector<Value> args = {Value::string(from), Value::string(to), Value::string(pw),
                                   Value::integer(mode), Value::integer(encoding)};
        return fx.host->call(name, args);
    }
};

std::vector<uint8_t> bytes(const char* s) {
    return std::vector<uint8_t>(s, s + std::strlen(s));
}

// Handlers with logic of their own: without cryptAnsi a buffer, with it a string, a bad mode "".
TEST_F(TransformsAbi, ChecksumsCompressionAndCrypt) {
    EXPECT_EQ(static_cast<uint32_t>(call("sComputeCrc32", {Value::buffer(bytes("123456789"))}).result.i),
              0xCBF43926u);
    EXPECT_EQ(call("sCalculeCrc32", {Value::buffer({}), Value::integer(1234)}).result.i, 1234);
    const auto data = bytes("a buffer that repeats, a buffer that repeats, a buffer that repeats");
    auto packed = call("Compress", {Value::buffer(data)});
    ASSERT_EQ(packed.result.kind, Value::Kind::Buffer);
    EXPECT_EQ(packed.result.bytes[0] | packed.result.bytes[5] << 8, 0x400); // a buffer, an LZW block
    EXPECT_EQ(call("Uncompress", {Value::buffer(packed.result.bytes)}).result.bytes, data);
    auto str = call("Compress", {Value::string(u"short")});
    EXPECT_EQ(str.result.bytes.size(), 5u + 5 + 4 + 10);
    EXPECT_EQ(str.result.bytes[0], 2);
    EXPECT_EQ(text_of(call("Uncompress", {Value::buffer(str.result.bytes)}).result.bytes), u"short");

    auto c = call("Crypt", {Value::string(u"secret message"), Value::string(u"pw")});
    ASSERT_EQ(c.result.kind, Value::Kind::Buffer);
    const std::u16string qrt = text_of(c.result.bytes); // default encodeQRT
    EXPECT_EQ(qrt.find(u'='), std::u16string::npos);
    auto u = call("Uncrypt", {Value::string(qrt), Value::string(u"pw")});
    ASSERT_EQ(u.result.kind, Value::Kind::Buffer);
    EXPECT_EQ(text_of(u.result.bytes), u"secret message");
    const Value ansi = Value::integer(0x4000002 | 0x10000), qrt_number = Value::integer(2);
    auto e = call("Crypte", {Value::string(u"\u00E9t\u00E9"), Value::string(u"pw"), ansi, qrt_number});
    auto back =
        call("Décrypte", {Value::string(text_of(e.result.bytes)), Value::string(u"pw"), ansi, qrt_number});
    ASSERT_EQ(back.result.kind, Value::Kind::String);
    EXPECT_EQ(back.result.s, u"\u00E9t\u00E9");
    auto bad = call("Crypt", {Value::string(u"x"), Value::string(u"pw"), Value::integer(4)});
    EXPECT_EQ(bad.error.id, 80280u);
    EXPECT_TRUE(bad.result.kind == Value::Kind::String && bad.result.s.empty());
}

TEST_F(TransformsAbi, FileCryptFormatIsSumThenChunksOf64000) {
    const auto data = test::random_bytes(64001, 31);
    put("plain.bin", data);
    auto out = run("fCrypt", u"\\plain.bin", u"\\secret.bin", u"pw", 2, 0);
    ASSERT_TRUE(out.result.b) << out.error.id;
    const auto file = get("secret.bin");
    ASSERT_EQ(file.size(), 64005u);
    EXPECT_EQ(get_u32(file.data()), std::accumulate(data.begin(), data.end(), 0u));

    // Each chunk is enciphered on its own: the last byte is a one-byte tail chained on 0.
    Rc5CbcCipher c(8);
    c.set_password(u"pw");
    auto first = std::vector<uint8_t>(data.begin(), data.begin() + 64000);
    c.encrypt(first);
    EXPECT_TRUE(std::equal(first.begin(), first.end(), file.begin() + 4));
    std::vector<uint8_t> last = {data.back()};
    c.encrypt(last);
    EXPECT_EQ(file.back(), last[0]);

    out = run("fUncrypt", u"\\secret.bin", u"\\back.bin", u"pw", 2, 0);
    ASSERT_TRUE(out.result.b) << out.error.id;
    EXPECT_EQ(get("back.bin"), data);
}

TEST_F(TransformsAbi, FileCryptRoundTripsEveryModeAndEncoding) {
    for (std::size_t n : {0u, 1u, 2u, 21u, 64000u, 64001u, 200000u}) {
        const auto data = test::random_bytes(n, static_cast<uint32_t>(n));
        put("in.bin", data);
        for (int mode = 0; mode <= 3; ++mode)
            for (int encoding = 0; encoding <= 3; ++encoding) {
                if (encoding == kEncodeUu && n + (mode ? 4 : 0) > 45)
                    continue; // uu reads back 45 bytes at most
                SCOPED_TRACE(testing::Message() << n << " " << mode << " " << encoding);
                ASSERT_TRUE(run("fCrypte", u"\\in.bin", u"\\enc.txt", u"mot", mode, encoding).result.b);
                ASSERT_TRUE(run("fDécrypte", u"\\enc.txt", u"\\out.bin", u"mot", mode, encoding).result.b);
                ASSERT_EQ(get("out.bin"), data);
                EXPECT_EQ(entries(), 3u); // no temporary file left behind
            }
    }
}

TEST_F(TransformsAbi, FileCryptCopiesTextWrongPasswordAndErrors) {
    const auto data = test::random_bytes(100, 2);
    put("a.bin", data);
    ASSERT_TRUE(run("fCrypt", u"\\a.bin", u"\\copy.bin", u"", 0, 0).result.b);
    EXPECT_EQ(get("copy.bin"), data);
    ASSERT_TRUE(run("fCrypt", u"\\a.bin", u"\\a.b64", u"", 0, 2).result.b);
    const auto text = get("a.b64");
    EXPECT_EQ(std::u16string(text.begin(), text.end()), make_encoder(2)->encode(data));
    const auto data2 = test::random_bytes(5000, 3);
    put("a.bin", data2);
    ASSERT_TRUE(run("fCrypt", u"\\a.bin", u"\\a.enc", u"right", 2, 0).result.b);
    auto out = run("fUncrypt", u"\\a.enc", u"\\a.out", u"wrong", 2, 0);
    EXPECT_FALSE(out.result.b);
    EXPECT_EQ(out.error.severity, 2);
    EXPECT_NE(out.error.message.find(kp::catalogue_text(28279, false)), std::u16string::npos);
    EXPECT_EQ(get("a.out").size(), data2.size()); // left in place, deliberately
    EXPECT_NE(get("a.out"), data2);
    put("a.bin", {1, 2, 3});
    put("short.enc", {1, 2}); // too short to hold its sum
    // Function, source, password, mode, encoding, error identifier, system code.
    const std::tuple<const char*, const char16_t*, const char16_t*, int, int, uint32_t, uint32_t> errors[] = {
        {"fCrypt", u"\\a.bin", u"pw", 5, 0, 80280, 0},  {"fUncrypt", u"\\a.bin", u"pw", -1, 0, 80280, 0},
        {"fCrypt", u"\\a.bin", u"", 1, 0, 80282, 0},    {"fUncrypt", u"\\a.bin", u"", 2, 0, 80282, 0},
        {"fCrypt", u"\\a.bin", u"pw", 1, 9, 80041, 0},  {"fCrypt", u"\\missing.bin", u"pw", 1, 0, 0, 2},
        {"fUncrypt", u"\\short.enc", u"pw", 1, 0, 0, 0}};
    for (const auto& [name, from, pw, mode, encoding, id, code] : errors) {
        const auto out = run(name, from, u"\\b", pw, mode, encoding);
        EXPECT_EQ(std::tuple(out.result.b, out.error.severity, out.error.system_code),
                  std::tuple(false, 2, code));
        EXPECT_EQ(out.error.id, id ? id : out.error.id) << name << " " << mode << " " << encoding;
    }
}

} // namespace
} // namespace kp::transforms
