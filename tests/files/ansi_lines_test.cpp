// ANSI lines widen to UTF-16 through code page 1252 wherever the bytes of
// 0x80 and more fall: inside a 16-byte block, at its edges, or in the tail.
#include "files_fixture.h"

namespace kp::files::test {
namespace {

TEST_F(DeviceTest, HighBytesDecodeAtEveryPosition) {
    for (std::size_t length : {1u, 15u, 16u, 17u, 31u, 32u, 33u, 70u}) {
        for (std::size_t at = 0; at < length; at += 5) {
            std::string bytes(length, 'a');
            std::u16string expected(length, u'a');
            bytes[at] = '\x80'; // the euro sign
            expected[at] = u'\u20AC';
            if (at + 1 < length) {
                bytes[at + 1] = '\xE9';
                expected[at + 1] = u'\u00E9';
            }
            put("l.txt", bytes + "\r\nnext\r\n");
            int64_t h = open(u"\\l.txt", 1);
            ASSERT_GE(h, 0);
            EXPECT_EQ(line(h), expected) << "length " << length << " at " << at;
            EXPECT_EQ(line(h), u"next");
            close(h);
        }
    }
}

} // namespace
} // namespace kp::files::test
