// file_crypt.h - fCrypt and fUncrypt: the ciphers and encodings of the
// transforms (transforms/crypt.h) applied to files through the file stream.
#pragma once

#include <cstdint>
#include <string_view>

#include "component/error.h"

namespace kp::files {

// Message numbers of the chunk loops' failures (recorded by number).
constexpr uint32_t kErrFileCipher = 28253;
constexpr uint32_t kErrFileObject = 28255;
constexpr uint32_t kErrFileKey = 28256;
constexpr uint32_t kErrFileSum = 28279;
// Chunk size of the encrypted file format: every chunk is enciphered afresh.
constexpr uint32_t kFileChunk = 64000;

// Encrypted file: a little-endian u32 sum (mod 2^32) of the plaintext bytes,
// then the ciphertext, as long as the plaintext, enciphered in 64000-byte
// chunks.
bool crypt_file_to_file(std::u16string_view destination, std::u16string_view source,
                        std::u16string_view password, int32_t mode, CXError& err);
// The inverse; a sum that does not come back to zero is error 28279, the
// destination being left as written.
bool uncrypt_file_to_file(std::u16string_view source, std::u16string_view destination,
                          std::u16string_view password, int32_t mode, CXError& err);

// Whole-file text encoding and decoding (encoding 1, 2 or 3); the text is
// written and read as one byte a character.
bool encode_file(int32_t encoding, std::u16string_view source, std::u16string_view destination, CXError& err);
bool decode_file(int32_t encoding, std::u16string_view source, std::u16string_view destination, CXError& err);

// fCrypt and fUncrypt: cipher mode 0..3, encoding 0..3.
bool fcrypt(std::u16string_view source, std::u16string_view destination, std::u16string_view password,
            int32_t mode, int32_t encoding, CXError& err);
bool funcrypt(std::u16string_view source, std::u16string_view destination, std::u16string_view password,
              int32_t mode, int32_t encoding, CXError& err);

} // namespace kp::files
