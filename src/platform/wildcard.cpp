// wildcard.cpp - file-name patterns matched without backtracking.
#include "platform/wildcard.h"

#include <unicode/uchar.h>

namespace kp::platform {

namespace {

char16_t fold(char16_t c) {
    if (c < 0x80) return (c >= u'A' && c <= u'Z') ? static_cast<char16_t>(c + 32) : c;
    if (c >= 0xD800 && c <= 0xDFFF) return c; // surrogates are compared as they are
    UChar32 f = u_foldCase(c, U_FOLD_CASE_DEFAULT);
    return f <= 0xFFFF ? static_cast<char16_t>(f) : c;
}

std::u16string folded(std::u16string_view s) {
    std::u16string out(s.size(), u'\0');
    for (std::size_t i = 0; i < s.size(); ++i)
        out[i] = fold(s[i]);
    return out;
}

// Whether `seg` (no star; "?" any unit) matches `text` at `at`.
bool segment_at(std::u16string_view seg, std::u16string_view text, std::size_t at) {
    for (std::size_t k = 0; k < seg.size(); ++k)
        if (seg[k] != u'?' && seg[k] != text[at + k]) return false;
    return true;
}

// Matches a folded pattern against a folded name.
bool match(std::u16string_view pat, std::u16string_view name) {
    std::size_t star = pat.find(u'*');
    if (star == std::u16string_view::npos) return pat.size() == name.size() && segment_at(pat, name, 0);
    std::size_t last_star = pat.rfind(u'*');
    std::u16string_view head = pat.substr(0, star);
    std::u16string_view tail = pat.substr(last_star + 1);
    if (head.size() + tail.size() > name.size()) return false;
    if (!segment_at(head, name, 0)) return false;
    if (!segment_at(tail, name, name.size() - tail.size())) return false;
    // Middle segments, each at its leftmost place in what is left.
    std::size_t pos = head.size();
    const std::size_t end = name.size() - tail.size();
    std::size_t i = star + 1;
    while (i < last_star) {
        std::size_t j = pat.find(u'*', i);
        std::u16string_view seg = pat.substr(i, j - i);
        i = j + 1;
        if (seg.empty()) continue;
        if (seg.size() > end - pos) return false;
        bool found = false;
        // A segment without "?" is found with the library's search.
        if (seg.find(u'?') == std::u16string_view::npos) {
            std::size_t at = name.substr(0, end).find(seg, pos);
            if (at != std::u16string_view::npos) {
                pos = at + seg.size();
                found = true;
            }
        } else {
            for (std::size_t at = pos; at + seg.size() <= end; ++at) {
                if (segment_at(seg, name, at)) {
                    pos = at + seg.size();
                    found = true;
                    break;
                }
            }
        }
        if (!found) return false;
    }
    return true;
}

} // namespace

WildcardPattern::WildcardPattern(std::u16string_view pattern) : folded_(folded(pattern)) {
    dot_star_ = folded_.size() >= 2 && folded_.compare(folded_.size() - 2, 2, u".*") == 0;
    all_ = (!folded_.empty() && folded_.find_first_not_of(u'*') == std::u16string::npos) || folded_ == u"*.*";
}

bool WildcardPattern::match_folded(std::u16string_view name, bool without_dot_star) const {
    std::u16string_view pat = folded_;
    if (without_dot_star) pat.remove_suffix(2);
    return match(pat, name);
}

bool WildcardPattern::matches(std::u16string_view name) const {
    if (all_) return true;
    std::u16string n = folded(name);
    if (match_folded(n, false)) return true;
    return dot_star_ && n.find(u'.') == std::u16string::npos && match_folded(n, true);
}

bool wildcard_match(std::u16string_view pattern, std::u16string_view name) {
    return WildcardPattern(pattern).matches(name);
}

bool has_wildcards(std::u16string_view text) {
    for (char16_t c : text)
        if (c == u'*' || c == u'?') return true;
    return false;
}

} // namespace kp::platform
