// encodings.h - URL escapes and the byte-to-text encoders (encodeQRT,
// encodeBASE64, encodeUUEncode) of Crypt, Uncrypt, fCrypt and fUncrypt.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace kp::transforms {

constexpr int32_t kEncodeNone = 0;
constexpr int32_t kEncodeQrt = 1;
constexpr int32_t kEncodeBase64 = 2;
constexpr int32_t kEncodeUu = 3;

// One encoder a number.  Texts are made of ASCII characters; in memory they
// are UTF-16 strings.
class TextEncoder {
  public:
    virtual ~TextEncoder() = default;
    // Writes the text for `in` to `out` (room for encoded_length()) or, with
    // no output, only counts; returns the number of characters.
    virtual std::size_t encode(std::span<const uint8_t> in, std::size_t groups_per_line,
                               char16_t* out) const = 0;
    // Writes the bytes of `text` to `out` or only counts them; returns the
    // number of bytes.
    virtual std::size_t decode(std::u16string_view text, uint8_t* out) const = 0;
    virtual char16_t to_char(uint8_t value) const = 0;
    virtual uint8_t from_char(char16_t c) const = 0;
    // Groups of three bytes between line breaks.
    virtual std::size_t groups_per_line() const = 0;

    std::u16string encode(std::span<const uint8_t> in) const;
    std::vector<uint8_t> decode(std::u16string_view text) const;
};

// The encoder of number 1, 2 or 3; null for 0 or any other number.
std::unique_ptr<TextEncoder> make_encoder(int32_t number);

// The Base64 code of encoders 1 and 2: the portable code, or the vector
// code of x86 processors with SSSE3 or AVX2.  All give the same text and
// bytes; make_encoder takes the best the processor has.
enum class Base64Simd : uint8_t { None, Ssse3, Avx2 };
Base64Simd base64_simd_available();
std::unique_ptr<TextEncoder> make_encoder(int32_t number, Base64Simd simd);

// URLEncode: each unit judged by its low byte; a byte of the escape set
// becomes "%" and two capital hex digits of that byte (the high byte is
// dropped), any other unit is copied whole.
std::u16string url_encode(std::u16string_view text);
// URLDecode: "+" becomes a space, "%26%238364%3B" the euro sign, "%" and two
// characters one unit (see encodings.cpp for the digit rules).  A zero unit
// ends the text.
std::u16string url_decode(std::u16string_view text);

// ZigouigouiARoulette: 24053, whatever the argument.
inline int32_t zigouigoui_a_roulette(int32_t) {
    return 24053;
}

} // namespace kp::transforms
