// currency_table.cpp - the object module's currency table and the window
// that answers eRoundDifference (placeholders until the currency family lands).
#include "services.h"

extern "C" __attribute__((visibility("default"))) kp_currency_table* OBJ_pclGetTauxDeChange() { return nullptr; }

namespace kp::host {
intptr_t answer_window_message(uintptr_t, uint32_t, uintptr_t, uintptr_t) { return 0; }
} // namespace kp::host
