// clipboard.cpp - text and buffers to and from the clipboard, the bitmap's
// size and the format test.
#include "system/clipboard.h"

#include "component/strings.h"
#include "platform/win32_error.h"

namespace kp::system {

namespace clip = platform::clipboard;

namespace {

// Records the calling thread's last system error as the call's failure.
void fail_system(CXError& err, uint32_t code) {
    err.clear();
    err.set_system(code);
    err.set_severity(KP_SEVERITY_ERROR);
}

} // namespace

std::vector<uint8_t> clipboard_bytes(const char16_t* argument) {
    if (!argument) return std::vector<uint8_t>(2, 0);
    const std::span<const uint8_t> b = str::bytes(argument);
    std::vector<uint8_t> out(b.begin(), b.end());
    if (!str::is_binary(argument)) {
        // The string's terminator goes with it.
        out.push_back(0);
        out.push_back(0);
    }
    return out;
}

bool to_clipboard(Clipboard& cb, std::span<const uint8_t> bytes, CXError& err) {
    if (!cb.open()) {
        fail_system(err, platform::last_error());
        return false;
    }
    // Declared as Unicode text whatever the bytes are, a buffer included.
    if (!cb.empty() || !cb.set_data(clip::kFormatUnicodeText, bytes)) {
        const uint32_t code = platform::last_error();
        cb.close();
        fail_system(err, code);
        return false;
    }
    // The device store writes what changed when it is closed.
    if (!cb.close()) {
        fail_system(err, platform::last_error());
        return false;
    }
    return true;
}

std::u16string clipboard_text(Clipboard& cb, CXError& err) {
    platform::set_last_error(0);
    if (!cb.is_format_available(clip::kFormatUnicodeText)) {
        // Absent text is no failure; an owner that did not answer is.
        if (const uint32_t code = platform::last_error()) fail_system(err, code);
        return {};
    }
    if (!cb.open()) {
        fail_system(err, platform::last_error());
        return {};
    }
    std::vector<uint8_t> data;
    platform::set_last_error(0);
    const bool got = cb.get_data(clip::kFormatUnicodeText, data);
    const uint32_t code = platform::last_error();
    cb.close();
    if (!got) {
        if (code) fail_system(err, code);
        return {};
    }
    return clip::text_of_block(data);
}

bool clipboard_format(Clipboard& cb, int32_t format) {
    if (format <= 0) return false;
    const uint32_t system_format =
        format == kCfText ? clip::kFormatUnicodeText : static_cast<uint32_t>(format);
    return cb.is_format_available(system_format);
}

namespace {

// The bitmap's width and height, or false.
bool bitmap_size(Clipboard& cb, int32_t& width, int32_t& height) {
    if (!cb.is_format_available(clip::kFormatBitmap) || !cb.open()) return false;
    const bool ok = cb.bitmap_size(width, height);
    cb.close();
    return ok;
}

} // namespace

int32_t clipboard_height(Clipboard& cb) {
    int32_t w = 0, h = 0;
    return bitmap_size(cb, w, h) ? h : -1;
}

int32_t clipboard_width(Clipboard& cb) {
    int32_t w = 0, h = 0;
    return bitmap_size(cb, w, h) ? w : -1;
}

} // namespace kp::system
