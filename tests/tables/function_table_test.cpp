// The function table: record layout invariants, identifier words, the
// availability bit 0x200 and its handler rules, names in both languages and
// the signatures that programs and the families depend on.
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "support/test_host.h"
#include "table_lookup.h"

namespace {

using namespace kp::tables;
using namespace kp::tables::test;

const kp_function& fn(const char* english) {
    static const kp_function none{};
    const kp_function* f = function_by_english(english);
    if (!f) ADD_FAILURE() << "no function " << english;
    return f ? *f : none;
}

std::vector<std::string> signatures(const char* english) {
    const kp_function& f = fn(english);
    std::vector<std::string> out;
    for (uint32_t i = 0; i < overload_count(f); ++i)
        out.push_back(signature(f.overloads[i]));
    return out;
}

uint16_t mask(const char* english) {
    return provided_mask[index_of(&fn(english))];
}

TEST(FunctionTable, EntriesAndOverloadRecords) {
    static const std::set<uint16_t> param_types = {0x01, 0x08, 0x09, 0x0A, 0x0C, 0x0E, 0x0F, 0x12,
                                                   0x13, 0x18, 0x19, 0x1A, 0x1B, 0x1C, 0x1F, 0x2C,
                                                   0x2E, 0x39, 0x43, 0x4B, 0x4D, 0x59, 0x208};
    static const std::set<uint8_t> result_types = {0x00, 0x01, 0x08, 0x09, 0x0A, 0x0C,
                                                   0x0E, 0x0F, 0x13, 0x1B, 0x1C, 0x1F};
    EXPECT_EQ(function_count, 381u);
    EXPECT_EQ(constant_count, 441u);
    EXPECT_EQ(variable_count, 45u);
    for (std::size_t i = 0; i < function_count; ++i) {
        const kp_function& f = functions[i];
        SCOPED_TRACE(f.english);
        EXPECT_EQ(KP_IDENT_COMPONENT(f.ident), KP_COMPONENT_NUMBER);
        EXPECT_EQ(KP_IDENT_ID(f.ident), i) << "identifiers run in table order";
        EXPECT_GE(overload_count(f), 1u);
        EXPECT_LE(overload_count(f), 12u);
        ASSERT_NE(f.overloads, nullptr);
        // The VM picks an overload by its parameter types, so two identical
        // lists would make one unreachable.  ExeRun alone repeats its first
        // three forms in the catalogue, and keeps them.
        std::set<std::string> seen;
        for (uint32_t k = 0; k < overload_count(f); ++k) {
            const kp_overload& o = f.overloads[k];
            SCOPED_TRACE("overload " + std::to_string(k + 1));
            EXPECT_EQ(o.reserved0, 0);
            EXPECT_EQ(o.reserved1, 0);
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
    EXPECT_EQ(signatures("ExeRun")[0], signatures("ExeRun")[3]);
}

TEST(FunctionTable, NotProvidedBitAndHandlers) {
    std::size_t mixed = 0;
    for (std::size_t i = 0; i < function_count; ++i) {
        const kp_function& f = functions[i];
        SCOPED_TRACE(f.english);
        const uint16_t all = static_cast<uint16_t>((1u << overload_count(f)) - 1);
        ASSERT_EQ(provided_mask[i] & ~all, 0);
        // A handler is linked exactly where the table names one.
        for (uint32_t k = 0; k < overload_count(f); ++k)
            EXPECT_EQ(f.overloads[k].handler != nullptr, bool(provided_mask[i] & (1u << k)))
                << "kp::handlers::" << f.english << "_" << k + 1;
        // Of the seven not-provided entries that kept a handler on the
        // device, the directory selector keeps its handlers here.
        if (f.attributes & KP_ATTR_NOT_PROVIDED)
            EXPECT_TRUE(provided_mask[i] == 0 || std::string_view(f.english) == "fSelectDir");
        else if (provided_mask[i] != 0 && provided_mask[i] != all)
            ++mixed;
        // The memory zones are provided in every overload.
        EXPECT_TRUE(!std::string_view(f.english).starts_with("Mem") || provided_mask[i] == all);
    }
    // Of the six functions that mix overloads with and without a handler,
    // this edition keeps handlers in the clipboard pair only.
    EXPECT_EQ(mixed, 2u);
    EXPECT_EQ(mask("ToClipboard"), 0x1);
    EXPECT_EQ(mask("Clipboard"), 0x1);
    // Entries with handlers on the device, or whose family is present, can
    // still be absent from this edition.
    for (const char* name : {"SendKey", "fImageSelect", "fLock", "ExePriority", "ClipboardRTF"})
        EXPECT_TRUE(fn(name).attributes & KP_ATTR_NOT_PROVIDED) << name;
    // The directory selector keeps the not-provided bit of its table word and
    // its handlers: the VM's selector service answers it.
    EXPECT_TRUE(fn("fSelectDir").attributes & KP_ATTR_NOT_PROVIDED);
    EXPECT_EQ(mask("fSelectDir"), 0x7);
    for (const char* name : {"Max", "Min", "NumToString", "_zipCreate_old", "_zipOpen_old", "SysColor",
                             "SysWinActive", "SysStandby", "SysDirStorageCard", "SelectColor"}) {
        EXPECT_FALSE(fn(name).attributes & KP_ATTR_NOT_PROVIDED) << name;
        EXPECT_EQ(mask(name), (1u << overload_count(fn(name))) - 1) << name;
    }
}

TEST(FunctionTable, NotProvidedOverloadsAreRefusedThroughTheModule) {
    // The clipboard pair keeps its first overload and refuses the second,
    // which takes an interface object this edition has no use for.
    kp::test::HostFixture fx;
    std::vector<kp::host::Value> image{kp::host::Value::integer(1)};
    EXPECT_EQ(fx.host->call("ToClipboard", image).status, kp::host::CallStatus::NotProvided);
    EXPECT_EQ(fx.host->call("PressePapier", image).status, kp::host::CallStatus::NotProvided);
}

TEST(FunctionTable, NamesAreUsableAndResolveToOneEntry) {
    // English names make handler identifiers; a name in either language,
    // compared without case, leads to one entry, except the three French
    // names the catalogue gives twice (Windows-1252 letters above 0x7F are
    // written identically in those).
    auto lower = [](std::string s) {
        for (auto& c : s)
            if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
        return s;
    };
    std::map<std::string, std::set<std::size_t>> by_name;
    for (std::size_t i = 0; i < function_count; ++i) {
        std::string en = functions[i].english;
        ASSERT_FALSE(en.empty());
        ASSERT_NE(functions[i].french[0], '\0');
        EXPECT_TRUE(std::all_of(en.begin(), en.end(), [](char c) {
            return std::isalnum(static_cast<unsigned char>(c)) || c == '_';
        })) << en;
        by_name[lower(en)].insert(i);
        by_name[lower(functions[i].french)].insert(i);
    }
    std::set<std::string> shared;
    for (const auto& [name, entries] : by_name)
        if (entries.size() > 1) shared.insert(name);
    EXPECT_EQ(shared, (std::set<std::string>{"mcid\351but", "pilotesaisie", "pilotesouris"}));
}

// Entries whose words the generator encodes at the edges: no parameter and
// no result, by-reference and array flags, ten parameters, twelve
// overloads, repeated overloads.  (Ordinary entries would only copy the
// table sources.)
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
    EXPECT_EQ(set[5], "12,12,8,8->1");
    EXPECT_EQ(set[11], "12,8,8,8->1");
}

} // namespace
