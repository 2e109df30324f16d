// wtf8.h - Lua strings <-> UTF-16 for the kp120 command.
//
// Lua strings reaching the component are read as WTF-8: well-formed UTF-8
// that may also carry lone surrogates (U+D800..U+DFFF as three-byte
// sequences), so that any UTF-16 text, even one with unpaired surrogates,
// survives a trip through Lua.  A surrogate pair written as two three-byte
// sequences is accepted and joins into the pair it spells.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace kp::cli {

// Offset of the first byte that is not WTF-8, or npos when all is valid.
size_t wtf8_invalid_at(std::string_view bytes);

// WTF-8 -> UTF-16.  False (and `out` unspecified) on invalid input.
bool wtf8_to_utf16(std::string_view bytes, std::u16string& out);

// UTF-16 -> WTF-8: pairs become four-byte sequences, lone surrogates
// three-byte ones.
std::string utf16_to_wtf8(std::u16string_view text);

} // namespace kp::cli
