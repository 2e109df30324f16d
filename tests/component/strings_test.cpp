// String buffers over a counting allocator standing in for the VM's, and variants.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <tuple>
#include <vector>

#include "component/runtime.h"
#include "component/strings.h"
#include "component/variant.h"

namespace {

struct CountingAllocator {
    kp_allocator base;
    int creates = 0, grows = 0, frees = 0;
};

char16_t* block(CountingAllocator* a, uint32_t cap) {
    auto* h = static_cast<kp_string_header*>(std::malloc(cap + KP_STRING_BLOCK_EXTRA));
    *h = kp_string_header{};
    h->owner = &a->base;
    h->capacity = cap;
    auto* c = reinterpret_cast<char16_t*>(h + 1);
    std::memset(reinterpret_cast<char*>(c) + cap, 0, 2);
    return c;
}
CountingAllocator* self(kp_allocator* a) {
    return reinterpret_cast<CountingAllocator*>(a);
}
const kp_allocator_ops kOps = {
    [](kp_allocator* a, uint32_t cap) { return ++self(a)->grows, block(self(a), cap); },
    [](kp_allocator*, void*) { return 0; }, // offers are never taken
    nullptr,
    [](kp_allocator*, int32_t) {},
    nullptr,
    [](kp_allocator* a, uint32_t bytes, char16_t** out) {
        return *out = block(self(a), bytes), ++self(a)->creates, 0;
    },
    nullptr,
    [](kp_allocator* a, char16_t* c) { ++self(a)->frees, std::free(kp_string_header_of(c)); }};

kp_allocator* g_tls_allocator = nullptr;
kp_allocator* tls_get(void*, uint32_t) {
    return g_tls_allocator;
}

class StringsTest : public ::testing::Test {
  protected:
    void SetUp() override {
        alloc.base.ops = &kOps;
        saved = kp::runtime::state();
        kp::runtime::state().allocator = &alloc.base;
    }
    void TearDown() override { kp::runtime::state() = saved; }
    CountingAllocator alloc{};
    kp::runtime::State saved;
};

TEST_F(StringsTest, Creation) {
    // Empty and null are the same string; too long: 108, nothing allocated.
    const std::pair<int64_t, int> sizes[] = {{0, 0}, {-5, 0}, {0x7FFFFF00LL, 108}, {0x7FFFFFFFLL, 108}};
    char16_t* s = nullptr;
    for (const auto& [size, code] : sizes) {
        s = reinterpret_cast<char16_t*>(1);
        EXPECT_EQ(kp::str::create(size > 0 ? nullptr : u"abc", size, &s), code) << size;
        EXPECT_EQ(s, nullptr) << size;
    }
    EXPECT_EQ(std::tuple(kp::str::length(nullptr), kp::str::view(nullptr)), std::tuple(0u, u""));
    kp::str::release(nullptr); // nothing happens
    EXPECT_EQ(alloc.creates + alloc.frees, 0);
    // A buffer carries its header and terminator.
    ASSERT_EQ(kp::str::create(u"héllo", &s), 0);
    const kp_string_header* h = kp_string_header_of(s);
    EXPECT_EQ(std::tuple(h->owner, (h->flags >> 1) & 7u, h->refcount, h->length, s[5], kp::str::view(s)),
              std::tuple(&alloc.base, 2u, 1, 5u, 0, u"héllo"));
    EXPECT_GE(h->capacity, 10u);
    EXPECT_EQ(kp::str::bytes(s).size(), 10u); // text: its UTF-16 units
    kp::str::release(s);
    EXPECT_EQ(alloc.frees, 1);
    // Binary buffers count bytes.
    const uint8_t bytes[] = {0, 1, 2, 0xFF, 0};
    ASSERT_EQ(kp::str::create_binary(bytes, &s), 0);
    EXPECT_TRUE(kp::str::is_binary(s));
    EXPECT_EQ(kp::str::length(s), 5u);
    EXPECT_EQ(std::vector<uint8_t>(kp::str::bytes(s).begin(), kp::str::bytes(s).end()),
              std::vector<uint8_t>(bytes, bytes + 5));
    kp::str::release(s);
    // The allocator's error comes back as is.
    static kp_allocator_ops failing{};
    failing.create = [](kp_allocator*, uint32_t, char16_t** o) {
        *o = nullptr;
        return int32_t{100};
    };
    kp_allocator f{&failing, 0};
    kp::runtime::state().allocator = &f;
    EXPECT_EQ(kp::str::create(u"x", &s), 100);
    EXPECT_EQ(s, nullptr);
}

// The owner is called once, at the last reference; shortening copies only a shared buffer.
TEST_F(StringsTest, SharingAndShortening) {
    char16_t* s = nullptr;
    ASSERT_EQ(kp::str::create(u"abcdef", &s), 0);
    char16_t* t = nullptr;
    kp::str::share(&t, s);
    EXPECT_EQ(std::tuple(t, kp_string_header_of(s)->refcount), std::tuple(s, 2));
    kp::str::release(t);
    EXPECT_EQ(std::tuple(alloc.frees, kp_string_header_of(s)->refcount), std::tuple(0, 1));
    kp_string_header_of(s)->flags |= 1u;
    ASSERT_EQ(kp::str::shorten(&s, 3), 0);
    EXPECT_EQ(std::tuple(kp::str::view(s), s[3], kp_string_header_of(s)->flags & 1u, alloc.creates),
              std::tuple(u"abc", 0, 0u, 1));
    kp::str::share(&t, s, 2); // shared and shortened: a copy of two characters
    EXPECT_NE(t, s);
    EXPECT_EQ(kp::str::view(t), u"ab");
    EXPECT_EQ(kp::str::view(s), u"abc");
    EXPECT_EQ(kp_string_header_of(s)->refcount, 1);
    char16_t* u = nullptr;
    kp::str::share(&u, s, -1); // -1 keeps it whole
    EXPECT_EQ(u, s);
    kp::str::release(u);
    kp::str::release(t);
    EXPECT_EQ(alloc.frees, 1);
    kp::str::release(s);
    EXPECT_EQ(alloc.frees, 2);
}

TEST(StringGrowth, SteppedPolicy) {
    // {needed, current, expected}: 104, 1000, then by the shortfall against the current
    // capacity (c/10, c/5, c/2), else twice the request.
    const uint32_t cases[][3] = {{1, 0, 104},        {104, 0, 104},      {105, 0, 1000},
                                 {1000, 0, 1000},    {1001, 1000, 1200}, {1150, 1000, 1500},
                                 {1400, 1000, 2000}, {1500, 1000, 3000}, {5000, 0, 10000}};
    for (const auto& c : cases)
        EXPECT_EQ(kp::str::growth_capacity(c[0], c[1]), c[2]) << c[0] << " from " << c[1];
}

// Growth keeps the text and the terminator; per thread it uses the thread's allocator.
TEST_F(StringsTest, Growth) {
    char16_t* s = nullptr;
    ASSERT_EQ(kp::str::create(u"abc", &s), 0);
    ASSERT_EQ(kp::str::grow(&s, 1001), 0); // from 6 bytes: shortfall too large, twice the request
    EXPECT_EQ(kp_string_header_of(s)->capacity, 2002u);
    EXPECT_EQ(kp::str::view(s), u"abc");
    EXPECT_EQ(reinterpret_cast<const char*>(s)[2002], 0);
    EXPECT_EQ(kp::str::grow(&s, 0xFFFFFFFFu), 108);
    EXPECT_EQ(kp::str::view(s), u"abc"); // untouched on failure
    kp::str::release(s);

    CountingAllocator mine{};
    mine.base.ops = &kOps;
    g_tls_allocator = &mine.base;
    kp_services sv{};
    sv.size = sizeof sv;
    sv.tls_get = tls_get;
    kp_threading threading{1};
    auto& st = kp::runtime::state();
    st.services = &sv;
    st.threading = &threading;
    st.tls_enabled = true;

    s = nullptr;
    ASSERT_EQ(kp::str::create(u"thread", &s), 0);
    EXPECT_EQ(std::tuple(mine.creates, alloc.creates), std::tuple(1, 1));
    ASSERT_EQ(kp::str::grow(&s, 4000), 0);
    // The old buffer went back to its allocator.
    EXPECT_EQ(std::tuple(mine.grows, mine.frees, kp_string_header_of(s)->refcount, kp::str::view(s)),
              std::tuple(1, 1, 1, u"thread"));
    kp::str::release(s);
    EXPECT_EQ(mine.frees, 2);
    g_tls_allocator = nullptr;
}

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
    EXPECT_EQ(std::tuple(g_flag, g_end_calls, kp::variant::type_of(&v), v.type & 0x500),
              std::tuple(1, 1, KP_T_REAL, 0x500));
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
    EXPECT_EQ(std::tuple(kp::variant::type_of(&v), v.value.i32, g_end_calls), std::tuple(KP_T_INT, 9, 0));
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
