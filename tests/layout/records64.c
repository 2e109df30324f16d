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
_Static_assert(offsetof(kp_services, setting) == 17 * sizeof(void*), "services slots of the first release stay put");
_Static_assert(offsetof(kp_services, select) == 18 * sizeof(void*), "appended services slots follow the first release's");
_Static_assert(offsetof(kp_services, table_interface) == 23 * sizeof(void*), "services slots in the order they were appended");
_Static_assert(offsetof(kp_table_interface, self) == 11 * sizeof(void*), "the table interface's self follows the first release's slots");
_Static_assert(KP_SLOT_END(kp_services, setting) == 18 * sizeof(void*), "the size of a services block of the first release");

int main(void) { return 0; }
