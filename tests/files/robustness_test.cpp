// robustness_test.cpp - random files and patterns: the line reader gives the
// file back exactly, and no input makes a function fail other than by its
// failure value.
#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <random>

#include "files/streams.h"
#include "platform/codepage.h"
#include "support/test_host.h"
#include "transforms/regex.h"

namespace kp::files {
namespace {

struct Box {
    kp_error_record rec{};
    CXError err{&rec};
    Box() { rec.severity = 1; }
};

// Without a host the device root is "/": names are host paths here.  Each
// line against a plain search and the plain 1252 decoder, read in turn
// into a new string and into one string kept from line to line; some files
// have lines longer than the read-ahead, and high bytes.
TEST(LineReaderProperty, LinesAndLineEndsGiveTheFileBack) {
    kp::test::TempDir dir;
    std::mt19937 rng(1234);
    std::u16string kept;
    for (int round = 0; round < 40; ++round) {
        // Bytes rich in CR and LF so that every combination occurs.
        const bool long_lines = round % 8 == 7;
        std::string bytes(rng() % (long_lines ? 200000 : 3000), '\0');
        for (char& c : bytes) {
            uint32_t r = rng() % (long_lines ? 40000 : 8);
            c = r == 0 ? '\r' : r == 1 ? '\n' : static_cast<char>(rng() % (round % 2 ? 256 : 128));
        }
        std::string path = (dir.path() / "r.txt").string();
        std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
        Box b;
        int32_t h = f_open(platform::from_utf8(path), kFoRead, b.err);
        ASSERT_GE(h, 2);
        std::size_t pos = 0;
        for (int guard = 0; guard < 10000 && pos < bytes.size(); ++guard) {
            std::size_t at = bytes.find("\r\n", pos);
            const std::string want =
                bytes.substr(pos, at == std::string::npos ? std::string::npos : at - pos);
            pos = at == std::string::npos ? bytes.size() : at + 2;
            const std::u16string line =
                guard % 2 ? f_read_line(h, b.err) : (f_read_line(h, kept, b.err), kept);
            ASSERT_EQ(line,
                      platform::decode_1252({reinterpret_cast<const uint8_t*>(want.data()), want.size()}))
                << "round " << round << ", line ending at " << pos;
            // The position is where the next line starts.
            ASSERT_EQ(f_seek(h, 0, 1, b.err), static_cast<int64_t>(pos));
        }
        f_read_line(h, kept, b.err);
        EXPECT_EQ(kept, std::u16string(1, kEndOfFile));
        f_close(h, b.err);
    }
}

// In a Unicode file the line end 0D 00 0A 00 is searched byte by byte, so it
// is found at odd offsets too; random bytes rich in its pieces, against a
// plain search, wherever the end falls in the reader's 16-byte blocks.
TEST(LineReaderProperty, UnicodeLineEndsAreFoundAtAnyByte) {
    kp::test::TempDir dir;
    std::mt19937 rng(4321);
    const std::string kEnd("\r\0\n\0", 4);
    for (int round = 0; round < 40; ++round) {
        std::string bytes = "x"; // no byte-order mark
        for (std::size_t n = rng() % 3000; n > 0; --n) {
            uint32_t r = rng() % 10;
            bytes.push_back(r < 2 ? '\r' : r < 4 ? '\n' : r < 7 ? '\0' : static_cast<char>('a' + rng() % 26));
        }
        std::string path = (dir.path() / "u.txt").string();
        std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
        Box b;
        int32_t h = f_open(platform::from_utf8(path), kFoRead | kFoUnicode, b.err);
        ASSERT_GE(h, 2);
        std::size_t pos = 0;
        for (int guard = 0; guard < 10000 && pos < bytes.size(); ++guard) {
            std::size_t at = bytes.find(kEnd, pos);
            std::string want = bytes.substr(pos, at == std::string::npos ? std::string::npos : at - pos);
            pos = at == std::string::npos ? bytes.size() : at + 4;
            std::u16string line = f_read_line(h, b.err);
            std::u16string expected(want.size() / 2, u'\0');
            std::memcpy(expected.data(), want.data(), expected.size() * 2);
            ASSERT_EQ(line, expected) << "round " << round << ", line ending at " << pos;
            ASSERT_EQ(f_seek(h, 0, 1, b.err), static_cast<int64_t>(pos));
        }
        EXPECT_EQ(f_read_line(h, b.err), std::u16string(1, kEndOfFile));
        f_close(h, b.err);
    }
}

TEST(RegexProperty, RandomPatternsNeverBreakTheCall) {
    std::mt19937 rng(99);
    const char16_t alphabet[] = u"ab()[]{}|*+?.^$\\-,:019";
    for (int round = 0; round < 3000; ++round) {
        std::u16string pattern, text;
        for (int i = rng() % 12; i > 0; --i)
            pattern.push_back(alphabet[rng() % 22]);
        for (int i = rng() % 8; i > 0; --i)
            text.push_back(alphabet[rng() % 3]);
        Box b;
        std::size_t vars = rng() % 4;
        bool ok = transforms::match_regular_expression(
            text, pattern, vars, [](std::size_t, std::u16string_view) { return true; }, b.err);
        if (b.rec.severity > 1) {
            EXPECT_FALSE(ok);
            EXPECT_TRUE(b.rec.id == 80500 || b.rec.id == 80501 || b.rec.id == 80502) << b.rec.id;
        }
    }
}

} // namespace
} // namespace kp::files
