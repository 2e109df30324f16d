// lzw.h - the LZW coder of compressed blocks (method 4).
//
// Codes: 0 clears the dictionary, 1..256 are the bytes 0..255 (byte + 1),
// 257 ends the data, 258 upwards are dictionary entries {prefix code, last
// byte}.  Codes start 9 bits wide and grow to 16; they are packed least
// significant bit first.  The encoder finds entries through a hash table of
// 131072 slots and clears the dictionary when ten further probes find no
// room, or, once all 65536 codes are taken, when the compression ratio falls
// below the best seen since the last clear.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

namespace kp::transforms {

// A coder keeps its tables between blocks; it is used by one thread at a
// time (each compression call makes its own).
class LzwCoder {
  public:
    static constexpr uint32_t kClear = 0;
    static constexpr uint32_t kEnd = 257;
    static constexpr uint32_t kFirstFree = 258;
    static constexpr uint32_t kMaxCodes = 65536;
    static constexpr uint32_t kHashSlots = 131072;
    // Inputs shorter than this are stored as they are.
    static constexpr std::size_t kMinInput = 20;

    LzwCoder() = default;
    LzwCoder(const LzwCoder&) = delete;
    LzwCoder& operator=(const LzwCoder&) = delete;

    // Appends one whole block (header included) for `in` to `out`: method 4,
    // or a stored block (method 0) when the input is short or the coding
    // stops paying.
    void encode(std::span<const uint8_t> in, std::vector<uint8_t>& out);

    // Expands the payload of a method-4 block into exactly `length` bytes
    // appended to `out`.  False (and `out` as it was) when the codes are
    // inconsistent, the payload ends early or the output would overrun.
    bool decode(std::span<const uint8_t> payload, uint32_t length, std::vector<uint8_t>& out);

  private:
    bool prepare();
    void clear_tables();
    void add_entry(uint32_t cur, uint32_t byte, uint32_t code, uint32_t free, uint32_t mark);

    // The encoder keeps two tables.  `taken_` is the occupancy of the
    // format's own hash table (131072 slots, one bit each): it alone decides
    // when ten further probes find no room and the dictionary is cleared.
    // Lookups of (prefix, byte) go through `lookup_`, a linear-probing
    // table of our own with the same contents: 131072 slots of 32 bits
    // (lzw.cpp), 512 KB in all, small enough to stay in a core's
    // second-level cache, with `overflow_` (key << 16 | code) for the
    // entries too far from home.  `used_` lists the slots taken since the
    // last clear.
    struct FreeDeleter {
        void operator()(void* p) const;
    };
    // Entries whose prefix is a single byte live in `root_` instead, one
    // slot for each pair of bytes (code, or 0).
    std::unique_ptr<uint32_t[], FreeDeleter> lookup_;
    std::vector<uint32_t> used_;
    std::vector<uint64_t> overflow_;
    std::vector<uint16_t> root_;
    std::vector<uint64_t> taken_;
    // Decoder: where each code's string was first written in the output,
    // and its length.
    std::vector<uint32_t> offset_;
    std::vector<uint32_t> length_;
};

// Appends a stored block (method 0) holding `in` to `out`.
void append_stored_block(std::span<const uint8_t> in, std::vector<uint8_t>& out);

} // namespace kp::transforms
