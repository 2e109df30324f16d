// pump.cpp - the message pump the component calls while a handler waits
// (a process it started): the reference host has no user interface, so
// there is never an event to handle.  kp120 reads nothing from its terminal
// meanwhile; what is typed is left to the terminal.
#include "services.h"

namespace kp::host {

int32_t pump_message(void*) {
    return 0;
}

} // namespace kp::host
