// clipboard_util.h - image headers of a given size, and the clipboard calls
// through the reference host, for the clipboard tests with and without X11.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "platform/clipboard.h"
#include "support/test_host.h"

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

// Opens the clipboard, empties it, puts `data` as `format` and closes it.
inline bool put(kp::platform::clipboard::Clipboard& cb, uint32_t format, std::span<const uint8_t> data) {
    return cb.open() && cb.empty() && cb.set_data(format, data) && cb.close();
}
// Opens the clipboard, reads `format` and closes it.
inline bool take(kp::platform::clipboard::Clipboard& cb, uint32_t format, std::vector<uint8_t>& out) {
    if (!cb.open()) return false;
    const bool ok = cb.get_data(format, out);
    return cb.close() && ok;
}

struct ClipboardHost {
    HostFixture fx;
    host::CallOutcome call(const char* name, std::vector<host::Value> args = {}) {
        return fx.host->call(name, args);
    }
    host::Value control(std::shared_ptr<host::TableControl> t) {
        return host::Value::integer(static_cast<int64_t>(fx.host->add_control(std::move(t))));
    }
    // What the clipboard calls tell: text (1, 13) and bitmap (2) present, the bitmap's size.
    std::string shown() {
        std::string out;
        for (int64_t format : {1, 13, 2})
            out += call("ClipboardFormat", {host::Value::integer(format)}).result.b ? "1 " : "0 ";
        return out + std::to_string(call("ClipboardWidth").result.i) + "x" +
               std::to_string(call("PressePapierHauteur").result.i);
    }
};

} // namespace kp::test
