// phonetic.cpp - the phonetic key.
//
// Folding uses a table of our own covering Latin-1 and Latin Extended-A
// (U+00C0..U+017F); ASCII letters are upper-cased and every other character
// is kept as it is.  Ligatures fold to one letter so that the key never
// grows: Œ/œ and Æ/æ to E (they sound as E in French), ß to S.
#include "transforms/phonetic.h"

#include <string>

namespace kp::transforms {
namespace {

// Base capital letter of U+00C0..U+017F; 0 keeps the character.
constexpr char kLatin1[64 + 1] =
    // C0..DF: ÀÁÂÃÄÅÆÇÈÉÊËÌÍÎÏÐÑÒÓÔÕÖ×ØÙÚÛÜÝÞß
    "AAAAAAECEEEEIIIIDNOOOOO\0OUUUUYTS"
    // E0..FF: àáâãäåæçèéêëìíîïðñòóôõö÷øùúûüýþÿ
    "AAAAAAECEEEEIIIIDNOOOOO\0OUUUUYTY";

// U+0100..U+017F in pairs (capital, small) mostly.
constexpr char kExtendedA[128 + 1] = "AAAAAACCCCCCCCDDDDEEEEEEEEEEGGGGGGGGHHHHIIIIIIIIIIIIJJKKKLLLLLLLLLL"
                                     "NNNNNNNNNOOOOOOEERRRRRRSSSSSSSSTTTTTTUUUUUUUUUUUUWWYYYZZZZZZS";

static_assert(std::char_traits<char>::length(kExtendedA) == 128, "one letter for each of U+0100..U+017F");

constexpr bool is_vowel(char16_t c) {
    return c == u'A' || c == u'E' || c == u'I' || c == u'O' || c == u'U' || c == u'Y';
}

// The working text: positions before the start and past the end read as 0.
class Text {
  public:
    explicit Text(std::u16string s) : s_(std::move(s)) {}
    char16_t at(std::ptrdiff_t i) const {
        return i >= 0 && static_cast<std::size_t>(i) < s_.size() ? s_[static_cast<std::size_t>(i)] : u'\0';
    }
    std::ptrdiff_t size() const { return static_cast<std::ptrdiff_t>(s_.size()); }
    void set(std::ptrdiff_t i, char16_t c) { s_[static_cast<std::size_t>(i)] = c; }
    void erase(std::ptrdiff_t i) { s_.erase(static_cast<std::size_t>(i), 1); }
    char16_t last() const { return at(size() - 1); }
    char16_t penultimate() const { return at(size() - 2); }
    bool ends_with(std::u16string_view tail) const { return s_.ends_with(tail); }
    void drop_last() { s_.pop_back(); }
    std::u16string& str() { return s_; }

  private:
    std::u16string s_;
};

} // namespace

char16_t fold_letter(char16_t c) {
    if (c >= u'a' && c <= u'z') return static_cast<char16_t>(c - u'a' + u'A');
    if (c >= 0xC0 && c <= 0xFF) {
        const char f = kLatin1[c - 0xC0];
        return f ? static_cast<char16_t>(f) : c;
    }
    if (c >= 0x100 && c <= 0x17F) return static_cast<char16_t>(kExtendedA[c - 0x100]);
    return c;
}

namespace {

// 1, 2. The folded text without its leading and trailing spaces.
std::u16string folded_and_trimmed(std::u16string_view input) {
    std::u16string folded(input);
    // 1. Fold.
    for (auto& c : folded)
        c = fold_letter(c);
    // 2. Leading and trailing spaces.
    const std::size_t first = folded.find_first_not_of(u' ');
    if (first == std::u16string::npos) return {};
    return folded.substr(first, folded.find_last_not_of(u' ') - first + 1);
}

// 3-7. Letters not heard at the end of a word.
void drop_silent_endings(Text& t) {
    // 3. Final S, or the X of a final "UX".
    if (t.last() == u'S')
        t.drop_last();
    else if (t.ends_with(u"UX"))
        t.drop_last();
    // 4. Final T after a vowel, N or M; final P after A or O.
    if (t.size() >= 2) {
        const char16_t p = t.penultimate();
        if ((is_vowel(p) || p == u'N' || p == u'M') && t.last() == u'T')
            t.drop_last();
        else if ((p == u'A' || p == u'O') && t.last() == u'P')
            t.drop_last();
    }
    // 5. Final "EZ".
    if (t.ends_with(u"EZ")) t.drop_last();
    // 6. Final D after E, I, N, R, O, or two places after A or U.
    if (t.size() >= 2 && t.last() == u'D') {
        const char16_t p = t.penultimate(), pp = t.at(t.size() - 3);
        if (p == u'E' || p == u'I' || p == u'N' || p == u'R' || p == u'O')
            t.drop_last();
        else if (pp == u'A' || pp == u'U')
            t.drop_last();
    }
    // 7. Final "ER".
    if (t.ends_with(u"ER")) t.drop_last();
}

// 8-13. Spellings of one sound: QU, final E, M before B or P, Y, hyphens, OI.
void simplify_spellings(Text& t) {
    // 8. "QU" -> "K".
    for (std::ptrdiff_t i = 0; i < t.size(); ++i)
        if (t.at(i) == u'Q' && t.at(i + 1) == u'U') {
            t.set(i, u'K');
            t.erase(i + 1);
        }
    // 9. Final E.
    if (t.last() == u'E') t.drop_last();
    // 10. M before B or P after a vowel -> N.
    for (std::ptrdiff_t i = 0; i < t.size(); ++i)
        if (t.at(i) == u'M' && (t.at(i + 1) == u'B' || t.at(i + 1) == u'P') && is_vowel(t.at(i - 1)))
            t.set(i, u'N');
    // 11, 12. Y -> I, hyphen -> space.
    for (auto& c : t.str()) {
        if (c == u'Y')
            c = u'I';
        else if (c == u'-')
            c = u' ';
    }
    // 13. "OI" -> "OA".
    for (std::ptrdiff_t i = 0; i + 1 < t.size(); ++i)
        if (t.at(i) == u'O' && t.at(i + 1) == u'I') t.set(i + 1, u'A');
}

// 14, 15. Vowel groups heard as one vowel.
void merge_vowels(Text& t) {
    // 14. "EU" -> "E", runs included.
    for (std::ptrdiff_t i = 0; i < t.size();) {
        if (t.at(i) == u'E' && t.at(i + 1) == u'U')
            t.erase(i + 1);
        else
            ++i;
    }
    // 15. "EAU" -> "O", "AU" -> "O"; scanning resumes after the new O.
    for (std::ptrdiff_t i = 0; i < t.size();) {
        if (t.at(i) == u'U' && t.at(i - 1) == u'A' && t.at(i - 2) == u'E') {
            t.set(i, u'O');
            t.erase(i - 2);
            t.erase(i - 2);
            i -= 1;
        } else if (t.at(i) == u'U' && t.at(i - 1) == u'A') {
            t.set(i, u'O');
            t.erase(i - 1);
        } else {
            ++i;
        }
    }
}

// 16-18. S and C by what follows them.
void soften_consonants(Text& t) {
    // 16. S between vowels -> Z.
    for (std::ptrdiff_t i = 0; i < t.size(); ++i)
        if (t.at(i) == u'S' && is_vowel(t.at(i - 1)) && is_vowel(t.at(i + 1))) t.set(i, u'Z');
    // 17, 18. C before E or I -> S; every other C -> K.
    for (std::ptrdiff_t i = 0; i < t.size(); ++i)
        if (t.at(i) == u'C' && (t.at(i + 1) == u'E' || t.at(i + 1) == u'I')) t.set(i, u'S');
    for (auto& c : t.str())
        if (c == u'C') c = u'K';
}

// 19-21. Nasal vowels, and AI.
void merge_nasals(Text& t) {
    // 19. "AN", "EN" -> "A" before neither a vowel nor N (the end included).
    for (std::ptrdiff_t i = 0; i < t.size();) {
        const char16_t c = t.at(i), n = t.at(i + 1), after = t.at(i + 2);
        if ((c == u'A' || c == u'E') && n == u'N' && !is_vowel(after) && after != u'N') {
            t.set(i, u'A');
            t.erase(i + 1);
        } else {
            ++i;
        }
    }
    // 20. "ON" -> "O" under the same condition.
    for (std::ptrdiff_t i = 0; i < t.size();) {
        const char16_t after = t.at(i + 2);
        if (t.at(i) == u'O' && t.at(i + 1) == u'N' && !is_vowel(after) && after != u'N')
            t.erase(i + 1);
        else
            ++i;
    }
    // 21. "AI" -> "E".
    for (std::ptrdiff_t i = 0; i < t.size(); ++i)
        if (t.at(i) == u'A' && t.at(i + 1) == u'I') {
            t.set(i, u'E');
            t.erase(i + 1);
        }
}

// 22, 23. H, and doubled letters.
void drop_h_and_doubles(Text& t) {
    // 22. H is deleted; a P before it becomes F.  (The C rule cannot fire
    // any more, every C being a K by now; it is kept as the pass has it.)
    // The pass moves on after a deletion, so of "HH" the second H stays.
    for (std::ptrdiff_t i = 0; i < t.size(); ++i) {
        if (t.at(i) != u'H') continue;
        t.erase(i);
        const char16_t before = t.at(i - 1);
        if (before == u'C')
            t.set(i - 1, is_vowel(t.at(i)) ? u'H' : u'K');
        else if (before == u'P')
            t.set(i - 1, u'F');
    }
    // 23. Doubles.
    for (std::ptrdiff_t i = 1; i < t.size();) {
        if (t.at(i) == t.at(i - 1))
            t.erase(i);
        else
            ++i;
    }
}

} // namespace

std::u16string phonetic(std::u16string_view input) {
    Text t(folded_and_trimmed(input));
    drop_silent_endings(t);
    simplify_spellings(t);
    merge_vowels(t);
    soften_consonants(t);
    merge_nasals(t);
    drop_h_and_doubles(t);
    return std::move(t.str());
}

} // namespace kp::transforms
