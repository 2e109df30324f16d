// Handlers made by KP_BIND, and the catch-all of real handlers and entry points.
#include <gtest/gtest.h>

#include <cstring>
#include <new>
#include <optional>
#include <stdexcept>
#include <string>
#include <system_error>
#include <tuple>
#include <vector>

#include "component/bind.h"
#include "component/strings.h"
#include "kp120/component.h"

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
    auto str = [&] { return *static_cast<char16_t* const*>(value); };
    if (type == KP_T_BOOL || type == KP_T_INT) c->number = *static_cast<const int32_t*>(value);
    if (type == KP_T_INT64) c->number = *static_cast<const int64_t*>(value);
    if (type == KP_T_REAL) c->real = *static_cast<const double*>(value);
    if (type == KP_T_STRING_RESULT) c->text = std::u16string(kp::str::view(str()));
    if (type == KP_T_BUFFER) c->bytes.assign(kp::str::bytes(str()).begin(), kp::str::bytes(str()).end());
    if (type == KP_T_ANY) {
        const auto* v = static_cast<const kp_variant*>(value);
        c->number = kp::variant::type_of(v) == KP_T_INT ? v->value.i32 : kp::variant::type_of(v);
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
    return std::u16string(a) + (upper ? u"|" : u"-") + std::u16string(b);
}
int64_t widen(int64_t v, double scale) {
    return static_cast<int64_t>(static_cast<double>(v) * scale);
}
int64_t widen_swapped(double scale, int64_t v) {
    return widen(v, scale);
}
kp::variant::Value boxed(int32_t v) {
    kp::variant::Value r;
    kp::variant::set_int(r.get(), v * 2);
    return r;
}
int noted = 0;
int32_t with_default(int32_t a, std::optional<int32_t> b, std::optional<std::u16string_view> c) {
    return a * 100 + b.value_or(7) * 10 + static_cast<int32_t>(c.value_or(u"xyz").size());
}
std::u16string kind_of(kp::bind::StringOrBuffer v) {
    return v.binary() ? u"buffer:" + std::u16string(1, static_cast<char16_t>(u'0' + v.bytes().size()))
                      : u"text:" + std::u16string(v.text());
}
kp::variant::Value either(bool text) {
    const uint8_t raw[] = {9, 8};
    return text ? kp::bind::any_string(u"t") : kp::bind::any_buffer(raw);
}
std::u16string hungry(int32_t n) {
    if (n < 0) throw std::bad_alloc();
    return u"fed";
}
int32_t hungry_int(int32_t n) {
    if (n < 0) throw std::bad_alloc();
    return n;
}

// A type of a family's own, taught to the binding by specialisation.
struct Celsius {
    int32_t tenths = 0;
};
} // namespace

namespace kp::bind {
template <> struct Arg<Celsius> {
    static constexpr bool slot = true;
    static constexpr bool accepts(uint32_t c) { return c == KP_T_INT; }
    static Celsius read(Call& c, int i) { return Celsius{c.i32(i) * 10}; }
};
template <> struct Result<Celsius> {
    static constexpr bool accepts(uint32_t c) { return c == KP_T_REAL; }
    static void put(Call& c, const Celsius& v) { c.ret_real(v.tenths / 10.0); }
};
} // namespace kp::bind

// Function table rows for the handlers below, as kp120_signatures.h gives the component's.
namespace kp::sig {
constexpr Overload AddChecked{KP_T_INT, 2, {KP_T_INT, KP_T_INT}};
constexpr Overload Join{KP_T_STRING_RESULT, 3, {KP_T_STRING, KP_T_BOOL, 0x8012}};
constexpr Overload Reversed{KP_T_BUFFER, 1, {KP_T_RAW_DATA}};
constexpr Overload Widen{KP_T_INT64, 2, {KP_T_INT64, KP_T_REAL}};
constexpr Overload Boxed{KP_T_ANY, 1, {KP_T_INT}};
constexpr Overload Note{KP_T_NONE, 1, {KP_T_INT}};
constexpr Overload Fixed{KP_T_STRING_RESULT, 1, {KP_T_STRING}};
constexpr Overload Short{KP_T_INT, 1, {KP_T_INT}};
constexpr Overload WithDefault{KP_T_INT, 3, {KP_T_INT, KP_T_INT, KP_T_STRING}};
constexpr Overload KindOf{KP_T_STRING_RESULT, 1, {KP_T_RAW_STRING}};
constexpr Overload Either{KP_T_ANY, 1, {KP_T_BOOL}};
constexpr Overload HungryOwnId{KP_T_INT, 1, {KP_T_INT}};
constexpr Overload HungrySilent{KP_T_STRING_RESULT, 1, {KP_T_INT}};
constexpr Overload Warmer{KP_T_REAL, 1, {KP_T_INT}};
} // namespace kp::sig

namespace {

// The table check (a compile error in KP_BIND) refuses counts, parameters or results off the row.
template <typename F> constexpr bool agrees(const kp::sig::Overload& o, F) {
    return kp::bind::agrees(o, typename kp::bind::SignatureOf<F>::type{});
}
static_assert(agrees(kp::sig::AddChecked, &add_checked));
static_assert(!agrees(kp::sig::Short, &add_checked));       // one parameter more
static_assert(!agrees(kp::sig::Widen, &widen_swapped));     // a real where an 8-byte integer is
static_assert(!agrees(kp::sig::HungryOwnId, &hungry));      // a string for an integer result
static_assert(!agrees(kp::sig::Note, &hungry_int));         // a result where the row has none
static_assert(agrees(kp::sig::WithDefault, &with_default)); // optional parameters count as given

namespace handlers {
KP_BIND(AddChecked, add_checked)
KP_BIND(Join, join)
KP_BIND(Reversed, [](std::span<const uint8_t> in) { return std::vector<uint8_t>(in.rbegin(), in.rend()); })
KP_BIND(Widen, widen)
KP_BIND(Boxed, boxed)
KP_BIND(Note, [](int32_t v) { noted = v; })
KP_BIND(Fixed, [](std::u16string_view a) { return join(a, true, u"fixed"); })
KP_BIND(Short, [](int32_t v) -> int16_t { return static_cast<int16_t>(v); })
KP_BIND(WithDefault, with_default)
KP_BIND(KindOf, kind_of)
KP_BIND(Either, either)
KP_BIND_NOMEM(HungryOwnId, 80229, hungry_int)
KP_BIND_NOMEM(HungrySilent, 0, hungry)
KP_BIND(Warmer, [](Celsius c) { return Celsius{c.tenths + 5}; })
} // namespace handlers

// Arguments are read by position (the error object takes none); the result follows the type.
TEST(Bind, ArgumentsAndResultsFollowTheSignature) {
    kp::str::Ref left, right, buf;
    const uint8_t raw[] = {1, 2, 3};
    ASSERT_EQ(kp::str::create(u"ab", left.out()), 0);
    ASSERT_EQ(kp::str::create(u"cd", right.out()), 0);
    ASSERT_EQ(kp::str::create_binary(raw, buf.out()), 0);
    char16_t *l = left.get(), *r = right.get(), *b = buf.get(), *none = nullptr;
    int32_t yes = 1, no = 0, a = 40, two = 2, one = 1, v = 21, wide = 0x18000;
    int64_t big = int64_t{1} << 40;
    double half = 0.5;
    // clang-format off
    struct Row { const char* what; kp_handler handler; std::vector<void*> args; uint32_t type;
                 int64_t number = 0; std::u16string text = u""; std::vector<uint8_t> bytes = {}; double real = 0;
    } rows[] = {
        {"int", handlers::AddChecked, {&a, &two}, KP_T_INT, 42},
        {"strings", handlers::Join, {&l, &yes, &r}, KP_T_STRING_RESULT, 0, u"ab|cd"},
        {"null string", handlers::Join, {&none, &no, &r}, KP_T_STRING_RESULT, 0, u"-cd"},
        {"lambda", handlers::Fixed, {&l}, KP_T_STRING_RESULT, 0, u"ab|fixed"},
        {"buffer", handlers::Reversed, {&b}, KP_T_BUFFER, 0, u"", {3, 2, 1}},
        {"int64", handlers::Widen, {&big, &half}, KP_T_INT64, int64_t{1} << 39},
        {"any", handlers::Boxed, {&v}, KP_T_ANY, 42}, {"int16", handlers::Short, {&wide}, KP_T_INT, -32768},
        {"text kind", handlers::KindOf, {&l}, KP_T_STRING_RESULT, 0, u"text:ab"},
        {"buffer kind", handlers::KindOf, {&b}, KP_T_STRING_RESULT, 0, u"buffer:3"},
        {"null kind", handlers::KindOf, {&none}, KP_T_STRING_RESULT, 0, u"text:"},
        {"family type", handlers::Warmer, {&v}, KP_T_REAL, 0, u"", {}, 21.5},
        {"any text", handlers::Either, {&yes}, KP_T_ANY, KP_T_STRING_RESULT}, // either kind of string
        {"any buffer", handlers::Either, {&no}, KP_T_ANY, KP_T_BUFFER},
        // A null pointer in the vector is an argument left out; a null string is "", not the default.
        {"all given", handlers::WithDefault, {&one, &two, &l}, KP_T_INT, 122},
        {"middle left out", handlers::WithDefault, {&one, nullptr, &l}, KP_T_INT, 172},
        {"last left out", handlers::WithDefault, {&one, &two, nullptr}, KP_T_INT, 123},
        {"two left out", handlers::WithDefault, {&one, nullptr, nullptr}, KP_T_INT, 173},
        {"null string given", handlers::WithDefault, {&one, &two, &none}, KP_T_INT, 120}};
    // clang-format on
    for (const Row& row : rows) {
        SCOPED_TRACE(row.what);
        Frame f;
        EXPECT_EQ(f.call(row.handler, row.args), 0);
        EXPECT_EQ(
            std::tie(f.out.type, f.out.number, f.out.text, f.out.bytes, f.out.real, f.ctx.record.severity),
            std::tuple(row.type, row.number, row.text, row.bytes, row.real, KP_SEVERITY_NONE));
    }
    Frame g; // no argument vector at all
    EXPECT_EQ(handlers::WithDefault(&g.frame, &g.ctx.base, nullptr), 0);
    EXPECT_EQ(g.out.number, 73);
    Frame n; // no result
    n.call(handlers::Note, {&v});
    EXPECT_EQ(n.out.calls, 0);
    EXPECT_EQ(noted, 21);
    Frame e; // the error object
    int32_t neg = -5;
    e.call(handlers::AddChecked, {&neg, &two});
    EXPECT_EQ(std::tuple(e.out.number, e.ctx.record.id, e.ctx.record.severity),
              std::tuple(-3, 80001u, KP_SEVERITY_ERROR));
}

// Memory exhaustion under KP_BIND_NOMEM: the empty result, with the handler's own identifier
// or nothing (the default, 100, is the firewall's bad_alloc case below).
TEST(Bind, OutOfMemoryGivesTheEmptyResult) {
    int32_t starve = -1;
    Frame own, silent;
    own.call(handlers::HungryOwnId, {&starve});
    EXPECT_EQ(std::tuple(own.out.type, own.out.number, own.ctx.record.id, own.ctx.record.severity),
              std::tuple(KP_T_INT, 0, 80229u, KP_SEVERITY_ERROR));
    silent.call(handlers::HungrySilent, {&starve});
    EXPECT_EQ(std::tuple(silent.out.type, silent.out.text, silent.ctx.record.severity),
              std::tuple(KP_T_STRING_RESULT, u"", KP_SEVERITY_NONE));
}

} // namespace

namespace {

// The VM's result setter throws on its first call: the exception leaves a real handler.
enum class Throw { BadAlloc, SystemError, LengthError, Int };
Throw g_throw;
void throw_it(Throw t) {
    if (t == Throw::BadAlloc) throw std::bad_alloc();
    if (t == Throw::SystemError)
        throw std::system_error(std::make_error_code(std::errc::resource_unavailable_try_again));
    if (t == Throw::LengthError) throw std::length_error("vector");
    throw 7;
}
void capture_after_throw(kp_value_interface* vi, void* handle, const void* value, uint32_t type) {
    auto* c = static_cast<Captured*>(handle);
    if (c->calls++ == 0) throw_it(g_throw);
    --c->calls;
    capture(vi, handle, value, type);
}

struct Expected {
    Throw kind;
    uint32_t id; // 0: 100 named in the message (no definition row)
    int32_t severity;
};
constexpr Expected kThrows[] = {
    {Throw::BadAlloc, 0, KP_SEVERITY_FATAL},
    {Throw::SystemError, 80041, KP_SEVERITY_ERROR},
    {Throw::LengthError, 80041, KP_SEVERITY_ERROR},
    {Throw::Int, 80041, KP_SEVERITY_FATAL},
};
void expect_record(const kp_error_record& rec, const Expected& e) {
    EXPECT_EQ(rec.severity, e.severity);
    if (e.id) {
        EXPECT_EQ(rec.id, e.id);
    } else {
        EXPECT_NE(std::u16string_view(rec.message, rec.message_length).find(u"<100>"), std::u16string::npos);
    }
}

} // namespace

namespace kp::handlers {
int32_t DateToString_1(kp_call_frame*, kp_call_context*, void**) noexcept;
int32_t MatchRegularExpression_1(kp_call_frame*, kp_call_context*, void**) noexcept;
} // namespace kp::handlers

namespace {

int32_t throwing_messages(uint32_t, char16_t*, int32_t) {
    throw_it(g_throw);
    return 0;
}

// Each kind of exception stops at a bound handler, a hand-written one and the entry point.
TEST(Firewall, EveryKindOfThrowStopsAtTheHandlerAndTheEntryPoint) {
    for (const Expected& e : kThrows) {
        SCOPED_TRACE(static_cast<int>(e.kind));
        g_throw = e.kind;
        kp::str::Ref text;
        ASSERT_EQ(kp::str::create(u"20240229", text.out()), kp::str::kOk);
        char16_t* p = text.get();
        Frame bound, by_hand;
        bound.vops.set_result = by_hand.vops.set_result = capture_after_throw;
        EXPECT_EQ(bound.call(kp::handlers::DateToString_1, {&p}), 0);
        EXPECT_EQ(bound.out.type, KP_T_STRING_RESULT);
        EXPECT_EQ(bound.out.text, u"");
        expect_record(bound.ctx.record, e);
        EXPECT_EQ(by_hand.call(kp::handlers::MatchRegularExpression_1, {&p, &p, nullptr}), 0);
        EXPECT_EQ(by_hand.out.type, KP_T_BOOL);
        EXPECT_EQ(by_hand.out.number, 0);
        expect_record(by_hand.ctx.record, e);

        CommandeComposante(KP_COMMAND_MESSAGE_CALLBACK, reinterpret_cast<void*>(&throwing_messages));
        char16_t buf[8] = {u'x'};
        uintptr_t block[5] = {0, 25202, reinterpret_cast<uintptr_t>(buf), 8, 99};
        CommandeComposante(KP_COMMAND_MESSAGE_TEXT, block);
        CommandeComposante(KP_COMMAND_MESSAGE_CALLBACK, nullptr);
        kp_component_object* obj = pQueryProxy(KP_PROXY_COMPONENT_OBJECT);
        ASSERT_NE(obj, nullptr);
        const kp_error_record* rec = obj->ops->last_error(obj);
        ASSERT_NE(rec, nullptr);
        expect_record(*rec, e);
        obj->ops->destroy(obj);
    }
}

} // namespace
