// lua_table.cpp - kp.table: a Lua description turned into a host table
// control, registered with the host for as long as the Lua value lives.
#include "lua_table.h"

#include <algorithm>
#include <memory>
#include <new>
#include <string>

#include "lua_guard.h"
#include "wtf8.h"

namespace kp::cli {

using kp::host::wtf8_invalid_at;
using kp::host::wtf8_to_utf16;

namespace {

struct TableBox {
    uintptr_t handle;
    kp::host::Host* host;
};

std::u16string text_field(lua_State* L, int index, const char* what, std::string& err) {
    size_t n = 0;
    const char* s = lua_tolstring(L, index, &n);
    const std::string_view bytes(s, n);
    if (wtf8_invalid_at(bytes) != std::string_view::npos) {
        err = say(L, "kp.table: ", "kp.table : ") + std::string(what) +
              say(L, ": invalid UTF-8", " : UTF-8 invalide");
        return {};
    }
    std::u16string out;
    wtf8_to_utf16(bytes, out);
    return out;
}

// Cells of the row table at `index` (nil cells are empty).
bool read_cells(lua_State* L, int index, std::vector<kp::host::Value>& cells, const std::string& what,
                std::string& err) {
    if (lua_type(L, index) != LUA_TTABLE) {
        err = say(L, "kp.table: ", "kp.table : ") + what +
              say(L, " must be a table of cells", " doit être une table de cellules");
        return false;
    }
    const lua_Integer n = static_cast<lua_Integer>(lua_rawlen(L, index));
    cells.clear();
    cells.reserve(static_cast<size_t>(n));
    for (lua_Integer k = 1; k <= n; ++k) {
        lua_rawgeti(L, index, k);
        kp::host::Value v;
        const bool ok =
            lua_isnil(L, -1) || lua_value(L, lua_gettop(L), v, what + " cell " + std::to_string(k), err);
        lua_pop(L, 1);
        if (!ok) return false;
        cells.push_back(std::move(v));
    }
    return true;
}

// Calls read(k) for each entry k of the list at the top of the stack, with
// the entry on top of it (popped after).  A missing list is empty; anything
// else but a table is the error en / fr.
template <class F> bool each_entry(lua_State* L, const char* en, const char* fr, std::string& err, F&& read) {
    if (lua_isnil(L, -1)) return true;
    if (lua_type(L, -1) != LUA_TTABLE) {
        err = say(L, en, fr);
        return false;
    }
    const int list = lua_gettop(L);
    const lua_Integer n = static_cast<lua_Integer>(lua_rawlen(L, list));
    for (lua_Integer k = 1; k <= n; ++k) {
        lua_rawgeti(L, list, k);
        const bool ok = read(k);
        lua_pop(L, 1);
        if (!ok) return false;
    }
    return true;
}

// The "columns" field at the top of the stack: titles or {title, visible}.
bool read_columns(lua_State* L, kp::host::TableControl& control, std::string& err) {
    return each_entry(L, "kp.table: columns must be a table", "kp.table : columns doit être une table", err,
                      [&](lua_Integer k) {
                          kp::host::TableControl::Column c;
                          if (lua_type(L, -1) == LUA_TSTRING) {
                              c.title = text_field(L, -1, "column title", err);
                          } else if (lua_type(L, -1) == LUA_TTABLE) {
                              lua_getfield(L, -1, "title");
                              if (lua_type(L, -1) == LUA_TSTRING)
                                  c.title = text_field(L, -1, "column title", err);
                              lua_pop(L, 1);
                              lua_getfield(L, -1, "visible");
                              if (!lua_isnil(L, -1)) c.visible = lua_toboolean(L, -1) != 0;
                              lua_pop(L, 1);
                          } else {
                              err = say(L, "kp.table: column ", "kp.table : la colonne ") +
                                    std::to_string(k) +
                                    say(L, " must be a title or {title, visible}",
                                        " doit être un titre ou {title, visible}");
                          }
                          if (!err.empty()) return false;
                          control.columns.push_back(std::move(c));
                          return true;
                      });
}

// The "rows" field at the top of the stack: a list of lists of cells.
bool read_rows(lua_State* L, kp::host::TableControl& control, std::string& err) {
    if (lua_type(L, -1) == LUA_TTABLE) control.rows.reserve(lua_rawlen(L, -1));
    return each_entry(L, "kp.table: rows must be a table", "kp.table : rows doit être une table", err,
                      [&](lua_Integer k) {
                          std::vector<kp::host::Value> cells;
                          if (!read_cells(L, lua_gettop(L), cells, "row " + std::to_string(k), err))
                              return false;
                          control.rows.push_back(std::move(cells));
                          return true;
                      });
}

// The "selected" field at the top of the stack: row numbers from 1, kept
// sorted and from 0.  Anything but a table selects nothing.
bool read_selected(lua_State* L, kp::host::TableControl& control, std::string& err) {
    if (lua_type(L, -1) != LUA_TTABLE) return true;
    const bool ok = each_entry(L, "", "", err, [&](lua_Integer) {
        if (!lua_isinteger(L, -1) || lua_tointeger(L, -1) < 1 || lua_tointeger(L, -1) > INT32_MAX) {
            err = say(L, "kp.table: selected rows are row numbers from 1",
                      "kp.table : selected contient des numéros de ligne à partir de 1");
            return false;
        }
        control.selected.push_back(static_cast<int32_t>(lua_tointeger(L, -1) - 1));
        return true;
    });
    std::sort(control.selected.begin(), control.selected.end());
    return ok;
}

int table_new(lua_State* L, std::string& err) {
    if (lua_type(L, 1) != LUA_TTABLE) {
        err = say(L, "kp.table: expects a table {kind, columns, rows, selected, totals}",
                  "kp.table : attend une table {kind, columns, rows, selected, totals}");
        return kFail;
    }
    auto control = std::make_shared<kp::host::TableControl>();
    lua_getfield(L, 1, "kind");
    if (!lua_isnil(L, -1)) {
        if (!lua_isinteger(L, -1)) {
            err = say(L, "kp.table: kind must be an integer", "kp.table : kind doit être un entier");
            return kFail;
        }
        control->kind = static_cast<int32_t>(lua_tointeger(L, -1));
    }
    lua_pop(L, 1);
    for (auto [field, read] : {std::pair{"columns", &read_columns}, std::pair{"rows", &read_rows},
                               std::pair{"selected", &read_selected}}) {
        lua_getfield(L, 1, field);
        if (!read(L, *control, err)) return kFail;
        lua_pop(L, 1);
    }
    lua_getfield(L, 1, "totals");
    if (!lua_isnil(L, -1)) {
        if (!read_cells(L, lua_gettop(L), control->totals, "totals", err)) return kFail;
        control->has_totals = true;
    }
    lua_pop(L, 1);

    lua_getfield(L, 1, "unreadable");
    control->unreadable = lua_toboolean(L, -1) != 0;
    lua_pop(L, 1);

    kp::host::Host& host = session(L).host;
    void* p = lua_newuserdatauv(L, sizeof(TableBox), 0);
    new (p) TableBox{host.add_control(std::move(control)), &host};
    luaL_setmetatable(L, kTableType);
    return 1;
}

// kp.table(description): the control, or a Lua error; memory running out
// is told in the session's language.
int kp_table(lua_State* L, std::string& err) {
    try {
        return table_new(L, err);
    } catch (const std::bad_alloc&) {
        err = say(L, "kp.table: out of memory", "kp.table : mémoire épuisée");
        return kFail;
    }
}

int table_gc(lua_State* L) {
    if (auto* b = static_cast<TableBox*>(luaL_testudata(L, 1, kTableType)))
        b->host->remove_control(b->handle);
    return 0;
}

int table_tostring(lua_State* L) {
    auto* b = static_cast<TableBox*>(luaL_testudata(L, 1, kTableType));
    lua_pushfstring(L, "kp.table(%p)", b ? reinterpret_cast<void*>(b->handle) : nullptr);
    return 1;
}

} // namespace

void add_table_api(lua_State* L) {
    static const luaL_Reg meta[] = {{"__gc", table_gc}, {"__tostring", table_tostring}, {nullptr, nullptr}};
    luaL_newmetatable(L, kTableType);
    luaL_setfuncs(L, meta, 0);
    lua_pop(L, 1);
    lua_pushcfunction(L, guarded<kp_table>);
    lua_setfield(L, -2, "table");
}

bool table_handle_at(lua_State* L, int index, uintptr_t& handle) {
    auto* b = static_cast<TableBox*>(luaL_testudata(L, index, kTableType));
    if (!b) return false;
    handle = b->handle;
    return true;
}

} // namespace kp::cli
