// line_end.h - the search for CR LF, the line end of ANSI text, sixteen
// bytes at a time where the machine has SSE2 (shared by the stream's line
// scan and its inline fast path).
#pragma once

#include <cstdint>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace kp::files {

#if defined(__SSE2__)
// The first CR LF in [p, limit) found while 17 bytes or more are left, or
// null with `p` moved to where fewer are (the caller searches the rest).
// One load a block; the byte after a CR is looked at only in the blocks
// that hold one.
[[gnu::always_inline]] inline const uint8_t* find_crlf_blocks(const uint8_t*& p, const uint8_t* limit) {
    const __m128i cr = _mm_set1_epi8('\r'), lf = _mm_set1_epi8('\n');
    while (limit - p >= 17) {
        const uint32_t crs = static_cast<uint32_t>(
            _mm_movemask_epi8(_mm_cmpeq_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p)), cr)));
        if (crs) {
            const uint32_t lfs = static_cast<uint32_t>(_mm_movemask_epi8(
                _mm_cmpeq_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p + 1)), lf)));
            if (const uint32_t match = crs & lfs) return p + __builtin_ctz(match);
        }
        p += 16;
    }
    return nullptr;
}
#endif

} // namespace kp::files
