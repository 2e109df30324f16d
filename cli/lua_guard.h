// lua_guard.h - what the C functions of the `kp` table share: the session,
// kp120's own words in the session's language, and the wrapper that turns an
// "impl" into a Lua C function.
//
// Lua raises errors with longjmp, which skips C++ destructors.  A C function
// therefore does its work in an impl that returns a result count, or a
// failure; guarded<impl> raises the Lua error only after the impl's C++
// objects are gone.
#pragma once

#include <exception>
#include <new>
#include <string>

#include "lua_kp.h"

namespace kp::cli {

// The session open_kp installed in `L`.
Session& session(lua_State* L);

// kp120's own words in the session's interface language.
const char* say(lua_State* L, const char* en, const char* fr);

// Result of an impl: how many values it pushed, or a failure.
constexpr int kFail = -1;      // message in `err`, raised with the caller's position
constexpr int kFailValue = -2; // the error value is on top of the stack, raised as is

using Impl = int (*)(lua_State*, std::string&);

template <Impl F> int guarded(lua_State* L) {
    int r;
    {
        std::string err;
        try {
            r = F(L, err);
        } catch (const std::bad_alloc&) {
            err = "out of memory";
            r = kFail;
        } catch (const std::exception& e) {
            err = e.what();
            r = kFail;
        }
        if (r == kFail) {
            luaL_where(L, 1);
            lua_pushlstring(L, err.data(), err.size());
            lua_concat(L, 2);
        }
    }
    if (r < 0) return lua_error(L);
    return r;
}

// Registers the metatable `name` with the functions of `meta`.
inline void new_type(lua_State* L, const char* name, const luaL_Reg* meta) {
    luaL_newmetatable(L, name);
    luaL_setfuncs(L, meta, 0);
    lua_pop(L, 1);
}

} // namespace kp::cli
