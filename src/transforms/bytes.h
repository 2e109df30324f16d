// bytes.h - little-endian number helpers of the transforms' byte formats.
#pragma once

#include <bit>
#include <cstdint>
#include <cstring>
#include <vector>

namespace kp::transforms {

inline void put_u32(uint8_t* p, uint32_t v) {
    p[0] = static_cast<uint8_t>(v);
    p[1] = static_cast<uint8_t>(v >> 8);
    p[2] = static_cast<uint8_t>(v >> 16);
    p[3] = static_cast<uint8_t>(v >> 24);
}
// Eight bytes at once, as one store where the machine is little-endian.
inline void put_u64(uint8_t* p, uint64_t v) {
    if constexpr (std::endian::native == std::endian::big) v = __builtin_bswap64(v);
    std::memcpy(p, &v, sizeof v);
}
inline uint32_t get_u32(const uint8_t* p) {
    return static_cast<uint32_t>(p[0]) | static_cast<uint32_t>(p[1]) << 8 |
           static_cast<uint32_t>(p[2]) << 16 | static_cast<uint32_t>(p[3]) << 24;
}
inline void append_u32(std::vector<uint8_t>& out, uint32_t v) {
    uint8_t b[4];
    put_u32(b, v);
    out.insert(out.end(), b, b + 4);
}

} // namespace kp::transforms
