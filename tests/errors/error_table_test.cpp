// The error definition table: its shape, its special rows and their order,
// the identifiers the families raise, and its rows applied through the error
// object (the text, extra code and severity a program sees after a failure).
#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <span>
#include <string>
#include <vector>

#include "component/error.h"
#include "kp120/vm.h"

namespace {

std::span<const kp::ErrorDef> table() {
    std::size_t n = 0;
    const kp::ErrorDef* rows = kp::error_defs(&n);
    return {rows, n};
}

// Every identifier a family raises.  A family that starts raising a new
// identifier adds it here and a row to the table.
// (No text of their own; files; dates; currency; numbers, colours, sizes;
// phonetic key; table export; encryption; INI, registry, parameters;
// processes; regular expressions; the special rows.)
const std::vector<uint32_t> kRaised = {
    80001, 80002, 80021, 80022, 80023, 80041, 80042, 80058, 80059, 80060, 80061, 80065, 80066, 80067,
    80600, 80051, 80120, 80121, 80122, 80123, 80124, 80125, 80126, 80127, 80128, 80129, 80130, 80131,
    80132, 80134, 80135, 80190, 80191, 80192, 80202, 80203, 80204, 80210, 80260, 81507, 80229, 80253,
    80254, 80280, 80281, 80282, 80550, 80290, 80291, 80292, 80293, 80294, 80700, 80800, 80100, 80101,
    80102, 80103, 80104, 80105, 80106, 80107, 80108, 80400, 80500, 80501, 80502, 80070, 80160, 80182};

// Identifiers in 80001..81507, only 80260 repeated, and only the two
// outcome rows at severity 1.  The order is part of the table: increasing
// identifiers except the second 80260 row and 80070 after 81507, at the
// end; a lookup takes the first row of an identifier.
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
    const kp::ErrorDef* random = first[80260];
    EXPECT_EQ(random->message, 2224u);
    EXPECT_EQ(random->severity, 2);
    EXPECT_EQ(random[1].id, 80260u);
    EXPECT_EQ(random[1].message, 872u);
    EXPECT_EQ(random[1].severity, 3);
}

// Every raised identifier has a row; those raised for bad arguments or
// refused operations are not fatal (a fatal row would stop the program).
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

// Each identifier has a text of its own: two identifiers never share a
// message number, and error texts do not reuse the numbers the families use
// for their own messages.
TEST(ErrorTable, MessageNumbersBelongToOneIdentifier) {
    std::map<uint32_t, uint32_t> owner;
    for (const auto& row : table()) {
        if (row.message == 0) continue;
        auto [it, fresh] = owner.emplace(row.message, row.id);
        if (!fresh) {
            EXPECT_EQ(it->second, row.id) << "message " << row.message;
        }
        bool family_range = (row.message >= 25000 && row.message < 29000);
        EXPECT_FALSE(family_range) << row.id << " uses message " << row.message;
    }
}

struct ErrorObject {
    kp_error_record rec{};
    kp::CXError err{&rec};
    ErrorObject() { rec.severity = KP_SEVERITY_NONE; }
    std::u16string message() const { return std::u16string(err.message()); }
};

TEST(AppliedRows, InsertsReachTheMessage) {
    ErrorObject handle, relative, registry;
    handle.err.fail(80022, {5});
    EXPECT_EQ(handle.message(), u"File handle 5 is not valid.");
    EXPECT_EQ(handle.rec.extra, 1u);
    relative.err.fail(80600, {u"data.txt"});
    EXPECT_NE(relative.message().find(u"\"data.txt\""), std::u16string::npos);
    EXPECT_EQ(relative.message().find(u"##"), std::u16string::npos) << "formatted without a diagnostic";
    registry.err.fail(80293, {u"HKEY_CURRENT_USER\\Soft", u"Name", u"Access is denied."});
    EXPECT_EQ(
        registry.message(),
        u"The value \"Name\" of the key \"HKEY_CURRENT_USER\\Soft\" cannot be written: Access is denied.");
}

// Every row with a text formats without a diagnostic when given the inserts
// its callers pass (numbers for all inserts print too: a text insert given a
// number prints it in decimal).  Textless rows record the identifier with no
// message; the outcome rows (severity 1) leave the object clear.
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

} // namespace
