// clipboard.cpp - the choice of the process's clipboard, and the helpers
// both implementations share: image headers and CF_UNICODETEXT blocks.
#include "platform/clipboard.h"

#include <cstdlib>
#include <cstring>

namespace kp::platform::clipboard {

Clipboard& system_clipboard() {
    // Chosen once: a display named by DISPLAY that answers, else the device
    // store.  The X11 clipboard's serving thread stops when this object is
    // destroyed, at unload or at the end of the process.
    static std::unique_ptr<Clipboard> chosen = [] {
        std::unique_ptr<Clipboard> c;
        if (const char* d = std::getenv("DISPLAY"); d && *d) c = make_x11_clipboard(d);
        if (!c) c = make_device_clipboard();
        return c;
    }();
    return *chosen;
}

namespace {

uint32_t be32(const uint8_t* p) {
    return (uint32_t{p[0]} << 24) | (uint32_t{p[1]} << 16) | (uint32_t{p[2]} << 8) | p[3];
}
uint32_t le32(const uint8_t* p) {
    return (uint32_t{p[3]} << 24) | (uint32_t{p[2]} << 16) | (uint32_t{p[1]} << 8) | p[0];
}
uint16_t le16(const uint8_t* p) {
    return static_cast<uint16_t>(p[0] | (p[1] << 8));
}

// A DIB header at p (n bytes available).
bool dib_size(const uint8_t* p, std::size_t n, int32_t& width, int32_t& height) {
    if (n < 12) return false;
    const uint32_t header = le32(p);
    if (header == 12) { // BITMAPCOREHEADER: 16-bit unsigned sizes
        width = le16(p + 4);
        height = le16(p + 6);
        return true;
    }
    // BITMAPINFOHEADER and its later versions (V2 to V5).
    if ((header != 40 && header != 52 && header != 56 && header != 64 && header != 108 && header != 124) || n < 16)
        return false;
    const int32_t w = static_cast<int32_t>(le32(p + 4));
    const int32_t h = static_cast<int32_t>(le32(p + 8));
    if (w < 0 || h == INT32_MIN) return false;
    width = w;
    height = h < 0 ? -h : h; // top-down bitmaps store a negative height
    return true;
}

} // namespace

bool image_size(std::span<const uint8_t> b, int32_t& width, int32_t& height) {
    static const uint8_t kPng[8] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};
    if (b.size() >= 8 && std::memcmp(b.data(), kPng, 8) == 0) {
        if (b.size() < 24 || std::memcmp(b.data() + 12, "IHDR", 4) != 0) return false;
        const uint32_t w = be32(b.data() + 16), h = be32(b.data() + 20);
        if (w > 0x7FFFFFFFu || h > 0x7FFFFFFFu) return false;
        width = static_cast<int32_t>(w);
        height = static_cast<int32_t>(h);
        return true;
    }
    if (b.size() >= 14 && b[0] == 'B' && b[1] == 'M')
        return dib_size(b.data() + 14, b.size() - 14, width, height);
    return dib_size(b.data(), b.size(), width, height);
}

std::u16string text_of_block(std::span<const uint8_t> bytes) {
    std::u16string out;
    const std::size_t units = bytes.size() / 2;
    out.reserve(units);
    for (std::size_t i = 0; i < units; ++i) {
        const char16_t c = static_cast<char16_t>(bytes[2 * i] | (bytes[2 * i + 1] << 8));
        if (c == 0) break;
        out.push_back(c);
    }
    return out;
}

std::vector<uint8_t> block_of_text(std::u16string_view text) {
    std::vector<uint8_t> out((text.size() + 1) * 2, 0);
    for (std::size_t i = 0; i < text.size(); ++i) {
        out[2 * i] = static_cast<uint8_t>(text[i] & 0xFF);
        out[2 * i + 1] = static_cast<uint8_t>(text[i] >> 8);
    }
    return out;
}

} // namespace kp::platform::clipboard
