// window.cpp - windows of the host's display for scripts:
//
//   local w = kp.window{title = "Orders", class = "KPForm", menus = 2}
//   kp.SysWinHandle("Orders") == w
//   kp.closewindow(w)
//
// kp.window creates a top-level window on the display the component sees
// (the headless handheld, or the X11 display) and answers its handle;
// kp.closewindow closes it and answers whether it was open.  Both raise a
// Lua error when the host has no display.
#include <lua.hpp>

#include "display.h"
#include "lua_kp.h"
#include "tr.h"
#include "wtf8.h"

namespace kp::cli {

using kp::host::wtf8_to_utf16;

namespace {

// Lua errors unwind with longjmp: they are raised only where no C++ object
// with a destructor is alive.
Session& session_of(lua_State* L) {
    return *static_cast<Session*>(lua_touserdata(L, lua_upvalueindex(1)));
}

kp::host::Display* display_of(lua_State* L) {
    kp::host::Display* d = session_of(L).host.display();
    if (!d)
        luaL_error(L, "%s",
                   tr(session_of(L).host, "kp.window: the host has no display",
                      "kp.window : l'hôte n'a pas d'affichage"));
    return d;
}

// A text field of the table at 1 (empty when absent), left on the stack.
std::string_view text_field(lua_State* L, const char* name) {
    lua_getfield(L, 1, name);
    if (lua_isnil(L, -1)) return {};
    if (lua_type(L, -1) != LUA_TSTRING)
        luaL_error(L, "%s%s%s", tr(session_of(L).host, "kp.window: ", "kp.window : "), name,
                   tr(session_of(L).host, " must be a string", " doit être une chaîne"));
    size_t n = 0;
    const char* p = lua_tolstring(L, -1, &n);
    return std::string_view(p, n);
}

int window_new(lua_State* L) {
    luaL_checktype(L, 1, LUA_TTABLE);
    kp::host::Display* d = display_of(L);
    lua_getfield(L, 1, "menus");
    const lua_Integer menus = luaL_optinteger(L, -1, 0);
    if (menus < 0 || menus > 64)
        return luaL_error(L, "%s",
                          tr(session_of(L).host, "kp.window: menus must be between 0 and 64",
                             "kp.window : menus doit être compris entre 0 et 64"));
    const std::string_view title8 = text_field(L, "title"), class8 = text_field(L, "class");
    uintptr_t w = 0;
    {
        std::u16string title, cls;
        if (wtf8_to_utf16(title8, title) && wtf8_to_utf16(class8, cls))
            w = d->create_window(title, cls, static_cast<int32_t>(menus));
    }
    if (!w)
        return luaL_error(L, "%s",
                          tr(session_of(L).host, "kp.window: the display refused the window",
                             "kp.window : l'affichage a refusé la fenêtre"));
    lua_pushinteger(L, static_cast<lua_Integer>(w));
    return 1;
}

int window_close(lua_State* L) {
    const lua_Integer w = luaL_checkinteger(L, 1);
    kp::host::Display* d = display_of(L);
    lua_pushboolean(L, w > 0 && d->close_window(static_cast<uintptr_t>(w)));
    return 1;
}

} // namespace

void add_window_functions(lua_State* L, Session& s) {
    lua_pushlightuserdata(L, &s);
    lua_pushcclosure(L, window_new, 1);
    lua_setfield(L, -2, "window");
    lua_pushlightuserdata(L, &s);
    lua_pushcclosure(L, window_close, 1);
    lua_setfield(L, -2, "closewindow");
}

} // namespace kp::cli
