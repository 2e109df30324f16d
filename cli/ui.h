// ui.h - the user interface kp120 gives the component: file selectors and
// the key state.
//
// kp.onselect(f) installs a Lua function that answers the file selectors:
// f{kind = "file" | "directory" | "filter", texts = {...}, options = n}
// returns the chosen text, or nil / "" for a cancelled dialog; kp.onselect()
// removes it.  Without one, a selector asks on the terminal when standard
// input is one, else it is cancelled.
//
// kp.presskey(vk) presses a key for the next key-state query (a script
// interrupts a walk with kp.presskey(27)); otherwise Escape is read from the
// terminal without blocking when standard input is one.
#pragma once

#include <lua.hpp>

#include "lua_kp.h"

namespace kp::cli {

// Adds kp.onselect and kp.presskey to the `kp` table and installs the hooks
// in the session's host.  `session` must outlive `L`.
void open_ui(lua_State* L, Session& session);

} // namespace kp::cli
