// crypt.h - Crypt and Uncrypt in memory (fCrypt and fUncrypt on files:
// files/file_crypt.h).
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "component/error.h"

namespace kp::transforms {

constexpr int32_t kCryptAnsi = 0x4000000;
constexpr uint32_t kErrCipherMode = 80280;
constexpr uint32_t kErrKey = 80281;
constexpr uint32_t kErrEmptyPassword = 80282;
constexpr uint32_t kErrCreateObject = 80041;

// The mode argument of Crypt and Uncrypt: bit 26 (cryptAnsi) noted and
// removed, the cipher mode in the low 16 bits, the compression mode above.
struct CryptMode {
    bool ansi;
    uint32_t cipher;
    uint32_t compression;
};
CryptMode split_mode(int32_t mode);

// Crypt: `source` is a buffer's bytes, or a string's UTF-16 units when
// `source_is_string`.  Returns the result buffer's bytes (the encoded text's
// UTF-16 units when `encoding` is not 0); empty on failure with the error
// recorded.
std::vector<uint8_t> crypt(std::span<const uint8_t> source, bool source_is_string,
                           std::u16string_view password, int32_t mode, int32_t encoding, CXError& err);

// Uncrypt's result: a buffer, or a string (with cryptAnsi, or cipher mode 0
// without compression).
struct UncryptResult {
    bool is_string = false;
    std::vector<uint8_t> bytes;
    std::u16string text;
};
// Uncrypt: `text` is the encoded text or, with encoding 0, the ciphertext as
// the units of a string.  On failure an empty string with the error recorded.
UncryptResult uncrypt(std::u16string_view text, std::u16string_view password, int32_t mode, int32_t encoding,
                      CXError& err);
// The same over the raw bytes of the argument (encoding 0 takes them as they
// are, so an odd byte count survives).
UncryptResult uncrypt_bytes(std::span<const uint8_t> bytes, std::u16string_view password, int32_t mode,
                            int32_t encoding, CXError& err);

} // namespace kp::transforms
