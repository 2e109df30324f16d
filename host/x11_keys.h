// x11_keys.h - Win32 virtual-key codes and X key symbols, both ways.
#pragma once

#include <cstdint>
#include <vector>

namespace kp::host::x11 {

// The key symbols of the keys that are the virtual key `vk` (each key's
// unshifted symbol: Home and the keypad's Home for VK_HOME); empty for a
// virtual key no X key is.
std::vector<unsigned long> keysyms_of_virtual_key(int32_t vk);

// Whether a key that carries a symbol of `vk` at `level` (0 unshifted, 1
// shifted) is that virtual key.  The punctuation keys (VK_OEM_*) are the
// keys whose unshifted symbol is theirs: the comma key of a US keyboard,
// whose shifted symbol is "<", is not VK_OEM_102.  The others are either
// level (a digit that is shifted on a French keyboard, the keypad digits
// under Num Lock).
bool is_virtual_key_at_level(int32_t vk, int level);

// The virtual key of a key's unshifted symbol (letters in either case);
// Shift_L and the other sided modifiers give the generic VK_SHIFT,
// VK_CONTROL and VK_MENU, as the keyboard messages carry them.  0 for none.
int32_t virtual_key_of_keysym(unsigned long keysym);

} // namespace kp::host::x11
