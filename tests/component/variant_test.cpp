// Variants: type changes, payload ownership and conversion through the VM's hooks.
#include <gtest/gtest.h>

#include "component/runtime.h"
#include "component/strings.h"
#include "component/variant.h"

namespace {

int g_hook_calls = 0, g_end_calls = 0, g_flag = -1;
int32_t g_hook_result = 0;

int32_t hook(const kp_payload* v, uint32_t from, kp_payload* scratch, uint32_t to) {
    ++g_hook_calls;
    if (g_hook_result >= 100) return g_hook_result;
    if (from == KP_T_INT && to == KP_T_REAL) scratch->real = v->i32 + 0.5;
    if (from == KP_T_INT && to == KP_T_STRING) kp::str::create(u"42", &scratch->str);
    return g_hook_result;
}
int32_t hook_ex(const kp_payload* v, uint32_t from, kp_payload* scratch, uint32_t to, int32_t flag) {
    g_flag = flag;
    return hook(v, from, scratch, to);
}
void end(kp_payload*) {
    ++g_end_calls;
}

class VariantTest : public ::testing::Test {
  protected:
    void SetUp() override {
        saved = kp::variant::hooks();
        kp::variant::hooks() = {hook, hook_ex, end};
        kp::variant::init(&v);
    }
    void TearDown() override {
        kp::variant::destroy(&v);
        kp::variant::hooks() = saved;
        g_hook_calls = g_end_calls = g_hook_result = 0;
        g_flag = -1;
    }
    kp_variant v;
    kp::variant::Hooks saved;
};

TEST_F(VariantTest, ConversionThroughTheHooks) {
    kp::variant::set_int(&v, 7);
    EXPECT_EQ(kp::variant::convert(&v, KP_T_INT), 0); // its own type: no hook
    EXPECT_EQ(g_hook_calls, 0);
    EXPECT_EQ(v.value.i32, 7);
    // The extended hook is preferred; the status bits are kept.
    kp::variant::set_int(&v, 2);
    v.type |= 0x100 | 0x400;
    EXPECT_EQ(kp::variant::convert(&v, KP_T_REAL), 0);
    EXPECT_EQ(g_flag, 1);
    EXPECT_EQ(g_end_calls, 1);
    EXPECT_EQ(kp::variant::type_of(&v), KP_T_REAL);
    EXPECT_EQ(v.type & 0x500, 0x500);
    EXPECT_DOUBLE_EQ(v.value.real, 2.5);
    // The plain hook when there is no extended one.
    g_flag = -1;
    kp::variant::hooks().convert_ex = nullptr;
    kp::variant::set_int(&v, 1);
    EXPECT_EQ(kp::variant::convert(&v, KP_T_STRING), 0);
    EXPECT_EQ(g_flag, -1);
    EXPECT_EQ(kp::str::view(v.value.str), u"42"); // the value word of the scratch area
}

TEST_F(VariantTest, FailedConversionLeavesTheVariantUnchanged) {
    kp::variant::set_int(&v, 9);
    g_hook_result = 150;
    EXPECT_EQ(kp::variant::convert(&v, KP_T_REAL), 150);
    EXPECT_EQ(kp::variant::type_of(&v), KP_T_INT);
    EXPECT_EQ(v.value.i32, 9);
    EXPECT_EQ(g_end_calls, 0);
    kp::variant::hooks() = {};
    EXPECT_EQ(kp::variant::convert(&v, KP_T_REAL), 100); // no hooks installed
}

TEST_F(VariantTest, StringsAreSharedAndReleased) {
    ASSERT_EQ(kp::variant::set_string(&v, u"payload"), 0);
    kp_variant w;
    kp::variant::init(&w);
    EXPECT_EQ(kp::variant::copy(&w, &v), 0);
    EXPECT_EQ(w.value.str, v.value.str);
    char16_t* s = v.value.str;
    EXPECT_EQ(kp_string_header_of(s)->refcount, 2);
    kp::variant::destroy(&w);
    EXPECT_EQ(kp_string_header_of(s)->refcount, 1);
    char16_t* extra = nullptr;
    kp::str::share(&extra, s);
    kp::variant::set_int(&v, 3); // setting another type releases the string
    EXPECT_EQ(kp_string_header_of(s)->refcount, 1);
    EXPECT_EQ(v.value.i32, 3);
    kp::str::release(extra);
    // One table of operations a type; the status bits are ignored.
    EXPECT_NE(kp::variant::ops_for(0x12), kp::variant::ops_for(0x13));
    EXPECT_EQ(kp::variant::ops_for(0x0112), kp::variant::ops_for(0x12));
}

} // namespace
