// random.h - the pseudo-random functions.
//
// The generator is the device C runtime's: a linear congruential generator
// (state = state × 214013 + 2531011 modulo 2^32, draw = (state >> 16) &
// 0x7FFF) giving 15-bit results 0..32767, seeded by srand and starting from
// state 1.  A program seeded with InitRandom therefore draws the same
// sequence as on the device.  The state is process-wide.
#pragma once

#include <cstdint>
#include <functional>
#include <variant>

#include "component/error.h"

namespace kp::numeric {

// The process-wide generator.
void rand_seed(uint32_t seed);
int32_t rand_next(); // 0..32767

// A draw in 0..n-1 for n > 0 (n up to 2^32 for the two-bound form).
int64_t draw(int64_t n);

// Result of Random: a real for the no-argument form, an integer otherwise.
using RandomValue = std::variant<double, int32_t>;

RandomValue random_unit();                                      // [0, 1]; 1.0 can come out
RandomValue random_upto(int32_t n, CXError& err);               // 1..n; 0 with 80260
RandomValue random_between(int32_t a, int32_t b, CXError& err); // a..b; 0 with 80210

// InitRandom(): waits until `tick` changes, then seeds with
// (draw(10) + 1) × the new tick.
void init_random_from_clock(const std::function<uint32_t()>& tick);
// InitRandom(seed): seeds, then draws and discards one result.
void init_random(int32_t seed);

} // namespace kp::numeric
