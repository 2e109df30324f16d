// handle_table_test.cpp - slots, free chain and growth of the handle table.
#include <gtest/gtest.h>

#include "files/streams.h"

namespace kp::files {
namespace {

TEST(FileHandleTable, PlaceholdersThenReuseOfTheLastFreed) {
    FileHandleTable t(5);
    EXPECT_EQ(t.insert(nullptr), 0);
    EXPECT_EQ(t.insert(nullptr), 1);
    OpenFileRecord a, b, c;
    EXPECT_EQ(t.insert(&a), 2);
    EXPECT_EQ(t.insert(&b), 3);
    EXPECT_EQ(t.insert(&c), 4);
    EXPECT_EQ(t.remove(2), &a);
    EXPECT_EQ(t.remove(4), &c);
    EXPECT_EQ(t.find(2), nullptr);
    EXPECT_EQ(t.remove(2), nullptr); // already free
    EXPECT_EQ(t.in_use(), 3);
    EXPECT_EQ(t.insert(&a), 4);
    EXPECT_EQ(t.insert(&c), 2);
    EXPECT_EQ(t.find(4), &a);
    EXPECT_EQ(t.used(), 5);
}

TEST(FileHandleTable, GrowsByItsStep) {
    FileHandleTable t(5);
    EXPECT_EQ(t.capacity(), 0);
    OpenFileRecord r;
    for (int i = 0; i < 5; ++i)
        t.insert(&r);
    EXPECT_EQ(t.capacity(), 5);
    t.insert(&r);
    EXPECT_EQ(t.capacity(), 10);
    for (int i = 0; i < 1000; ++i)
        t.insert(&r);
    EXPECT_EQ(t.used(), 1006);
    EXPECT_EQ(t.capacity(), 1010);
    EXPECT_EQ(t.find(1005), &r);
}

// A handle removed then given to another record finds the new one, also
// right after the old one was found, and in a table made where another was
// destroyed.
TEST(FileHandleTable, AHandleGivenAgainFindsItsNewRecord) {
    OpenFileRecord a, b;
    for (OpenFileRecord* r : {&a, &b}) {
        FileHandleTable t(5);
        t.insert(nullptr);
        t.insert(nullptr);
        ASSERT_EQ(t.insert(r), 2);
        EXPECT_EQ(t.find(2), r);
        EXPECT_EQ(t.remove(2), r);
        OpenFileRecord* other = r == &a ? &b : &a;
        ASSERT_EQ(t.insert(other), 2);
        EXPECT_EQ(t.find(2), other);
    }
}

TEST(FileHandleTable, InvalidHandles) {
    FileHandleTable t(5);
    t.insert(nullptr);
    t.insert(nullptr);
    OpenFileRecord r;
    int32_t h = t.insert(&r);
    for (int32_t bad : {-1, 0, 1, h + 1, 1 << 30, INT32_MIN, INT32_MAX}) {
        EXPECT_EQ(t.find(bad), nullptr) << bad;
        EXPECT_EQ(t.remove(bad), nullptr) << bad;
    }
    EXPECT_EQ(t.in_use(), 3);
}

} // namespace
} // namespace kp::files
