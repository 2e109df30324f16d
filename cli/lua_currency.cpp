// lua_currency.cpp - kp.currency: the VM's 10-byte currency as Lua
// userdata, with exact arithmetic and comparisons.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "lua_guard.h"

namespace kp::cli {

void push_currency(lua_State* L, const uint8_t* bytes) {
    void* p = lua_newuserdatauv(L, 10, 0);
    std::memcpy(p, bytes, 10);
    luaL_setmetatable(L, kCurrencyType);
}

bool currency_at(lua_State* L, int index, const uint8_t*& bytes) {
    void* p = luaL_testudata(L, index, kCurrencyType);
    if (!p) return false;
    bytes = static_cast<const uint8_t*>(p);
    return true;
}

namespace {

// The decimal text of the kp.currency at argument 1; false with the
// message `en`/`fr` in `err` when it is not one.
bool self_text(lua_State* L, std::string& text, std::string& err, const char* en, const char* fr) {
    const uint8_t* p = nullptr;
    if (!currency_at(L, 1, p)) {
        err = say(L, en, fr);
        return false;
    }
    uint8_t cy[10];
    std::memcpy(cy, p, 10);
    text = kp::host::currency_to_text(cy);
    return true;
}

int currency_tostring(lua_State* L, std::string& err) {
    std::string t;
    if (!self_text(L, t, err, "expects a kp.currency", "attend un kp.currency")) return kFail;
    lua_pushlstring(L, t.data(), t.size());
    return 1;
}

int currency_eq(lua_State* L) {
    const uint8_t *a = nullptr, *b = nullptr;
    lua_pushboolean(L, currency_at(L, 1, a) && currency_at(L, 2, b) && std::memcmp(a, b, 10) == 0);
    return 1;
}

// Exact currency arithmetic.  A currency is a 10-byte two's-complement count
// of millionths; the operations work on magnitudes of eight 32-bit limbs
// (wide enough for the product of two currencies before it is scaled back)
// and give a Lua error when a result leaves the 10-byte range.
struct Wide {
    uint32_t limb[8] = {};
    bool negative = false;
};

Wide wide_from_currency(const uint8_t* cy) {
    uint8_t b[16];
    std::memcpy(b, cy, 10);
    const uint8_t fill = (cy[9] & 0x80) ? 0xFF : 0x00;
    std::memset(b + 10, fill, 6);
    Wide w;
    w.negative = fill != 0;
    if (w.negative) { // two's complement -> magnitude
        unsigned carry = 1;
        for (uint8_t& x : b) {
            const unsigned v = static_cast<uint8_t>(~x) + carry;
            x = static_cast<uint8_t>(v);
            carry = v >> 8;
        }
    }
    for (int i = 0; i < 4; ++i)
        w.limb[i] = static_cast<uint32_t>(b[4 * i]) | static_cast<uint32_t>(b[4 * i + 1]) << 8 |
                    static_cast<uint32_t>(b[4 * i + 2]) << 16 | static_cast<uint32_t>(b[4 * i + 3]) << 24;
    return w;
}

bool is_zero(const Wide& w) {
    for (uint32_t l : w.limb)
        if (l) return false;
    return true;
}

// False when the value does not fit in 10 bytes.
bool wide_to_currency(const Wide& w, uint8_t* cy) {
    if (w.limb[2] > 0xFFFF) return false; // 80 bits: limbs 0 and 1, half of limb 2
    for (int i = 3; i < 8; ++i)
        if (w.limb[i]) return false;
    uint8_t b[10];
    for (int i = 0; i < 10; ++i)
        b[i] = static_cast<uint8_t>(w.limb[i / 4] >> (8 * (i % 4)));
    const bool top = (b[9] & 0x80) != 0;
    if (!w.negative && top) return false;
    if (w.negative && !is_zero(w)) {
        // -2^79 is the one magnitude with the top bit set that fits.
        if (top) {
            for (int i = 0; i < 9; ++i)
                if (b[i]) return false;
            if (b[9] != 0x80) return false;
        }
        unsigned carry = 1;
        for (uint8_t& x : b) {
            const unsigned v = static_cast<uint8_t>(~x) + carry;
            x = static_cast<uint8_t>(v);
            carry = v >> 8;
        }
    }
    std::memcpy(cy, b, 10);
    return true;
}

int compare_magnitude(const Wide& a, const Wide& b) {
    for (int i = 7; i >= 0; --i)
        if (a.limb[i] != b.limb[i]) return a.limb[i] < b.limb[i] ? -1 : 1;
    return 0;
}

Wide add_magnitude(const Wide& a, const Wide& b) {
    Wide r;
    uint64_t carry = 0;
    for (int i = 0; i < 8; ++i) {
        const uint64_t v = uint64_t{a.limb[i]} + b.limb[i] + carry;
        r.limb[i] = static_cast<uint32_t>(v);
        carry = v >> 32;
    }
    return r;
}

Wide sub_magnitude(const Wide& a, const Wide& b) { // a >= b
    Wide r;
    int64_t borrow = 0;
    for (int i = 0; i < 8; ++i) {
        int64_t v = int64_t{a.limb[i]} - b.limb[i] - borrow;
        borrow = v < 0;
        if (v < 0) v += int64_t{1} << 32;
        r.limb[i] = static_cast<uint32_t>(v);
    }
    return r;
}

Wide wide_add(const Wide& a, const Wide& b) {
    if (a.negative == b.negative) {
        Wide r = add_magnitude(a, b);
        r.negative = a.negative;
        return r;
    }
    const bool a_bigger = compare_magnitude(a, b) >= 0;
    Wide r = a_bigger ? sub_magnitude(a, b) : sub_magnitude(b, a);
    r.negative = a_bigger ? a.negative : b.negative;
    return r;
}

Wide wide_mul(const Wide& a, const Wide& b) { // operands below 2^128
    Wide r;
    for (int i = 0; i < 4; ++i) {
        uint64_t carry = 0;
        for (int j = 0; j < 4; ++j) {
            const uint64_t v = uint64_t{a.limb[i]} * b.limb[j] + r.limb[i + j] + carry;
            r.limb[i + j] = static_cast<uint32_t>(v);
            carry = v >> 32;
        }
        r.limb[i + 4] = static_cast<uint32_t>(carry);
    }
    r.negative = (a.negative != b.negative) && !is_zero(r);
    return r;
}

// Quotient truncated toward zero (b not zero).
Wide wide_div(const Wide& a, const Wide& b) {
    Wide q, rem;
    for (int bit = 255; bit >= 0; --bit) {
        for (int i = 7; i > 0; --i)
            rem.limb[i] = rem.limb[i] << 1 | rem.limb[i - 1] >> 31;
        rem.limb[0] = rem.limb[0] << 1 | ((a.limb[bit / 32] >> (bit % 32)) & 1);
        if (compare_magnitude(rem, b) >= 0) {
            rem = sub_magnitude(rem, b);
            q.limb[bit / 32] |= 1u << (bit % 32);
        }
    }
    q.negative = (a.negative != b.negative) && !is_zero(q);
    return q;
}

Wide wide_small(uint32_t v) {
    Wide w;
    w.limb[0] = v;
    return w;
}

// A currency operand: a kp.currency, an integer, a decimal text, or a float
// (read to six decimals, as kp.currency reads it).
bool currency_operand(lua_State* L, int index, Wide& out, std::string& err) {
    const uint8_t* p = nullptr;
    if (currency_at(L, index, p)) {
        out = wide_from_currency(p);
        return true;
    }
    std::string text;
    if (lua_isinteger(L, index)) {
        text = std::to_string(lua_tointeger(L, index));
    } else if (lua_type(L, index) == LUA_TNUMBER) {
        char buf[400];
        std::snprintf(buf, sizeof buf, "%.6f", static_cast<double>(lua_tonumber(L, index)));
        text = buf;
    } else if (lua_type(L, index) == LUA_TSTRING) {
        text = lua_tostring(L, index);
    } else {
        err = say(L, "currency arithmetic on a ", "arithmétique monétaire sur une valeur ") +
              std::string(luaL_typename(L, index)) + say(L, " value", "");
        return false;
    }
    uint8_t cy[10] = {};
    if (!kp::host::currency_from_text(text, cy)) {
        err = "'" + text + say(L, "' is not a currency value", "' n'est pas une valeur monétaire");
        return false;
    }
    out = wide_from_currency(cy);
    return true;
}

template <char Op> int currency_arith(lua_State* L, std::string& err) {
    Wide a, b;
    if (!currency_operand(L, 1, a, err) || (Op != 'n' && !currency_operand(L, 2, b, err))) return kFail;
    const Wide million = wide_small(1000000);
    Wide r;
    switch (Op) {
    case '+':
        r = wide_add(a, b);
        break;
    case '-':
        b.negative = !b.negative && !is_zero(b);
        r = wide_add(a, b);
        break;
    case 'n':
        r = a;
        r.negative = !a.negative && !is_zero(a);
        break;
    case '*':
        r = wide_div(wide_mul(a, b), million);
        break;
    case '/':
        if (is_zero(b)) {
            err = say(L, "currency division by zero", "division monétaire par zéro");
            return kFail;
        }
        r = wide_div(wide_mul(a, million), b);
        break;
    }
    uint8_t cy[10];
    if (!wide_to_currency(r, cy)) {
        err = say(L, "currency overflow", "dépassement de capacité monétaire");
        return kFail;
    }
    push_currency(L, cy);
    return 1;
}

int currency_compare(lua_State* L, std::string& err, bool or_equal) {
    Wide a, b;
    if (!currency_operand(L, 1, a, err) || !currency_operand(L, 2, b, err)) return kFail;
    b.negative = !b.negative && !is_zero(b);
    const Wide d = wide_add(a, b); // a - b
    lua_pushboolean(L, d.negative || (or_equal && is_zero(d)));
    return 1;
}
int currency_lt(lua_State* L, std::string& err) {
    return currency_compare(L, err, false);
}
int currency_le(lua_State* L, std::string& err) {
    return currency_compare(L, err, true);
}

// c:tonumber(): the nearest float.
int currency_tonumber(lua_State* L, std::string& err) {
    std::string t;
    if (!self_text(L, t, err, "tonumber: expects a kp.currency", "tonumber : attend un kp.currency"))
        return kFail;
    lua_pushnumber(L, std::strtod(t.c_str(), nullptr));
    return 1;
}

} // namespace

int currency_new(lua_State* L, std::string& err) {
    const uint8_t* existing = nullptr;
    if (currency_at(L, 1, existing)) {
        push_currency(L, existing);
        return 1;
    }
    std::string text;
    if (lua_type(L, 1) == LUA_TSTRING) {
        size_t n = 0;
        const char* s = lua_tolstring(L, 1, &n);
        text.assign(s, n);
    } else if (lua_isinteger(L, 1)) {
        text = std::to_string(lua_tointeger(L, 1));
    } else if (lua_type(L, 1) == LUA_TNUMBER) {
        char buf[400];
        std::snprintf(buf, sizeof buf, "%.6f", static_cast<double>(lua_tonumber(L, 1)));
        text = buf;
    } else {
        err = say(L, "kp.currency: expects decimal text or a number",
                  "kp.currency : attend un texte décimal ou un nombre");
        return kFail;
    }
    uint8_t cy[10] = {};
    if (!kp::host::currency_from_text(text, cy)) {
        err = say(L, "kp.currency: '", "kp.currency : '") + text +
              say(L, "' is not a currency value", "' n'est pas une valeur monétaire");
        return kFail;
    }
    push_currency(L, cy);
    return 1;
}

void add_currency_type(lua_State* L) {
    static const luaL_Reg currency_meta[] = {{"__tostring", guarded<currency_tostring>},
                                             {"__eq", currency_eq},
                                             {"__add", guarded<currency_arith<'+'>>},
                                             {"__sub", guarded<currency_arith<'-'>>},
                                             {"__mul", guarded<currency_arith<'*'>>},
                                             {"__div", guarded<currency_arith<'/'>>},
                                             {"__unm", guarded<currency_arith<'n'>>},
                                             {"__lt", guarded<currency_lt>},
                                             {"__le", guarded<currency_le>},
                                             {nullptr, nullptr}};
    new_type(L, kCurrencyType, currency_meta);
    static const luaL_Reg currency_methods[] = {{"tonumber", guarded<currency_tonumber>}, {nullptr, nullptr}};
    luaL_getmetatable(L, kCurrencyType);
    luaL_newlib(L, currency_methods);
    lua_setfield(L, -2, "__index");
    lua_pop(L, 1);
}

} // namespace kp::cli
