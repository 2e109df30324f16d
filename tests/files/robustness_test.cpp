// robustness_test.cpp - random files: the line reader gives the file back exactly.
#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <random>

#include "files/streams.h"
#include "platform/codepage.h"
#include "support/error_record.h"
#include "support/test_host.h"

namespace kp::files {
namespace {

// Random files rich in CR and LF, each line against a plain search (names are host paths): ANSI against
// the 1252 decoder, into a new string and a kept one, some lines past the read-ahead; UTF-16 without a mark,
// where 0D 00 0A 00 is found at odd offsets too.
TEST(LineReaderProperty, LinesAndLineEndsGiveTheFileBack) {
    kp::test::TempDir dir;
    const std::string path = (dir.path() / "r.txt").string();
    std::mt19937 rng(1234);
    std::u16string kept;
    for (int round = 0; round < 80; ++round) {
        const bool unicode = round >= 40, long_lines = !unicode && round % 8 == 7;
        const std::string end = unicode ? std::string("\r\0\n\0", 4) : "\r\n";
        std::string bytes = unicode ? "x" : "";
        for (std::size_t n = rng() % (long_lines ? 200000 : 3000); n > 0; --n) {
            uint32_t r = rng() % (unicode ? 10 : long_lines ? 40000 : 8);
            if (unicode)
                bytes.push_back(r < 2   ? '\r'
                                : r < 4 ? '\n'
                                : r < 7 ? '\0'
                                        : static_cast<char>('a' + rng() % 26));
            else
                bytes.push_back(r == 0   ? '\r'
                                : r == 1 ? '\n'
                                         : static_cast<char>(rng() % (round % 2 ? 256 : 128)));
        }
        std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
        kp::test::Err b;
        int32_t h = f_open(platform::from_utf8(path), kFoRead | (unicode ? kFoUnicode : 0), b.err);
        ASSERT_GE(h, 2);
        std::size_t pos = 0;
        for (int guard = 0; guard < 10000 && pos < bytes.size(); ++guard) {
            std::size_t at = bytes.find(end, pos);
            const std::string want =
                bytes.substr(pos, at == std::string::npos ? std::string::npos : at - pos);
            pos = at == std::string::npos ? bytes.size() : at + end.size();
            std::u16string expected(want.size() / 2, u'\0');
            if (unicode)
                std::memcpy(expected.data(), want.data(), expected.size() * 2);
            else
                expected =
                    platform::decode_1252({reinterpret_cast<const uint8_t*>(want.data()), want.size()});
            const std::u16string line =
                guard % 2 || unicode ? f_read_line(h, b.err) : (f_read_line(h, kept, b.err), kept);
            ASSERT_EQ(line, expected) << "round " << round << ", line ending at " << pos;
            // The position is where the next line starts.
            ASSERT_EQ(f_seek(h, 0, 1, b.err), static_cast<int64_t>(pos));
        }
        f_read_line(h, kept, b.err);
        EXPECT_EQ(kept, std::u16string(1, kEndOfFile));
        f_close(h, b.err);
    }
}

} // namespace
} // namespace kp::files
