// services.h - pieces of the reference host that serve the component's
// services block, each in a file of its own.
#pragma once

#include <cstdint>

#include "kp120/vm.h"

namespace kp::host {

// Regional settings of an interface language (0 French, 1 English), built
// from the locale data of fr_FR and en_US.  Lives as long as the process.
const kp_regional_settings* regional_settings(int32_t language);

// The VM's answer to a window message sent by the component (message 1751
// of eRoundDifference writes the rounding difference, a 10-byte currency
// value, at lparam).  Returns the message's result.
intptr_t answer_window_message(uintptr_t window, uint32_t message, uintptr_t wparam, uintptr_t lparam);

// The VM's message texts: writes message `number` of `language` into
// buffer (size characters with the terminator); returns the length, 0 when
// the host has no text for it, or the size needed when the buffer is short.
int32_t host_message_text(int32_t language, uint32_t number, char16_t* buffer, int32_t size);

// Services slot `pump_message`: handles one pending event of the host's
// user interface; returns non-zero when it handled one.
int32_t pump_message(void* vm);

} // namespace kp::host
