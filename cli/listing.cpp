// listing.cpp - the table listings of the kp120 command.
#include "listing.h"

#include <algorithm>
#include <vector>

#include "wtf8.h"

namespace kp::cli {

namespace {

using kp::host::Host;

// Case folding for name comparison: ASCII and the Latin-1 letters that the
// names use (É -> é ...).
char16_t fold(char16_t c) {
    if (c >= u'A' && c <= u'Z') return static_cast<char16_t>(c + 32);
    if (c >= 0xC0 && c <= 0xDE && c != 0xD7) return static_cast<char16_t>(c + 32);
    return c;
}

std::u16string folded(std::string_view utf8) {
    std::u16string s;
    if (!wtf8_to_utf16(utf8, s)) s.assign(utf8.begin(), utf8.end());
    for (auto& c : s)
        c = fold(c);
    return s;
}

bool glob(std::u16string_view p, std::u16string_view s) {
    // Iterative matcher with backtracking on the last star.
    size_t pi = 0, si = 0, star = std::u16string_view::npos, mark = 0;
    while (si < s.size()) {
        if (pi < p.size() && (p[pi] == u'?' || p[pi] == s[si])) {
            ++pi;
            ++si;
        } else if (pi < p.size() && p[pi] == u'*') {
            star = pi++;
            mark = si;
        } else if (star != std::u16string_view::npos) {
            pi = star + 1;
            si = ++mark;
        } else {
            return false;
        }
    }
    while (pi < p.size() && p[pi] == u'*')
        ++pi;
    return pi == p.size();
}

size_t width(const std::string& utf8) {
    size_t n = 0;
    for (unsigned char c : utf8)
        if ((c & 0xC0) != 0x80) ++n;
    return n;
}

void pad(std::string& s, size_t w) {
    const size_t have = width(s);
    if (have < w) s.append(w - have, ' ');
}

std::string type_text(uint16_t code) {
    std::string t = Host::type_name(static_cast<uint16_t>(code & 0xFF));
    if (code & 0xFF00) {
        char buf[16];
        std::snprintf(buf, sizeof buf, " [0x%04X]", code);
        t += buf;
    }
    return t;
}

std::string constant_value(const kp_constant& c) {
    if (c.kind == KP_CONST_NO_VALUE || (c.attributes & KP_ATTR_NOT_PROVIDED)) return "(not provided)";
    if (c.kind == KP_CONST_STRING) {
        std::u16string text;
        if (const auto* p = reinterpret_cast<const char16_t*>(c.value))
            for (size_t i = 0; p[i] && i < 65536; ++i)
                text.push_back(p[i]);
        return "\"" + utf16_to_wtf8(text) + "\"";
    }
    return std::to_string(static_cast<int32_t>(static_cast<uint32_t>(c.value)));
}

const char* provision(const kp_function& f) {
    const unsigned n = KP_IDENT_COUNT(f.ident);
    unsigned with = 0;
    for (unsigned i = 0; i < n; ++i)
        if (f.overloads && f.overloads[i].handler) ++with;
    if (with == 0) return "not provided";
    return with == n ? "provided" : "partial";
}

void print_rows(std::vector<std::vector<std::string>>& rows, std::FILE* out) {
    std::vector<size_t> w;
    for (const auto& r : rows)
        for (size_t i = 0; i < r.size(); ++i) {
            if (w.size() <= i) w.push_back(0);
            w[i] = std::max(w[i], width(r[i]));
        }
    for (auto& r : rows) {
        std::string line;
        for (size_t i = 0; i < r.size(); ++i) {
            std::string cell = r[i];
            if (i + 1 < r.size()) pad(cell, w[i]);
            line += cell;
            if (i + 1 < r.size()) line += "  ";
        }
        std::fprintf(out, "%s\n", line.c_str());
    }
}

} // namespace

bool name_matches(std::string_view pattern, std::string_view name) {
    if (pattern.empty()) return true;
    std::u16string p = folded(pattern);
    const std::u16string n = folded(name);
    if (p.find_first_of(u"*?") == std::u16string::npos) return n.find(p) != std::u16string::npos;
    return glob(p, n);
}

int list_functions(const Host& host, std::string_view pattern, std::FILE* out) {
    std::vector<std::vector<std::string>> rows;
    for (const kp_function& f : host.functions()) {
        const std::string fr = Host::name_utf8(f.french), en = Host::name_utf8(f.english);
        if (!name_matches(pattern, fr) && !name_matches(pattern, en)) continue;
        rows.push_back({std::to_string(KP_IDENT_ID(f.ident)), fr, en, std::to_string(KP_IDENT_COUNT(f.ident)),
                        provision(f)});
    }
    print_rows(rows, out);
    return static_cast<int>(rows.size());
}

int list_constants(const Host& host, std::string_view pattern, std::FILE* out) {
    std::vector<std::vector<std::string>> rows;
    for (const kp_constant& c : host.constants()) {
        const std::string fr = Host::name_utf8(c.french), en = Host::name_utf8(c.english);
        if (!name_matches(pattern, fr) && !name_matches(pattern, en)) continue;
        rows.push_back({fr, en, constant_value(c)});
    }
    print_rows(rows, out);
    return static_cast<int>(rows.size());
}

bool describe(const Host& host, std::string_view name, std::FILE* out) {
    if (const kp_function* f = host.find_function(name)) {
        const unsigned n = KP_IDENT_COUNT(f->ident);
        std::fprintf(out, "%s / %s: function %u, %u overload%s, %s\n", Host::name_utf8(f->french).c_str(),
                     Host::name_utf8(f->english).c_str(), KP_IDENT_ID(f->ident), n, n == 1 ? "" : "s",
                     provision(*f));
        std::vector<std::vector<std::string>> rows;
        for (unsigned i = 0; i < n && f->overloads; ++i) {
            const kp_overload& o = f->overloads[i];
            std::string sig = "(";
            for (unsigned k = 0; k < o.param_count && k < 10; ++k) {
                if (k) sig += ", ";
                sig += type_text(o.params[k]);
            }
            sig += ") -> " + type_text(o.result);
            rows.push_back(
                {"  " + std::to_string(i + 1) + ".", sig, o.handler ? "provided" : "not provided"});
        }
        print_rows(rows, out);
        return true;
    }
    if (const kp_constant* c = host.find_constant(name)) {
        std::fprintf(out, "%s / %s: constant, %s\n", Host::name_utf8(c->french).c_str(),
                     Host::name_utf8(c->english).c_str(), constant_value(*c).c_str());
        return true;
    }
    return false;
}

} // namespace kp::cli
