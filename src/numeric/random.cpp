// random.cpp - the device C runtime's generator and the Random draws.
#include "numeric/random.h"

#include <atomic>

namespace kp::numeric {

namespace {
constexpr uint32_t kErrRandomCount = 80260;
constexpr uint32_t kErrRandomBounds = 80210;

std::atomic<uint32_t> g_state{1};
} // namespace

void rand_seed(uint32_t seed) {
    g_state.store(seed, std::memory_order_relaxed);
}

int32_t rand_next() {
    uint32_t s = g_state.load(std::memory_order_relaxed);
    uint32_t next;
    do {
        next = s * 214013u + 2531011u;
    } while (!g_state.compare_exchange_weak(s, next, std::memory_order_relaxed));
    return static_cast<int32_t>((next >> 16) & 0x7FFF);
}

int64_t draw(int64_t n) {
    const int64_t r = rand_next();
    if (n < 65536) {
        // 32-bit arithmetic: r × n stays below 2^31.
        return static_cast<int32_t>(r) * static_cast<int32_t>(n) / 32768;
    }
    return r * n / 32768;
}

RandomValue random_unit() {
    // The divisor is 32767, not 32768: 1.0 itself can come out.
    return static_cast<double>(rand_next()) * (1.0 / 32767.0);
}

RandomValue random_upto(int32_t n, CXError& err) {
    if (n < 1) {
        err.fail(kErrRandomCount);
        return int32_t{0};
    }
    return static_cast<int32_t>(draw(n) + 1);
}

RandomValue random_between(int32_t a, int32_t b, CXError& err) {
    if (a > b) {
        err.fail(kErrRandomBounds);
        return int32_t{0};
    }
    // Up to 2^32 values: the span is counted in 64 bits.
    const int64_t span = static_cast<int64_t>(b) - a + 1;
    return static_cast<int32_t>(a + draw(span));
}

void init_random_from_clock(const std::function<uint32_t()>& tick) {
    const uint32_t start = tick();
    uint32_t now = start;
    while (now == start)
        now = tick();
    rand_seed(static_cast<uint32_t>(draw(10) + 1) * now);
}

void init_random(int32_t seed) {
    rand_seed(static_cast<uint32_t>(seed));
    rand_next();
}

} // namespace kp::numeric
