// codepage.h - conversion between UTF-16 and 8-bit code pages.
//
// Code page 1252 is built in (the hot paths of regular expressions, passwords
// and ANSI text files); every other code page goes through ICU converters.
// Unmappable characters become '?' when encoding and U+FFFD never appears
// when decoding 1252 (its five undefined bytes map to the C1 controls, as
// the device's MultiByteToWideChar does).
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace kp::platform {

constexpr uint32_t kCodePage1252 = 1252;
constexpr uint32_t kCodePageUtf8 = 65001;

char16_t cp1252_to_unicode(uint8_t byte);
// 0 when the character has no 1252 byte.
uint8_t unicode_to_cp1252(char16_t ch, bool* ok = nullptr);

std::u16string decode_1252(std::span<const uint8_t> bytes);
std::string encode_1252(std::u16string_view text);

// Any code page; false when the code page is unknown.
bool decode(uint32_t codepage, std::span<const uint8_t> bytes, std::u16string& out);
bool encode(uint32_t codepage, std::u16string_view text, std::string& out);

// UTF-8 <-> UTF-16 for names handed to the operating system.  WTF-8 keeps
// lone surrogates reversible; invalid UTF-8 bytes decode one unit each as
// U+FFFD.
std::string to_utf8(std::u16string_view text);
// The same written at `out`, which has room for 3 bytes a unit; returns the
// end of what it wrote.
char* write_utf8(std::u16string_view text, char* out);
std::u16string from_utf8(std::string_view text);

} // namespace kp::platform
