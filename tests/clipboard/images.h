// images.h - the headers of PNG, DIB and BMP images of a given size, as the
// clipboard reads their size from them.
#pragma once

#include <cstdint>
#include <vector>

namespace kp::test {

inline std::vector<uint8_t> png_header(uint32_t w, uint32_t h) {
    std::vector<uint8_t> b = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n', 0, 0, 0, 13, 'I', 'H', 'D', 'R'};
    for (uint32_t v : {w, h})
        for (int k = 3; k >= 0; --k)
            b.push_back(static_cast<uint8_t>(v >> (8 * k)));
    b.insert(b.end(), {8, 6, 0, 0, 0, 0, 0, 0, 0});
    return b;
}

// A BITMAPINFOHEADER; with `file`, after the 14 bytes of a BMP file's header.
inline std::vector<uint8_t> dib_header(int32_t w, int32_t h, bool file = false) {
    std::vector<uint8_t> b(file ? 54 : 40, 0);
    if (file) b[0] = 'B', b[1] = 'M', b[10] = 54;
    uint8_t* d = &b[file ? 14 : 0];
    d[0] = 40;
    for (int k = 0; k < 4; ++k) {
        d[4 + k] = static_cast<uint8_t>(static_cast<uint32_t>(w) >> (8 * k));
        d[8 + k] = static_cast<uint8_t>(static_cast<uint32_t>(h) >> (8 * k));
    }
    return b;
}

} // namespace kp::test
