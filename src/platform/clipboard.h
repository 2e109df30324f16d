// clipboard.h - the system clipboard, with the semantics of the Win32
// clipboard calls (OpenClipboard, EmptyClipboard, SetClipboardData,
// GetClipboardData, IsClipboardFormatAvailable, CloseClipboard and GetObject
// on the bitmap).  The clipboard functions reach the clipboard only through
// this interface.
//
// Two implementations, chosen once per process when the clipboard is first
// used:
//   - clipboard_x11.cpp: the X11 CLIPBOARD selection of the display named by
//     DISPLAY, when that display answers.  Text put on it is owned and
//     served by a thread of the component until another client takes the
//     selection or the process ends;
//   - clipboard_device.cpp: the device's own clipboard, a small store in the
//     device root's system directory ("\Windows\clipboard.dat"), shared by
//     every process working on the same root, replaced atomically under a
//     lock.
//
// Every call that fails returns false and leaves a Win32 error code as the
// calling thread's last error (platform/win32_error.h): 5 the clipboard is
// held by another opener, 1418 the clipboard is not open, 1460 the owner of
// the selection did not answer in time, 21 the display went away, 8 the data
// is larger than the clipboard accepts, 13 the data is not valid, and the
// file codes of the device store.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace kp::platform::clipboard {

// Clipboard format numbers.
constexpr uint32_t kFormatText = 1;         // CF_TEXT (8-bit text)
constexpr uint32_t kFormatBitmap = 2;       // CF_BITMAP
constexpr uint32_t kFormatDib = 8;          // CF_DIB
constexpr uint32_t kFormatUnicodeText = 13; // CF_UNICODETEXT: UTF-16 units with a terminator

// Win32 codes of the clipboard calls, besides those of win32_error.h.
constexpr uint32_t kErrorNotReady = 21;
constexpr uint32_t kErrorClipboardNotOpen = 1418;

// Largest amount of data one format may hold (bytes); more fails with 8.
constexpr std::size_t kMaxData = std::size_t{1} << 30;

class Clipboard {
  public:
    virtual ~Clipboard() = default;
    // OpenClipboard(NULL): one opener at a time, process-wide and, for the
    // device store, across processes; a clipboard held elsewhere for longer
    // than a short wait fails with 5.
    virtual bool open() = 0;
    // CloseClipboard: what EmptyClipboard and SetClipboardData changed
    // becomes visible to other clients.  1418 when not open.
    virtual bool close() = 0;
    // EmptyClipboard: removes every format; this process becomes the owner.
    virtual bool empty() = 0;
    // SetClipboardData: the bytes of one format, replacing that format.
    virtual bool set_data(uint32_t format, std::span<const uint8_t> data) = 0;
    // GetClipboardData: the bytes of one format (format 13 ends with its
    // UTF-16 terminator).  False with last error 0 when the format is absent.
    virtual bool get_data(uint32_t format, std::vector<uint8_t>& out) = 0;
    // IsClipboardFormatAvailable; needs no open clipboard.
    virtual bool is_format_available(uint32_t format) = 0;
    // GetObject on the CF_BITMAP handle: the bitmap's size in pixels.  False
    // when there is no bitmap (or its header cannot be read).  Needs an open
    // clipboard.
    virtual bool bitmap_size(int32_t& width, int32_t& height) = 0;
};

// The process's clipboard: X11 when DISPLAY names a display that answers,
// the device store otherwise.  Lives until the module is unloaded.
Clipboard& system_clipboard();

// The device store of a device root (a host directory).  `root` empty: the
// store follows the host's current device root (paths.h) at every call.
std::unique_ptr<Clipboard> make_device_clipboard(std::string root = {});

// The X11 CLIPBOARD selection of `display` (a display name as DISPLAY holds
// it).  Null (last error 21) when the display cannot be opened.  Reading
// waits at most `timeout_ms` for the owner's answer (and for each piece of
// an incremental transfer).
std::unique_ptr<Clipboard> make_x11_clipboard(const std::string& display, int timeout_ms = 2000);

// Width and height of an image from its header: PNG, a BMP file, or a
// device-independent bitmap (BITMAPINFOHEADER or BITMAPCOREHEADER first).
// Heights of top-down bitmaps are given positive.  False for anything else.
bool image_size(std::span<const uint8_t> bytes, int32_t& width, int32_t& height);

// UTF-16 text of a CF_UNICODETEXT block (up to its first zero unit; an odd
// trailing byte is ignored) and back (with the terminator).
std::u16string text_of_block(std::span<const uint8_t> bytes);
std::vector<uint8_t> block_of_text(std::u16string_view text);

} // namespace kp::platform::clipboard
