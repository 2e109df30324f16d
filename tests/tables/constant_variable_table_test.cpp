// The constant and variable tables: kinds and their value rules, the
// availability bits, values and texts that programs compile in, and the
// variables' identifier words.
#include <gtest/gtest.h>

#include <map>
#include <set>
#include <string>

#include "table_lookup.h"

namespace {

using namespace kp::tables;
using namespace kp::tables::test;

TEST(ConstantTable, KindsAndTheirValueRules) {
    ASSERT_EQ(constant_count, 441u);
    std::map<uint32_t, int> kinds;
    for (std::size_t i = 0; i < constant_count; ++i) {
        const kp_constant& c = constants[i];
        SCOPED_TRACE(c.english);
        ++kinds[c.kind];
        ASSERT_NE(c.english[0], '\0');
        ASSERT_NE(c.french[0], '\0');
        switch (c.kind) {
        case KP_CONST_NO_VALUE:
            EXPECT_EQ(c.value, 0u);
            EXPECT_TRUE(c.attributes & (KP_ATTR_NOT_PROVIDED | 0x18)) << std::hex << c.attributes;
            break;
        case KP_CONST_STRING:
            ASSERT_NE(c.value, 0u);
            EXPECT_FALSE(constant_text(c).empty());
            break;
        case KP_CONST_INT:
            break;
        default:
            ADD_FAILURE() << "kind 0x" << std::hex << c.kind;
        }
    }
    EXPECT_EQ(kinds[KP_CONST_INT], 267);
    EXPECT_EQ(kinds[KP_CONST_NO_VALUE], 134);
    EXPECT_EQ(kinds[KP_CONST_STRING], 40);
}

TEST(ConstantTable, AvailabilityOfOpenModesAndParameterStores) {
    // Open modes with no meaning in this edition and the ExeInfo keys are
    // not provided; of the parameter stores, only the registry and INI ones.
    for (const char* name : {"foReadLock", "foWriteLock", "exeName", "paramXML", "paramString"})
        EXPECT_TRUE(constant_by_english(name)->attributes & KP_ATTR_NOT_PROVIDED) << name;
    for (const char* name : {"foUnicode", "paramRegistry", "ParamIni"})
        EXPECT_FALSE(constant_by_english(name)->attributes & KP_ATTR_NOT_PROVIDED) << name;
}

TEST(ConstantTable, NamesAreUniqueInEachLanguage) {
    std::set<std::string> en, fr;
    for (std::size_t i = 0; i < constant_count; ++i) {
        EXPECT_TRUE(en.insert(constants[i].english).second) << constants[i].english;
        EXPECT_TRUE(fr.insert(constants[i].french).second) << constants[i].french;
    }
}

TEST(ConstantTable, IntegerValues) {
    struct Row {
        const char* english;
        const char* french;
        uint32_t value;
    };
    const Row rows[] = {
        {"scActiveBorder", "scBordActif", 0x4000000A},
        {"fLockEmptyFile", "fBloqueFichierVide", 0xFFFFFFFE},
        {"foUnicode", "foUnicode", 0x1000},
        {"frDirectory", "frR\xE9pertoire", 0x37},
        {"cryptAnsi", "crypteAnsi", 0x4000000},
        {"compressShortString", "compresseCha\xEEneCourte", 0x20000},
        {"ParamIni", "ParamIni", 3},
    };
    for (const Row& r : rows) {
        const kp_constant* c = constant_by_english(r.english);
        ASSERT_NE(c, nullptr) << r.english;
        EXPECT_STREQ(c->french, r.french);
        EXPECT_EQ(c->kind, KP_CONST_INT) << r.english;
        EXPECT_EQ(c->value, r.value) << r.english;
    }
    // Table order: the first and the last entries.
    EXPECT_STREQ(constants[0].english, "scActiveBorder");
    EXPECT_STREQ(constants[constant_count - 1].english, "AccountNetworkService");
}

TEST(ConstantTable, StringTexts) {
    const std::map<std::string, std::string> texts = {{"exeName", "Nom"},
                                                      {"exeDirectory", "REPERTOIRE"},
                                                      {"MciStatusNotReady", "not ready"},
                                                      {"Orient270", "270"}};
    for (const auto& [name, text] : texts) {
        const kp_constant* c = constant_by_english(name.c_str());
        ASSERT_NE(c, nullptr) << name;
        ASSERT_EQ(c->kind, KP_CONST_STRING) << name;
        EXPECT_EQ(constant_text(*c), text);
    }
    // The texts are UTF-16 code units, one per character, NUL-terminated.
    const auto* units = reinterpret_cast<const char16_t*>(constant_by_english("MciFormatTMSF")->value);
    EXPECT_EQ(std::u16string(units), u"tmsf");
    // Integers of the same family sit between the strings.
    EXPECT_EQ(constant_by_english("MciModeStretched")->kind, KP_CONST_INT);
    EXPECT_EQ(constant_by_english("MciModeStretched")->value, 2u);
}

TEST(VariableTable, IdentifierWordsAndTypes) {
    ASSERT_EQ(variable_count, 45u);
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
        const uint32_t expected = en.rfind("_DDE.", 0) == 0      ? 0x10
                                  : en.rfind("Service.", 0) == 0 ? 0x210
                                                                 : 0x218;
        EXPECT_EQ(v.attributes, expected);
    }
}

TEST(VariableTable, Names) {
    struct Row {
        const char* english;
        const char* french;
        uint32_t type;
    };
    const Row rows[] = {
        {"_DDE.Topic", "_DDE.Sujet", 0x13},
        {"TriggerScheduledTask.Time",
         "HoraireT\xE2"
         "chePlanifi\xE9"
         "e.Heure",
         0x19},
        {"ScheduledTask.NextRunTime",
         "T\xE2"
         "chePlanifi\xE9"
         "e.ProchaineEx\xE9"
         "cution",
         0x1A},
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
