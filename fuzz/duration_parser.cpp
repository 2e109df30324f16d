// duration_parser.cpp - StringToDuration with a form and with a mask of
// localised letters, and the matching DurationToString forms.

#include <fuzzer/FuzzedDataProvider.h>

#include <cstdint>
#include <string>

#include "datetime/durations.h"
#include "fuzz_input.h"

namespace {

using namespace kp::datetime;

const std::vector<std::u16string_view> kDictionary = {
    u"0000000000000000000", u"-000010203040500", u"9999999999999999999", u"J H M S L", u"JJ:HH:MM:SS:LLL",
    u"HHHH h MM",           u"D H M S L",        u"1 2 3 4 5",           u"-12:30",    u"00000012345678",
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider in(data, size);
    DurationLetters letters;
    if (in.ConsumeBool()) {
        letters.day = kp::fuzz::short_text(in, 5);
        letters.hour = kp::fuzz::short_text(in, 5);
        letters.minute = kp::fuzz::short_text(in, 5);
        letters.second = kp::fuzz::short_text(in, 5);
        letters.milli = kp::fuzz::short_text(in, 5);
    }
    const std::u16string input = kp::fuzz::text(in, kDictionary);
    const std::u16string mask = kp::fuzz::text(in, kDictionary);
    const int32_t form = kp::fuzz::integer<int32_t>(in);
    const int64_t ms = kp::fuzz::integer<int64_t>(in);

    string_to_duration(input, form);
    string_to_duration(input, mask, letters);
    duration_to_string(ms, form);
    duration_to_string(ms, mask, letters);
    // What one form writes, the same form reads.
    string_to_duration(duration_to_string(ms, form), form);
    string_to_duration(duration_to_string(ms, mask, letters), mask, letters);
    return 0;
}
