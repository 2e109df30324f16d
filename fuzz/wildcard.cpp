// wildcard.cpp - the device's name patterns over arbitrary UTF-16 patterns
// and names (the input's bytes as little-endian units; the first byte says
// where the pattern ends).  Small cases are checked against a plain dynamic
// programme over pattern and name, which cannot be fooled by the segment
// search's shortcuts.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "platform/wildcard.h"

namespace {

char16_t fold_ascii(char16_t c) {
    return (c >= u'A' && c <= u'Z') ? static_cast<char16_t>(c + 32) : c;
}

bool reference(std::u16string_view p, std::u16string_view n) {
    std::vector<std::vector<char>> m(p.size() + 1, std::vector<char>(n.size() + 1, 0));
    m[0][0] = 1;
    for (std::size_t i = 1; i <= p.size(); ++i) {
        for (std::size_t j = 0; j <= n.size(); ++j) {
            if (p[i - 1] == u'*')
                m[i][j] = m[i - 1][j] || (j > 0 && m[i][j - 1]);
            else if (j > 0)
                m[i][j] =
                    m[i - 1][j - 1] && (p[i - 1] == u'?' || fold_ascii(p[i - 1]) == fold_ascii(n[j - 1]));
        }
    }
    return m[p.size()][n.size()];
}

bool ascii(std::u16string_view s) {
    for (char16_t c : s)
        if (c >= 0x80) return false;
    return true;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1) return 0;
    std::u16string units((size - 1) / 2, u'\0');
    for (size_t i = 0; i < units.size(); ++i)
        units[i] = static_cast<char16_t>(data[1 + 2 * i] | data[2 + 2 * i] << 8);
    const size_t cut = units.empty() ? 0 : data[0] % (units.size() + 1);
    std::u16string_view pattern = std::u16string_view(units).substr(0, cut);
    std::u16string_view name = std::u16string_view(units).substr(cut);
    const bool got = kp::platform::wildcard_match(pattern, name);
    if (pattern.size() <= 64 && name.size() <= 64 && ascii(pattern) && ascii(name)) {
        bool want = reference(pattern, name);
        // A pattern ending with ".*" also matches a name without a dot.
        if (!want && pattern.size() >= 2 && pattern.substr(pattern.size() - 2) == u".*" &&
            name.find(u'.') == std::u16string_view::npos)
            want = reference(pattern.substr(0, pattern.size() - 2), name);
        if (got != want) std::abort();
    }
    return 0;
}
