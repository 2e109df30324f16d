// Rows of the table applied through the error object: the text, extra code
// and severity a program sees after a failure.
#include <gtest/gtest.h>

#include <string>

#include "component/error.h"
#include "kp120/vm.h"

namespace {

struct ErrorObject {
    kp_error_record rec{};
    kp::CXError err{&rec};
    ErrorObject() { rec.severity = KP_SEVERITY_NONE; }
    std::u16string message() const { return std::u16string(err.message()); }
};

TEST(AppliedRows, InsertsReachTheMessage) {
    ErrorObject handle;
    handle.err.fail(80022, {5});
    EXPECT_EQ(handle.message(), u"File handle 5 is not valid.");
    EXPECT_EQ(handle.rec.extra, 1u);

    ErrorObject relative;
    relative.err.fail(80600, {u"data.txt"});
    EXPECT_NE(relative.message().find(u"\"data.txt\""), std::u16string::npos);
    EXPECT_EQ(relative.message().find(u"##"), std::u16string::npos) << "formatted without a diagnostic";

    ErrorObject registry;
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
    std::size_t n = 0;
    const kp::ErrorDef* rows = kp::error_defs(&n);
    for (std::size_t i = 0; i < n; ++i) {
        SCOPED_TRACE(rows[i].id);
        ErrorObject e;
        e.err.set(rows[i].id, {1, 2, 3});
        if (rows[i].severity == KP_SEVERITY_NONE) {
            EXPECT_FALSE(e.err.failed());
            continue;
        }
        EXPECT_EQ(e.err.id(), rows[i].id);
        EXPECT_EQ(e.err.severity(), kp::find_error_def(rows[i].id)->severity);
        EXPECT_EQ(e.message().find(u"##(CXError)"), std::u16string::npos);
        EXPECT_EQ(e.message().empty(), rows[i].message == 0);
    }
}

} // namespace
