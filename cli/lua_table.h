// lua_table.h - kp.table: table controls built from Lua, passed where a
// function expects a control (type 0x39).
//
//   local t = kp.table{kind = 9,
//                      columns = {{title = "Name"}, {title = "Qty", visible = false}},
//                      rows = {{"a", 1}, {"b", 2}}, selected = {2}, totals = {"", 3}}
//   print(kp.TableToText(t))
//
// kind defaults to 9 (a table); a column may also be given as its title
// alone; rows and selected rows count from 1; a nil cell (or a row shorter
// than the columns) is an empty cell.  `unreadable = true` makes a control
// whose content the host cannot give (reading fails with the host's error).
#pragma once

#include <cstdint>

#include <lua.hpp>

#include "lua_kp.h"

namespace kp::cli {

inline constexpr const char* kTableType = "kp.table";

// Registers the kp.table type and sets the field `table` of the table on
// top of the stack (the kp library table).
void add_table_api(lua_State* L);

// The handle of the kp.table at `index`; false when the value is not one.
bool table_handle_at(lua_State* L, int index, uintptr_t& handle);

} // namespace kp::cli
