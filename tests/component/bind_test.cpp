// Handlers made by KP_BIND: arguments read by position from the signature,
// the error object passed without taking a position, the result setter
// chosen by the return type.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "component/bind.h"
#include "component/strings.h"

namespace {

using kp::CXError;

struct Captured {
    uint32_t type = 0xFFFF;
    int64_t number = 0;
    double real = 0;
    std::u16string text;
    std::vector<uint8_t> bytes;
    int calls = 0;
};

void capture(kp_value_interface*, void* handle, const void* value, uint32_t type) {
    auto* c = static_cast<Captured*>(handle);
    ++c->calls;
    c->type = type;
    switch (type) {
    case KP_T_BOOL:
    case KP_T_INT: c->number = *static_cast<const int32_t*>(value); break;
    case KP_T_INT64: c->number = *static_cast<const int64_t*>(value); break;
    case KP_T_REAL: c->real = *static_cast<const double*>(value); break;
    case KP_T_STRING_RESULT: c->text = std::u16string(kp::str::view(*static_cast<char16_t* const*>(value))); break;
    case KP_T_BUFFER: {
        auto b = kp::str::bytes(*static_cast<char16_t* const*>(value));
        c->bytes.assign(b.begin(), b.end());
        break;
    }
    case KP_T_ANY: {
        const auto* v = static_cast<const kp_variant*>(value);
        c->number = kp::variant::type_of(v) == KP_T_INT ? v->value.i32 : -1;
        break;
    }
    default: break;
    }
}

struct Frame {
    kp_value_interface_ops vops{};
    kp_value_interface values{&vops};
    kp_call_context_ops cops{};
    struct Ctx {
        kp_call_context base;
        kp_error_record record;
    } ctx{};
    Captured out;
    kp_call_frame frame{};
    Frame() {
        vops.set_result = capture;
        cops.error = [](kp_call_context* c) { return &reinterpret_cast<Ctx*>(c)->record; };
        ctx.base.ops = &cops;
        ctx.record.severity = KP_SEVERITY_NONE;
        frame.values = &values;
        frame.result_handle = &out;
    }
    int32_t call(kp_handler h, std::vector<void*> args) { return h(&frame, &ctx.base, args.data()); }
};

int32_t add_checked(int32_t a, CXError& e, int32_t b) {
    if (a < 0) e.fail(80001);
    return a + b;
}
std::u16string join(std::u16string_view a, bool upper, std::u16string_view b) {
    std::u16string r(a);
    r += upper ? u"|" : u"-";
    r += b;
    return r;
}
std::vector<uint8_t> reversed(std::span<const uint8_t> in) { return {in.rbegin(), in.rend()}; }
int64_t widen(int64_t v, double scale) { return static_cast<int64_t>(static_cast<double>(v) * scale); }
kp::variant::Value boxed(int32_t v) {
    kp::variant::Value r;
    kp::variant::set_int(r.get(), v * 2);
    return r;
}
int noted = 0;
void note(int32_t v) { noted = v; }

namespace handlers {
KP_BIND(AddChecked, add_checked)
KP_BIND(Join, join)
KP_BIND(Reversed, reversed)
KP_BIND(Widen, widen)
KP_BIND(Boxed, boxed)
KP_BIND(Note, note)
KP_BIND(Fixed, [](std::u16string_view a) { return join(a, true, u"fixed"); })
KP_BIND(Short, [](int32_t v) -> int16_t { return static_cast<int16_t>(v); })
} // namespace handlers

TEST(Bind, ArgumentsFollowTheSignatureAndTheErrorTakesNoPosition) {
    Frame f;
    int32_t a = 40, b = 2;
    EXPECT_EQ(f.call(handlers::AddChecked, {&a, &b}), 0);
    EXPECT_EQ(f.out.type, KP_T_INT);
    EXPECT_EQ(f.out.number, 42);
    EXPECT_EQ(f.ctx.record.severity, KP_SEVERITY_NONE);

    Frame g;
    int32_t neg = -5;
    g.call(handlers::AddChecked, {&neg, &b});
    EXPECT_EQ(g.out.number, -3);
    EXPECT_EQ(g.ctx.record.id, 80001u);
    EXPECT_EQ(g.ctx.record.severity, KP_SEVERITY_ERROR);
}

TEST(Bind, StringsBooleansAndNullStrings) {
    kp::str::Ref left, right;
    ASSERT_EQ(kp::str::create(u"ab", left.out()), 0);
    ASSERT_EQ(kp::str::create(u"cd", right.out()), 0);
    char16_t* l = left.get();
    char16_t* r = right.get();
    char16_t* none = nullptr;
    int32_t yes = 1, no = 0;
    Frame f;
    f.call(handlers::Join, {&l, &yes, &r});
    EXPECT_EQ(f.out.type, KP_T_STRING_RESULT);
    EXPECT_EQ(f.out.text, u"ab|cd");
    Frame g;
    g.call(handlers::Join, {&none, &no, &r});
    EXPECT_EQ(g.out.text, u"-cd");
    Frame h;
    h.call(handlers::Fixed, {&l});
    EXPECT_EQ(h.out.text, u"ab|fixed");
}

TEST(Bind, ResultSetterFollowsTheReturnType) {
    kp::str::Ref buf;
    const uint8_t raw[] = {1, 2, 3};
    ASSERT_EQ(kp::str::create_binary(raw, buf.out()), 0);
    char16_t* p = buf.get();
    Frame f;
    f.call(handlers::Reversed, {&p});
    EXPECT_EQ(f.out.type, KP_T_BUFFER);
    EXPECT_EQ(f.out.bytes, (std::vector<uint8_t>{3, 2, 1}));

    int64_t big = int64_t{1} << 40;
    double half = 0.5;
    Frame g;
    g.call(handlers::Widen, {&big, &half});
    EXPECT_EQ(g.out.type, KP_T_INT64);
    EXPECT_EQ(g.out.number, int64_t{1} << 39);

    int32_t v = 21;
    Frame h;
    h.call(handlers::Boxed, {&v});
    EXPECT_EQ(h.out.type, KP_T_ANY);
    EXPECT_EQ(h.out.number, 42);

    int32_t wide = 0x18000;
    Frame k;
    k.call(handlers::Short, {&wide});
    EXPECT_EQ(k.out.type, KP_T_INT);
    EXPECT_EQ(k.out.number, -32768);

    Frame n;
    v = 7;
    n.call(handlers::Note, {&v});
    EXPECT_EQ(n.out.calls, 0);
    EXPECT_EQ(noted, 7);
}

} // namespace
