/* The public headers on the native 64-bit target: plain C, pointer-wide
 * address fields, and the string header's four words at -16..-4. */
#include <stddef.h>

#include "kp120/component.h"

_Static_assert(sizeof(kp_string_header) == 24, "owner pointer plus four 32-bit words");
_Static_assert(offsetof(kp_string_header, flags) == 8, "flags 16 bytes before the characters");
_Static_assert(offsetof(kp_call_frame, result_handle) == 4 * sizeof(void*), "result handle is the fifth word");
_Static_assert(offsetof(kp_value_interface_ops, set_result) == 149 * sizeof(void*), "result setter at index 149");
_Static_assert(offsetof(kp_call_context_ops, error) == 17 * sizeof(void*), "error record at index 17");
_Static_assert(offsetof(kp_allocator_ops, create) == 5 * sizeof(void*), "sixth allocator operation");
_Static_assert(offsetof(kp_allocator_ops, free_buffer) == 7 * sizeof(void*), "eighth allocator operation");
#include "slots.h"

int main(void) { return 0; }
