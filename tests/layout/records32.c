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
#include "slots.h"

int main(void) { return 0; }
