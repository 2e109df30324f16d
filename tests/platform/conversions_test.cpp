// conversions_test.cpp - Win32 codes, code pages and WTF-8 names, beside the host's own.
#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "platform/codepage.h"
#include "platform/win32_error.h"
#include "support/utf8_cases.h"
#include "wtf8.h"

namespace kp::platform {
namespace {

// Every mapped errno; anything else (EPROTO, -1) is an invalid function.
TEST(Win32Codes, EveryMappedErrno) {
    // clang-format off
    struct Row { int err; uint32_t code; } rows[] = {
        {0, kErrorSuccess}, {ENOENT, kErrorFileNotFound}, {ENOTDIR, kErrorPathNotFound},
        {EACCES, kErrorAccessDenied}, {EROFS, kErrorAccessDenied}, {EPERM, kErrorPrivilegeNotHeld},
        {EISDIR, kErrorAccessDenied}, {EBADF, kErrorInvalidHandle}, {ESRCH, kErrorInvalidHandle},
        {ENOMEM, kErrorNotEnoughMemory}, {EMFILE, kErrorTooManyOpenFiles}, {ENFILE, kErrorTooManyOpenFiles},
        {EEXIST, kErrorFileExists}, {EINVAL, kErrorInvalidParameter}, {ENOSPC, kErrorDiskFull},
        {EDQUOT, kErrorDiskFull}, {EFBIG, kErrorDiskFull}, {ENAMETOOLONG, kErrorFilenameExcedRange},
        {ENOTEMPTY, kErrorDirNotEmpty}, {EXDEV, kErrorNotSameDevice}, {EBUSY, kErrorBusy},
        {EAGAIN, kErrorLockViolation}, {EPIPE, kErrorBrokenPipe}, {ENOSYS, kErrorNotSupported},
        {ENOTSUP, kErrorNotSupported}, {EILSEQ, kErrorInvalidName}, {ELOOP, kErrorCantResolveFilename},
        {ETIMEDOUT, kErrorTimeout}, {EPROTO, kErrorInvalidFunction}, {-1, kErrorInvalidFunction}};
    // clang-format on
    for (const Row& r : rows)
        EXPECT_EQ(win32_from_errno(r.err), r.code) << "errno " << r.err;
}

TEST(Win32Codes, LastErrorIsPerThreadAndFollowsErrno) {
    set_last_error(kErrorAccessDenied);
    errno = ENOENT;
    EXPECT_EQ(set_last_error_from_errno(), kErrorFileNotFound);
    EXPECT_EQ(last_error(), kErrorFileNotFound);
    uint32_t seen_by_other = 12345;
    std::thread([&] {
        seen_by_other = last_error();
        set_last_error(kErrorBusy);
    }).join();
    EXPECT_EQ(seen_by_other, kErrorSuccess);
    EXPECT_EQ(last_error(), kErrorFileNotFound);
    set_last_error(kErrorSuccess);
}

std::vector<uint8_t> bytes(std::string_view s) {
    return {s.begin(), s.end()};
}

TEST(CodePages, Windows1252BothWays) {
    // 0x80-0x9F is where 1252 differs from Latin-1; its holes keep their control value.
    const std::pair<uint8_t, char16_t> rows[] = {{0x41, u'A'},   {0x80, 0x20AC}, {0x81, 0x0081},
                                                 {0x8D, 0x008D}, {0x9F, 0x0178}, {0xA0, 0x00A0},
                                                 {0xE9, 0x00E9}, {0xFF, 0x00FF}, {0x00, 0x0000}};
    for (const auto& [byte, ch] : rows) {
        EXPECT_EQ(cp1252_to_unicode(byte), ch) << int(byte);
        EXPECT_EQ(host::cp1252_char(byte), ch) << int(byte);
        bool ok = false;
        EXPECT_EQ(unicode_to_cp1252(ch, &ok), byte) << int(byte);
        EXPECT_TRUE(ok);
    }
    for (char16_t ch : {char16_t(0x0100), char16_t(0x4E2D), char16_t(0xD800), char16_t(0xFFFD)}) {
        bool ok = true;
        EXPECT_EQ(unicode_to_cp1252(ch, &ok), 0);
        EXPECT_FALSE(ok) << int(ch);
    }
    EXPECT_EQ(unicode_to_cp1252(0x4E2D), 0); // no flag asked for
    EXPECT_EQ(encode_1252(u"a\u20ACb\u4E2D"), "a\x80"
                                              "b?");
    EXPECT_EQ(decode_1252(bytes("a\x80\x9F")), u"a\u20AC\u0178");
}

// Other pages go through the converter (437 as "cp437"); missing characters encode as '?'.
TEST(CodePages, OtherPagesThroughTheConverter) {
    const std::tuple<uint32_t, std::string, std::u16string> rows[] = {
        {kCodePage1252, "\x80", u"\u20AC"},
        {kCodePageUtf8, "\xF0\x9F\x98\x80", u"\U0001F600"},
        {1251, "\xC0", u"\u0410"},
        {437, "\x82", u"\u00E9"},
        {1251, "", u""}};
    for (const auto& [page, bytes_, text] : rows) {
        std::u16string decoded;
        std::string encoded;
        EXPECT_TRUE(decode(page, bytes(bytes_), decoded)) << page;
        EXPECT_EQ(decoded, text) << page;
        EXPECT_TRUE(encode(page, text, encoded)) << page;
        EXPECT_EQ(encoded, bytes_) << page;
    }
    std::string out;
    EXPECT_TRUE(encode(1251, u"\u0410\u4E2D", out));
    EXPECT_EQ(out, "\xC0?");
    std::u16string text = u"kept";
    EXPECT_FALSE(decode(4242, bytes("x"), text));
    EXPECT_FALSE(encode(4242, u"x", out));
}

// The platform's codec and the host's, written apart, read the same table.
TEST(Wtf8Names, TheTableOfCases) {
    for (const kp::test::Utf8Case& c : kp::test::utf8_cases()) {
        const std::string shown = testing::PrintToString(c.bytes);
        EXPECT_EQ(from_utf8(c.bytes), c.text) << shown;
        EXPECT_EQ(host::utf16(c.bytes), c.text) << shown;
        std::u16string strict;
        EXPECT_EQ(host::wtf8_to_utf16(c.bytes, strict), c.well_formed) << shown;
        EXPECT_EQ(host::wtf8_invalid_at(c.bytes) == std::string::npos, c.well_formed) << shown;
        if (c.well_formed) {
            EXPECT_EQ(strict, c.text) << shown;
            EXPECT_EQ(to_utf8(c.text), c.bytes) << shown;
            EXPECT_EQ(host::utf8(c.text), c.bytes) << shown;
        }
    }
}

} // namespace
} // namespace kp::platform
