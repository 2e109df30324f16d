// conversion_hooks.cpp - the conversions the component asks of the VM by
// name (nConversionDepassement, nConversionDepassementEx, FinConversion) and
// the VM's Execution entry point, as exports of the VM module.
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "host.h"
#include "host_values.h"
#include "wtf8.h"

namespace {

// Reads a decimal number as the VM does: optional blanks, sign, digits with
// "." or "," as decimal separator, optional exponent.  Nothing else.
bool parse_real(std::u16string_view s, double& out) {
    std::string a;
    for (char16_t c : s) {
        if (c > 0x7F) return false;
        a += static_cast<char>(c == u',' ? '.' : c);
    }
    std::size_t b = a.find_first_not_of(' '), e = a.find_last_not_of(' ');
    if (b == std::string::npos) return false;
    a = a.substr(b, e - b + 1);
    for (char c : a)
        if (!((c >= '0' && c <= '9') || c == '.' || c == '-' || c == '+' || c == 'e' || c == 'E'))
            return false;
    char* end = nullptr;
    out = std::strtod(a.c_str(), &end);
    return end && *end == 0 && std::isfinite(out);
}

constexpr int32_t kConversionFailed = 110;
constexpr int32_t kConversionOverflow = 111;
constexpr int32_t kConversionUnsupported = 112;

int32_t convert(const kp_payload* value, uint32_t from, kp_payload* scratch, uint32_t to) {
    using namespace kp::host;
    from &= 0xFF;
    to &= 0xFF;
    // Read the source as a number or a text.
    bool is_text = from == KP_T_STRING || from == KP_T_STRING_RESULT;
    double real = 0;
    int64_t integer = 0;
    bool integral = true;
    std::u16string text;
    switch (from) {
    case KP_T_BOOL:
    case KP_T_INT:
        integer = value->i32;
        break;
    case KP_T_INT64:
        integer = value->i64;
        break;
    case KP_T_REAL:
    case KP_T_REAL_ALT:
        real = value->real;
        integral = false;
        break;
    case KP_T_CURRENCY: {
        uint8_t cy[10];
        std::memcpy(cy, value->currency, 10);
        text = utf16(currency_to_text(cy));
        is_text = true;
        break;
    }
    case KP_T_STRING:
    case KP_T_STRING_RESULT:
        if (value->str) text.assign(value->str, kp_string_header_of(value->str)->length);
        break;
    default:
        return kConversionUnsupported;
    }
    if (is_text && to != KP_T_STRING && to != KP_T_STRING_RESULT) {
        if (to == KP_T_CURRENCY) {
            uint8_t cy[10];
            if (!currency_from_text(utf8(text), cy)) return kConversionFailed;
            std::memcpy(scratch->currency, cy, 10);
            return 0;
        }
        if (!parse_real(text, real)) return kConversionFailed;
        integral = false;
    }
    auto as_real = [&] { return integral ? static_cast<double>(integer) : real; };
    switch (to) {
    case KP_T_BOOL:
        scratch->i32 = as_real() != 0;
        return 0;
    case KP_T_INT: {
        double r = as_real();
        if (!(r >= -2147483648.0 && r <= 2147483647.0)) return kConversionOverflow;
        scratch->i32 = integral ? static_cast<int32_t>(integer) : static_cast<int32_t>(r);
        return 0;
    }
    case KP_T_INT64: {
        double r = as_real();
        if (!integral && !(r >= -9.2e18 && r <= 9.2e18)) return kConversionOverflow;
        scratch->i64 = integral ? integer : static_cast<int64_t>(r);
        return 0;
    }
    case KP_T_REAL:
    case KP_T_REAL_ALT:
        scratch->real = as_real();
        return 0;
    case KP_T_CURRENCY: {
        double r = as_real();
        if (!std::isfinite(r) || std::fabs(r) > 6.0e17) return kConversionOverflow;
        uint8_t cy[10];
        if (!(integral ? kp::host::currency_from_integer(integer, 1000000, cy)
                       : kp::host::currency_from_integer(std::llround(r * 1e6), 1, cy)))
            return kConversionOverflow;
        std::memcpy(scratch->currency, cy, 10);
        return 0;
    }
    case KP_T_STRING:
    case KP_T_STRING_RESULT: {
        if (!is_text) {
            char buf[64];
            if (integral)
                std::snprintf(buf, sizeof buf, "%lld", static_cast<long long>(integer));
            else
                std::snprintf(buf, sizeof buf, "%.15g", real);
            text = utf16(buf);
        }
        scratch->str = make_text(current_allocator(), text);
        return 0;
    }
    default:
        return kConversionUnsupported;
    }
}
} // namespace

extern "C" {
__attribute__((visibility("default"))) int32_t nConversionDepassement(const kp_payload* value, uint32_t from,
                                                                      kp_payload* scratch, uint32_t to) {
    return convert(value, from, scratch, to);
}
__attribute__((visibility("default"))) int32_t
nConversionDepassementEx(const kp_payload* value, uint32_t from, kp_payload* scratch, uint32_t to, int32_t) {
    return convert(value, from, scratch, to);
}
// A converted string belongs to the variant that received it: nothing to free.
__attribute__((visibility("default"))) void FinConversion(kp_payload*) {}
// The VM's peer entry point, called by the component's execution hooks.
__attribute__((visibility("default"))) int32_t Execution(int32_t, uintptr_t*) noexcept {
    return 1;
}
}
