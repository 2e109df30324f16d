// listing.cpp - the table listings of the kp120 command.
#include "listing.h"
#include "tr.h"

#include <algorithm>
#include <vector>

#include "function_docs.h"
#include "wtf8.h"

namespace kp::cli {

using kp::host::utf8;
using kp::host::wtf8_to_utf16;

namespace {

using kp::host::Host;

// Folding for name comparison: case and accents are ignored (É, é and e
// compare equal), for ASCII and the Latin-1 letters that the names use.
char16_t fold(char16_t c) {
    if (c >= u'A' && c <= u'Z') return static_cast<char16_t>(c + 32);
    if (c >= 0xC0 && c <= 0xDE && c != 0xD7) c = static_cast<char16_t>(c + 32);
    if (c < 0xDF) return c;
    //                                 àáâãäåæçèéêëìíîïðñòóôõö÷øùúûüýþÿ
    static const char16_t base[] = u"aaaaaaaceeeeiiiidnooooo/ouuuuyty";
    if (c >= 0xE0 && c <= 0xFF) return base[c - 0xE0];
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

// A parameter or result type in words: the type's name, then what the
// flag bits say ("by reference": the VM passes the variable itself).
std::string type_text(uint16_t code) {
    // A string result (0x13) is a string to the reader.
    std::string t =
        (code & 0xFF) == KP_T_STRING_RESULT ? "string" : Host::type_name(static_cast<uint16_t>(code & 0xFF));
    if (code & KP_PARAM_BY_REFERENCE) t += " by reference";
    if (code & 0x3F00) {
        char buf[32];
        std::snprintf(buf, sizeof buf, " (flags 0x%04X)", code & 0x3F00);
        t += buf;
    }
    return t;
}

const char* provision(const kp_function& f);

const char* provision_text(const Host& host, const kp_function& f) {
    const std::string_view p = provision(f);
    if (p == "provided") return tr(host, "provided", "fournie");
    if (p == "partial") return tr(host, "partial", "partielle");
    return tr(host, "not provided", "non fournie");
}

const FunctionDoc* doc_of(const kp_function& f) {
    const std::string en = Host::name_utf8(f.english);
    for (const FunctionDoc& d : function_docs())
        if (en == d.english) return &d;
    return nullptr;
}

std::vector<std::string> split_words(std::string_view list) {
    std::vector<std::string> out;
    size_t i = 0;
    while (i < list.size()) {
        size_t j = list.find(',', i);
        if (j == std::string_view::npos) j = list.size();
        std::string w(list.substr(i, j - i));
        w.erase(0, w.find_first_not_of(' '));
        while (!w.empty() && w.back() == ' ')
            w.pop_back();
        if (!w.empty()) out.push_back(w);
        i = j + 1;
    }
    return out;
}

// Levenshtein distance of two folded names.
size_t distance(const std::u16string& a, const std::u16string& b) {
    std::vector<size_t> row(b.size() + 1);
    for (size_t j = 0; j <= b.size(); ++j)
        row[j] = j;
    for (size_t i = 1; i <= a.size(); ++i) {
        size_t diag = row[0];
        row[0] = i;
        for (size_t j = 1; j <= b.size(); ++j) {
            const size_t up = row[j];
            row[j] = std::min({row[j] + 1, row[j - 1] + 1, diag + (a[i - 1] == b[j - 1] ? 0 : 1)});
            diag = up;
        }
    }
    return row[b.size()];
}

const kp_function* find_folded(const Host& host, std::string_view name) {
    if (const kp_function* f = host.find_function(name)) return f;
    const std::u16string want = folded(name);
    for (const kp_function& f : host.functions())
        if (folded(Host::name_utf8(f.french)) == want || folded(Host::name_utf8(f.english)) == want)
            return &f;
    return nullptr;
}

std::string constant_value(const kp_constant& c) {
    if (c.kind == KP_CONST_NO_VALUE || (c.attributes & KP_ATTR_NOT_PROVIDED)) return "(not provided)";
    if (c.kind == KP_CONST_STRING) {
        std::u16string text;
        if (const auto* p = reinterpret_cast<const char16_t*>(c.value))
            for (size_t i = 0; p[i] && i < 65536; ++i)
                text.push_back(p[i]);
        return "\"" + utf8(text) + "\"";
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
    if (const kp_function* f = find_folded(host, name)) {
        const unsigned n = KP_IDENT_COUNT(f->ident);
        const FunctionDoc* d = doc_of(*f);
        const std::string fr = Host::name_utf8(f->french), en = Host::name_utf8(f->english);
        std::fprintf(out, "%s / %s: %s%s%s\n", fr.c_str(), en.c_str(), d ? d->family : "", d ? ", " : "",
                     provision_text(host, *f));
        if (d) std::fprintf(out, "  %s\n", d->purpose);
        const std::vector<std::string> names = d ? split_words(d->params) : std::vector<std::string>{};
        for (unsigned i = 0; i < n && f->overloads; ++i) {
            const kp_overload& o = f->overloads[i];
            std::string sig = "  " + en + "(";
            const unsigned count = std::min<unsigned>(o.param_count, 10);
            for (unsigned k = 0; k < count; ++k) {
                if (k) sig += ", ";
                if (k < names.size()) sig += names[k] + ": ";
                sig += type_text(o.params[k]);
                // The last name covers a run of slots of one type (the
                // receiving variables of MatchRegularExpression).
                unsigned run = k + 1;
                while (k + 1 == names.size() && run < count && o.params[run] == o.params[k])
                    ++run;
                if (run - k > 1) {
                    sig += " (1 to " + std::to_string(run - k) + ")";
                    k = run - 1;
                }
            }
            sig += ")";
            if ((o.result & 0xFF) != KP_T_NONE) sig += " -> " + type_text(o.result);
            if (!o.handler) sig += tr(host, "  (not provided)", "  (non fournie)");
            std::fprintf(out, "%s\n", sig.c_str());
        }
        if (d) {
            std::fprintf(out, "  %s: %s", tr(host, "On failure", "En cas d'échec"),
                         *d->failure ? d->failure : tr(host, "no value", "aucune valeur"));
            if (*d->errors)
                std::fprintf(out, "; %s: %s", tr(host, "errors it may record", "erreurs possibles"),
                             d->errors);
            std::fprintf(out, "\n");
        }
        return true;
    }
    if (const kp_constant* c = host.find_constant(name)) {
        std::fprintf(out, "%s / %s: constant, %s\n", Host::name_utf8(c->french).c_str(),
                     Host::name_utf8(c->english).c_str(), constant_value(*c).c_str());
        return true;
    }
    return false;
}

std::string unknown_name_text(const Host& host, std::string_view name) {
    const std::u16string want = folded(name);
    std::vector<std::pair<size_t, std::string>> near;
    auto consider = [&](const std::string& candidate) {
        const size_t d = distance(want, folded(candidate));
        if (d <= std::max<size_t>(2, want.size() / 4)) near.emplace_back(d, candidate);
    };
    for (const kp_function& f : host.functions()) {
        consider(Host::name_utf8(f.french));
        consider(Host::name_utf8(f.english));
    }
    for (const kp_constant& c : host.constants()) {
        consider(Host::name_utf8(c.french));
        consider(Host::name_utf8(c.english));
    }
    std::sort(near.begin(), near.end());
    std::string text = tr(host, "unknown function or constant '", "fonction ou constante inconnue '") +
                       std::string(name) + "'";
    std::vector<std::string> picked;
    for (const auto& [d, n] : near)
        if (picked.size() < 3 && std::find(picked.begin(), picked.end(), n) == picked.end())
            picked.push_back(n);
    for (size_t i = 0; i < picked.size(); ++i)
        text += (i == 0                   ? tr(host, "; did you mean ", " ; vouliez-vous dire ")
                 : i + 1 == picked.size() ? tr(host, " or ", " ou ")
                                          : ", ") +
                picked[i];
    if (!picked.empty()) text += "?";
    return text + "\n";
}

int list_family(const Host& host, std::string_view family, std::FILE* out) {
    std::vector<std::vector<std::string>> rows;
    const std::u16string want = folded(family);
    for (const kp_function& f : host.functions()) {
        const FunctionDoc* d = doc_of(f);
        if (!d || folded(d->family).find(want) == std::u16string::npos) continue;
        rows.push_back({Host::name_utf8(f.french), Host::name_utf8(f.english), d->purpose});
    }
    print_rows(rows, out);
    return static_cast<int>(rows.size());
}

} // namespace kp::cli
