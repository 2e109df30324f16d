// lua_kp.h - the `kp` table: the component's functions and constants in Lua.
//
// kp.NAME(...) calls a function by its French or English name through the
// reference host, which resolves the overload as the VM does; kp.NAME also
// reads a constant.  Values cross as follows: strings as WTF-8 Lua strings,
// integers and 8-byte integers as Lua integers, reals as floats, booleans,
// buffers as `kp.buffer` userdata, currency as `kp.currency` userdata,
// by-reference arguments as `kp.var` userdata and procedure parameters as
// Lua functions.
#pragma once

#include <string>

#include <lua.hpp>

#include "host.h"

namespace kp::cli {

struct Session {
    explicit Session(kp::host::Host& h) : host(h) {}
    kp::host::Host& host;
    kp::host::ErrorInfo last_error; // the error record after the last call
    uint64_t errors_recorded = 0;   // calls whose record holds an error, since the start
    bool strict = false;            // kp.strict(true): recorded errors raise Lua errors
};

// Installs the global table `kp` in `L`.  `session` must outlive `L`.
void open_kp(lua_State* L, Session& session);

// kp.window and kp.closewindow (window.cpp) into the table on top of the stack.
void add_window_functions(lua_State* L, Session& session);

// kp.json(value) of the Lua value at `index`: JSON text in `out`, or false
// with the reason in `out`.
bool json_encode(lua_State* L, int index, std::string& out, int language);

// Type names of the userdata that kp makes.
inline constexpr const char* kBufferType = "kp.buffer";
inline constexpr const char* kCurrencyType = "kp.currency";
inline constexpr const char* kVarType = "kp.var";
inline constexpr const char* kErrorType = "kp.error";

// One line for an error record: "error 80125: The month must be between 1
// and 12." or "error 0, system code 3: The system cannot find the path
// specified."; the message without the internal trace lines, then the
// system's text of the system code when it adds something.
std::string error_summary(const kp::host::ErrorInfo& e);

// The 10 bytes of a `kp.currency` value at `index`; false when the value
// is not one.
bool currency_at(lua_State* L, int index, const uint8_t*& bytes);
// Pushes the 10 bytes of a currency as a `kp.currency` (lua_currency.cpp).
void push_currency(lua_State* L, const uint8_t* bytes);
// kp.currency(text | number | currency): the impl behind it.
int currency_new(lua_State* L, std::string& err);
// The `kp.currency` metatable: arithmetic, comparisons, tostring, tonumber.
void add_currency_type(lua_State* L);

// The value a `kp.var` at `index` refers to, or null when it is not one.
const kp::host::Value* var_at(lua_State* L, int index);

// Keeps the Lua error value on top of the stack (and pops it) to raise it
// once the component call under way has returned: a Lua error must not
// unwind through the component.
void defer_error(lua_State* L);
// Lua value at `index` -> host value (no variables or functions); false
// with the reason in `err`.  `what` names the value in messages.
bool lua_value(lua_State* L, int index, kp::host::Value& out, const std::string& what, std::string& err);

// Pushes a host value as its Lua counterpart.
void push_value(lua_State* L, const kp::host::Value& v);

// Lowercase hex of `n` bytes.
std::string to_hex(const uint8_t* bytes, size_t n);

} // namespace kp::cli
