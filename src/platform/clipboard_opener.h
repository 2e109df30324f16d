// clipboard_opener.h - what both clipboard implementations (clipboard_x11.cpp
// and clipboard_device.cpp) keep alike: the thread that holds the clipboard
// open, and the checks of the calls that need an open clipboard.
#pragma once

#include <atomic>
#include <cstdint>
#include <span>
#include <thread>

#include "platform/clipboard.h"
#include "platform/win32_error.h"

namespace kp::platform::clipboard {

class Opener {
  protected:
    // True when the calling thread holds the clipboard open.
    bool held() const { return opener_.load() == std::this_thread::get_id(); }
    // held(); otherwise false with last error 1418.
    bool require_held() const {
        if (held()) return true;
        set_last_error(kErrorClipboardNotOpen);
        return false;
    }
    // require_held(), and `data` no larger than one format may hold (false
    // with last error 8 otherwise).
    bool may_store(std::span<const uint8_t> data) const {
        if (!require_held()) return false;
        if (data.size() <= kMaxData) return true;
        set_last_error(kErrorNotEnoughMemory);
        return false;
    }
    void take() { opener_ = std::this_thread::get_id(); }
    void release() { opener_ = std::thread::id(); }

  private:
    std::atomic<std::thread::id> opener_{};
};

} // namespace kp::platform::clipboard
