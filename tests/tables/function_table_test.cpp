// The descriptor tables: records, identifier words, the availability bit 0x200
// and handlers, names in both languages, edge signatures, constants, variables.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include "component/tables.h"
#include "support/test_host.h"

namespace kp::tables {
// Generated: bit n of entry i is set when this edition provides overload n + 1.
extern const uint16_t provided_mask[];
} // namespace kp::tables

namespace {

using namespace kp::tables;

template <class T> const T& by_english(const T* table, std::size_t count, std::string_view name) {
    static const T none{};
    for (std::size_t i = 0; i < count; ++i)
        if (name == table[i].english) return table[i];
    ADD_FAILURE() << "no entry " << name;
    return none;
}
const kp_function& fn(const char* english) {
    return by_english(functions, function_count, english);
}
uint32_t overload_count(const kp_function& f) {
    return KP_IDENT_COUNT(f.ident);
}
uint16_t mask(const char* english) {
    return provided_mask[&fn(english) - functions];
}

// Parameter words of an overload, as a string such as "12,8,8008" (hex).
std::string signature(const kp_overload& o) {
    std::ostringstream s;
    s << std::hex;
    for (unsigned i = 0; i < o.param_count && i < 10; ++i)
        s << (i ? "," : "") << o.params[i];
    s << "->" << int{o.result};
    return s.str();
}
std::vector<std::string> signatures(const char* english) {
    const kp_function& f = fn(english);
    std::vector<std::string> out;
    for (uint32_t i = 0; i < overload_count(f); ++i)
        out.push_back(signature(f.overloads[i]));
    return out;
}

// The UTF-16 text a string constant points at, narrowed (the texts are ASCII).
std::string constant_text(const kp_constant& c) {
    std::string s;
    for (const auto* p = reinterpret_cast<const char16_t*>(c.value); *p; ++p)
        s += static_cast<char>(*p < 0x80 ? *p : '?');
    return s;
}

TEST(FunctionTable, EntriesAndOverloadRecords) {
    static const std::set<uint16_t> param_types = {0x01, 0x08, 0x09, 0x0A, 0x0C, 0x0E, 0x0F, 0x12,
                                                   0x13, 0x18, 0x19, 0x1A, 0x1B, 0x1C, 0x1F, 0x2C,
                                                   0x2E, 0x39, 0x43, 0x4B, 0x4D, 0x59, 0x208};
    static const std::set<uint8_t> result_types = {0x00, 0x01, 0x08, 0x09, 0x0A, 0x0C,
                                                   0x0E, 0x0F, 0x13, 0x1B, 0x1C, 0x1F};
    EXPECT_EQ(std::tuple(function_count, constant_count, variable_count), std::tuple(381u, 441u, 45u));
    for (std::size_t i = 0; i < function_count; ++i) {
        const kp_function& f = functions[i];
        SCOPED_TRACE(f.english);
        EXPECT_EQ(KP_IDENT_COMPONENT(f.ident), KP_COMPONENT_NUMBER);
        EXPECT_EQ(KP_IDENT_ID(f.ident), i) << "identifiers run in table order";
        EXPECT_TRUE(overload_count(f) >= 1 && overload_count(f) <= 12);
        ASSERT_NE(f.overloads, nullptr);
        // Identical parameter lists make an overload unreachable; ExeRun alone keeps its repeats.
        std::set<std::string> seen;
        for (uint32_t k = 0; k < overload_count(f); ++k) {
            const kp_overload& o = f.overloads[k];
            SCOPED_TRACE("overload " + std::to_string(k + 1));
            EXPECT_EQ(o.reserved0 | o.reserved1, 0);
            ASSERT_LE(o.param_count, 10);
            for (unsigned p = 0; p < 10; ++p)
                EXPECT_TRUE(p < o.param_count ? param_types.count(o.params[p] & 0x3FFF) : o.params[p] == 0)
                    << "param " << p << " 0x" << std::hex << o.params[p];
            EXPECT_TRUE(result_types.count(o.result)) << "result 0x" << std::hex << int(o.result);
            std::string params = signature(o);
            params = params.substr(0, params.find("->"));
            EXPECT_TRUE(seen.insert(params).second || std::string_view(f.english) == "ExeRun") << params;
        }
    }
}

TEST(FunctionTable, NotProvidedBitAndHandlers) {
    std::size_t mixed = 0;
    for (std::size_t i = 0; i < function_count; ++i) {
        const kp_function& f = functions[i];
        SCOPED_TRACE(f.english);
        const uint16_t all = static_cast<uint16_t>((1u << overload_count(f)) - 1);
        ASSERT_EQ(provided_mask[i] & ~all, 0);
        for (uint32_t k = 0; k < overload_count(f); ++k)
            EXPECT_EQ(f.overloads[k].handler != nullptr, bool(provided_mask[i] & (1u << k)))
                << "kp::handlers::" << f.english << "_" << k + 1;
        // Of the not-provided entries only fSelectDir keeps handlers (the VM's selector answers it).
        if (f.attributes & KP_ATTR_NOT_PROVIDED)
            EXPECT_TRUE(provided_mask[i] == 0 || std::string_view(f.english) == "fSelectDir");
        else if (provided_mask[i] != 0 && provided_mask[i] != all)
            ++mixed;
        // The memory zones are provided in every overload.
        EXPECT_TRUE(!std::string_view(f.english).starts_with("Mem") || provided_mask[i] == all);
    }
    // Of the six functions mixing overloads with and without handlers, only the clipboard pair.
    EXPECT_EQ(mixed, 2u);
    EXPECT_EQ((std::array<int, 3>{mask("ToClipboard"), mask("Clipboard"), mask("fSelectDir")}),
              (std::array<int, 3>{1, 1, 7}));
    // Entries with device handlers or a present family can still be absent here.
    for (const char* name : {"SendKey", "fImageSelect", "fLock", "ExePriority", "ClipboardRTF", "fSelectDir"})
        EXPECT_TRUE(fn(name).attributes & KP_ATTR_NOT_PROVIDED) << name;
    for (const char* name : {"NumToString", "_zipCreate_old", "SysColor", "SysStandby", "SelectColor"}) {
        EXPECT_FALSE(fn(name).attributes & KP_ATTR_NOT_PROVIDED) << name;
        EXPECT_EQ(mask(name), (1u << overload_count(fn(name))) - 1) << name;
    }
    // Through the module the clipboard pair refuses its second (interface object) overload.
    kp::test::HostFixture fx;
    std::vector<kp::host::Value> image{kp::host::Value::integer(1)};
    for (const char* name : {"ToClipboard", "PressePapier"})
        EXPECT_EQ(fx.host->call(name, image).status, kp::host::CallStatus::NotProvided) << name;
}

TEST(FunctionTable, NamesAreUsableAndResolveToOneEntry) {
    // English names make identifiers; a name in either language, without case, leads to one
    // entry except three French names the catalogue gives twice.
    auto lower = [](std::string s) {
        std::transform(s.begin(), s.end(), s.begin(),
                       [](char c) { return c >= 'A' && c <= 'Z' ? c + 32 : c; });
        return s;
    };
    std::map<std::string, std::set<std::size_t>> by_name;
    for (std::size_t i = 0; i < function_count; ++i) {
        const std::string en = functions[i].english;
        ASSERT_TRUE(!en.empty() && functions[i].french[0] != '\0');
        for (char c : en)
            EXPECT_TRUE(std::isalnum(static_cast<unsigned char>(c)) || c == '_') << en;
        by_name[lower(en)].insert(i);
        by_name[lower(functions[i].french)].insert(i);
    }
    std::set<std::string> shared;
    for (const auto& [name, entries] : by_name)
        if (entries.size() > 1) shared.insert(name);
    EXPECT_EQ(shared, (std::set<std::string>{"mcid\351but", "pilotesaisie", "pilotesouris"}));
}

// Words at the encoding's edges: no parameter or result, by-reference and array flags, ten
// parameters, twelve overloads, repeated overloads.
TEST(FunctionTable, SignaturesAtTheEdgesOfTheEncoding) {
    using List = std::vector<std::string>;
    const std::pair<const char*, List> rows[] = {
        {"DateSys", {"->13", "12->0"}},
        {"eToEuro", {"a->a", "a,8->a", "a,8,8->a", "a,8,8,400a->a"}},
        {"fWriteLine", {"8,4b->1", "8,8,8->1", "8,4b,8->1"}},
        {"Compress", {"401c->1c", "4012->1c"}},
        {"ExeRun",
         {"12->8", "12,8->8", "12,8,8008->8", "12->8", "12,8->8", "12,8,8008->8", "12,8,8008,13->8"}},
        {"ToClipboard", {"804d->1", "2e->1"}},
    };
    for (const auto& [name, expected] : rows)
        EXPECT_EQ(signatures(name), expected) << name;
    EXPECT_EQ(signatures("fReadLine")[1], "8,12,401f,401f,401f,401f,401f,401f,401f,401f->1");
    EXPECT_EQ(signatures("InitParameter")[1], "8,59->13");
    // Twelve writers: five value kinds and address-with-size, by name then by number.
    auto set = signatures("RegistrySetValue");
    ASSERT_EQ(set.size(), 12u);
    EXPECT_EQ(set[5] + " " + set[11], "12,12,8,8->1 12,8,8,8->1");
}

TEST(ConstantTable, KindsValueRulesUniqueNamesAndValues) {
    std::set<std::string> en, fr;
    for (std::size_t i = 0; i < constant_count; ++i) {
        const kp_constant& c = constants[i];
        SCOPED_TRACE(c.english);
        ASSERT_TRUE(c.english[0] != '\0' && c.french[0] != '\0');
        EXPECT_TRUE(en.insert(c.english).second);
        EXPECT_TRUE(fr.insert(c.french).second) << c.french;
        if (c.kind == KP_CONST_NO_VALUE)
            EXPECT_TRUE(c.value == 0 && (c.attributes & (KP_ATTR_NOT_PROVIDED | 0x18)))
                << std::hex << c.attributes;
        else if (c.kind == KP_CONST_STRING)
            EXPECT_TRUE(c.value != 0 && !constant_text(c).empty());
        else
            EXPECT_EQ(c.kind, KP_CONST_INT);
    }
    // Meaningless open modes and ExeInfo keys are not provided; of the stores, registry and INI are.
    for (const char* name : {"foReadLock", "foWriteLock", "exeName", "paramXML", "paramString"})
        EXPECT_TRUE(by_english(constants, constant_count, name).attributes & KP_ATTR_NOT_PROVIDED) << name;
    for (const char* name : {"foUnicode", "paramRegistry", "ParamIni"})
        EXPECT_FALSE(by_english(constants, constant_count, name).attributes & KP_ATTR_NOT_PROVIDED) << name;
    // Integers (text nullptr: negative, high bits, accented names) and UTF-16 texts.
    const std::tuple<const char*, const char*, uint32_t, const char*> rows[] = {
        {"scActiveBorder", "scBordActif", 0x4000000A, nullptr},
        {"fLockEmptyFile", "fBloqueFichierVide", 0xFFFFFFFE, nullptr},
        {"frDirectory", "frR\xE9pertoire", 0x37, nullptr},
        {"compressShortString", "compresseCha\xEEneCourte", 0x20000, nullptr},
        {"MciModeStretched", nullptr, 2, nullptr}, // an integer among the strings
        {"exeDirectory", nullptr, 0, "REPERTOIRE"},
        {"MciStatusNotReady", nullptr, 0, "not ready"},
    };
    for (const auto& [english, french, value, text] : rows) {
        SCOPED_TRACE(english);
        const kp_constant& c = by_english(constants, constant_count, english);
        ASSERT_NE(c.english, nullptr);
        EXPECT_STREQ(french ? c.french : nullptr, french);
        EXPECT_EQ(c.kind, text ? KP_CONST_STRING : KP_CONST_INT);
        EXPECT_TRUE(text ? constant_text(c) == text : c.value == value) << std::hex << c.value;
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
        // One attribute word a block: DDE provided, the task and service blocks not.
        const std::string en = v.english;
        EXPECT_EQ(v.attributes, en.starts_with("_DDE.")      ? 0x10u
                                : en.starts_with("Service.") ? 0x210u
                                                             : 0x218u);
    }
    const std::tuple<const char*, const char*, uint32_t> rows[] = {
        {"_DDE.Topic", "_DDE.Sujet", 0x13},
        {"TriggerScheduledTask.Time", "HoraireT\342chePlanifi\351e.Heure", 0x19},
        {"ScheduledTask.NextRunTime", "T\342chePlanifi\351e.ProchaineEx\351cution", 0x1A},
        {"Service.Startup", "Service.D\xE9marrage", 0x08},
    };
    for (const auto& [english, french, type] : rows) {
        const kp_variable& v = by_english(variables, variable_count, english);
        EXPECT_STREQ(v.french, french);
        EXPECT_EQ(KP_IDENT_COUNT(v.ident), type) << english;
    }
}

} // namespace
