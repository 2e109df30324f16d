// command_line.cpp - argument strings split by the device's rules.
#include "platform/command_line.h"

namespace kp::platform {

namespace {
bool is_blank(char16_t c) {
    return c == u' ' || c == u'\t';
}
} // namespace

std::vector<std::u16string> split_arguments(std::u16string_view s) {
    std::vector<std::u16string> out;
    const std::size_t n = s.size();
    std::size_t i = 0;
    for (;;) {
        while (i < n && is_blank(s[i]))
            ++i;
        if (i >= n) break;
        std::u16string arg;
        bool quoted = false;
        while (i < n) {
            const char16_t c = s[i];
            if (is_blank(c) && !quoted) break;
            if (c == u'\\') {
                std::size_t j = i;
                while (j < n && s[j] == u'\\')
                    ++j;
                const std::size_t count = j - i;
                if (j < n && s[j] == u'"') {
                    arg.append(count / 2, u'\\');
                    if (count % 2) {
                        arg += u'"';
                        i = j + 1;
                    } else {
                        i = j; // the quote opens or closes a quoted part
                    }
                } else {
                    arg.append(count, u'\\');
                    i = j;
                }
                continue;
            }
            if (c == u'"') {
                if (quoted && i + 1 < n && s[i + 1] == u'"') {
                    arg += u'"';
                    i += 2;
                } else {
                    quoted = !quoted;
                    ++i;
                }
                continue;
            }
            arg += c;
            ++i;
        }
        out.push_back(std::move(arg));
    }
    return out;
}

} // namespace kp::platform
