// selectors.cpp - the host's answers to the file selectors and to key-state
// queries (services slots `select` and `key_state`).
//
// A selector's text goes back in the component's buffer: its length, or the
// size needed when the buffer is short (the component asks again), 0 for a
// cancelled dialog or when no selector is installed.
#include <algorithm>
#include <cstring>

#include "services.h"

namespace kp::host {

int32_t answer_selector(const UiHooks& hooks, const kp_selector_request* request, char16_t* buffer,
                        int32_t size) {
    if (!hooks.selector || !request || !buffer || size <= 0) return 0;
    SelectorRequest r;
    r.kind = request->kind;
    // Fields past the size the component knows are absent.
    const int32_t count = std::clamp(request->text_count, 0, 6);
    for (int32_t k = 0; k < count; ++k)
        r.texts.emplace_back(request->texts[k] ? request->texts[k] : u"");
    r.options = request->options;
    std::u16string answer = hooks.selector(r);
    if (answer.empty()) return 0;
    if (answer.size() >= static_cast<std::size_t>(size)) return static_cast<int32_t>(answer.size()) + 1;
    std::memcpy(buffer, answer.data(), answer.size() * sizeof(char16_t));
    buffer[answer.size()] = 0;
    return static_cast<int32_t>(answer.size());
}

int32_t answer_key_state(const UiHooks& hooks, int32_t virtual_key) {
    return hooks.key_state ? hooks.key_state(virtual_key) : 0;
}

} // namespace kp::host
