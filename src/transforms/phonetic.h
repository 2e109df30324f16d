// phonetic.h - the French phonetic key of Phonetic.
#pragma once

#include <string>
#include <string_view>

namespace kp::transforms {

// Letter folding of the key: the accent is stripped, then the letter is
// upper-cased ("é" -> "E", "ç" -> "C").  One character gives one character.
char16_t fold_letter(char16_t c);

// The phonetic key: 23 rewriting passes over the folded text.  Never longer
// than the input; empty for empty or all-space input.
std::u16string phonetic(std::u16string_view text);

} // namespace kp::transforms
