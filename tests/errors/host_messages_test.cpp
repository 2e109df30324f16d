// Error texts as a program sees them through the loaded module, in both
// interface languages.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "component/error.h"
#include "support/test_host.h"

namespace {

using kp::host::CallStatus;
using kp::host::Value;

// Catalogue and system texts follow the interface language.
TEST(HostMessages, TextsInBothLanguages) {
    for (int32_t language : {0, 1}) {
        kp::test::HostFixture fx(language);
        ASSERT_TRUE(fx.host->loaded()) << fx.host->load_error();
        auto call = [&](const char* name, std::vector<Value> args) { return fx.host->call(name, args); };
        auto out = call("Random", {Value::integer(0)});
        ASSERT_EQ(out.status, CallStatus::Ok) << out.detail;
        EXPECT_EQ(out.error.id, 80260u);
        EXPECT_EQ(out.error.severity, 2);
        EXPECT_EQ(out.error.message, kp::catalogue_text(2224, language == 0));
        out = call("fOpen", {Value::string(u"/missing/file.txt"), Value::integer(1)});
        EXPECT_EQ(out.result.i, -1);
        ASSERT_NE(out.error.system_code, 0u);
        EXPECT_EQ(out.error.system_text, kp::system_error_text(out.error.system_code, language == 0));
        EXPECT_FALSE(out.error.system_text.empty()) << out.error.system_code;
        if (language == 0) { // an insert in a French text
            out = call("fOpen", {Value::string(u"notes.txt")});
            EXPECT_EQ(out.error.id, 80600u);
            EXPECT_EQ(out.error.message, u"Le nom « notes.txt » doit être un chemin complet.");
        }
    }
}

} // namespace
