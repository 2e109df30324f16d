// services.h - pieces of the reference host that serve the component's
// services block, each in a file of its own.
#pragma once

#include <cstdint>
#include <list>
#include <mutex>
#include <string>
#include <string_view>

#include "host.h"
#include "kp120/vm.h"

namespace kp::host {

// Regional settings of an interface language (0 French, 1 English), built
// from the locale data of fr_FR and en_US.  Lives as long as the process.
const kp_regional_settings* regional_settings(int32_t language);

// The VM's answer to a window message sent by the component (message 1751
// of eRoundDifference writes the rounding difference, a 10-byte currency
// value, at lparam).  Returns the message's result.
intptr_t answer_window_message(uintptr_t window, uint32_t message, uintptr_t wparam, uintptr_t lparam);

// The VM's message texts: writes message `number` of `language` into
// buffer (size characters with the terminator); returns the length, 0 when
// the host has no text for it, or the size needed when the buffer is short.
int32_t host_message_text(int32_t language, uint32_t number, char16_t* buffer, int32_t size);

// The user interface a program of the host may reach: the selector and the
// key state set with Host::set_selector and Host::set_key_state.
struct UiHooks {
    Selector selector;
    KeyState key_state;
};

// The services slots `select` and `key_state` over those hooks (selectors.cpp).
int32_t answer_selector(const UiHooks& hooks, const kp_selector_request* request, char16_t* buffer,
                        int32_t size);
int32_t answer_key_state(const UiHooks& hooks, int32_t virtual_key);

// The name the VM gives as its current object (the window or report whose
// code runs); null when none was set or it was set to "".
class CurrentObject {
  public:
    void set(std::u16string_view name);
    const char16_t* get() const;

  private:
    mutable std::mutex mu_;
    std::list<std::u16string> names_;
    const char16_t* current_ = nullptr;
};
// Services slot `pump_message`: handles one pending event of the host's
// user interface; returns non-zero when it handled one.
int32_t pump_message(void* vm);

} // namespace kp::host
