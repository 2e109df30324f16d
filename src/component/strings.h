// strings.h - the reference-counted UTF-16 string buffers shared with the VM.
//
// A string travels as a pointer to its characters (null = empty string) with
// the header of kp120/vm.h before them.  Buffers come from the VM's string
// allocator (or, in per-thread mode, from the calling thread's allocator).
// Binary buffers use the same header; their length word counts bytes.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "kp120/vm.h"

namespace kp::str {

constexpr int32_t kOk = 0;
constexpr int32_t kOutOfMemory = 100;
constexpr int32_t kTooLong = 108;
constexpr uint32_t kKindBinary = 1;

// Length in characters (bytes for a binary buffer); 0 for null.
inline uint32_t length(const char16_t* s) {
    return s ? kp_string_header_of(s)->length : 0;
}
inline std::u16string_view view(const char16_t* s) {
    return s ? std::u16string_view(s, kp_string_header_of(s)->length) : std::u16string_view();
}
inline bool is_binary(const char16_t* s) {
    return s && ((kp_string_header_of(s)->flags >> 1) & 7u) == kKindBinary;
}
// The bytes of a buffer: a binary buffer's bytes, or a text's UTF-16 units.
std::span<const uint8_t> bytes(const char16_t* s);

// Creates a text buffer from n characters (n <= 0 gives null and success).
int32_t create(const char16_t* chars, int64_t n, char16_t** out);
inline int32_t create(std::u16string_view s, char16_t** out) {
    return create(s.data(), static_cast<int64_t>(s.size()), out);
}
// Creates a binary buffer holding `data`.
int32_t create_binary(std::span<const uint8_t> data, char16_t** out);
// Releases one reference (null: nothing).
void release(char16_t* s);
// Takes a further reference to src in *dst, shortened to n characters when
// n >= 0 and below the length.
int32_t share(char16_t** dst, char16_t* src, int64_t n = -1);
// Shortens *s to n characters (copy-on-write when shared).
int32_t shorten(char16_t** s, uint32_t n);
// Grows *s to hold `bytes` bytes with the stepped policy; *s may move.
int32_t grow(char16_t** s, uint32_t bytes);
// The capacity the stepped policy gives a request of `request` bytes when
// the buffer holds `current` bytes.
uint32_t growth_capacity(uint32_t request, uint32_t current);

// Owns one reference; releases it on destruction.
class Ref {
  public:
    Ref() = default;
    explicit Ref(char16_t* s) : s_(s) {}
    Ref(const Ref&) = delete;
    Ref& operator=(const Ref&) = delete;
    Ref(Ref&& o) noexcept : s_(o.s_) { o.s_ = nullptr; }
    ~Ref() { release(s_); }
    char16_t* get() const { return s_; }
    char16_t** out() { return &s_; }
    char16_t* take() {
        char16_t* s = s_;
        s_ = nullptr;
        return s;
    }

  private:
    char16_t* s_ = nullptr;
};

} // namespace kp::str
