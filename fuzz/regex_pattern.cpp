// regex_pattern.cpp - MatchRegularExpression with any pattern: stacked
// repetitions collapse (and collapsing twice changes nothing), the size
// bound refuses what the engine would take too long or too much memory to
// compile, and whatever compiles matches a subject without crashing.  Runs
// with -rss_limit_mb=1024 -timeout=5 (tools/fuzz.sh).
#include <fuzzer/FuzzedDataProvider.h>

#include <cstdint>
#include <cstdlib>
#include <span>
#include <string>

#include "platform/codepage.h"
#include "transforms/regex.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider in(data, size);
    const std::size_t variables = in.ConsumeIntegralInRange<std::size_t>(0, 8);
    const std::string pattern = in.ConsumeRandomLengthString(2048);
    const std::string subject = in.ConsumeRemainingBytesAsString();
    // The texts as a program would give them: code page 1252 read into
    // UTF-16, so that the pattern compiled (the text written back to 1252)
    // is these very bytes.  (Bytes taken as UTF-16 units would not be: the
    // C1 controls U+0080-U+009F other than 1252's five undefined bytes have
    // no 1252 byte and compile as '?'.)
    const auto bytes = [](const std::string& t) {
        return std::span(reinterpret_cast<const uint8_t*>(t.data()), t.size());
    };
    const std::u16string p = kp::platform::decode_1252(bytes(pattern));
    const std::u16string s = kp::platform::decode_1252(bytes(subject));
    kp_error_record rec{};
    rec.severity = KP_SEVERITY_NONE;
    kp::CXError err(&rec);
    std::size_t assigned = 0;
    const bool ok = kp::transforms::match_regular_expression(
        s, p, variables,
        [&](std::size_t i, std::u16string_view text) {
            if (i != assigned + 1 || text.size() > s.size()) std::abort();
            ++assigned;
            return true;
        },
        err);
    const std::string collapsed = kp::transforms::collapse_repetitions(pattern);
    if (kp::transforms::collapse_repetitions(collapsed) != collapsed) std::abort();
    // A refused pattern never reaches the engine and always says why.
    if (kp::transforms::regex_expanded_size(collapsed) > kp::transforms::kRegexSizeLimit &&
        (ok || rec.id != kp::transforms::kErrPatternInvalid))
        std::abort();
    if (ok && assigned != variables) std::abort();
    return 0;
}
