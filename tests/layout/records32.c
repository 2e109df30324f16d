/* Compiled for a 32-bit target (-m32 on x86-64): the static assertions of kp120/types.h check that the
 * descriptor records are byte for byte the 32-bit wire format (overload 28
 * bytes, function 20, constant 20, variable 16), and that the public headers
 * are plain C. */
#include <stddef.h>

#include "kp120/component.h"
#include "kp120/types.h"
#include "kp120/vm.h"

_Static_assert(offsetof(kp_overload, params) == 4, "parameter codes at offset 4");
_Static_assert(offsetof(kp_overload, reserved0) == 24, "reserved byte at offset 24");
_Static_assert(offsetof(kp_overload, param_count) == 26, "parameter count at offset 26");
_Static_assert(offsetof(kp_overload, result) == 27, "result type at offset 27");
_Static_assert(sizeof(kp_string_header) == 20, "string header is five 32-bit words");
_Static_assert(offsetof(kp_call_frame, result_handle) == 16, "result handle is the fifth word");
_Static_assert(offsetof(kp_services, setting) == 17 * sizeof(void*),
               "services slots of the first release stay put");
_Static_assert(offsetof(kp_services, select) == 18 * sizeof(void*),
               "appended services slots follow the first release's");
_Static_assert(offsetof(kp_services, table_interface) == 23 * sizeof(void*),
               "services slots in the order they were appended");
_Static_assert(offsetof(kp_table_interface, self) == 11 * sizeof(void*),
               "the table interface's self follows the first release's slots");
_Static_assert(KP_SLOT_END(kp_services, setting) == 18 * sizeof(void*),
               "the size of a services block of the first release");

int main(void) {
    return 0;
}
