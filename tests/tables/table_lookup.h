// table_lookup.h - small helpers the table tests share: finding entries by
// name and reading the generated records.
#pragma once

#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>

#include "component/tables.h"

namespace kp::tables {
// Written by the table generator next to the tables: bit n of entry i is set
// when overload n + 1 of function i is one this edition provides.
extern const uint16_t provided_mask[];
} // namespace kp::tables

namespace kp::tables::test {

inline const kp_function* function_by_english(std::string_view name) {
    for (std::size_t i = 0; i < function_count; ++i)
        if (name == functions[i].english) return &functions[i];
    return nullptr;
}

inline const kp_constant* constant_by_english(std::string_view name) {
    for (std::size_t i = 0; i < constant_count; ++i)
        if (name == constants[i].english) return &constants[i];
    return nullptr;
}

inline const kp_variable* variable_by_english(std::string_view name) {
    for (std::size_t i = 0; i < variable_count; ++i)
        if (name == variables[i].english) return &variables[i];
    return nullptr;
}

inline std::size_t index_of(const kp_function* f) {
    return static_cast<std::size_t>(f - functions);
}

inline uint32_t overload_count(const kp_function& f) {
    return KP_IDENT_COUNT(f.ident);
}

// Parameter words of an overload, as a string such as "12,8,8008" (hex), for
// compact comparisons.
inline std::string signature(const kp_overload& o) {
    std::string s;
    char buf[8];
    for (unsigned i = 0; i < o.param_count && i < 10; ++i) {
        std::snprintf(buf, sizeof buf, "%x", o.params[i]);
        if (i) s += ',';
        s += buf;
    }
    std::snprintf(buf, sizeof buf, "->%x", o.result);
    return s + buf;
}

// The UTF-16 text a string constant points at, narrowed (the texts are ASCII).
inline std::string constant_text(const kp_constant& c) {
    const auto* p = reinterpret_cast<const char16_t*>(c.value);
    std::string s;
    for (; *p; ++p)
        s += static_cast<char>(*p < 0x80 ? *p : '?');
    return s;
}

} // namespace kp::tables::test
