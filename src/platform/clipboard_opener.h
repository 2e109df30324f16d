// clipboard_opener.h - what both clipboard implementations (clipboard_x11.cpp
// and clipboard_device.cpp) keep alike: the thread that holds the clipboard
// open, and the checks of the calls that need an open clipboard.
//
// The opening thread owns the open clipboard: its mark is kept under a small
// lock, which no call keeps across its return.  Another thread that opens
// waits on a condition variable until the opener closes, at most for the
// wait it names; a thread that did not open cannot close.  A thread's mark is
// its own for as long as the clipboard refers to it (a thread identifier may
// be given again to a later thread; a mark never is), and it tells when its
// thread has ended: a clipboard whose opener ended without closing it is
// taken over by the next opener, as the system closes the clipboard of a
// thread that ends.
#pragma once

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <span>
#include <thread>

#include "platform/clipboard.h"
#include "platform/win32_error.h"

namespace kp::platform::clipboard {

// The calling thread's mark: true until the thread ends.
inline const std::shared_ptr<std::atomic<bool>>& this_thread_mark() {
    struct Mark {
        std::shared_ptr<std::atomic<bool>> alive = std::make_shared<std::atomic<bool>>(true);
        ~Mark() { alive->store(false); }
    };
    thread_local Mark mark;
    return mark.alive;
}

class Opener {
  protected:
    // True when the calling thread holds the clipboard open.
    bool held() const {
        std::lock_guard<std::mutex> lock(mutex_);
        return owner_ && owner_ == this_thread_mark();
    }
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
    // Makes the calling thread the opener, waiting at most `wait` for the
    // thread that holds the clipboard to close it or to end; false (last
    // error 5) when it does neither.  True at once for the opener itself.
    // *abandoned tells that the previous opener ended without closing.
    bool acquire(std::chrono::milliseconds wait, bool* abandoned = nullptr) {
        const std::shared_ptr<std::atomic<bool>>& me = this_thread_mark();
        const auto deadline = std::chrono::steady_clock::now() + wait;
        std::unique_lock<std::mutex> lock(mutex_);
        for (;;) {
            if (!owner_ || owner_ == me) break;
            if (!owner_->load()) {
                if (abandoned) *abandoned = true;
                break;
            }
            const auto now = std::chrono::steady_clock::now();
            if (now >= deadline) {
                set_last_error(kErrorAccessDenied);
                return false;
            }
            // The end of a thread notifies nobody: looked at again shortly.
            free_.wait_until(lock, std::min(deadline, now + std::chrono::milliseconds(20)));
        }
        owner_ = me;
        return true;
    }
    // The opener gives the clipboard up; a call from any other thread
    // changes nothing.
    void release() {
        {
            std::lock_guard<std::mutex> lock(mutex_);
            if (!owner_ || owner_ != this_thread_mark()) return;
            owner_.reset();
        }
        free_.notify_one();
    }

  private:
    mutable std::mutex mutex_;
    std::condition_variable free_;
    std::shared_ptr<std::atomic<bool>> owner_; // null: the clipboard is closed
};

} // namespace kp::platform::clipboard
