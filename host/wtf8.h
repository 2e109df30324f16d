// wtf8.h - the host's text conversions: UTF-8 and Windows-1252 <-> UTF-16.
//
// The host converts text with its own code, written apart from the
// component's, so that text crossing the interface is checked by two
// implementations.
//
// Text is read as WTF-8: well-formed UTF-8 that may also carry lone
// surrogates (U+D800..U+DFFF as three-byte sequences), so that any UTF-16
// text, even one with unpaired surrogates, survives a trip through UTF-8.
// A surrogate pair written as two three-byte sequences is accepted and
// joins into the pair it spells.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace kp::host {

// Offset of the first byte that is not WTF-8, or npos when all is valid.
size_t wtf8_invalid_at(std::string_view bytes);

// WTF-8 -> UTF-16.  False (and `out` unspecified) on invalid input.
bool wtf8_to_utf16(std::string_view bytes, std::u16string& out);

// WTF-8 -> UTF-16, each byte that starts no valid sequence read as U+FFFD.
std::u16string utf16(std::string_view utf8);

// UTF-16 -> WTF-8: pairs become four-byte sequences, lone surrogates
// three-byte ones.
std::string utf8(std::u16string_view utf16);

// A byte of code page 1252 (its five undefined bytes keep their C1 value).
char16_t cp1252_char(unsigned char byte);

} // namespace kp::host
