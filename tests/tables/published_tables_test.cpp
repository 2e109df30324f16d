// Overloads the table marks as not provided are refused through the module.
#include <gtest/gtest.h>

#include "support/test_host.h"

namespace {

TEST(PublishedTables, ProvidedOverloadsOfMixedFunctionsAreCallable) {
    // The clipboard pair keeps its first overload and refuses the second,
    // which takes an interface object this edition has no use for.
    kp::test::HostFixture fx;
    std::vector<kp::host::Value> image{kp::host::Value::integer(1)};
    EXPECT_EQ(fx.host->call("ToClipboard", image).status, kp::host::CallStatus::NotProvided);
    EXPECT_EQ(fx.host->call("PressePapier", image).status, kp::host::CallStatus::NotProvided);
}

} // namespace
