// String buffers: creation limits, release, sharing, shortening and the
// stepped growth policy, with a counting allocator standing in for the VM's.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>

#include "component/runtime.h"
#include "component/strings.h"

namespace {

struct CountingAllocator {
    kp_allocator base;
    int creates = 0, grows = 0, frees = 0, offers = 0, releases = 0;
    bool take_offers = false;
};

char16_t* block(CountingAllocator* a, uint32_t cap) {
    auto* h = static_cast<kp_string_header*>(std::malloc(cap + KP_STRING_BLOCK_EXTRA));
    h->owner = &a->base;
    h->flags = 0;
    h->refcount = 0;
    h->capacity = cap;
    h->length = 0;
    auto* c = reinterpret_cast<char16_t*>(h + 1);
    std::memset(reinterpret_cast<char*>(c) + cap, 0, 2);
    return c;
}
CountingAllocator* self(kp_allocator* a) {
    return reinterpret_cast<CountingAllocator*>(a);
}
char16_t* op_grow(kp_allocator* a, uint32_t cap) {
    self(a)->grows++;
    return block(self(a), cap);
}
int32_t op_offer(kp_allocator* a, void* b) {
    self(a)->offers++;
    if (self(a)->take_offers) std::free(b);
    return self(a)->take_offers ? 1 : 0;
}
void op_release(kp_allocator* a, int32_t) {
    self(a)->releases++;
}
int32_t op_create(kp_allocator* a, uint32_t bytes, char16_t** out) {
    self(a)->creates++;
    *out = block(self(a), bytes);
    return 0;
}
void op_free(kp_allocator* a, char16_t* c) {
    self(a)->frees++;
    std::free(kp_string_header_of(c));
}
const kp_allocator_ops kOps = {op_grow, op_offer, nullptr, op_release, nullptr, op_create, nullptr, op_free};

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

TEST_F(StringsTest, EmptyAndNullAreTheSameString) {
    char16_t* s = reinterpret_cast<char16_t*>(1);
    EXPECT_EQ(kp::str::create(u"", &s), 0);
    EXPECT_EQ(s, nullptr);
    EXPECT_EQ(kp::str::create(u"abc", -5, &s), 0);
    EXPECT_EQ(s, nullptr);
    EXPECT_EQ(kp::str::length(nullptr), 0u);
    EXPECT_TRUE(kp::str::view(nullptr).empty());
    kp::str::release(nullptr); // nothing happens
    EXPECT_EQ(alloc.creates + alloc.frees, 0);
}

TEST_F(StringsTest, CreatedBufferCarriesHeaderAndTerminator) {
    char16_t* s = nullptr;
    ASSERT_EQ(kp::str::create(u"héllo", &s), 0);
    const kp_string_header* h = kp_string_header_of(s);
    EXPECT_EQ(h->owner, &alloc.base);
    EXPECT_EQ((h->flags >> 1) & 7u, 2u);
    EXPECT_EQ(h->refcount, 1);
    EXPECT_EQ(h->length, 5u);
    EXPECT_GE(h->capacity, 10u);
    EXPECT_EQ(s[5], 0);
    EXPECT_EQ(kp::str::view(s), u"héllo");
    kp::str::release(s);
    EXPECT_EQ(alloc.frees, 1);
}

TEST_F(StringsTest, TooLongFailsWith108AndAllocatesNothing) {
    char16_t* s = nullptr;
    EXPECT_EQ(kp::str::create(nullptr, 0x7FFFFF00LL, &s), 108);
    EXPECT_EQ(kp::str::create(nullptr, 0x7FFFFFFFLL, &s), 108);
    EXPECT_EQ(s, nullptr);
    EXPECT_EQ(alloc.creates, 0);
}

TEST_F(StringsTest, AllocatorErrorIsReturnedAsIs) {
    static const kp_allocator_ops failing = {nullptr,
                                             nullptr,
                                             nullptr,
                                             nullptr,
                                             nullptr,
                                             [](kp_allocator*, uint32_t, char16_t** o) {
                                                 *o = nullptr;
                                                 return int32_t{100};
                                             },
                                             nullptr,
                                             nullptr};
    kp_allocator f{&failing, 0};
    kp::runtime::state().allocator = &f;
    char16_t* s = nullptr;
    EXPECT_EQ(kp::str::create(u"x", &s), 100);
    EXPECT_EQ(s, nullptr);
}

TEST_F(StringsTest, ReleaseCallsOwnerOnceAtTheLastReference) {
    char16_t* s = nullptr;
    ASSERT_EQ(kp::str::create(u"shared", &s), 0);
    char16_t* t = nullptr;
    kp::str::share(&t, s);
    EXPECT_EQ(t, s);
    EXPECT_EQ(kp_string_header_of(s)->refcount, 2);
    kp::str::release(t);
    EXPECT_EQ(alloc.frees, 0);
    EXPECT_EQ(kp_string_header_of(s)->refcount, 1);
    kp::str::release(s);
    EXPECT_EQ(alloc.frees, 1);
}

TEST_F(StringsTest, ShorteningCopiesOnlyWhenShared) {
    char16_t* s = nullptr;
    ASSERT_EQ(kp::str::create(u"abcdef", &s), 0);
    kp_string_header_of(s)->flags |= 1u;
    ASSERT_EQ(kp::str::shorten(&s, 3), 0);
    EXPECT_EQ(kp::str::view(s), u"abc");
    EXPECT_EQ(s[3], 0);
    EXPECT_EQ(kp_string_header_of(s)->flags & 1u, 0u);
    EXPECT_EQ(alloc.creates, 1);

    char16_t* t = nullptr;
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
    kp::str::release(s);
    EXPECT_EQ(alloc.frees, 2);
}

TEST(StringGrowth, SteppedPolicy) {
    // {needed, current, expected}: 104, then 1000, then by the shortfall
    // against the current capacity (c/10, c/5, c/2), else twice the request.
    const uint32_t cases[][3] = {{1, 0, 104},        {104, 0, 104},      {105, 0, 1000},
                                 {1000, 0, 1000},    {1001, 1000, 1200}, {1150, 1000, 1500},
                                 {1400, 1000, 2000}, {1500, 1000, 3000}, {5000, 0, 10000}};
    for (const auto& c : cases)
        EXPECT_EQ(kp::str::growth_capacity(c[0], c[1]), c[2]) << c[0] << " from " << c[1];
}

TEST_F(StringsTest, GrowthKeepsTextAndWritesTerminator) {
    char16_t* s = nullptr;
    ASSERT_EQ(kp::str::create(u"abc", &s), 0);
    ASSERT_EQ(kp::str::grow(&s, 1001), 0);
    const kp_string_header* h = kp_string_header_of(s);
    EXPECT_EQ(h->capacity, 2002u); // from 6 bytes: shortfall too large, twice the request
    EXPECT_EQ(kp::str::view(s), u"abc");
    EXPECT_EQ(reinterpret_cast<const char*>(s)[2002], 0);
    EXPECT_EQ(kp::str::grow(&s, 0xFFFFFFFFu), 108);
    EXPECT_EQ(kp::str::view(s), u"abc"); // untouched on failure
    kp::str::release(s);
}

TEST_F(StringsTest, PerThreadGrowthGoesThroughTheThreadAllocator) {
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

    char16_t* s = nullptr;
    ASSERT_EQ(kp::str::create(u"thread", &s), 0);
    EXPECT_EQ(mine.creates, 1);
    EXPECT_EQ(alloc.creates, 0);
    ASSERT_EQ(kp::str::grow(&s, 4000), 0);
    EXPECT_EQ(mine.grows, 1);
    EXPECT_EQ(mine.frees, 1); // the old buffer went back to its allocator
    EXPECT_EQ(kp_string_header_of(s)->refcount, 1);
    EXPECT_EQ(kp::str::view(s), u"thread");
    kp::str::release(s);
    EXPECT_EQ(mine.frees, 2);
    g_tls_allocator = nullptr;
}

TEST_F(StringsTest, BinaryBuffersCountBytes) {
    const uint8_t bytes[] = {0, 1, 2, 0xFF, 0};
    char16_t* b = nullptr;
    ASSERT_EQ(kp::str::create_binary(bytes, &b), 0);
    EXPECT_TRUE(kp::str::is_binary(b));
    EXPECT_EQ(kp::str::length(b), 5u);
    auto span = kp::str::bytes(b);
    ASSERT_EQ(span.size(), 5u);
    EXPECT_EQ(span[3], 0xFF);
    char16_t* t = nullptr;
    ASSERT_EQ(kp::str::create(u"ab", &t), 0);
    EXPECT_EQ(kp::str::bytes(t).size(), 4u); // text: its UTF-16 units
    kp::str::release(t);
    kp::str::release(b);
}

} // namespace
