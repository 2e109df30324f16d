// currency_table.h - the object module's currency table as the reference
// host plays it, and the windows that answer eRoundDifference.
#pragma once

#include <cstdint>

#include "kp120/vm.h"

namespace kp::host {

// The process's table (what "OBJ_pclGetTauxDeChange" returns): the euro at
// index 0, then the currencies whose euro rates were fixed irrevocably, with
// their official rates; both defaults the euro.
kp_currency_table* currency_table();
// Puts the table back in that initial state.
void reset_currency_table();

// The rounding difference a window of the host holds (a 10-byte monetary
// value), written at lparam when the window receives message 1751.  A
// window the host does not know answers 0 and writes nothing.
void set_window_round_difference(uintptr_t window, const uint8_t (&value)[10]);
void forget_window(uintptr_t window);

} // namespace kp::host
