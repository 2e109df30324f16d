// The constant and variable tables: kinds and their value rules, unique
// names, the availability bits, values and texts that programs compile in,
// and the variables' identifier words.
#include <gtest/gtest.h>

#include <set>
#include <string>

#include "table_lookup.h"

namespace {

using namespace kp::tables;
using namespace kp::tables::test;

TEST(ConstantTable, KindsValueRulesAndUniqueNames) {
    std::set<std::string> en, fr;
    for (std::size_t i = 0; i < constant_count; ++i) {
        const kp_constant& c = constants[i];
        SCOPED_TRACE(c.english);
        ASSERT_NE(c.english[0], '\0');
        ASSERT_NE(c.french[0], '\0');
        EXPECT_TRUE(en.insert(c.english).second);
        EXPECT_TRUE(fr.insert(c.french).second) << c.french;
        if (c.kind == KP_CONST_NO_VALUE) {
            EXPECT_EQ(c.value, 0u);
            EXPECT_TRUE(c.attributes & (KP_ATTR_NOT_PROVIDED | 0x18)) << std::hex << c.attributes;
        } else if (c.kind == KP_CONST_STRING) {
            ASSERT_NE(c.value, 0u);
            EXPECT_FALSE(constant_text(c).empty());
        } else {
            EXPECT_EQ(c.kind, KP_CONST_INT);
        }
    }
}

TEST(ConstantTable, ValuesTextsAndAvailability) {
    // Open modes with no meaning in this edition and the ExeInfo keys are
    // not provided; of the parameter stores, only the registry and INI ones.
    for (const char* name : {"foReadLock", "foWriteLock", "exeName", "paramXML", "paramString"})
        EXPECT_TRUE(constant_by_english(name)->attributes & KP_ATTR_NOT_PROVIDED) << name;
    for (const char* name : {"foUnicode", "paramRegistry", "ParamIni"})
        EXPECT_FALSE(constant_by_english(name)->attributes & KP_ATTR_NOT_PROVIDED) << name;
    // Integers (a text of nullptr) at the edges of the encoding (negative,
    // high bits, accented names) and UTF-16 texts, one unit per character.
    struct Row {
        const char *english, *french;
        uint32_t value;
        const char* text;
    };
    const Row rows[] = {
        {"scActiveBorder", "scBordActif", 0x4000000A, nullptr},
        {"fLockEmptyFile", "fBloqueFichierVide", 0xFFFFFFFE, nullptr},
        {"frDirectory", "frR\xE9pertoire", 0x37, nullptr},
        {"compressShortString", "compresseCha\xEEneCourte", 0x20000, nullptr},
        {"MciModeStretched", nullptr, 2, nullptr}, // an integer among the strings
        {"exeDirectory", nullptr, 0, "REPERTOIRE"},
        {"MciStatusNotReady", nullptr, 0, "not ready"},
    };
    for (const Row& r : rows) {
        SCOPED_TRACE(r.english);
        const kp_constant* c = constant_by_english(r.english);
        ASSERT_NE(c, nullptr);
        EXPECT_STREQ(r.french ? c->french : nullptr, r.french);
        EXPECT_EQ(c->kind, r.text ? KP_CONST_STRING : KP_CONST_INT);
        if (r.text)
            EXPECT_EQ(constant_text(*c), r.text);
        else
            EXPECT_EQ(c->value, r.value);
    }
}

TEST(VariableTable, IdentifierWordsTypesAndNames) {
    const std::set<uint32_t> types = {0x01, 0x08, 0x13, 0x18, 0x19, 0x1A, 0x1B};
    for (std::size_t i = 0; i < variable_count; ++i) {
        const kp_variable& v = variables[i];
        SCOPED_TRACE(v.english);
        EXPECT_EQ(KP_IDENT_ID(v.ident), i + 1);
        EXPECT_EQ(KP_IDENT_COMPONENT(v.ident), KP_COMPONENT_NUMBER);
        EXPECT_TRUE(types.count(KP_IDENT_COUNT(v.ident)));
        // Each block has one attribute word: DDE provided, the task blocks
        // and the service block not.
        const std::string en = v.english;
        EXPECT_EQ(v.attributes, en.starts_with("_DDE.")      ? 0x10u
                                : en.starts_with("Service.") ? 0x210u
                                                             : 0x218u);
    }
    struct Row {
        const char *english, *french;
        uint32_t type;
    };
    const Row rows[] = {
        {"_DDE.Topic", "_DDE.Sujet", 0x13},
        {"TriggerScheduledTask.Time", "HoraireT\342chePlanifi\351e.Heure", 0x19},
        {"ScheduledTask.NextRunTime", "T\342chePlanifi\351e.ProchaineEx\351cution", 0x1A},
        {"Service.Startup", "Service.D\xE9marrage", 0x08},
    };
    for (const Row& r : rows) {
        const kp_variable* v = variable_by_english(r.english);
        ASSERT_NE(v, nullptr) << r.english;
        EXPECT_STREQ(v->french, r.french);
        EXPECT_EQ(KP_IDENT_COUNT(v->ident), r.type) << r.english;
    }
}

} // namespace
