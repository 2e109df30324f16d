// The tables the loaded module publishes to the VM are the ones built here:
// same entries, records and texts, with handlers exactly where the table
// names them.
#include <gtest/gtest.h>

#include <cstring>

#include "support/test_host.h"
#include "table_lookup.h"

namespace {

using namespace kp::tables;

TEST(PublishedTables, TheModuleHandsOutTheGeneratedTables) {
    kp::test::HostFixture fx;
    ASSERT_TRUE(fx.host->loaded()) << fx.host->load_error();
    auto fns = fx.host->functions();
    auto cons = fx.host->constants();
    auto vars = fx.host->variables();
    ASSERT_EQ(fns.size(), function_count);
    ASSERT_EQ(cons.size(), constant_count);
    ASSERT_EQ(vars.size(), variable_count);

    for (std::size_t i = 0; i < function_count; ++i) {
        const kp_function& a = fns[i];
        const kp_function& b = functions[i];
        SCOPED_TRACE(b.english);
        ASSERT_STREQ(a.french, b.french);
        ASSERT_STREQ(a.english, b.english);
        ASSERT_EQ(a.attributes, b.attributes);
        ASSERT_EQ(a.ident, b.ident);
        for (uint32_t k = 0; k < KP_IDENT_COUNT(b.ident); ++k) {
            const kp_overload& x = a.overloads[k];
            const kp_overload& y = b.overloads[k];
            EXPECT_EQ(std::memcmp(x.params, y.params, sizeof x.params), 0) << "overload " << k + 1;
            EXPECT_EQ(x.param_count, y.param_count);
            EXPECT_EQ(x.result, y.result);
            EXPECT_EQ(x.reserved0 | x.reserved1, 0);
            // The module is linked from the same families as this test.
            EXPECT_EQ(x.handler != nullptr, y.handler != nullptr) << "overload " << k + 1;
            if (x.handler) {
                EXPECT_TRUE(provided_mask[i] & (1u << k));
            }
        }
    }
    for (std::size_t i = 0; i < constant_count; ++i) {
        SCOPED_TRACE(constants[i].english);
        ASSERT_STREQ(cons[i].english, constants[i].english);
        ASSERT_STREQ(cons[i].french, constants[i].french);
        EXPECT_EQ(cons[i].attributes, constants[i].attributes);
        EXPECT_EQ(cons[i].kind, constants[i].kind);
        if (constants[i].kind == KP_CONST_STRING) {
            EXPECT_EQ(kp::tables::test::constant_text(cons[i]),
                      kp::tables::test::constant_text(constants[i]));
        } else {
            EXPECT_EQ(cons[i].value, constants[i].value);
        }
    }
    for (std::size_t i = 0; i < variable_count; ++i) {
        EXPECT_STREQ(vars[i].french, variables[i].french);
        EXPECT_EQ(vars[i].ident, variables[i].ident);
        EXPECT_EQ(vars[i].attributes, variables[i].attributes);
    }
}

TEST(PublishedTables, ProvidedOverloadsOfMixedFunctionsAreCallable) {
    // The clipboard pair keeps its first overload and refuses the second,
    // which takes an interface object this edition has no use for.
    kp::test::HostFixture fx;
    std::vector<kp::host::Value> image{kp::host::Value::integer(1)};
    EXPECT_EQ(fx.host->call("ToClipboard", image).status, kp::host::CallStatus::NotProvided);
    EXPECT_EQ(fx.host->call("PressePapier", image).status, kp::host::CallStatus::NotProvided);
}

} // namespace
