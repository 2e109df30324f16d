// json.cpp - kp.json: a Lua value as JSON text.
//
// nil is null; booleans and integers as themselves; floats in the shortest
// text that reads back as the same double, with ".0" kept on whole numbers
// so that they read back as floats (NaN and the infinities, which JSON
// cannot write, become null); strings as UTF-8 with lone surrogates written
// as \uXXXX escapes; a buffer as {"buffer":"<hex>"}; a currency as
// {"currency":"<text>"}; a kp.var as the value it holds.  A table whose keys
// are exactly 1..n is an array (the empty table is the empty array); any
// other table is an object whose keys, strings or numbers, are written as
// text and sorted bytewise.
#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <utility>
#include <vector>

#include "lua_kp.h"
#include "tr.h"
#include "wtf8.h"

namespace kp::cli {

using kp::host::wtf8_invalid_at;

namespace {

// Why a value cannot be written, in the interface language.
struct Failure {
    int language;
    std::string text;
};

constexpr int kMaxDepth = 100;

void put_float(double d, std::string& out) {
    if (!std::isfinite(d)) {
        out += "null";
        return;
    }
    char buf[64];
    auto r = std::to_chars(buf, buf + sizeof buf, d);
    std::string_view t(buf, static_cast<size_t>(r.ptr - buf));
    out += t;
    if (t.find_first_of(".e") == std::string_view::npos) out += ".0";
}

bool put_string(std::string_view s, std::string& out, Failure& err) {
    const size_t bad = wtf8_invalid_at(s);
    if (bad != std::string_view::npos) {
        err.text = std::string(tr(err.language, "string is not valid UTF-8 (byte ",
                                  "texte qui n'est pas de l'UTF-8 valide (octet ")) +
                   std::to_string(bad + 1) + ")";
        return false;
    }
    static const char digits[] = "0123456789abcdef";
    auto u_escape = [&](unsigned v) {
        out += "\\u";
        for (int shift = 12; shift >= 0; shift -= 4)
            out += digits[(v >> shift) & 15];
    };
    out += '"';
    for (size_t i = 0; i < s.size(); ++i) {
        const auto c = static_cast<unsigned char>(s[i]);
        switch (c) {
        case '"':
            out += "\\\"";
            continue;
        case '\\':
            out += "\\\\";
            continue;
        case '\b':
            out += "\\b";
            continue;
        case '\f':
            out += "\\f";
            continue;
        case '\n':
            out += "\\n";
            continue;
        case '\r':
            out += "\\r";
            continue;
        case '\t':
            out += "\\t";
            continue;
        default:
            break;
        }
        if (c < 0x20) {
            u_escape(c);
        } else if (c == 0xED && i + 2 < s.size() && static_cast<unsigned char>(s[i + 1]) >= 0xA0) {
            // A surrogate code point (validated above): not UTF-8, so escaped.
            const unsigned cp = 0xD000u | ((static_cast<unsigned char>(s[i + 1]) & 0x3Fu) << 6) |
                                (static_cast<unsigned char>(s[i + 2]) & 0x3Fu);
            u_escape(cp);
            i += 2;
        } else {
            out += static_cast<char>(c);
        }
    }
    out += '"';
    return true;
}

bool put_value(lua_State* L, int index, int depth, std::string& out, Failure& err);

// Key text of the table key at `index` for objects.
bool key_text(lua_State* L, int index, std::string& key, Failure& err) {
    if (lua_type(L, index) == LUA_TSTRING) {
        size_t n = 0;
        const char* p = lua_tolstring(L, index, &n);
        key.assign(p, n);
        return true;
    }
    if (lua_type(L, index) == LUA_TNUMBER) {
        if (lua_isinteger(L, index)) {
            key = std::to_string(lua_tointeger(L, index));
        } else {
            key.clear();
            put_float(lua_tonumber(L, index), key);
        }
        return true;
    }
    err.text = tr(err.language, "a table key of type ", "une clé de table de type ") +
               std::string(luaL_typename(L, index)) +
               tr(err.language, " cannot be written", " ne peut pas être écrite");
    return false;
}

bool put_table(lua_State* L, int index, int depth, std::string& out, Failure& err) {
    if (depth > kMaxDepth) {
        err.text = tr(err.language, "tables nested too deeply (a table that contains itself?)",
                      "tables imbriquées trop profondément (une table qui se contient elle-même ?)");
        return false;
    }
    if (!lua_checkstack(L, 8)) {
        err.text = tr(err.language, "out of stack space", "pile Lua épuisée");
        return false;
    }
    index = lua_absindex(L, index);
    // Count the keys and see whether they are exactly 1..n.
    lua_Integer count = 0;
    bool sequence = true;
    lua_pushnil(L);
    while (lua_next(L, index)) {
        ++count;
        lua_pop(L, 1);
        if (!lua_isinteger(L, -1) || lua_tointeger(L, -1) < 1) sequence = false;
    }
    if (sequence) {
        for (lua_Integer k = 1; k <= count; ++k) {
            lua_rawgeti(L, index, k);
            const bool present = !lua_isnil(L, -1);
            lua_pop(L, 1);
            if (!present) {
                sequence = false;
                break;
            }
        }
    }
    if (sequence) {
        out += '[';
        for (lua_Integer k = 1; k <= count; ++k) {
            if (k > 1) out += ',';
            lua_rawgeti(L, index, k);
            const bool ok = put_value(L, -1, depth + 1, out, err);
            lua_pop(L, 1);
            if (!ok) return false;
        }
        out += ']';
        return true;
    }
    // Object: collect the key texts with a reference to each key.
    std::vector<std::pair<std::string, int>> keys;
    lua_createtable(L, static_cast<int>(std::min<lua_Integer>(count, 1 << 20)), 0);
    const int key_store = lua_gettop(L);
    int stored = 0;
    lua_pushnil(L);
    while (lua_next(L, index)) {
        lua_pop(L, 1);
        std::string k;
        if (!key_text(L, -1, k, err)) {
            lua_pop(L, 2);
            return false;
        }
        lua_pushvalue(L, -1);
        lua_rawseti(L, key_store, ++stored);
        keys.emplace_back(std::move(k), stored);
    }
    std::sort(keys.begin(), keys.end());
    out += '{';
    bool first = true;
    for (const auto& [text, slot] : keys) {
        if (!first) out += ',';
        first = false;
        if (!put_string(text, out, err)) {
            lua_pop(L, 1);
            return false;
        }
        out += ':';
        lua_rawgeti(L, key_store, slot);
        lua_rawget(L, index);
        const bool ok = put_value(L, -1, depth + 1, out, err);
        lua_pop(L, 1);
        if (!ok) {
            lua_pop(L, 1);
            return false;
        }
    }
    out += '}';
    lua_pop(L, 1);
    return true;
}

bool put_value(lua_State* L, int index, int depth, std::string& out, Failure& err) {
    index = lua_absindex(L, index);
    switch (lua_type(L, index)) {
    case LUA_TNIL:
        out += "null";
        return true;
    case LUA_TBOOLEAN:
        out += lua_toboolean(L, index) ? "true" : "false";
        return true;
    case LUA_TNUMBER:
        if (lua_isinteger(L, index))
            out += std::to_string(lua_tointeger(L, index));
        else
            put_float(lua_tonumber(L, index), out);
        return true;
    case LUA_TSTRING: {
        size_t n = 0;
        const char* p = lua_tolstring(L, index, &n);
        return put_string(std::string_view(p, n), out, err);
    }
    case LUA_TTABLE:
        return put_table(L, index, depth, out, err);
    case LUA_TUSERDATA: {
        if (luaL_testudata(L, index, kBufferType)) {
            const auto* p = static_cast<const uint8_t*>(lua_touserdata(L, index));
            out += "{\"buffer\":\"" + to_hex(p, lua_rawlen(L, index)) + "\"}";
            return true;
        }
        const uint8_t* cy = nullptr;
        if (currency_at(L, index, cy)) {
            uint8_t copy[10];
            std::memcpy(copy, cy, 10);
            out += "{\"currency\":\"" + kp::host::currency_to_text(copy) + "\"}";
            return true;
        }
        if (const kp::host::Value* v = var_at(L, index)) {
            if (depth > kMaxDepth) {
                err.text =
                    tr(err.language, "values nested too deeply", "valeurs imbriquées trop profondément");
                return false;
            }
            push_value(L, *v);
            const bool ok = put_value(L, -1, depth + 1, out, err);
            lua_pop(L, 1);
            return ok;
        }
        break;
    }
    default:
        break;
    }
    err.text = tr(err.language, "a ", "une valeur ") + std::string(luaL_typename(L, index)) +
               tr(err.language, " value cannot be written as JSON", " ne peut pas s'écrire en JSON");
    return false;
}

} // namespace

bool json_encode(lua_State* L, int index, std::string& out, int language) {
    std::string text;
    Failure err{language, {}};
    if (!put_value(L, index, 0, text, err)) {
        out = std::move(err.text);
        return false;
    }
    out = std::move(text);
    return true;
}

} // namespace kp::cli
