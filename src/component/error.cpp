// error.cpp - CXError: applying error definitions, severities, system
// errors, message lookup (the VM's callback first, then the component's
// catalogue) and the insert syntax of message texts.
#include "component/error.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <vector>

#include "component/runtime.h"
#include "platform/win32_error.h"

namespace kp {

namespace {

constexpr char kModuleName[] = "KP120STD.DLL";
constexpr char kModuleVersion[] = "12.00Dr";
constexpr char16_t kNoDefinition[] =
    u"##(CXError)-Pas de définition d'erreur dans gstErrorDef pour l'identifiant <%1!u!>##";
constexpr char16_t kNotLoaded[] = u"##(CXError)-Ressource <%1!u!> non chargée##";
constexpr char16_t kEmptyResource[] = u"##(CXError)-Ressource <%1!u!> vide. LastError = <%2!u!>##";
constexpr char16_t kNotFormatted[] = u"##(CXError)-Message non formaté : <";

void append_raw(kp_error_record* rec, std::u16string_view text) {
    uint32_t room = KP_ERROR_MESSAGE_CAPACITY - 1 - rec->message_length;
    std::size_t n = std::min<std::size_t>(text.size(), room);
    std::memcpy(rec->message + rec->message_length, text.data(), n * sizeof(char16_t));
    rec->message_length += static_cast<uint32_t>(n);
    rec->message[rec->message_length] = 0;
}

std::u16string ascii16(const char* s) {
    return std::u16string(s, s + std::strlen(s));
}

// One printf conversion of an integer insert ("u", "d", "x", "08X", "lu" ...).
bool format_number(const std::string& directive, const Insert& in, std::u16string& out) {
    if (directive.empty()) return false;
    char conv = directive.back();
    // Length modifiers (l, h, I64) are dropped: every value is 64-bit here.
    std::string body = directive.substr(0, directive.size() - 1), flags;
    for (std::size_t k = 0; k < body.size(); ++k) {
        if (body[k] == 'l' || body[k] == 'h') continue;
        if (body.compare(k, 3, "I64") == 0) {
            k += 2;
            continue;
        }
        flags += body[k];
    }
    for (char c : flags)
        if (!(c == '-' || c == '+' || c == ' ' || c == '#' || (c >= '0' && c <= '9'))) return false;
    char buf[64];
    std::string f = "%" + flags;
    switch (conv) {
    case 'u':
        std::snprintf(buf, sizeof buf, (f + PRIu64).c_str(), in.number);
        break;
    case 'd':
    case 'i':
        std::snprintf(buf, sizeof buf, (f + PRId64).c_str(), static_cast<int64_t>(in.number));
        break;
    case 'x':
        std::snprintf(buf, sizeof buf, (f + PRIx64).c_str(), in.number);
        break;
    case 'X':
        std::snprintf(buf, sizeof buf, (f + PRIX64).c_str(), in.number);
        break;
    case 'c':
        buf[0] = static_cast<char>(in.number), buf[1] = 0;
        break;
    case 'p':
        std::snprintf(buf, sizeof buf, "%0*" PRIX64, static_cast<int>(sizeof(void*) * 2), in.number);
        break;
    default:
        return false;
    }
    out += ascii16(buf);
    return true;
}

} // namespace

bool format_message(std::u16string_view fmt, Inserts inserts, std::u16string& out) {
    std::vector<const Insert*> args;
    for (const Insert& i : inserts)
        args.push_back(&i);
    std::size_t sequential = 0;
    out.clear();
    for (std::size_t i = 0; i < fmt.size(); ++i) {
        char16_t c = fmt[i];
        if (c != u'%') {
            out += c;
            continue;
        }
        if (++i >= fmt.size()) return false;
        c = fmt[i];
        if (c == u'%' || c == u'!' || c == u'.') {
            out += c;
        } else if (c == u'n') {
            out += u"\r\n";
        } else if (c == u'r') {
            out += u'\r';
        } else if (c == u't') {
            out += u'\t';
        } else if (c == u'0') {
            return true; // ends the message without a line end
        } else if (c == u's' || c == u'd' || c == u'u') {
            // printf-style sequential insert (the module integrity message).
            if (sequential >= args.size()) return false;
            const Insert& in = *args[sequential++];
            if (in.kind == Insert::Kind::Text)
                out += in.text;
            else if (!format_number(std::string(1, c == u's' ? 'u' : static_cast<char>(c)), in, out))
                return false;
        } else if (c >= u'1' && c <= u'9') {
            std::size_t n = c - u'0';
            if (i + 1 < fmt.size() && fmt[i + 1] >= u'0' && fmt[i + 1] <= u'9')
                n = n * 10 + (fmt[++i] - u'0');
            if (n > args.size()) return false;
            const Insert& in = *args[n - 1];
            std::string directive = "s";
            if (i + 1 < fmt.size() && fmt[i + 1] == u'!') {
                std::size_t end = fmt.find(u'!', i + 2);
                if (end == std::u16string_view::npos) return false;
                directive.clear();
                for (std::size_t k = i + 2; k < end; ++k) {
                    if (fmt[k] > 0x7F) return false;
                    directive += static_cast<char>(fmt[k]);
                }
                i = end;
            }
            bool text_spec = !directive.empty() && (directive.back() == 's' || directive.back() == 'S');
            if (text_spec) {
                if (in.kind == Insert::Kind::Text) {
                    out += in.text;
                } else {
                    // A number given for a text insert prints as decimal.
                    if (!format_number(in.kind == Insert::Kind::Signed ? "d" : "u", in, out)) return false;
                }
            } else {
                if (in.kind == Insert::Kind::Text) return false;
                if (!format_number(directive, in, out)) return false;
            }
        } else {
            out += u'%';
            out += c;
        }
    }
    return true;
}

std::u16string module_corrupted_message(std::u16string_view module) {
    static constexpr char16_t kCorrupted[] =
        u"Le module %s est corrompu.\n Vérifiez que vous n'avez pas un virus, ou qu'il n'a \n pas été altéré "
        u"par un problème disque ou lors \n d'un transfert par un réseau. \n\n The module %s is corrupted. "
        u"\n "
        u"Please check that you are not infected by a virus, \nor that it was not altered by a disk problem "
        u"\n "
        u"or a network transmission.";
    std::u16string out;
    format_message(kCorrupted, {module, module}, out);
    return out;
}

bool message_text(uint32_t number, std::u16string& out) {
    out.clear();
    runtime::State& st = runtime::state();
    kp_message_fn cb = st.message_callback;
    auto from_services = runtime::service(&kp_services::message_text);
    if (cb || from_services) {
        std::vector<char16_t> buf(256);
        auto ask = [&](std::vector<char16_t>& b) {
            int32_t size = static_cast<int32_t>(b.size());
            return cb ? cb(number, b.data(), size) : from_services(runtime::vm(), number, b.data(), size);
        };
        int32_t n = ask(buf);
        if (n >= 257) {
            buf.assign(static_cast<std::size_t>(n), 0);
            n = ask(buf);
        }
        if (n > 0) {
            std::size_t len = std::min<std::size_t>(static_cast<std::size_t>(n), buf.size());
            // The length may count the terminator.
            while (len > 0 && buf[len - 1] == 0)
                --len;
            out.assign(buf.data(), len);
            return true;
        }
    }
    if (const char16_t* t = catalogue_text(number, runtime::french())) {
        out = t;
        return true;
    }
    return false;
}

void CXError::clear() {
    if (!rec_) return;
    rec_->severity = KP_SEVERITY_NONE;
    rec_->id = 0;
    rec_->extra = 0;
    rec_->system_code = 0;
    rec_->module_name[0] = 0;
    rec_->module_version[0] = 0;
    rec_->message_length = 0;
    rec_->message[0] = 0;
    rec_->system_text_length = 0;
    rec_->system_text[0] = 0;
    rec_->additional[0] = rec_->additional[1] = 0;
}

void CXError::set_additional(uint32_t first, uint32_t second) {
    if (!rec_) return;
    rec_->additional[0] = first;
    rec_->additional[1] = second;
}

void CXError::stamp_module() {
    std::memcpy(rec_->module_name, kModuleName, sizeof kModuleName);
    std::memcpy(rec_->module_version, kModuleVersion, sizeof kModuleVersion);
}

void CXError::append_line(std::u16string_view text) {
    if (!rec_) return;
    if (rec_->message_length > 0) append_raw(rec_, u"\r\n");
    append_raw(rec_, text);
}

void CXError::append_formatted(std::u16string_view format, Inserts inserts) {
    if (!rec_) return;
    std::u16string text;
    if (format_message(format, inserts, text)) {
        append_line(text);
    } else {
        append_raw(rec_, u"\r\n");
        append_raw(rec_, kNotFormatted);
        append_raw(rec_, format);
        append_raw(rec_, u">##");
    }
}

namespace {
// Looks a message up and appends it, or the diagnostic for a missing text.
void append_message(CXError& e, uint32_t number, Inserts inserts) {
    std::u16string text;
    if (!message_text(number, text))
        e.append_formatted(kNotLoaded, {number});
    else if (text.empty())
        e.append_formatted(kEmptyResource, {number, platform::last_error()});
    else
        e.append_formatted(text, inserts);
}
} // namespace

void CXError::set(uint32_t id, Inserts inserts) {
    if (!rec_) return;
    clear();
    stamp_module();
    const ErrorDef* def = find_error_def(id);
    if (!def) {
        rec_->severity = KP_SEVERITY_FATAL;
        append_formatted(kNoDefinition, {id});
        return;
    }
    rec_->id = id;
    if (def->message != 0) append_message(*this, def->message, inserts);
    rec_->extra = def->extra;
    if (def->severity == KP_SEVERITY_NONE)
        clear();
    else
        rec_->severity = def->severity;
}

void CXError::set_severity(int32_t level) {
    if (!rec_) return;
    if (level == KP_SEVERITY_NONE) {
        clear();
        return;
    }
    if ((level == KP_SEVERITY_ERROR || level == KP_SEVERITY_FATAL) && rec_->severity != level)
        rec_->severity = level;
}

// A system error is recorded like every error: the module's name and
// version are stamped, and a record without a message of its own (a system
// failure recorded with identifier 0) takes the system's text as message, so
// that the VM always has a text to show.
void CXError::set_system(uint32_t code) {
    if (!rec_) return;
    rec_->system_code = code;
    std::u16string text = code ? system_error_text(code, runtime::french()) : std::u16string();
    std::size_t n = std::min<std::size_t>(text.size(), KP_ERROR_SYSTEXT_CAPACITY - 1);
    std::memcpy(rec_->system_text, text.data(), n * sizeof(char16_t));
    rec_->system_text_length = static_cast<uint32_t>(n);
    rec_->system_text[n] = 0;
    if (code == 0) return;
    stamp_module();
    if (rec_->message_length == 0) append_raw(rec_, text);
}

void CXError::set_message(uint32_t number, Inserts inserts) {
    if (!rec_) return;
    clear();
    stamp_module();
    append_message(*this, number, inserts);
}

} // namespace kp
