// numbers.cpp - the numeric test and sizes as text.
#include "numeric/numbers.h"

#include <array>
#include <charconv>

#include "component/runtime.h"
#include "component/strings.h"
#include "component/variant.h"

namespace kp::numeric {

namespace {
constexpr uint32_t kErrSizeUnit = 81507;
constexpr uint32_t kMsgSizeUnits = 25202;

bool is_space(char16_t c) {
    return (c >= 0x09 && c <= 0x0D) || c == 0x20 || c == 0x85 || c == 0xA0 || c == 0x1680 ||
           (c >= 0x2000 && c <= 0x200A) || c == 0x2028 || c == 0x2029 || c == 0x202F || c == 0x205F ||
           c == 0x3000;
}
bool is_digit(char16_t c) {
    return c >= u'0' && c <= u'9';
}

std::u16string ascii16(std::string_view s) {
    return std::u16string(s.begin(), s.end());
}
} // namespace

std::size_t wcstod_length(std::u16string_view t) {
    std::size_t i = 0;
    while (i < t.size() && is_space(t[i]))
        ++i;
    if (i < t.size() && (t[i] == u'+' || t[i] == u'-')) ++i;
    std::size_t digits = 0;
    while (i < t.size() && is_digit(t[i]))
        ++i, ++digits;
    if (i < t.size() && t[i] == u'.') {
        ++i;
        while (i < t.size() && is_digit(t[i]))
            ++i, ++digits;
    }
    if (digits == 0) return 0;
    // The exponent counts only when digits follow it.
    if (i < t.size() && (t[i] == u'e' || t[i] == u'E')) {
        std::size_t j = i + 1;
        if (j < t.size() && (t[j] == u'+' || t[j] == u'-')) ++j;
        if (j < t.size() && is_digit(t[j])) {
            while (j < t.size() && is_digit(t[j]))
                ++j;
            i = j;
        }
    }
    return i;
}

bool is_numeric(const kp_variant* value) {
    if (!value) return false;
    const uint16_t type = variant::type_of(value);
    if (is_numeric_type(type)) return true;
    if (type != KP_T_STRING && type != KP_T_STRING_RESULT) return false;
    const std::u16string_view text = str::view(value->value.str);
    return is_numeric_text(text, [&](double& out) {
        kp_variant copy;
        variant::init(&copy);
        bool ok = variant::copy(&copy, value) == 0 && variant::convert(&copy, KP_T_REAL) < 100 &&
                  variant::type_of(&copy) == KP_T_REAL;
        if (ok) out = copy.value.real;
        variant::destroy(&copy);
        return ok;
    });
}

std::u16string length_to_string(int64_t size, int32_t unit, std::u16string_view unit_names, char16_t decimal,
                                CXError& err) {
    if (unit < kSizeAuto || unit > kSizeTB) {
        err.fail(kErrSizeUnit);
        return {};
    }
    // Five names, bytes first; missing ones are empty.
    std::array<std::u16string_view, 5> names{};
    for (std::size_t k = 0; k < names.size() && !unit_names.empty(); ++k) {
        const std::size_t semi = unit_names.find(u';');
        names[k] = unit_names.substr(0, semi);
        unit_names = semi == std::u16string_view::npos ? std::u16string_view() : unit_names.substr(semi + 1);
    }
    char buf[64];
    if (unit == kSizeB || (unit == kSizeAuto && size < 1024)) {
        // The whole 64-bit size is written, also above 2^31.
        auto r = std::to_chars(buf, buf + sizeof(buf), size);
        std::u16string out = ascii16(std::string_view(buf, static_cast<std::size_t>(r.ptr - buf)));
        out += u' ';
        out += names[0];
        return out;
    }
    double v = static_cast<double>(size) / 1024;
    int32_t reached = kSizeKB;
    while (reached < kSizeTB && (unit == kSizeAuto ? v >= 1024 : reached < unit)) {
        v /= 1024;
        ++reached;
    }
    auto r = std::to_chars(buf, buf + sizeof(buf), v, std::chars_format::fixed, 2);
    std::u16string out = ascii16(std::string_view(buf, static_cast<std::size_t>(r.ptr - buf)));
    for (char16_t& c : out)
        if (c == u'.') c = decimal;
    out += u' ';
    out += names[static_cast<std::size_t>(reached - 1)];
    return out;
}

std::u16string length_to_string(int64_t size, int32_t unit, CXError& err) {
    const kp_regional_settings& rs = runtime::regional_settings();
    std::u16string names;
    if (rs.size_units)
        names = rs.size_units;
    else
        message_text(kMsgSizeUnits, names);
    return length_to_string(size, unit, names, rs.decimal_separator ? rs.decimal_separator : u'.', err);
}

} // namespace kp::numeric
