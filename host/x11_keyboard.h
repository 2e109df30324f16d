// x11_keyboard.h - typing through XTest with the server's keyboard map:
// the key that carries a character, else a spare key lent the character's
// symbol and given back its empty symbol afterwards; and which keys are down.
// Included after Xlib's headers (by the X11 display only).
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <thread>
#include <vector>

namespace kp::host::x11 {

// Keys without symbols lend themselves to the characters no key
// carries.  A client reads the symbol of a key when it handles the key's
// event, which may come well after the stroke: a spare key is given
// another symbol only once the server has delivered every stroke made
// since the spares were last settled (a round trip) and the clients have
// had a grace to read them, and the spares are given back their empty
// symbols a second after the last text (by the display's own thread,
// the caller does not wait), so that the keyboard is left as it was.
// A spare keeps its symbol until then: the next text that needs it
// types it at once.  With 64 spares, a text of many distinct characters
// waits once every 64 of them.
class Keyboard {
  public:
    using ErrorHandler = int (*)(::Display*, XErrorEvent*);
    // Works on `dpy` under the display's `mutex` (held by the callers of
    // every operation but stop); `dead` is the display's lost-connection
    // flag, `trap` the handler that records protocol errors.
    Keyboard(::Display* dpy, std::mutex& mutex, const std::atomic<bool>& dead, ErrorHandler trap)
        : dpy_(dpy), mutex_(mutex), dead_(dead), trap_(trap) {}
    Keyboard(const Keyboard&) = delete;
    Keyboard& operator=(const Keyboard&) = delete;

    // The server's keyboard map of now (one request).
    void load_keymap();
    // Whether a key that is the virtual key `vk` is down, in the map of
    // now (another client may have changed it).
    bool key_down(int32_t vk);
    // One character through XTest (control characters other than line
    // ends, tab and backspace type nothing); false when no key can carry it.
    bool type_char(char32_t c);
    // After a text: the spares get their empty symbols back a second later.
    void schedule_restore();
    // Ends the restoring thread and gives the spares back now; called
    // without the display's mutex, before the display closes.
    void stop();

  private:
    static constexpr std::size_t kMaxSpares = 64;
    static constexpr auto kGrace = std::chrono::milliseconds(250);
    static constexpr auto kRestoreAfter = std::chrono::milliseconds(1000);

    int level_of(KeyCode key, KeySym sym) const;
    KeyCode spare_key(KeySym sym);
    void find_spares();
    bool spares_hold_symbols() const;
    void restore_spares();
    void restorer() noexcept;
    void trapped_restore();

    ::Display* dpy_;
    std::mutex& mutex_;
    const std::atomic<bool>& dead_;
    ErrorHandler trap_;
    struct Spare {
        KeyCode key;
        KeySym sym;
        bool used; // typed since the spares were last settled
    };
    std::vector<Spare> spares_;
    std::vector<KeySym> keymap_;
    int min_keycode_ = 0, max_keycode_ = -1, per_keycode_ = 0;
    KeyCode shift_key_ = 0;
    std::thread restorer_;
    std::condition_variable restore_cv_;
    std::chrono::steady_clock::time_point restore_at_;
    bool restore_pending_ = false, stopping_ = false;
};

} // namespace kp::host::x11
