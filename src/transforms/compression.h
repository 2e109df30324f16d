// compression.h - compressed values (Compress, Uncompress, and the
// compression step of Crypt and Uncrypt) and the block compressor.
//
// A compressed value, modes 0 and 1 (little-endian numbers):
//   byte 0     kind: 2 = UTF-16 string, 0 = buffer
//   bytes 1..4 compression mode (0 or 1)
//   then       mode 0: the plain section, u32 byte count n and n bytes;
//              mode 1: one block whose content is the plain section.
// Mode 2 writes nothing but one short-string block (method 5) of the data.
//
// Blocks start with their method byte:
//   0 stored      [0][u32 L] then L bytes
//   2 dictionary  [2][u32 payload][u32 uncompressed][0][0] then payload
//   4 LZW         [4][u32 payload][u32 uncompressed][0][0] then payload
//   5 short-string, read only where mode 2 says so (see coders.h)
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "component/error.h"

namespace kp::transforms {

constexpr uint32_t kErrCompressionMode = 80550;

enum class CompressionMode : uint32_t { None = 0, Lzw = 1, ShortString = 2 };
constexpr uint8_t kKindBuffer = 0;
constexpr uint8_t kKindString = 2;

// Block methods.
constexpr uint8_t kMethodStored = 0;
constexpr uint8_t kMethodDictionary = 2;
constexpr uint8_t kMethodLzw = 4;
constexpr uint8_t kMethodShortString = 5;

// Appends a block of `method` holding `in` (methods 2 and 4 fall back to a
// stored block when coding does not pay).
void encode_block(uint8_t method, std::span<const uint8_t> in, std::vector<uint8_t>& out);
// Expands the block at the start of `block`; the method byte picks the
// decoder, except when `short_string` forces method 5.  False on an unknown
// method or any inconsistency (truncated header, lengths beyond the data,
// codes the dictionary does not hold); `out` is then left as it was.
bool decode_block(std::span<const uint8_t> block, bool short_string, std::vector<uint8_t>& out);

// The memory stream through which values are compressed: a growable byte
// area with a raw prefix that is kept as it is, the rest being handed to the
// block compressor on flush and expanded from a block on load.
class CompressionStream {
  public:
    explicit CompressionStream(std::size_t prefix) : prefix_(prefix) {}
    void set_mode(CompressionMode mode) { mode_ = mode; }
    void write_u8(uint8_t v) { data_.push_back(v); }
    void write_u32(uint32_t v);
    void write(std::span<const uint8_t> bytes) { data_.insert(data_.end(), bytes.begin(), bytes.end()); }
    // Encodes the bytes after the prefix into one block (mode 0 leaves them).
    void flush();
    // Takes a whole compressed image; expands its block after the prefix
    // with `mode`.  False when the block does not decode (the stream then
    // holds the prefix alone).
    bool load(std::span<const uint8_t> image, CompressionMode mode);
    // Reading from the current position; short at the end.
    bool read_u32(uint32_t& v);
    std::span<const uint8_t> read(std::size_t n);
    void seek(std::size_t pos) { pos_ = pos < data_.size() ? pos : data_.size(); }
    std::size_t size() const { return data_.size(); }
    std::vector<uint8_t> take() { return std::move(data_); }

  private:
    std::size_t prefix_;
    CompressionMode mode_ = CompressionMode::None;
    std::vector<uint8_t> data_;
    std::size_t pos_ = 0;
};

// Compresses `data` in `mode` (0, 1 or 2) as a value of `kind`.  Mode 3 or
// more: error 80550 and an empty result.
std::vector<uint8_t> compress_value(std::span<const uint8_t> data, uint8_t kind, uint32_t mode, CXError& err);
// The data bytes of a compressed value.  `mode` -1 or 0/1 reads the header
// (its mode field decides); 2 takes the whole value as a method-5 block.  A
// mode field outside 0..2 is error 80550 and an empty result; a block that
// does not decode gives an empty result without error; a count beyond the
// data gives the bytes present.
std::vector<uint8_t> uncompress_value(std::span<const uint8_t> value, int32_t mode, CXError& err);

// Compress: always mode 1, kind 2 for a string, 0 for a buffer.
std::vector<uint8_t> compress(std::span<const uint8_t> data, bool is_string, CXError& err);
// Uncompress: the data bytes (also for a string value); empty input gives
// an empty result.
std::vector<uint8_t> uncompress(std::span<const uint8_t> value, CXError& err);

} // namespace kp::transforms
