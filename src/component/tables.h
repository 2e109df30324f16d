// tables.h - the three descriptor tables the VM reads (generated from
// src/component/tables/*.tbl by tools/gen_tables.py).
#pragma once

#include <cstddef>

#include "kp120/types.h"
#include "kp120/vm.h"

namespace kp::tables {
extern const kp_function functions[];
extern const std::size_t function_count;
extern const kp_constant constants[];
extern const std::size_t constant_count;
extern const kp_variable variables[];
extern const std::size_t variable_count;
} // namespace kp::tables
