// The error definition table, the message catalogue and the system texts.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <tuple>
#include <vector>

#include "component/error.h"
#include "kp120/vm.h"
#include "support/test_host.h"

namespace {

std::span<const kp::ErrorDef> table() {
    std::size_t n = 0;
    const kp::ErrorDef* rows = kp::error_defs(&n);
    return {rows, n};
}

// Every identifier a family raises (a new one adds itself here and a row to the table).
const std::vector<uint32_t> kRaised = {
    80001, 80002, 80021, 80022, 80023, 80041, 80042, 80058, 80059, 80060, 80061, 80065, 80066, 80067,
    80600, 80051, 80120, 80121, 80122, 80123, 80124, 80125, 80126, 80127, 80128, 80129, 80130, 80131,
    80132, 80134, 80135, 80190, 80191, 80192, 80202, 80203, 80204, 80210, 80260, 81507, 80229, 80253,
    80254, 80280, 80281, 80282, 80550, 80290, 80291, 80292, 80293, 80294, 80700, 80800, 80100, 80101,
    80102, 80103, 80104, 80105, 80106, 80107, 80108, 80400, 80500, 80501, 80502, 80070, 80160, 80182};

// Identifiers 80001..81507 increasing, except the second 80260 row and 80070 last; only
// the two outcome rows at severity 1; a lookup takes the first row of an identifier.
TEST(ErrorTable, ShapeOrderAndLookupOfTheRows) {
    auto rows = table();
    ASSERT_GE(rows.size(), 2u);
    EXPECT_EQ(rows.front().id, 80001u);
    EXPECT_EQ(rows.back().id, 80070u);
    EXPECT_EQ(rows[rows.size() - 2].id, 81507u);
    std::map<uint32_t, const kp::ErrorDef*> first;
    for (std::size_t i = 0; i < rows.size(); ++i) {
        const auto& row = rows[i];
        SCOPED_TRACE(row.id);
        EXPECT_TRUE(row.id >= 80001 && row.id <= 81507);
        EXPECT_TRUE(row.severity >= 1 && row.severity <= 3);
        EXPECT_EQ(row.severity == 1, row.id == 80160 || row.id == 80182);
        const bool ordered = i == 0 || i + 1 == rows.size() || (row.id == 80260 && rows[i - 1].id == 80260);
        EXPECT_TRUE(ordered || rows[i - 1].id < row.id) << "row " << i << " after " << rows[i - 1].id;
        first.emplace(row.id, &row);
        EXPECT_EQ(kp::find_error_def(row.id), first[row.id]);
    }
    EXPECT_EQ(first.size(), rows.size() - 1) << "80260 alone has two rows";
    const kp::ErrorDef* r = first[80260];
    EXPECT_EQ(std::tuple(r->message, r->severity, r[1].id, r[1].message, r[1].severity),
              std::tuple(2224u, 2, 80260u, 872u, 3));
}

// Every raised identifier has a row; those of bad arguments or refusals are not fatal.
TEST(ErrorTable, RaisedIdentifiersHaveRowsAndUnknownOnesNone) {
    for (uint32_t id : kRaised)
        EXPECT_NE(kp::find_error_def(id), nullptr) << id;
    for (uint32_t id :
         {80022u, 80023u, 80059u, 80060u, 80065u, 80066u, 80067u, 80600u, 80121u, 80126u, 80127u,
          80128u, 80132u, 80134u, 80191u, 80192u, 80202u, 80210u, 80260u, 80280u, 80282u, 80290u,
          80291u, 80293u, 80294u, 80400u, 80500u, 80550u, 80700u, 80800u, 81507u}) {
        const kp::ErrorDef* def = kp::find_error_def(id);
        ASSERT_NE(def, nullptr) << id;
        EXPECT_EQ(def->severity, 2) << id;
    }
    for (uint32_t id : {0u, 1u, 80000u, 80999u, 81506u, 81508u, 99999u, 0xFFFFFFFFu})
        EXPECT_EQ(kp::find_error_def(id), nullptr) << id;
    EXPECT_NE(kp::error_defs(nullptr), nullptr); // a null count is allowed
}

// Two identifiers never share a message number, nor use the families' own numbers.
TEST(ErrorTable, MessageNumbersBelongToOneIdentifier) {
    std::map<uint32_t, uint32_t> owner;
    for (const auto& row : table()) {
        if (row.message == 0) continue;
        EXPECT_EQ(owner.emplace(row.message, row.id).first->second, row.id) << "message " << row.message;
        EXPECT_FALSE(row.message >= 25000 && row.message < 29000)
            << row.id << " uses message " << row.message;
    }
}

struct ErrorObject {
    kp_error_record rec{};
    kp::CXError err{&rec};
    ErrorObject() { rec.severity = KP_SEVERITY_NONE; }
    std::u16string message() const { return std::u16string(err.message()); }
};

// Every row formats without a diagnostic given numbers (printed in decimal in text
// inserts); textless rows record no message; outcome rows leave the object clear.
TEST(AppliedRows, EveryRowAppliesCleanly) {
    for (const auto& row : table()) {
        SCOPED_TRACE(row.id);
        ErrorObject e;
        e.err.set(row.id, {1, 2, 3});
        if (row.severity == KP_SEVERITY_NONE) {
            EXPECT_FALSE(e.err.failed());
            continue;
        }
        EXPECT_EQ(e.err.id(), row.id);
        EXPECT_EQ(e.err.severity(), kp::find_error_def(row.id)->severity);
        EXPECT_EQ(e.message().find(u"##(CXError)"), std::u16string::npos);
        EXPECT_EQ(e.message().empty(), row.message == 0);
    }
}

using Shape = std::map<int, char>; // insert number -> 's', 'u', 'd' or 'p'

// The inserts of a text: "%N" or "%N!s!" text, "%N!u!", "%N!d!", "%N!p!" numbers, "%%".
// Anything else after "%", a digit after a bare "%N", one insert of two types, a gap: malformed.
std::optional<Shape> inserts_of(std::u16string_view text) {
    Shape shape;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != u'%') continue;
        if (++i >= text.size()) return std::nullopt;
        if (text[i] == u'%') continue;
        if (text[i] < u'1' || text[i] > u'9') return std::nullopt;
        int n = text[i] - u'0';
        if (i + 1 < text.size() && text[i + 1] >= u'0' && text[i + 1] <= u'9') return std::nullopt;
        char type = 's';
        if (i + 1 < text.size() && text[i + 1] == u'!') {
            if (i + 3 >= text.size() || text[i + 3] != u'!') return std::nullopt;
            char16_t t = text[i + 2];
            if (t != u's' && t != u'u' && t != u'd' && t != u'p') return std::nullopt;
            type = static_cast<char>(t);
            i += 3;
        }
        auto [it, fresh] = shape.emplace(n, type);
        if (!fresh && it->second != type) return std::nullopt;
    }
    int expected = 1;
    for (const auto& [n, type] : shape)
        if (n != expected++) return std::nullopt;
    return shape;
}

// What the callers pass, by the inserts' shape; every other text takes none.
const std::vector<std::pair<Shape, std::vector<uint32_t>>> kCallerInserts = {
    // file handle, last day of the month, year, day number, largest rate
    {{{1, 'd'}}, {30022, 30126, 30127, 30132, 30192}},
    // file names, character, key path, INI file, relative name
    {{{1, 's'}},
     {30060, 30067, 30128, 30291, 30294, 30600, 28001, 28002, 28003, 28004, 28005, 28008, 28123, 28139,
      28140}},
    // source and destination, command line and system text
    {{{1, 's'}, {2, 's'}}, {30065, 30400, 28124, 28125}},
    {{{1, 's'}, {2, 'd'}}, {30290}},           // key or section, integer
    {{{1, 's'}, {2, 's'}, {3, 's'}}, {30293}}, // key, value, system text
    {{{1, 'u'}, {2, 'u'}}, {28145, 28146}},    // position, count
    {{{1, 's'}, {2, 's'}, {3, 's'}, {4, 's'}, {5, 's'}, {6, 's'}, {7, 's'}}, {28117, 28567}},
};

Shape caller_inserts(uint32_t number) {
    for (const auto& [shape, numbers] : kCallerInserts)
        if (std::find(numbers.begin(), numbers.end(), number) != numbers.end()) return shape;
    return {};
}

// Numbers the families use directly, besides the error rows.
const std::vector<uint32_t> kFamilyMessages = {
    872,   2224,  25202, 28001, 28002, 28003, 28004, 28005, 28008, 28117, 28123, 28124, 28125, 28135,
    28139, 28140, 28145, 28146, 28253, 28255, 28256, 28279, 28567, 28577, 28578, 28579, 28580, 28581};

std::vector<uint32_t> all_numbers() {
    std::set<uint32_t> numbers(kFamilyMessages.begin(), kFamilyMessages.end());
    std::size_t n = 0;
    const kp::ErrorDef* rows = kp::error_defs(&n);
    for (std::size_t i = 0; i < n; ++i)
        if (rows[i].message) numbers.insert(rows[i].message);
    return {numbers.begin(), numbers.end()};
}

// Every number has a text in both languages with its callers' inserts; no other number has one.
TEST(Catalogue, EveryNumberHasBothTextsWithTheCallersInserts) {
    for (uint32_t number : all_numbers()) {
        Shape expected = caller_inserts(number);
        for (bool french : {true, false}) {
            SCOPED_TRACE(testing::Message() << number << (french ? " (fr)" : " (en)"));
            const char16_t* text = kp::catalogue_text(number, french);
            ASSERT_NE(text, nullptr);
            EXPECT_FALSE(std::u16string_view(text).empty());
            auto shape = inserts_of(text);
            ASSERT_TRUE(shape.has_value()) << "malformed";
            EXPECT_EQ(*shape, expected);
            // Every insert shows, up to the seven of the release-check texts.
            std::u16string out;
            ASSERT_TRUE(kp::format_message(text, {1001, 1002, 1003, 1004, 1005, 1006, 1007}, out));
            for (std::size_t k = 1; k <= expected.size(); ++k)
                EXPECT_NE(out.find(u"100" + std::u16string(1, char16_t(u'0' + k))), std::u16string::npos)
                    << k;
        }
    }
    for (uint32_t number : {0u, 1u, 871u, 873u, 28000u, 28006u, 29999u, 30000u, 31508u, 0xFFFFFFFFu})
        EXPECT_EQ(kp::catalogue_text(number, true) || kp::catalogue_text(number, false), false) << number;
}

// The size functions split units on ';'; the duration masks need distinct letters.
TEST(Catalogue, TextsOtherFamiliesParse) {
    EXPECT_EQ(std::u16string(kp::catalogue_text(25202, true)), u"octets;Ko;Mo;Go;To");
    EXPECT_EQ(std::u16string(kp::catalogue_text(25202, false)), u"bytes;KB;MB;GB;TB");
    std::u16string fr, en;
    for (uint32_t i = 0; i < 5; ++i)
        fr += kp::catalogue_text(28577 + i, true), en += kp::catalogue_text(28577 + i, false);
    EXPECT_EQ(fr, u"JHMSL");
    EXPECT_EQ(en, u"DHMSL");
}

TEST(SystemText, EveryMappedCodeHasBothTextsAndNoOtherHasOne) {
    // The codes of platform/win32_error.h, then the registry and process codes recorded.
    for (uint32_t code :
         {1u,    2u,    3u,    4u,    5u,    6u,    8u,    13u,   14u,   15u,  16u,   17u,   18u,
          19u,   32u,   33u,   38u,   50u,   80u,   87u,   109u,  112u,  120u, 122u,  123u,  131u,
          145u,  158u,  161u,  170u,  183u,  206u,  234u,  259u,  267u,  288u, 1314u, 1901u, 1006u,
          1460u, 1921u, 1009u, 1010u, 1011u, 1012u, 1013u, 1018u, 1155u, 534u, 997u}) {
        for (bool french : {true, false}) {
            std::u16string text = kp::system_error_text(code, french);
            ASSERT_FALSE(text.empty()) << code;
            EXPECT_EQ(text.back(), u'.') << code << ": no line end after the sentence";
            EXPECT_FALSE(inserts_of(text).value_or(Shape{{1, '?'}}).size()) << code;
        }
    }
    EXPECT_EQ(kp::system_error_text(2, false), u"The system cannot find the file specified.");
    EXPECT_EQ(kp::system_error_text(5, true), u"Accès refusé.");
    for (uint32_t code : {7u, 9999u, 0x80004005u, 0xFFFFFFFFu}) {
        EXPECT_TRUE(kp::system_error_text(code, false).empty()) << code;
        EXPECT_TRUE(kp::system_error_text(code, true).empty()) << code;
    }
}

// Through the loaded module, catalogue and system texts follow the interface language.
TEST(HostMessages, TextsInBothLanguages) {
    using kp::host::Value;
    for (int32_t language : {0, 1}) {
        kp::test::HostFixture fx(language);
        ASSERT_TRUE(fx.host->loaded()) << fx.host->load_error();
        auto call = [&](const char* name, std::vector<Value> args) { return fx.host->call(name, args); };
        auto out = call("Random", {Value::integer(0)});
        ASSERT_EQ(out.status, kp::host::CallStatus::Ok) << out.detail;
        EXPECT_EQ(std::tuple(out.error.id, out.error.severity, out.error.message),
                  std::tuple(80260u, 2, std::u16string(kp::catalogue_text(2224, language == 0))));
        out = call("fOpen", {Value::string(u"/missing/file.txt"), Value::integer(1)});
        EXPECT_EQ(out.result.i, -1);
        ASSERT_NE(out.error.system_code, 0u);
        EXPECT_EQ(out.error.system_text, kp::system_error_text(out.error.system_code, language == 0));
        EXPECT_FALSE(out.error.system_text.empty()) << out.error.system_code;
        if (language == 0) { // an insert in a French text
            out = call("fOpen", {Value::string(u"notes.txt")});
            EXPECT_EQ(std::tuple(out.error.id, out.error.message),
                      std::tuple(80600u, u"Le nom « notes.txt » doit être un chemin complet."));
        }
    }
}

} // namespace
