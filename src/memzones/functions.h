// functions.h - the memory-zone functions of the language over a store of
// zones (zones.h): variants in and out, failures recorded in the call's
// error object.  `zone` is the zone's name; the empty name is the default
// zone, which the overloads without a name use.
#pragma once

#include <cstdint>
#include <string_view>

#include "component/error.h"
#include "component/variant.h"
#include "memzones/zones.h"

namespace kp::memzones {

bool mem_create(Store& s, std::u16string_view zone, CXError& e);
bool mem_exist(Store& s, std::u16string_view zone);
void mem_delete_all(Store& s, std::u16string_view zone, CXError& e);

// `key` null: the key is the value.
int32_t mem_add(Store& s, std::u16string_view zone, const kp_variant* value, const kp_variant* key,
                CXError& e);
bool mem_modify(Store& s, std::u16string_view zone, int32_t n, const kp_variant* value, const kp_variant* key,
                CXError& e);
bool mem_delete(Store& s, std::u16string_view zone, int32_t n, CXError& e);
variant::Value mem_retrieve(Store& s, std::u16string_view zone, int32_t n, CXError& e);

int32_t mem_count(Store& s, std::u16string_view zone, CXError& e);
int32_t mem_seek(Store& s, std::u16string_view zone, const kp_variant* key, CXError& e);
bool mem_found(Store& s, std::u16string_view zone, CXError& e);

variant::Value mem_first(Store& s, std::u16string_view zone, CXError& e);
variant::Value mem_next(Store& s, std::u16string_view zone, CXError& e);
variant::Value mem_last(Store& s, std::u16string_view zone, CXError& e);
variant::Value mem_previous(Store& s, std::u16string_view zone, CXError& e);
bool mem_out(Store& s, std::u16string_view zone, CXError& e);
int32_t mem_current(Store& s, std::u16string_view zone, CXError& e);
variant::Value mem_key_val(Store& s, std::u16string_view zone, CXError& e);
bool mem_set_position(Store& s, std::u16string_view zone, int32_t n, CXError& e);

bool mem_sort(Store& s, std::u16string_view zone, CXError& e);

} // namespace kp::memzones
