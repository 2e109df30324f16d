// wildcard_test.cpp - the device's name patterns: stars, question marks,
// case, the ".*" rule, and patterns that would make a backtracking matcher
// take exponential time.
#include <gtest/gtest.h>

#include "platform/wildcard.h"

namespace kp::platform {
namespace {

// Accented capitals fold too.
TEST(Wildcard, Table) {
    // clang-format off
    struct Row { const char16_t* pattern; const char16_t* name; bool match; } rows[] = {
        {u"*", u"anything", true}, {u"*", u"", true}, {u"", u"", true}, {u"", u"a", false},
        {u"*.*", u"noext", true}, {u"*.*", u"a.b.c", true}, {u"*.txt", u"A.TXT", true},
        {u"*.txt", u"a.txt.bak", false}, {u"a.*", u"a", true}, {u"a.*", u"ab", false}, {u"?", u"a", true},
        {u"?", u"", false}, {u"??", u"a", false}, {u"a?c", u"abc", true}, {u"a?c", u"ac", false},
        {u"a*b*c", u"aXXbYYc", true}, {u"a*b*c", u"acb", false}, {u"*ab", u"aab", true},
        {u"ab*ab", u"ab", false}, {u"ab*ab", u"abab", true}, {u"*a?b*", u"xxaYbzz", true},
        {u"*a?b*", u"xxabzz", false}, {u"\u00c9T\u00c9.*", u"\u00e9t\u00e9.doc", true}, {u"**a**", u"bab", true},
        {u"f.txt", u"F.Txt", true}, {u"*.tx?", u"a.txt", true}, {u"*.tx?", u"a.tx", false}};
    // clang-format on
    for (const Row& r : rows)
        EXPECT_EQ(wildcard_match(r.pattern, r.name), r.match)
            << std::u16string_view(r.pattern).size() << " pattern, name size "
            << std::u16string_view(r.name).size();
}

// "*a*a*...*a*b" against "aaaa...": a backtracking matcher tries every
// split; this one walks the name once a segment.
TEST(Wildcard, PathologicalPatterns) {
    std::u16string pattern;
    for (int i = 0; i < 5000; ++i)
        pattern += u"*a";
    const std::u16string name(255, u'a');
    EXPECT_FALSE(wildcard_match(pattern + u"*b", name));
    EXPECT_FALSE(wildcard_match(std::u16string(10000, u'?'), name));
    EXPECT_TRUE(wildcard_match(u"*" + std::u16string(200, u'a') + u"*", name));
    EXPECT_TRUE(has_wildcards(u"\\d\\*.txt") && has_wildcards(u"a?"));
    EXPECT_FALSE(has_wildcards(u"\\d\\a.txt"));
}

} // namespace
} // namespace kp::platform
