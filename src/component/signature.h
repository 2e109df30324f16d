// signature.h - one provided overload of the function table as the binding
// checks it: the result and parameter type words of its table row.  The
// generated header kp120_signatures.h names one constant a handler,
// kp::sig::<English>_<n>.
#pragma once

#include <cstdint>

namespace kp::sig {

struct Overload {
    uint16_t result;
    uint8_t count;
    uint16_t params[10];
};

} // namespace kp::sig
