// checksum.h - the CRC-16 and CRC-32 checksums of sComputeCrc16 and
// sComputeCrc32.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

namespace kp::transforms {

// Standard CRC-32 (reflected 0x04C11DB7, the value zlib's crc32 gives).  The
// register starts at NOT `previous`, so feeding a second piece with the first
// piece's result continues the first; an empty input returns `previous`.
uint32_t crc32(std::span<const uint8_t> data, uint32_t previous = 0);

// CRC-16 of a string: polynomial 0x1021 most-significant bit first, register
// from 0, each unit brought in after the table lookup:
//   r = (u & 0xFF) ^ table[r >> 8] ^ (r << 8)
// The walk feeds 2 x (characters + 1) units: the characters, their
// terminator, then zero units for the rest of the count (the units past the
// terminator are taken as zero, always).
uint16_t crc16(std::u16string_view text);

} // namespace kp::transforms
