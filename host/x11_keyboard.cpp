// x11_keyboard.cpp - typing and key state over XTest (see x11_keyboard.h).
// clang-format off
#include <X11/Xlib.h>
#include <X11/XKBlib.h>
#include <X11/Xutil.h>
#include <X11/keysym.h>
#include <X11/extensions/XTest.h>
// clang-format on

#include "x11_keyboard.h"

#include <algorithm>
#include <system_error>

#include "x11_keys.h"

namespace kp::host::x11 {

bool Keyboard::key_down(int32_t vk) {
    const std::vector<unsigned long> syms = keysyms_of_virtual_key(vk);
    if (syms.empty()) return false;
    // Every key that carries one of the symbols at a level that is the
    // virtual key.
    load_keymap();
    char keys[32] = {};
    XQueryKeymap(dpy_, keys);
    for (KeySym s : syms)
        for (int kc = min_keycode_; kc <= max_keycode_; ++kc) {
            const int level = level_of(static_cast<KeyCode>(kc), s);
            if (level >= 0 && is_virtual_key_at_level(vk, level) && (keys[kc / 8] & (1 << (kc % 8))))
                return true;
        }
    return false;
}

// One character through XTest: the key that carries it at the first or
// the second (shifted) level, else a spare key given the symbol.
bool Keyboard::type_char(char32_t c) {
    KeySym sym;
    if (c == u'\n' || c == u'\r')
        sym = XK_Return;
    else if (c == u'\t')
        sym = XK_Tab;
    else if (c == u'\b')
        sym = XK_BackSpace;
    else if (c < 0x20)
        return true; // other control characters type nothing
    else if (c < 0x100)
        sym = c;
    else
        sym = 0x01000000 | c;
    // A key of the map (not a spare) that carries the symbol at the
    // first or the second level.
    KeyCode kc = 0;
    int level = -1;
    for (int k = min_keycode_; k <= max_keycode_ && level < 0; ++k) {
        const KeyCode key = static_cast<KeyCode>(k);
        if (std::any_of(spares_.begin(), spares_.end(), [&](const Spare& s) { return s.key == key; }))
            continue;
        level = level_of(key, sym);
        kc = key;
    }
    if (level < 0) {
        kc = spare_key(sym);
        if (!kc) return false;
        level = 0;
    }
    const KeyCode shift = level == 1 ? shift_key_ : 0;
    if (shift) XTestFakeKeyEvent(dpy_, shift, True, 0);
    XTestFakeKeyEvent(dpy_, kc, True, 0);
    XTestFakeKeyEvent(dpy_, kc, False, 0);
    if (shift) XTestFakeKeyEvent(dpy_, shift, False, 0);
    return true;
}

// The server's keyboard map of now (one request).
void Keyboard::load_keymap() {
    XDisplayKeycodes(dpy_, &min_keycode_, &max_keycode_);
    KeySym* map = XGetKeyboardMapping(dpy_, static_cast<KeyCode>(min_keycode_),
                                      max_keycode_ - min_keycode_ + 1, &per_keycode_);
    keymap_.clear();
    if (map) {
        keymap_.assign(map, map + (max_keycode_ - min_keycode_ + 1) * per_keycode_);
        XFree(map);
    } else {
        max_keycode_ = min_keycode_ - 1;
    }
    shift_key_ = 0;
    for (int k = min_keycode_; k <= max_keycode_ && !shift_key_; ++k)
        if (level_of(static_cast<KeyCode>(k), XK_Shift_L) == 0) shift_key_ = static_cast<KeyCode>(k);
}

// The level (0 or 1, the shifted one) at which a key of the loaded map
// carries a symbol (a letter in either case at the level of its case);
// -1 when it does not.
int Keyboard::level_of(KeyCode key, KeySym sym) const {
    if (per_keycode_ <= 0 || key < min_keycode_ || key > max_keycode_) return -1;
    const KeySym* k = keymap_.data() + (key - min_keycode_) * per_keycode_;
    KeySym lower = k[0], upper = per_keycode_ > 1 ? k[1] : NoSymbol;
    if (upper == NoSymbol) XConvertCase(k[0], &lower, &upper);
    if (sym == NoSymbol) return -1;
    if (lower == sym) return 0;
    if (upper == sym) return 1;
    return -1;
}

KeyCode Keyboard::spare_key(KeySym sym) {
    for (Spare& s : spares_)
        if (s.sym == sym) {
            s.used = true;
            return s.key;
        }
    if (spares_.empty()) find_spares();
    if (spares_.empty()) return 0;
    auto it = std::find_if(spares_.begin(), spares_.end(), [](const Spare& s) { return !s.used; });
    if (it == spares_.end()) {
        XSync(dpy_, False);
        std::this_thread::sleep_for(kGrace);
        for (Spare& s : spares_)
            s.used = false;
        it = spares_.begin();
    }
    KeySym pair[2] = {sym, sym};
    XChangeKeyboardMapping(dpy_, it->key, 2, pair, 1);
    it->sym = sym;
    it->used = true;
    return it->key;
}

void Keyboard::find_spares() {
    for (int k = max_keycode_; k >= min_keycode_ && spares_.size() < kMaxSpares; --k) {
        bool empty = true;
        for (int j = 0; j < per_keycode_; ++j)
            if (keymap_[(k - min_keycode_) * per_keycode_ + j] != NoSymbol) empty = false;
        if (empty) spares_.push_back({static_cast<KeyCode>(k), NoSymbol, false});
    }
}

bool Keyboard::spares_hold_symbols() const {
    return std::any_of(spares_.begin(), spares_.end(), [](const Spare& s) { return s.sym != NoSymbol; });
}

// Gives the spares back their empty symbols; called with the display's
// mutex held.
void Keyboard::restore_spares() {
    for (Spare& s : spares_) {
        if (s.sym != NoSymbol && !dead_) {
            KeySym none[2] = {NoSymbol, NoSymbol};
            XChangeKeyboardMapping(dpy_, s.key, 2, none, 1);
        }
        s.sym = NoSymbol;
        s.used = false;
    }
    if (!dead_) XSync(dpy_, False);
    restore_pending_ = false;
}

// Called with the display's mutex held, after a text.
void Keyboard::schedule_restore() {
    for (Spare& s : spares_)
        s.used = false; // delivered (the caller synced)
    if (!spares_hold_symbols()) return;
    restore_at_ = std::chrono::steady_clock::now() + kRestoreAfter;
    restore_pending_ = true;
    if (!restorer_.joinable()) {
        try {
            restorer_ = std::thread([this] { restorer(); });
        } catch (const std::system_error&) {
            // No thread: the caller waits the grace and restores now.
            std::this_thread::sleep_for(kGrace);
            restore_spares();
            return;
        }
    }
    restore_cv_.notify_all();
}

void Keyboard::restorer() noexcept {
    std::unique_lock<std::mutex> lock(mutex_);
    while (!stopping_) {
        if (!restore_pending_) {
            restore_cv_.wait(lock);
        } else if (std::chrono::steady_clock::now() >= restore_at_) {
            trapped_restore();
        } else {
            restore_cv_.wait_until(lock, restore_at_);
        }
    }
}

void Keyboard::stop() {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        stopping_ = true;
    }
    restore_cv_.notify_all();
    if (restorer_.joinable()) restorer_.join();
    if (spares_hold_symbols() && !dead_) {
        std::this_thread::sleep_for(kGrace);
        std::lock_guard<std::mutex> lock(mutex_);
        trapped_restore();
    }
}

// restore_spares() outside a Lock: protocol errors trapped too.
void Keyboard::trapped_restore() {
    auto old = XSetErrorHandler(trap_);
    restore_spares();
    XSetErrorHandler(old);
}

} // namespace kp::host::x11
