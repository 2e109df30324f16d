// url_decode.cpp - URLDecode over arbitrary UTF-16 text (the input's bytes
// taken as little-endian units), and URLDecode(URLEncode(s)) == s for texts
// of 8-bit units without zero.

#include <cstdint>
#include <cstdlib>
#include <string>

#include "transforms/encodings.h"

using namespace kp::transforms;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::u16string text(size / 2, u'\0');
    for (size_t i = 0; i < text.size(); ++i)
        text[i] = static_cast<char16_t>(data[2 * i] | data[2 * i + 1] << 8);
    url_decode(text);
    url_encode(text);

    std::u16string narrow;
    for (size_t i = 0; i < size; ++i)
        if (data[i]) narrow.push_back(static_cast<char16_t>(data[i]));
    if (url_decode(url_encode(narrow)) != narrow) std::abort();
    return 0;
}
