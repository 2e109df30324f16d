// coders.h - the block coders beside LZW: the dictionary coder (method 2)
// and the short-string coder (method 5).
#pragma once

#include <cstdint>
#include <span>
#include <vector>

namespace kp::transforms {

// Dictionary coder (method 2).  Codes are packed most significant bit first,
// 9 bits wide to begin with.  Codes 0..255 are the bytes; 256 is an escape
// followed by a control code of the same width: 0 = the dictionary code 256
// itself, 1 = clear the dictionary (back to 9 bits, first free code 256),
// 2 = codes one bit wider, 3 = end of data.  After every code but the first
// one after a clear, the decoder adds the entry (previous string, first byte
// of this string) while fewer than 4095 codes exist and the new string holds
// at most 250 bytes; a code equal to the next free code is the previous
// string followed by its own first byte.  The encoder widens with escape 2
// just before a code that needs the extra bit, and clears the dictionary
// (escape 1) when it is full or its hash (byte XOR prefix x 8, step 1019,
// at most 20 probes) finds no free slot.
namespace dictionary {
constexpr uint32_t kMaxCodes = 4095;
constexpr uint32_t kMaxString = 250;
// Appends a whole block: method 2, or a stored block when the output would
// reach the input length.
void encode(std::span<const uint8_t> in, std::vector<uint8_t>& out);
// Expands a method-2 payload into exactly `length` bytes appended to `out`;
// false (and `out` as it was) on any inconsistency.
bool decode(std::span<const uint8_t> payload, uint32_t length, std::vector<uint8_t>& out);
} // namespace dictionary

// Short-string coder (method 5), a byte coder of this component's own for
// short texts, strings and 8-bit buffers alike.  Block: the byte 5, the
// uncompressed length as a little-endian base-128 number (7 bits a byte,
// high bit = more), then tokens up to that length:
//   0x00..0x7F  a run of (token + 1) literal bytes follows;
//   0x80..0xFF  a copy of ((token >> 4) & 7) + 3 bytes from
//               (((token & 15) << 8) | next byte) + 1 bytes back.
// The block never exceeds n + n/128 + 7 bytes for n input bytes, within the
// 1.5 x n + 2 characters that a compressed short string may take.
namespace short_string {
void encode(std::span<const uint8_t> in, std::vector<uint8_t>& out);
// Decodes a whole method-5 block (header included); trailing bytes after the
// last token (such as cipher padding) are ignored.
bool decode(std::span<const uint8_t> block, std::vector<uint8_t>& out);
} // namespace short_string

} // namespace kp::transforms
