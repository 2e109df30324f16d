// xorshift.h - the tests' reproducible random numbers (xorshift64, the same
// sequence on every machine and word size).
#pragma once

#include <cstdint>

namespace kp::test {

struct XorShift {
    uint64_t state = 0x9E3779B97F4A7C15ull;
    uint64_t next() {
        state ^= state << 13;
        state ^= state >> 7;
        state ^= state << 17;
        return state;
    }
};

} // namespace kp::test
