// utf8_cases.h - the one table of UTF-8 bytes and the UTF-16 text they stand
// for, read by every UTF-8 decoder of the tree (the platform's, the
// registry store's names, the host's).
//
// Well-formed rows are WTF-8: a lone surrogate is its own three-byte
// sequence and reads back as that surrogate.  Malformed rows (overlong
// forms, values past U+10FFFF, bytes that never start a sequence, sequences
// cut short) read as one U+FFFD a byte where a decoder substitutes, and are
// refused whole where a decoder refuses.
#pragma once

#include <string>
#include <vector>

namespace kp::test {

struct Utf8Case {
    std::string bytes;
    std::u16string text; // what the bytes read as, U+FFFD a malformed byte
    bool well_formed;    // WTF-8: written back exactly by an encoder
};

inline const std::vector<Utf8Case>& utf8_cases() {
    const std::u16string bad(1, u'\uFFFD');
    static const std::vector<Utf8Case> rows = {
        {"", u"", true},
        {"a", u"a", true},
        {"\x7F", u"\x7F", true},
        {"\xC2\x80", u"\u0080", true}, // the shortest of each length
        {"\xC3\xA9", u"\u00E9", true},
        {"\xE0\xA0\x80", u"\u0800", true},
        {"\xE2\x82\xAC", u"\u20AC", true},
        {"\xEF\xBF\xBF", u"\uFFFF", true},
        {"\xF0\x90\x80\x80", u"\U00010000", true},
        {"\xF0\x9F\x98\x80", u"\U0001F600", true},
        {"\xF4\x8F\xBF\xBF", u"\U0010FFFF", true},
        {"\xED\xA0\x80", std::u16string(1, char16_t(0xD800)), true}, // lone surrogates
        {"\xED\xBF\xBFx", std::u16string{char16_t(0xDFFF), u'x'}, true},
        {"\xED\xB0\x80\xED\xA0\x80", std::u16string{char16_t(0xDC00), char16_t(0xD800)}, true}, // reversed
        {"\x80", bad, false}, // a lone continuation byte
        {"\xBF", bad, false},
        {"\xC0\x80", bad + bad, false},                     // overlong NUL
        {"\xC0\xAF", bad + bad, false},                     // overlong '/'
        {"\xC1\xBF", bad + bad, false},                     // overlong two-byte form
        {"\xE0\x80\xAF", bad + bad + bad, false},           // overlong '/' in three bytes
        {"\xE0\x9F\xBF", bad + bad + bad, false},           // overlong three-byte form
        {"\xF0\x80\x80\xAF", bad + bad + bad + bad, false}, // overlong '/' in four bytes
        {"\xF0\x8F\xBF\xBF", bad + bad + bad + bad, false}, // overlong four-byte form
        {"\xF4\x90\x80\x80", bad + bad + bad + bad, false}, // past U+10FFFF
        {"\xF5\x80\x80\x80", bad + bad + bad + bad, false},
        {"\xF8\x88\x80\x80\x80", bad + bad + bad + bad + bad, false},
        {"\xFF", bad, false},
        {"\xC3", bad, false}, // cut short at the end
        {"\xE2\x82", bad + bad, false},
        {"\xF0\x9F\x98", bad + bad + bad, false},
        {"\xC3x", bad + u"x", false}, // cut short by a plain byte
        {"a\xE2\x82"
         "b",
         u"a" + bad + bad + u"b", false},
    };
    return rows;
}

} // namespace kp::test
