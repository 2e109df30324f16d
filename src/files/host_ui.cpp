// host_ui.cpp - the selectors and the key state through the services block.
#include "files/host_ui.h"

#include <algorithm>
#include <vector>

#include "component/runtime.h"
#include "kp120/vm.h"

namespace kp::files {

namespace {
constexpr int32_t kFirstBuffer = 261;       // a full device name and its terminator
constexpr int32_t kLargestBuffer = 1 << 20; // what a dialog may answer, in characters
constexpr int32_t kVirtualKeyEscape = 27;
} // namespace

std::u16string ask_selector(int32_t kind, std::initializer_list<std::u16string_view> texts, int32_t options) {
    auto select = runtime::service(&kp_services::select);
    if (!select) return {};
    // The texts are handed over zero-terminated.
    std::vector<std::u16string> copies(texts.begin(), texts.end());
    kp_selector_request request{};
    request.size = sizeof request;
    request.kind = kind;
    request.text_count = static_cast<int32_t>(std::min<std::size_t>(copies.size(), 6));
    for (int32_t k = 0; k < request.text_count; ++k)
        request.texts[k] = copies[static_cast<std::size_t>(k)].c_str();
    request.options = options;
    int32_t size = kFirstBuffer;
    for (int attempt = 0; attempt < 3; ++attempt) {
        std::u16string buffer(static_cast<std::size_t>(size), u'\0');
        int32_t n = select(runtime::vm(), &request, buffer.data(), size);
        if (n <= 0) return {};
        if (n < size) {
            buffer.resize(static_cast<std::size_t>(n));
            return buffer;
        }
        if (n >= kLargestBuffer) return {};
        size = n + 1;
    }
    return {};
}

bool escape_pressed() {
    auto key_state = runtime::service(&kp_services::key_state);
    if (!key_state) return false;
    return (key_state(runtime::vm(), kVirtualKeyEscape) & 0x8001) != 0;
}

} // namespace kp::files
