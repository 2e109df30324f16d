// unicode_text_icu.cpp - unicode_text.h over ICU (root locale).
#include "platform/unicode_text.h"

#include <unicode/uchar.h>
#include <unicode/ustring.h>

namespace kp::platform {

std::u16string to_upper(std::u16string_view s) {
    if (s.empty()) return {};
    std::u16string out(s.size() + 16, u'\0');
    for (int attempt = 0; attempt < 2; ++attempt) {
        UErrorCode status = U_ZERO_ERROR;
        int32_t n = u_strToUpper(reinterpret_cast<UChar*>(out.data()), static_cast<int32_t>(out.size()),
                                 reinterpret_cast<const UChar*>(s.data()), static_cast<int32_t>(s.size()), "",
                                 &status);
        if (status == U_BUFFER_OVERFLOW_ERROR) {
            out.assign(static_cast<std::size_t>(n), u'\0');
            continue;
        }
        if (U_FAILURE(status)) return std::u16string(s);
        out.resize(static_cast<std::size_t>(n));
        return out;
    }
    return std::u16string(s);
}

char16_t to_upper(char16_t c) {
    return static_cast<char16_t>(u_toupper(c));
}

char16_t fold_case(char16_t c) {
    return static_cast<char16_t>(u_foldCase(c, U_FOLD_CASE_DEFAULT));
}

bool is_alphanumeric(char16_t c) {
    return u_isalnum(c) != 0;
}

} // namespace kp::platform
