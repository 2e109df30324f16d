// regtool.h - registry files against the registry store: gathering a
// subtree into a document and applying a document in one transaction.
// Uses only the store, so that tools outside the component (kp120 reg) can
// link it with the store alone.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "platform/registry_store.h"
#include "registry/regfile.h"

namespace kp::registry::regtool {

// The key `path` (root name first) and its subtree, each key followed by
// its subkeys in enumeration order; an empty path gathers the four roots.
// 0 or the Win32 error (2 when the key does not exist).
uint32_t gather(std::u16string_view path, regfile::Document& doc);

// Writes a document: keys created (or deleted with their subtree), values
// set (or deleted), all in one transaction: on a failure nothing is
// written, the Win32 error is returned and `where` names the key.
uint32_t apply(const regfile::Document& doc, std::u16string* where = nullptr);

// Deletes a key and every key under it, depth first (no transaction of its
// own).  0 when the key is gone, also when it was not there.
uint32_t delete_tree(platform::registry::Key root, std::u16string_view subkey);

} // namespace kp::registry::regtool
