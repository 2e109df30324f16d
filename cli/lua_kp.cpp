// lua_kp.cpp - the `kp` table: calls, constants, buffers, variables, error
// records and the values that cross between Lua and the host.  Each C
// function is an impl wrapped by guarded (lua_guard.h); currency lives in
// lua_currency.cpp, tables in lua_table.cpp, windows in window.cpp.
#include "lua_kp.h"

#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>
#include <vector>

#include "lua_guard.h"
#include "lua_table.h"
#include "tr.h"
#include "wtf8.h"

namespace kp::cli {

using kp::host::utf8;
using kp::host::wtf8_invalid_at;
using kp::host::wtf8_to_utf16;

using kp::host::CallStatus;
using kp::host::Value;

namespace {

// Registry key of the Session pointer.
char kSessionKey;
// Registry key of the error a Lua procedure raised during a component call.
char kPendingKey;

// ---- buffers --------------------------------------------------------------

void push_buffer(lua_State* L, const uint8_t* bytes, size_t n) {
    void* p = lua_newuserdatauv(L, n, 0);
    if (n) std::memcpy(p, bytes, n);
    luaL_setmetatable(L, kBufferType);
}

const uint8_t* buffer_at(lua_State* L, int index, size_t& n) {
    void* p = luaL_testudata(L, index, kBufferType);
    if (!p) return nullptr;
    n = lua_rawlen(L, index);
    return static_cast<const uint8_t*>(p);
}

int hex_digit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

int buffer_new(lua_State* L, std::string& err) {
    size_t n = 0;
    const char* s = "";
    if (!lua_isnoneornil(L, 1)) {
        if (lua_type(L, 1) != LUA_TSTRING) {
            err = say(L, "kp.buffer: expects a string of bytes", "kp.buffer : attend une chaîne d'octets");
            return kFail;
        }
        s = lua_tolstring(L, 1, &n);
    }
    push_buffer(L, reinterpret_cast<const uint8_t*>(s), n);
    return 1;
}

int buffer_from_hex(lua_State* L, std::string& err) {
    if (lua_type(L, 1) != LUA_TSTRING) {
        err = say(L, "kp.hex: expects a string of hexadecimal digits",
                  "kp.hex : attend une chaîne de chiffres hexadécimaux");
        return kFail;
    }
    size_t n = 0;
    const char* s = lua_tolstring(L, 1, &n);
    if (n % 2) {
        err = say(L, "kp.hex: odd number of hexadecimal digits",
                  "kp.hex : nombre impair de chiffres hexadécimaux");
        return kFail;
    }
    std::vector<uint8_t> bytes(n / 2);
    for (size_t i = 0; i < n; i += 2) {
        const int hi = hex_digit(s[i]), lo = hex_digit(s[i + 1]);
        if (hi < 0 || lo < 0) {
            err = say(L, "kp.hex: not a hexadecimal digit at position ",
                      "kp.hex : pas un chiffre hexadécimal à la position ") +
                  std::to_string(hi < 0 ? i + 1 : i + 2);
            return kFail;
        }
        bytes[i / 2] = static_cast<uint8_t>(hi * 16 + lo);
    }
    push_buffer(L, bytes.data(), bytes.size());
    return 1;
}

int buffer_hex(lua_State* L, std::string& err) {
    size_t n = 0;
    const uint8_t* p = buffer_at(L, 1, n);
    if (!p) {
        err = say(L, "hex: expects a kp.buffer", "hex : attend un kp.buffer");
        return kFail;
    }
    const std::string h = to_hex(p, n);
    lua_pushlstring(L, h.data(), h.size());
    return 1;
}

int buffer_bytes(lua_State* L, std::string& err) {
    size_t n = 0;
    const uint8_t* p = buffer_at(L, 1, n);
    if (!p) {
        err = say(L, "bytes: expects a kp.buffer", "bytes : attend un kp.buffer");
        return kFail;
    }
    lua_pushlstring(L, reinterpret_cast<const char*>(p), n);
    return 1;
}

int buffer_len(lua_State* L) {
    lua_pushinteger(L, static_cast<lua_Integer>(lua_rawlen(L, 1)));
    return 1;
}

int buffer_eq(lua_State* L) {
    size_t a = 0, b = 0;
    const uint8_t* pa = buffer_at(L, 1, a);
    const uint8_t* pb = buffer_at(L, 2, b);
    lua_pushboolean(L, pa && pb && a == b && (a == 0 || std::memcmp(pa, pb, a) == 0));
    return 1;
}

// b:text(): the buffer read as UTF-16LE text (a lone surrogate is kept as
// WTF-8; an odd last byte is ignored).
int buffer_text(lua_State* L, std::string& err) {
    size_t n = 0;
    const uint8_t* p = buffer_at(L, 1, n);
    if (!p) {
        err = say(L, "text: expects a kp.buffer", "text : attend un kp.buffer");
        return kFail;
    }
    std::u16string text;
    text.reserve(n / 2);
    for (size_t i = 0; i + 1 < n; i += 2)
        text.push_back(static_cast<char16_t>(p[i] | p[i + 1] << 8));
    const std::string u = utf8(text);
    lua_pushlstring(L, u.data(), u.size());
    return 1;
}

// b:currency() and b:real(): a buffer of 10 (8) bytes as the currency (the
// 8-byte real) it holds.  The registry keeps currency and real values as
// REG_BINARY bytes, so they read back as buffers; these give the values
// again.  Any other length is an error.
int buffer_currency(lua_State* L, std::string& err) {
    size_t n = 0;
    const uint8_t* p = buffer_at(L, 1, n);
    if (!p || n != 10) {
        err = say(L, "currency: expects a kp.buffer of 10 bytes",
                  "currency : attend un kp.buffer de 10 octets");
        return kFail;
    }
    push_currency(L, p);
    return 1;
}

int buffer_real(lua_State* L, std::string& err) {
    size_t n = 0;
    const uint8_t* p = buffer_at(L, 1, n);
    if (!p || n != 8) {
        err = say(L, "real: expects a kp.buffer of 8 bytes", "real : attend un kp.buffer de 8 octets");
        return kFail;
    }
    uint64_t bits = 0;
    for (int i = 7; i >= 0; --i)
        bits = bits << 8 | p[i];
    double d;
    std::memcpy(&d, &bits, sizeof d);
    lua_pushnumber(L, d);
    return 1;
}

// ---- variables ------------------------------------------------------------

struct VarBox {
    std::shared_ptr<Value> ref;
};

VarBox* varbox_at(lua_State* L, int index) {
    return static_cast<VarBox*>(luaL_testudata(L, index, kVarType));
}

// The Lua functions passed as procedures in one call: registry references,
// dropped when the call is over.
struct FunctionRef {
    int ref;
    std::shared_ptr<bool> live;
};
using FunctionRefs = std::vector<FunctionRef>;

// Lua value -> host value.  `what` names the value in messages.  Variables
// and functions are accepted only as call arguments (`function_refs` given).
bool to_value(lua_State* L, int index, Value& out, const std::string& what, std::string& err,
              FunctionRefs* function_refs);

int var_new(lua_State* L, std::string& err) {
    Value initial;
    if (!lua_isnoneornil(L, 1) && !to_value(L, 1, initial, "kp.var: initial value", err, nullptr))
        return kFail;
    auto ref = std::make_shared<Value>(std::move(initial));
    void* p = lua_newuserdatauv(L, sizeof(VarBox), 0);
    new (p) VarBox{std::move(ref)};
    luaL_setmetatable(L, kVarType);
    return 1;
}

int var_gc(lua_State* L) {
    if (VarBox* b = varbox_at(L, 1)) b->~VarBox();
    return 0;
}

int var_index(lua_State* L, std::string& err) {
    VarBox* b = varbox_at(L, 1);
    const char* key = lua_tostring(L, 2);
    if (!b || !key || std::strcmp(key, "value") != 0) {
        err = say(L, "kp.var has only the field 'value'", "kp.var n'a que le champ 'value'");
        return kFail;
    }
    push_value(L, *b->ref);
    return 1;
}

int var_newindex(lua_State* L, std::string& err) {
    VarBox* b = varbox_at(L, 1);
    const char* key = lua_tostring(L, 2);
    if (!b || !key || std::strcmp(key, "value") != 0) {
        err = say(L, "kp.var has only the field 'value'", "kp.var n'a que le champ 'value'");
        return kFail;
    }
    Value v;
    if (!lua_isnil(L, 3) && !to_value(L, 3, v, "kp.var value", err, nullptr)) return kFail;
    *b->ref = std::move(v);
    return 0;
}

int var_tostring(lua_State* L) {
    VarBox* b = varbox_at(L, 1);
    if (!b) return 0;
    push_value(L, *b->ref);
    lua_pushfstring(L, "kp.var(%s)", luaL_tolstring(L, -1, nullptr));
    return 1;
}

// ---- values ---------------------------------------------------------------

void unref_all(lua_State* L, FunctionRefs& refs) {
    for (FunctionRef& r : refs) {
        *r.live = false;
        luaL_unref(L, LUA_REGISTRYINDEX, r.ref);
    }
    refs.clear();
}

// A Lua function given as a procedure parameter.  The component calls it
// in the middle of a call; Lua errors are caught there (a longjmp must not
// cross the component) and raised again once the call has returned.  The
// procedure lives as long as the call it was passed to: called after that,
// it does nothing and gives no value.
struct Callback {
    lua_State* L;
    int fref;
    std::shared_ptr<bool> live;
};

struct CallbackRun {
    int fref;
    std::vector<Value>* args;
};

int callback_trampoline(lua_State* L) {
    auto* run = static_cast<CallbackRun*>(lua_touserdata(L, 1));
    lua_rawgeti(L, LUA_REGISTRYINDEX, run->fref);
    for (const Value& a : *run->args)
        push_value(L, a);
    lua_call(L, static_cast<int>(run->args->size()), 1);
    return 1;
}

void set_pending(lua_State* L) {
    // Keeps the first error; the value is on top of the stack and is popped.
    lua_rawgetp(L, LUA_REGISTRYINDEX, &kPendingKey);
    const bool have = !lua_isnil(L, -1);
    lua_pop(L, 1);
    if (have)
        lua_pop(L, 1);
    else
        lua_rawsetp(L, LUA_REGISTRYINDEX, &kPendingKey);
}

Value run_callback(const Callback& cb, std::vector<Value>& args) {
    lua_State* L = cb.L;
    Value result;
    if (!*cb.live) return result;
    if (!lua_checkstack(L, static_cast<int>(args.size()) + 8)) return result;
    CallbackRun run{cb.fref, &args};
    lua_pushcfunction(L, callback_trampoline);
    lua_pushlightuserdata(L, &run);
    if (lua_pcall(L, 1, 1, 0) != LUA_OK) {
        set_pending(L);
        return result;
    }
    std::string err;
    if (!lua_isnil(L, -1) && !to_value(L, -1, result, "procedure result", err, nullptr)) {
        lua_pop(L, 1);
        lua_pushlstring(L, err.data(), err.size());
        set_pending(L);
        return Value();
    }
    lua_pop(L, 1);
    return result;
}

bool to_value(lua_State* L, int index, Value& out, const std::string& what, std::string& err,
              FunctionRefs* function_refs) {
    switch (lua_type(L, index)) {
    case LUA_TBOOLEAN:
        out = Value::boolean(lua_toboolean(L, index) != 0);
        return true;
    case LUA_TNUMBER:
        if (lua_isinteger(L, index))
            out = Value::integer(lua_tointeger(L, index));
        else
            out = Value::real(lua_tonumber(L, index));
        return true;
    case LUA_TSTRING: {
        size_t n = 0;
        const char* s = lua_tolstring(L, index, &n);
        const std::string_view bytes(s, n);
        const size_t bad = wtf8_invalid_at(bytes);
        if (bad != std::string_view::npos) {
            err = what + say(L, ": invalid UTF-8 at byte ", " : UTF-8 invalide à l'octet ") +
                  std::to_string(bad + 1);
            return false;
        }
        std::u16string text;
        wtf8_to_utf16(bytes, text);
        out = Value::string(std::move(text));
        return true;
    }
    case LUA_TUSERDATA: {
        size_t n = 0;
        if (const uint8_t* p = buffer_at(L, index, n)) {
            out = Value::buffer(std::vector<uint8_t>(p, p + n));
            return true;
        }
        const uint8_t* cy = nullptr;
        if (currency_at(L, index, cy)) {
            uint8_t copy[10];
            std::memcpy(copy, cy, 10);
            out = Value::currency(copy);
            return true;
        }
        if (uintptr_t control = 0; table_handle_at(L, index, control)) {
            out = Value::integer(static_cast<int64_t>(control));
            return true;
        }
        if (VarBox* b = varbox_at(L, index)) {
            if (!function_refs) {
                err = what + say(L, ": a kp.var cannot be stored in a value",
                                 " : un kp.var ne peut pas être rangé dans une valeur");
                return false;
            }
            out = Value();
            out.kind = Value::Kind::Variable;
            out.ref = b->ref;
            return true;
        }
        break;
    }
    case LUA_TFUNCTION:
        if (function_refs) {
            lua_pushvalue(L, index);
            const int ref = luaL_ref(L, LUA_REGISTRYINDEX);
            auto live = std::make_shared<bool>(true);
            function_refs->push_back({ref, live});
            Callback cb{L, ref, live};
            out = Value::procedure([cb](std::vector<Value>& args) { return run_callback(cb, args); });
            return true;
        }
        break;
    default:
        break;
    }
    err = what + say(L, ": a ", " : une valeur ") + luaL_typename(L, index) +
          say(L, " value has no component type", " n'a pas de type du composant");
    return false;
}

// ---- error records --------------------------------------------------------

// The message of a record without the component's internal trace lines
// ("##(CXError)-...##", "##(IXStream)-...##"): what a user reads.
std::u16string without_traces(const std::u16string& m) {
    std::u16string out;
    size_t i = 0;
    while (i < m.size()) {
        const size_t open = m.find(u"##(", i);
        if (open == std::u16string::npos) {
            out.append(m, i, std::u16string::npos);
            break;
        }
        out.append(m, i, open - i);
        const size_t close = m.find(u"##", open + 3);
        if (close == std::u16string::npos) break;
        i = close + 2;
    }
    // Line ends and runs of blanks left by the traces become single spaces.
    std::u16string clean;
    for (char16_t c : out) {
        const bool blank = c == u' ' || c == u'\r' || c == u'\n' || c == u'\t';
        if (blank) {
            if (!clean.empty() && clean.back() != u' ') clean.push_back(u' ');
        } else {
            clean.push_back(c);
        }
    }
    while (!clean.empty() && clean.back() == u' ')
        clean.pop_back();
    return clean;
}

void push_error_record(lua_State* L, const kp::host::ErrorInfo& e) {
    lua_createtable(L, 0, 6);
    lua_pushinteger(L, static_cast<lua_Integer>(e.id));
    lua_setfield(L, -2, "id");
    lua_pushinteger(L, e.severity);
    lua_setfield(L, -2, "severity");
    lua_pushinteger(L, static_cast<lua_Integer>(e.system_code));
    lua_setfield(L, -2, "system");
    const std::string st = utf8(e.system_text);
    lua_pushlstring(L, st.data(), st.size());
    lua_setfield(L, -2, "systemtext");
    const std::string m = utf8(e.message);
    lua_pushlstring(L, m.data(), m.size());
    lua_setfield(L, -2, "message");
    const std::string text = error_summary(e);
    lua_pushlstring(L, text.data(), text.size());
    lua_setfield(L, -2, "text");
    luaL_setmetatable(L, kErrorType);
}

int error_tostring(lua_State* L) {
    lua_getfield(L, 1, "text");
    return 1;
}

// ---- calls ----------------------------------------------------------------

// Upvalues: 1 the function entry (light userdata), 2 the name as written.
int call_impl(lua_State* L, std::string& err) {
    const auto* fn = static_cast<const kp_function*>(lua_touserdata(L, lua_upvalueindex(1)));
    const std::string name = lua_tostring(L, lua_upvalueindex(2));
    Session& s = session(L);
    const int argc = lua_gettop(L);

    FunctionRefs refs;
    struct RefGuard {
        lua_State* L;
        FunctionRefs& refs;
        ~RefGuard() { unref_all(L, refs); }
    } guard{L, refs};

    std::vector<Value> args;
    args.reserve(static_cast<size_t>(argc));
    for (int i = 1; i <= argc; ++i) {
        Value v;
        if (!to_value(L, i, v, name + ": argument " + std::to_string(i), err, &refs)) return kFail;
        args.push_back(std::move(v));
    }

    // The host resolves as the VM does; its reason names the function.
    std::string why;
    const int ov = s.host.choose_overload(*fn, args, &why);
    if (ov < 0) {
        const int lang = s.host.language();
        err = why.empty() ? name + tr(lang, ": no overload takes these arguments",
                                      " : aucune variante ne prend ces arguments")
                          : why;
        if (ov == -2 && err.find("not provided") == std::string::npos)
            err += tr(lang, " (not provided in this edition)", " (non fournie dans cette édition)");
        return kFail;
    }
    const kp_overload& o = fn->overloads[ov];
    kp::host::CallOutcome out = s.host.call_overload(*fn, ov, args);
    switch (out.status) {
    case CallStatus::Ok:
        break;
    case CallStatus::NotProvided:
        err = out.detail.empty() ? name + tr(s.host, " is not provided by this edition",
                                             " n'est pas fournie par cette édition")
                                 : out.detail;
        return kFail;
    case CallStatus::UnknownName:
        err = tr(s.host, "unknown function '", "fonction inconnue '") + name + "'";
        return kFail;
    case CallStatus::NoOverload:
        err = name +
              tr(s.host, ": no overload takes these arguments", " : aucune variante ne prend ces arguments");
        if (!out.detail.empty()) err += " (" + out.detail + ")";
        return kFail;
    case CallStatus::BadArgument:
        err = out.detail.empty() ? name + tr(s.host, ": bad argument", " : argument incorrect") : out.detail;
        return kFail;
    }
    s.last_error = std::move(out.error);
    if (s.last_error.severity > 1) ++s.errors_recorded;

    // A Lua error inside a procedure parameter goes on once the call is over.
    lua_rawgetp(L, LUA_REGISTRYINDEX, &kPendingKey);
    if (!lua_isnil(L, -1)) {
        lua_pushnil(L);
        lua_rawsetp(L, LUA_REGISTRYINDEX, &kPendingKey);
        return kFailValue;
    }
    lua_pop(L, 1);

    // kp.strict(true): a recorded error is raised as a Lua error whose value
    // is the record (the same table as kp.lasterror()).
    if (s.strict && s.last_error.severity > 1) {
        push_error_record(L, s.last_error);
        return kFailValue;
    }

    if (o.result == KP_T_NONE && out.result.kind == Value::Kind::None) return 0;
    push_value(L, out.result);
    return 1;
}

// Constant value -> Lua.  Integer constants are the language's 32-bit
// signed integers (0xFFFFFFFE reads as -2).
int push_constant(lua_State* L, const kp_constant& c, const std::string& name, std::string& err) {
    if (c.kind == KP_CONST_NO_VALUE || (c.attributes & KP_ATTR_NOT_PROVIDED)) {
        const int lang = session(L).host.language();
        err = tr(lang, "constant ", "la constante ") + name +
              tr(lang, " is not provided in this edition", " n'est pas fournie dans cette édition");
        return kFail;
    }
    if (c.kind == KP_CONST_STRING) {
        const auto* p = reinterpret_cast<const char16_t*>(c.value);
        std::u16string text;
        if (p)
            for (size_t i = 0; p[i] && i < 65536; ++i)
                text.push_back(p[i]);
        const std::string u = utf8(text);
        lua_pushlstring(L, u.data(), u.size());
        return 1;
    }
    lua_pushinteger(L, static_cast<int32_t>(static_cast<uint32_t>(c.value)));
    return 1;
}

// A name for a message: bytes that are not UTF-8 are written as \xNN.
std::string printable(std::string_view name) {
    std::string out;
    while (!name.empty()) {
        const size_t bad = wtf8_invalid_at(name);
        if (bad == std::string_view::npos) {
            out += name;
            break;
        }
        out += name.substr(0, bad);
        char esc[8];
        std::snprintf(esc, sizeof esc, "\\x%02X", static_cast<unsigned char>(name[bad]));
        out += esc;
        name.remove_prefix(bad + 1);
    }
    return out;
}

int kp_index(lua_State* L, std::string& err) {
    if (lua_type(L, 2) != LUA_TSTRING) {
        err = tr(session(L).host, "kp: function and constant names are strings",
                 "kp : les noms de fonctions et de constantes sont des chaînes");
        return kFail;
    }
    // Functions already looked up under this exact name (upvalue 1).
    lua_pushvalue(L, 2);
    if (lua_rawget(L, lua_upvalueindex(1)) != LUA_TNIL) return 1;
    lua_pop(L, 1);
    size_t n = 0;
    const char* p = lua_tolstring(L, 2, &n);
    const std::string name(p, n);
    Session& s = session(L);
    if (const kp_function* fn = s.host.find_function(name)) {
        lua_pushlightuserdata(L, const_cast<kp_function*>(fn));
        lua_pushlstring(L, name.data(), name.size());
        lua_pushcclosure(L, guarded<call_impl>, 2);
        lua_pushvalue(L, 2);
        lua_pushvalue(L, -2);
        lua_rawset(L, lua_upvalueindex(1));
        return 1;
    }
    if (const kp_constant* c = s.host.find_constant(name)) return push_constant(L, *c, name, err);
    err = tr(s.host, "unknown function or constant '", "fonction ou constante inconnue '") + printable(name) +
          "'";
    return kFail;
}

int kp_lasterror(lua_State* L, std::string&) {
    push_error_record(L, session(L).last_error);
    return 1;
}

// kp.strict([on]): with true, every call that records an error raises it;
// gives the previous setting.
int kp_strict(lua_State* L, std::string&) {
    Session& s = session(L);
    const bool before = s.strict;
    if (!lua_isnone(L, 1)) s.strict = lua_toboolean(L, 1) != 0;
    lua_pushboolean(L, before);
    return 1;
}

int kp_setlang(lua_State* L, std::string& err) {
    const char* l = lua_tostring(L, 1);
    if (l && std::strcmp(l, "fr") == 0) {
        session(L).host.set_language(0);
    } else if (l && std::strcmp(l, "en") == 0) {
        session(L).host.set_language(1);
    } else {
        err = tr(session(L).host, "kp.setlang: expects \"fr\" or \"en\"",
                 "kp.setlang : attend \"fr\" ou \"en\"");
        return kFail;
    }
    return 0;
}

// kp.setobject(NAME): the name the host gives as its current object (the
// group DeleteParameter() removes); "" or nil for none.
int kp_setobject(lua_State* L, std::string&) {
    std::size_t n = 0;
    const char* name = lua_isnoneornil(L, 1) ? "" : luaL_checklstring(L, 1, &n);
    std::u16string text;
    wtf8_to_utf16(std::string_view(name, n), text);
    session(L).host.set_current_object(text);
    return 0;
}

int kp_json(lua_State* L, std::string& err) {
    std::string out;
    lua_settop(L, 1);
    if (!json_encode(L, 1, out, session(L).host.language())) {
        err = "kp.json: " + out;
        return kFail;
    }
    lua_pushlstring(L, out.data(), out.size());
    return 1;
}

} // namespace

Session& session(lua_State* L) {
    lua_rawgetp(L, LUA_REGISTRYINDEX, &kSessionKey);
    auto* s = static_cast<Session*>(lua_touserdata(L, -1));
    lua_pop(L, 1);
    return *s;
}

const char* say(lua_State* L, const char* en, const char* fr) {
    return tr(session(L).host, en, fr);
}

std::string error_summary(const kp::host::ErrorInfo& e) {
    if (e.severity <= 1) return "no error";
    std::string out = "error " + std::to_string(e.id);
    if (e.system_code) out += ", system code " + std::to_string(e.system_code);
    const std::string message = utf8(without_traces(e.message));
    const std::string system = utf8(without_traces(e.system_text));
    std::string text = message;
    if (!system.empty() && message.find(system) == std::string::npos)
        text = text.empty() ? system : text + " (" + system + ")";
    if (!text.empty()) out += ": " + text;
    return out;
}

bool lua_value(lua_State* L, int index, Value& out, const std::string& what, std::string& err) {
    return to_value(L, index, out, what, err, nullptr);
}

const Value* var_at(lua_State* L, int index) {
    VarBox* b = varbox_at(L, index);
    return b ? b->ref.get() : nullptr;
}

std::string to_hex(const uint8_t* bytes, size_t n) {
    static const char digits[] = "0123456789abcdef";
    std::string h(n * 2, '0');
    for (size_t i = 0; i < n; ++i) {
        h[2 * i] = digits[bytes[i] >> 4];
        h[2 * i + 1] = digits[bytes[i] & 15];
    }
    return h;
}

void push_value(lua_State* L, const Value& v) {
    // A variable that refers to another variable is followed a few steps.
    const Value* p = &v;
    for (int depth = 0; p->kind == Value::Kind::Variable && p->ref && depth < 16; ++depth)
        p = p->ref.get();
    switch (p->kind) {
    case Value::Kind::Bool:
        lua_pushboolean(L, p->b);
        break;
    case Value::Kind::Int:
    case Value::Kind::Int64:
        lua_pushinteger(L, p->i);
        break;
    case Value::Kind::Real:
        lua_pushnumber(L, p->r);
        break;
    case Value::Kind::Currency:
        push_currency(L, p->cy);
        break;
    case Value::Kind::String: {
        const std::string u = utf8(p->s);
        lua_pushlstring(L, u.data(), u.size());
        break;
    }
    case Value::Kind::Buffer:
        push_buffer(L, p->bytes.data(), p->bytes.size());
        break;
    default:
        lua_pushnil(L);
        break;
    }
}

void defer_error(lua_State* L) {
    set_pending(L);
}

void open_kp(lua_State* L, Session& s) {
    lua_pushlightuserdata(L, &s);
    lua_rawsetp(L, LUA_REGISTRYINDEX, &kSessionKey);

    static const luaL_Reg buffer_methods[] = {
        {"hex", guarded<buffer_hex>},   {"bytes", guarded<buffer_bytes>},
        {"text", guarded<buffer_text>}, {"currency", guarded<buffer_currency>},
        {"real", guarded<buffer_real>}, {nullptr, nullptr}};
    static const luaL_Reg buffer_meta[] = {
        {"__len", buffer_len}, {"__eq", buffer_eq}, {"__tostring", guarded<buffer_hex>}, {nullptr, nullptr}};
    new_type(L, kBufferType, buffer_meta);
    luaL_getmetatable(L, kBufferType);
    luaL_newlib(L, buffer_methods);
    lua_setfield(L, -2, "__index");
    lua_pop(L, 1);

    add_currency_type(L);

    static const luaL_Reg var_meta[] = {{"__index", guarded<var_index>},
                                        {"__newindex", guarded<var_newindex>},
                                        {"__gc", var_gc},
                                        {"__tostring", var_tostring},
                                        {nullptr, nullptr}};
    new_type(L, kVarType, var_meta);

    static const luaL_Reg error_meta[] = {{"__tostring", error_tostring}, {nullptr, nullptr}};
    new_type(L, kErrorType, error_meta);

    static const luaL_Reg api[] = {{"buffer", guarded<buffer_new>},      {"hex", guarded<buffer_from_hex>},
                                   {"currency", guarded<currency_new>},  {"var", guarded<var_new>},
                                   {"json", guarded<kp_json>},           {"lasterror", guarded<kp_lasterror>},
                                   {"strict", guarded<kp_strict>},       {"setlang", guarded<kp_setlang>},
                                   {"setobject", guarded<kp_setobject>}, {nullptr, nullptr}};
    luaL_newlib(L, api);
    add_window_functions(L, s);
    add_table_api(L);
    lua_createtable(L, 0, 1);
    lua_newtable(L);
    lua_pushcclosure(L, guarded<kp_index>, 1);
    lua_setfield(L, -2, "__index");
    lua_setmetatable(L, -2);
    lua_setglobal(L, "kp");
}

} // namespace kp::cli
