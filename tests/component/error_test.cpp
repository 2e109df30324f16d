// CXError: definitions, severities, system errors, messages through the VM's callback, inserts.
#include <gtest/gtest.h>

#include <string>
#include <tuple>

#include "component/error.h"
#include "component/runtime.h"

namespace {

std::u16string msg(const kp_error_record& r) {
    return std::u16string(r.message, r.message_length);
}

class ErrorTest : public ::testing::Test {
  protected:
    void SetUp() override {
        saved = kp::runtime::state();
        kp::runtime::state().message_callback = nullptr;
        kp::runtime::state().services = nullptr;
        rec.severity = KP_SEVERITY_NONE;
    }
    void TearDown() override { kp::runtime::state() = saved; }
    kp_error_record rec{};
    kp::CXError err{&rec};
    kp::runtime::State saved;
};

TEST_F(ErrorTest, DefinitionRows) {
    err.set(80260); // the first row of the identifier wins
    EXPECT_EQ(std::tuple(rec.id, rec.severity), std::tuple(80260u, KP_SEVERITY_ERROR));
    EXPECT_EQ(std::string(rec.module_name) + " " + rec.module_version, "KP120STD.DLL 12.00Dr");
    err.set(80102);
    EXPECT_EQ(rec.extra, 3u);
    err.set(80160); // a severity-one row clears the object
    EXPECT_EQ(std::tuple(rec.severity, rec.id, rec.message_length), std::tuple(KP_SEVERITY_NONE, 0u, 0u));
    err.set(99999);
    EXPECT_EQ(rec.severity, KP_SEVERITY_FATAL);
    EXPECT_EQ(msg(rec),
              u"##(CXError)-Pas de définition d'erreur dans gstErrorDef pour l'identifiant <99999>##");
}

TEST_F(ErrorTest, SeverityAndSystemErrors) {
    err.set(80121);
    uint32_t len = rec.message_length;
    err.set_severity(2);
    err.set_severity(2);
    EXPECT_EQ(std::tuple(rec.severity, rec.message_length), std::tuple(2, len));
    err.set_severity(3);
    EXPECT_EQ(rec.severity, 3);
    err.set_system(2);
    EXPECT_EQ(rec.system_code, 2u);
    EXPECT_GT(rec.system_text_length, 0u);
    err.set_system(0);
    EXPECT_EQ(rec.system_code + rec.system_text_length, 0u);
    err.set_system(2);
    err.set_severity(1); // clears everything
    EXPECT_EQ(std::tuple(rec.severity, rec.id, rec.message_length, rec.system_code),
              std::tuple(1, 0u, 0u, 0u));
    err.set_system(0xDEADBEEF); // no text for it
    EXPECT_EQ(rec.system_text_length, 0u);
    // A system failure alone (identifier 0) names the module, with the system's text as message.
    err.clear();
    err.set_system(3);
    err.set_severity(2);
    EXPECT_EQ(rec.id, 0u);
    EXPECT_STREQ(rec.module_name, "KP120STD.DLL");
    EXPECT_GT(rec.message_length, 0u);
    EXPECT_EQ(msg(rec), std::u16string(rec.system_text, rec.system_text_length));
    err.set(80121);
    const std::u16string own = msg(rec);
    err.set_system(3);
    EXPECT_EQ(msg(rec), own); // an error's own message stays
}

int g_calls = 0;
int g_sizes[4] = {};
int32_t long_callback(uint32_t number, char16_t* buffer, int32_t size) {
    if (g_calls < 4) g_sizes[g_calls] = size;
    ++g_calls;
    if (number != 4242) return 0;
    if (size < 300) return 300;
    std::u16string text(299, u'x');
    text.replace(0, 6, u"<%1!u!");
    std::copy(text.begin(), text.end(), buffer);
    buffer[text.size()] = 0;
    return static_cast<int32_t>(text.size());
}

TEST_F(ErrorTest, CallbackAskedAgainWithTheSizeItNeeds) {
    kp::runtime::state().message_callback = long_callback;
    err.set_message(4242, {7u});
    EXPECT_EQ(std::tuple(g_calls, g_sizes[0], g_sizes[1]), std::tuple(2, 256, 300));
    EXPECT_EQ(msg(rec).substr(0, 4), u"<7xx");
    EXPECT_EQ(rec.message_length, 295u);
}

TEST_F(ErrorTest, MessagesAreAppendedOnLinesOfTheirOwn) {
    err.set_message(3); // no text for it: a diagnostic
    EXPECT_EQ(msg(rec), u"##(CXError)-Ressource <3> non chargée##");
    err.clear();
    err.append_formatted(u"value %2!u!", {1u}); // cannot be formatted: kept raw
    EXPECT_EQ(msg(rec), u"\r\n##(CXError)-Message non formaté : <value %2!u!>##");
    err.set(80121);
    std::u16string first = msg(rec);
    ASSERT_FALSE(first.empty());
    err.append_formatted(u"##(IXStream)-Handle=<%1!p!>##", {reinterpret_cast<const void*>(0x1F)});
    std::u16string all = msg(rec);
    EXPECT_EQ(all.substr(0, first.size()), first);
    // A pointer insert takes a pointer's hex digits: 8 in the 32-bit build (the device's), 16 in 64.
    const std::u16string digits = sizeof(void*) == 4 ? u"0000001F" : u"000000000000001F";
    EXPECT_EQ(all.substr(first.size()), u"\r\n##(IXStream)-Handle=<" + digits + u">##");
    err.append_line(std::u16string(10000, u'a')); // longer than the record: cut
    EXPECT_EQ(rec.message_length, KP_ERROR_MESSAGE_CAPACITY - 1u);
    EXPECT_EQ(rec.message[KP_ERROR_MESSAGE_CAPACITY - 1], 0);
}

TEST(MessageFormat, InsertSyntax) {
    std::u16string out;
    ASSERT_TRUE(kp::format_message(u"<%1!u!> <%2!d!> <%3>", {4000000000u, -12, u"txt"}, out));
    EXPECT_EQ(out, u"<4000000000> <-12> <txt>");
    ASSERT_TRUE(kp::format_message(u"%1!s! and %1!s!", {u"twice"}, out));
    EXPECT_EQ(out, u"twice and twice");
    ASSERT_TRUE(kp::format_message(u"Le module %s est corrompu. The module %s", {u"A", u"B"}, out));
    EXPECT_EQ(out, u"Le module A est corrompu. The module B");
    ASSERT_TRUE(kp::format_message(u"100%% %1!04X!", {255u}, out));
    EXPECT_EQ(out, u"100% 00FF");
    EXPECT_FALSE(kp::format_message(u"%1!u!", {}, out));        // missing insert
    EXPECT_FALSE(kp::format_message(u"%1!u!", {u"text"}, out)); // text for a number
    EXPECT_FALSE(kp::format_message(u"%1!u", {1u}, out));       // unterminated format
    EXPECT_FALSE(kp::format_message(u"trailing %", {}, out));
    std::u16string t = kp::module_corrupted_message(u"KP120STD.DLL");
    EXPECT_EQ(t.substr(0, 37), u"Le module KP120STD.DLL est corrompu.\n");
    EXPECT_NE(t.find(u"The module KP120STD.DLL is corrupted."), std::u16string::npos);
}

} // namespace
