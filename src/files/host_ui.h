// host_ui.h - what the file functions ask of the VM's user interface: the
// file selectors (fSelect, fSelectDir, fGraphicFilter) and the Escape key
// that interrupts a walk.  Both go through slots of the services block; a
// VM without them cancels every selector and never presses a key.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>

namespace kp::files {

// Asks the VM's selector of `kind` (KP_SELECT_*) with the function's string
// arguments and option; the chosen text, or "" for a cancelled dialog.
std::u16string ask_selector(int32_t kind, std::initializer_list<std::u16string_view> texts, int32_t options);

// GetAsyncKeyState(27) as the VM answers it: true when Escape is down or
// was pressed since the previous query.
bool escape_pressed();

} // namespace kp::files
