// regex_test.cpp - whole-string matching, group transfer and its errors.
#include <gtest/gtest.h>

#include <clocale>
#include <string>
#include <vector>

#include "files_fixture.h"
#include "platform/regex.h"
#include "transforms/regex.h"

namespace kp::transforms {
namespace {

struct Outcome {
    bool result = false;
    uint32_t id = 0;
    std::vector<std::u16string> groups;
    std::u16string message;
};

Outcome run(std::u16string_view text, std::u16string_view pattern, std::size_t variables) {
    kp_error_record rec{};
    rec.severity = 1;
    CXError err(&rec);
    Outcome o;
    o.result = match_regular_expression(
        text, pattern, variables,
        [&](std::size_t i, std::u16string_view g) {
            EXPECT_EQ(i, o.groups.size() + 1);
            o.groups.emplace_back(g);
            return true;
        },
        err);
    o.id = rec.id;
    o.message.assign(rec.message, rec.message_length);
    return o;
}

// Whole-string matches, the engine's syntax and the groups given to the
// variables, the same in the C locale and in a UTF-8 one: every 1252 byte
// is one character, accented letters are not letters.
TEST(RegexWholeString, MatchesAndGroups) {
    struct Row {
        std::u16string text, pattern;
        std::size_t variables;
        bool result;
        std::vector<std::u16string> groups;
        uint32_t id;
    };
    const Row rows[] = {
        {u"aaa", u"a+", 0, true, {}, 0},
        {u"aaab", u"a+", 0, false, {}, 0},
        {u"baaa", u"a+", 0, false, {}, 0},
        {u"", u"", 0, true, {}, 0},
        {u"x", u"", 0, false, {}, 0},
        {u"abc", u"a|abc", 0, true, {}, 0}, // through the longest branch
        {u"a\nb", u"a.b", 0, true, {}, 0},  // "." matches a newline
        {u"x)", u"x)", 0, true, {}, 0},     // an unmatched ")" is ordinary
        {u"aaa", u"a{3}", 0, true, {}, 0},  // intervals with plain braces
        {u"a|b", u"a\\|b", 0, true, {}, 0}, // "\|" is a literal bar
        // Stacked repetitions whose nested loops never end in the engine.
        {u"", u"(+*$)+*$)*", 0, true, {}, 0},
        {u"+", u"(+*$)+*$)*", 1, true, {u"+"}, 0},
        {u"aaaa", u"^^(\\b|+*)**{,3}*", 0, false, {}, 0},
        {u"aaaa", u"^a***a***a***a***a***a***a***a***a***a***a***a***a***a***a***a***", 0, true, {}, 0},
        // Large patterns run in a child process; one that overruns is refused
        // ("(){1300,}": estimated under the limit, 6 s to compile).
        {u"ab@cd", u"([a-z]{1,255})@([a-z]{1,255})", 2, true, {u"ab", u"cd"}, 0},
        {u"ab@", u"([a-z]{1,255})@([a-z]{1,255})", 2, false, {}, 0},
        {u"", u"(){1300,}", 0, false, {}, kErrPatternInvalid},
        {u"b", u"a|b", 0, true, {}, 0},
        {u"abab", u"(ab)\\1", 1, true, {u"ab"}, 0},
        {u"ab", u"ab?c?", 0, true, {}, 0},
        {u"Q9", u"[[:upper:]][[:digit:]]", 0, true, {}, 0},
        {u"\u00e9", u".", 0, true, {}, 0},
        {u"\u00e9t\u00e9", u"...", 0, true, {}, 0},
        {u"\u00e9", u"[[:alpha:]]", 0, false, {}, 0},
        {u"\u00e9", u"[^[:alpha:]]", 0, true, {}, 0},
        {std::u16string(u"a\0b", 3), std::u16string(u"a\0b", 3), 0, true, {}, 0},
        {std::u16string(200000, u'x'), u"x*", 0, true, {}, 0},
        {std::u16string(200000, u'x') + u"y", u"x*", 0, false, {}, 0},
        {u"key=value", u"([a-z]+)=([a-z]*)", 2, true, {u"key", u"value"}, 0},
        // Offsets in the 1252 bytes are offsets in the UTF-16 text.
        {u"\u20ac\u00e9=\u4e2d", u"(..)=(.)", 2, true, {u"\u20ac\u00e9", u"\u4e2d"}, 0},
        {u"ab", u"(a)(b)", 0, true, {}, 0},
        {u"a", u"(a)(b)?", 2, false, {u"a"}, kErrGroupMissing},
        {u"a", u"(a)", 3, false, {u"a"}, kErrGroupMissing},
        {u"ab", u"(a)(b)", 1, false, {}, kErrTooManyGroups}};
    const char* previous = std::setlocale(LC_ALL, nullptr);
    const std::string saved = previous ? previous : "C";
    for (const char* locale : {"C", "C.UTF-8"}) {
        if (!std::setlocale(LC_ALL, locale)) continue;
        for (const Row& r : rows) {
            SCOPED_TRACE(std::string(locale) + " " + kp::host::utf8(r.pattern));
            Outcome o = run(r.text, r.pattern, r.variables);
            EXPECT_EQ(o.result, r.result);
            EXPECT_EQ(o.id, r.id);
            if (r.variables && r.id != kErrTooManyGroups) {
                EXPECT_EQ(o.groups, r.groups);
            }
        }
    }
    std::setlocale(LC_ALL, saved.c_str());
}

TEST(RegexWholeString, PatternsThatDoNotCompile) {
    for (std::u16string p : {u"(a", u"[a", u"a{2,1}", u"\\"}) {
        Outcome o = run(u"a", p, 0);
        EXPECT_FALSE(o.result);
        EXPECT_EQ(o.id, kErrPatternInvalid);
        EXPECT_NE(o.message.find(u"Valeur de retour d'analyse du format : -1"), std::u16string::npos);
    }
}

// Nested bounds multiply; a pattern expanding beyond the limit is refused
// before the engine sees it, as one that does not compile.
TEST(RegexWholeString, ExpandedSizeIsBoundedBeforeCompiling) {
    auto repeated = [](const std::string& s, int n) {
        std::string out;
        for (int i = 0; i < n; ++i)
            out += s;
        return out;
    };
    struct Case {
        std::string pattern;
        bool refused;
    };
    const Case cases[] = {
        {"((((a{1,255}){1,255}){1,255}){1,255})", true},
        {"(a{1,64}){1,64}", true},
        {"a{1,2100}", true},
        {"(ab|cd){1,2000}", true},
        {"x(y(z{3}){100}){100}", true},
        {"a{1,1000}", false},
        {"[a-z]{1,255}@[a-z]{1,255}", false},
        {"(a|b|c|d){1,100}", false},
        {std::string(16000, 'a'), false},
        {std::string(17000, 'a'), true},
        {"a{2}{3}{4}{5}{6}{7}{8}{9}", true},
        {"(x*++++++++++#++)", true}, // each "+" doubles the stars before it
        {"(a+b+)+c?d*", false},
        {"a)))))+{1,9}", false}, // unmatched ")" are characters
        {"[]{1,9999}]", false},  // the bracket holds the braces
        // Nodes passable without reading: their sets grow with the square
        // of their count, in runs and in nesting.
        {repeated("(o?)", 4000), true},
        {repeated("(o?)", 100), false},
        {"o" + repeated("*", 2000), true},
        {"o" + repeated("?", 4000) + "+", true},
        {"o" + repeated("?", 20) + "+++", true},
        {repeated("(ab?|c*)", 12), false},
        {"(a*b*)+", false},
        {"z???{,5}?+{2}", true}, // copies of copies of what matches empty
        {"((a*b*)+c?)+", true},
        {"(^){2,155}", true}, // copies of an anchor
        {repeated("\\b", 67), true},
        {"^\\bfoo\\b.*\\bbar\\b$", false},
        {"s" + repeated("?", 74) + "\x05" + repeated("?", 20) + "++", true}, // reach into loops
        // Stacked repetitions after an anchor multiply ("^" and 16 "a***": 58 s).
        {"^" + repeated("a***", 16), true},
        {"\\b" + repeated("a***", 12), true},
        {"^(a***)(b***)(c***)(d***)(e***)(f***)(g***)(h***)(i***)(j***)(k***)(l***)", true},
        {"^" + repeated("a*********", 5), true},
        {repeated("a***", 16), false}, // no anchor: no product
        {"^" + repeated("a?", 32) + "$", false},
        {"^" + repeated("(a*)*", 12), false},
        {"^\\s*([A-Za-z_]+)\\s*=\\s*(.*?)\\s*$", false},
        {"(\\b**){,9}*", true}, // copies of such a run, looped: hangs
        {"(\\b****){,3}*", true},
        {"(\\b**){,3}*", false},
        {"(\\b****){,3}", false},
        {"\\`" + repeated("*", 124), true}, // stacked on the anchor itself: 4.9 s
        {"\\`" + repeated("*", 40), false}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.pattern);
        EXPECT_EQ(regex_expanded_size(c.pattern) > kRegexSizeLimit, c.refused)
            << regex_expanded_size(c.pattern);
        // Stacked repetitions are collapsed before the estimate sees them.
        if (c.refused && collapse_repetitions(c.pattern) == c.pattern) {
            const std::u16string pattern(c.pattern.begin(), c.pattern.end());
            Outcome o = run(u"aaaa", pattern, 0);
            EXPECT_FALSE(o.result);
            EXPECT_EQ(o.id, kErrPatternInvalid);
        }
    }
}

// Runs of stacked repetitions become the one repetition they amount to
// when their counts form an interval; the engine's contexts decide what is
// a repetition at all.
TEST(RegexWholeString, StackedRepetitionsCollapse) {
    const std::pair<std::string, std::string> cases[] = {
        {"a**", "a*"},
        {"a+*", "a*"},
        {"a++", "a+"},
        {"a??", "a?"},
        {"a+?", "a*"},
        {"a?+", "a*"},
        {"a*{2,5}", "a*"},
        {"a+{3}", "a{3,}"},
        {"a?{2,5}", "a{0,5}"},
        {"a{2}{3}", "a{6}"},
        {"a{1}{0}*", "a{0}"},
        {"a{,}+", "a*"},
        {"(a)+*?", "(a)*"},
        {"[*]**", "[*]*"},
        {"[]*]+?", "[]*]*"},
        {"[[:alpha:]*]**", "[[:alpha:]*]*"},
        {"a\\***", "a\\**"},
        {"a{2}?", "a{2}?"}, // none or two: a gap
        {"a{2}?{2}?", "a{2}{0,2}"},
        {"a{200}{200}", "a{200}{200}"}, // beyond the engine's count
        // Where an operand is expected, the first is a character.
        {"^***", "^**"},
        {"\\b+*?", "\\b+*"},
        {"(**)", "(**)"},
        {"x|*+?", "x|**"},
        {"a^**", "a^*"},
        {"$**", "$*"},
        {"a$)**", "a$)*"},
        {"({2}{3})", "({2}{3})"},
        // Not understood, so left to the engine to refuse.
        {"a{x}**", "a{x}**"},
        {"[a**", "[a**"},
        {"[[:a**]", "[[:a**]"},
        {"a**\\", "a**\\"}};
    for (const auto& [pattern, collapsed] : cases)
        EXPECT_EQ(collapse_repetitions(pattern), collapsed) << pattern;
}

// Every pattern of up to four tokens compiles exactly when its collapsed
// form does and matches the same prefix of each subject; without groups the
// registers are the same too.
TEST(RegexWholeString, CollapsedPatternsMatchTheSame) {
    const char* tokens[] = {"a", "b", "*", "+", "?", "{2}", "{,1}", "(", ")", "|", "^", "$", "\\b"};
    const char* subjects[] = {"", "a", "aa", "ab", "ba", "aab", "*", "+a", "a$)"};
    std::vector<std::string> patterns = {""};
    for (std::size_t length = 1, from = 0; length <= 4; ++length) {
        const std::size_t to = patterns.size();
        for (std::size_t i = from; i < to; ++i)
            for (const char* t : tokens)
                patterns.push_back(patterns[i] + t);
        from = to;
    }
    int differences = 0;
    for (const std::string& p : patterns) {
        const std::string collapsed = collapse_repetitions(p);
        if (collapsed == p) continue;
        platform::Regex original, shorter;
        const bool compiled = original.compile(p, kRegexSyntax);
        ASSERT_EQ(shorter.compile(collapsed, kRegexSyntax), compiled) << p << " as " << collapsed;
        if (!compiled) continue;
        for (const char* subject : subjects) {
            ASSERT_EQ(original.match(subject), shorter.match(subject))
                << p << " as " << collapsed << " on " << subject;
            if (p.find('(') != std::string::npos) continue;
            std::size_t s1 = 0, e1 = 0, s2 = 0, e2 = 0;
            if (original.group(0, &s1, &e1) != shorter.group(0, &s2, &e2) || s1 != s2 || e1 != e2)
                ++differences;
        }
    }
    EXPECT_EQ(differences, 0);
}

using kp::files::test::DeviceTest;
using kp::host::Value;
using RegexCalls = DeviceTest;

TEST_F(RegexCalls, VariablesReceiveTheGroups) {
    std::vector<Value> args = {Value::string(u"2024-05"), Value::string(u"([0-9]+)-([0-9]+)"),
                               Value::variable(), Value::variable()};
    auto out = call_with("MatchRegularExpression", args);
    ASSERT_EQ(out.status, kp::host::CallStatus::Ok) << out.detail;
    EXPECT_TRUE(out.result.b);
    EXPECT_EQ(args[2].ref->s, u"2024");
    EXPECT_EQ(args[3].ref->s, u"05");
    // Eight variables: ten arguments, past the host's arguments kept in place.
    std::vector<Value> eight = {Value::string(u"abcdefgh"), Value::string(u"(a)(b)(c)(d)(e)(f)(g)(h)")};
    for (int k = 0; k < 8; ++k)
        eight.push_back(Value::variable());
    out = call_with("MatchRegularExpression", eight);
    ASSERT_EQ(out.status, kp::host::CallStatus::Ok) << out.detail;
    EXPECT_TRUE(out.result.b);
    for (int k = 0; k < 8; ++k)
        EXPECT_EQ(eight[2 + k].ref->s, std::u16string(1, static_cast<char16_t>(u'a' + k))) << k;
    EXPECT_TRUE(call("MatchRegularExpression", {Value::string(u"ab"), Value::string(u"(a)(b)")}).result.b);
    std::vector<Value> one = {Value::string(u"ab"), Value::string(u"(a)(b)"), Value::variable()};
    out = call_with("MatchRegularExpression", one);
    EXPECT_FALSE(out.result.b);
    EXPECT_EQ(out.error.id, 80501u);
    out = call("MatchRegularExpression", {Value::string(u"a"), Value::string(u"(")});
    EXPECT_FALSE(out.result.b);
    EXPECT_EQ(out.error.id, 80500u);
}

} // namespace
} // namespace kp::transforms
