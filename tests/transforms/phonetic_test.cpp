#include <gtest/gtest.h>

#include "transforms/phonetic.h"

namespace kp::transforms {
namespace {

TEST(Phonetic, WorkedExamples) {
    EXPECT_EQ(phonetic(u"Dupont"), u"DUPO");
    EXPECT_EQ(phonetic(u"Dupond"), u"DUPO");
    EXPECT_EQ(phonetic(u"Martin"), u"MARTIN");
    EXPECT_EQ(phonetic(u"Chapeau"), u"KAPO");
    EXPECT_EQ(phonetic(u"Philippe"), u"FILIP");
    EXPECT_EQ(phonetic(u"Pierre"), u"PIER");
    EXPECT_EQ(phonetic(u"Renaud"), u"RENO");
    EXPECT_EQ(phonetic(u"Reno"), u"RENO");
    EXPECT_EQ(phonetic(u"Gauthier"), u"GOTI");
}

TEST(Phonetic, SpacesHyphensAndEmptyInput) {
    EXPECT_EQ(phonetic(u""), u"");
    EXPECT_EQ(phonetic(u"    "), u"");
    EXPECT_EQ(phonetic(u"  Martin  "), u"MARTIN");
    EXPECT_EQ(phonetic(u"Jean-Pierre"), u"JEA PIER");
    EXPECT_EQ(phonetic(u"Jean Pierre"), u"JEA PIER");
}

TEST(Phonetic, FoldingAndEndRules) {
    EXPECT_EQ(phonetic(u"éçàÈ"), phonetic(u"ECAE"));
    EXPECT_EQ(phonetic(u"Cœur"), phonetic(u"CEUR"));
    EXPECT_EQ(phonetic(u"chat"), u"KA");        // CH becomes K, never CH or SH
    EXPECT_EQ(phonetic(u"Chose"), u"KOS");      // final E goes after the final-S rule ran
    EXPECT_EQ(phonetic(u"Bordeaux"), u"BORDO"); // final X after U, EAU
    EXPECT_EQ(phonetic(u"Dumas"), u"DUMA");     // final S
    EXPECT_EQ(phonetic(u"Quentin"), u"KATIN");  // QU, EN before a consonant
    EXPECT_EQ(phonetic(u"Lambert"), u"LABERT"); // M before B after a vowel, then AN; T after R stays
    EXPECT_EQ(phonetic(u"Rollet"), u"ROL");     // final T after a vowel, final E, doubles
    EXPECT_EQ(phonetic(u"Camp"), u"KAP");       // P after M stays; M to N, then AN to A
    EXPECT_EQ(phonetic(u"Trop"), u"TRO");       // final P after O
    EXPECT_EQ(phonetic(u"Nez"), u"N");          // final EZ, then final E
    EXPECT_EQ(phonetic(u"Loi"), u"LOA");
    EXPECT_EQ(phonetic(u"Maire"), u"MER");
    EXPECT_EQ(phonetic(u"Maison"), u"MEZO"); // S between vowels, ON at the end, AI
}

TEST(Phonetic, DigitsAndPunctuationPassButMerge) {
    EXPECT_EQ(phonetic(u"R2D2"), u"R2D2");
    EXPECT_EQ(phonetic(u"AHHA"), u"AHA"); // the H pass moves on after a deletion
    EXPECT_EQ(phonetic(u"A11..B"), u"A1.B");
    for (const char16_t* s : {u"Zoé", u"x", u"Hh", u"EUUU", u"AUAU", u"QQQUUU", u"---"})
        EXPECT_LE(phonetic(s).size(), std::u16string_view(s).size()) << std::u16string_view(s).size();
}

} // namespace
} // namespace kp::transforms
