// The transforms called through the component module by the reference host:
// buffers and strings in and out, names with accents, error identifiers.
#include <gtest/gtest.h>

#include <cstring>

#include "support/test_host.h"
#include "test_util.h"

using kp::host::CallStatus;
using kp::host::Value;
using kp::transforms::test::text_of;

namespace {

struct TransformsAbi : ::testing::Test {
    kp::test::HostFixture fx;
    kp::host::CallOutcome call(const char* name, std::vector<Value> args) {
        kp::host::CallOutcome out = fx.host->call(name, args);
        EXPECT_EQ(CallStatus::Ok, out.status) << name << ": " << out.detail;
        return out;
    }
    void SetUp() override { ASSERT_TRUE(fx.host->loaded()) << fx.host->load_error(); }
};

std::vector<uint8_t> bytes(const char* s) {
    return std::vector<uint8_t>(s, s + std::strlen(s));
}

// The string result of a mode without cryptAnsi comes back as a buffer,
// with cryptAnsi as a string; a bad mode gives an empty string.
TEST_F(TransformsAbi, ChecksumsCompressionAndCrypt) {
    EXPECT_EQ(static_cast<uint32_t>(call("sComputeCrc32", {Value::buffer(bytes("123456789"))}).result.i),
              0xCBF43926u);
    EXPECT_EQ(call("sCalculeCrc32", {Value::buffer({}), Value::integer(1234)}).result.i, 1234);
    EXPECT_EQ(call("sComputeCrc16", {Value::string(u"A")}).result.i, 0x3EFD);
    EXPECT_EQ(call("URLDécode", {Value::string(u"a+b%41")}).result.s, u"a bA");
    EXPECT_EQ(call("Phonétique", {Value::string(u"Dupont")}).result.s, u"DUPO");
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

} // namespace
