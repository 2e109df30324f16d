// messages.cpp - the message texts the reference host serves as the VM:
// the size unit names and the localised duration letters.  Every other
// number is left to the component's own catalogue (answer 0).
#include <cstring>
#include <string_view>

#include "services.h"

namespace kp::host {

namespace {
struct HostMessage {
    uint32_t number;
    const char16_t* french;
    const char16_t* english;
};

constexpr HostMessage kMessages[] = {
    {25202, u"octets;Ko;Mo;Go;To", u"bytes;KB;MB;GB;TB"},
    // Duration letters: days, hours, minutes, seconds, milliseconds.
    {28577, u"J", u"D"},
    {28578, u"H", u"H"},
    {28579, u"M", u"M"},
    {28580, u"S", u"S"},
    {28581, u"L", u"L"},
};
} // namespace

int32_t host_message_text(int32_t language, uint32_t number, char16_t* buffer, int32_t size) {
    for (const HostMessage& m : kMessages) {
        if (m.number != number) continue;
        std::u16string_view text = language == 0 ? m.french : m.english;
        auto n = static_cast<int32_t>(text.size());
        if (n + 1 > size) return n + 1 >= 257 ? n + 1 : 257;
        std::memcpy(buffer, text.data(), text.size() * sizeof(char16_t));
        buffer[n] = 0;
        return n;
    }
    return 0;
}

} // namespace kp::host
