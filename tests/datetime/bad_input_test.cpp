// Inputs of any length and content: every function gives its documented
// failure value or a well-formed result, never a crash or a read out of
// bounds (worth running under the address sanitizer too).
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "datetime/calendar.h"
#include "datetime/durations.h"
#include "datetime/masks.h"

namespace kp::datetime {
namespace {

const kp_regional_settings kNoNames{};

struct Gen {
    uint64_t state = 0x9E3779B97F4A7C15ull;
    uint32_t next() {
        state ^= state << 13;
        state ^= state >> 7;
        state ^= state << 17;
        return static_cast<uint32_t>(state);
    }
    std::u16string text() {
        static const char16_t pool[] = u"0123456789JDMAYjdmayHSCLP+-/: x\xD800\xDC00\xFFFF\x00E9";
        size_t len = next() % 4 == 0 ? next() % 300 : next() % 20;
        std::u16string s;
        for (size_t i = 0; i < len; ++i)
            s.push_back(pool[next() % (sizeof(pool) / sizeof(pool[0]) - 1)]);
        return s;
    }
};

bool digits_only(const std::u16string& s) {
    for (char16_t c : s)
        if (c < u'0' || c > u'9') return false;
    return true;
}

TEST(BadInput, RandomTextNeverBreaksAFunction) {
    Gen g;
    kp_regional_settings rs = kNoNames;
    for (int i = 0; i < 20000; ++i) {
        std::u16string a = g.text(), b = g.text();
        kp_error_record rec{};
        rec.severity = 1;
        CXError err(&rec);
        int32_t dn = date_to_integer(a, false, err);
        EXPECT_TRUE(dn == -1 || date_valid(a));
        int32_t t = time_to_integer(a, err);
        EXPECT_TRUE(t == -1 || (t >= 0 && t < 8640000));
        EXPECT_GE(date_week_number(a, err), -1);
        int32_t wd = date_to_day(a, err);
        EXPECT_TRUE(wd == -1 || (wd >= 1 && wd <= 7));
        date_difference(a, b, err);
        time_difference(a, b, err);
        std::u16string diff = date_time_difference(a, b, err);
        EXPECT_TRUE(diff.empty() || diff.size() == 16);
        std::u16string ag = age(a, b);
        EXPECT_TRUE(ag.empty() || ag.size() == 8);
        EXPECT_TRUE(easter(a).empty() || easter(a).size() == 8);
        std::u16string_view mask = b;
        date_to_string(a, &mask, rs, err);
        time_to_string(a, &mask, rs, err);
        std::u16string d = string_to_date(a, &mask, rs);
        EXPECT_TRUE(d.empty() || d.size() == 8);
        string_to_date(a, &kSystemMask, rs);
        DurationLetters letters;
        duration_to_string(static_cast<int64_t>(g.next()) << 32 | g.next(), b, letters);
        string_to_duration(a, b, letters);
        string_to_duration(a, static_cast<int32_t>(g.next() % 3));
        date_time_utc_to_local(a, err);
        date_time_local_to_utc(a, err);
        date_to_day_in_alpha(a, rs, err);
        date_to_month_in_alpha(a, rs, err);
    }
}

// The whole 32-bit range of day numbers in strides (a prime, so every
// residue of the month and week arithmetic comes up): a date exactly from
// 1 January of year 0 on, and a week number and names wherever there is one.
TEST(BadInput, DayNumbersAcrossTheWholeRange) {
    kp_error_record rec{};
    rec.severity = 1;
    CXError err(&rec);
    int failures = 0;
    for (int64_t v = INT32_MIN; v <= INT32_MAX && failures < 5; v += 4099) {
        const auto n = static_cast<int32_t>(v);
        const bool has_date = n >= -657413;
        const std::u16string d = integer_to_date(n, u"", err);
        const int32_t week = integer_week_number(n, err);
        const std::u16string month = integer_to_month_in_alpha(n, kNoNames, err);
        const int32_t day = integer_to_day(n);
        if (d.empty() == has_date ||
            (has_date && (d.size() < 8 || !digits_only(d) || week < 0 || week > 54)) ||
            (!has_date && week != -1) || !month.empty() || day < -6 || day > 7 || day == 0) {
            ADD_FAILURE() << n << " -> \"" << std::string(d.begin(), d.end()) << "\" week " << week;
            ++failures;
        }
    }
}

} // namespace
} // namespace kp::datetime
