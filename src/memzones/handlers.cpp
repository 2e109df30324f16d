// handlers.cpp - the handlers of the memory-zone functions.  The overloads
// without a zone name work on the calling thread's default zone.
#include "component/bind.h"
#include "memzones/functions.h"

namespace kp::handlers {

namespace {
using std::u16string_view;
using V = kp_variant*;
memzones::Store& here() {
    return memzones::registry().for_caller();
}
constexpr u16string_view kDefault{};
} // namespace

using namespace kp::memzones;

KP_BIND(MemDelete_1, [](int32_t n, CXError& e) { return mem_delete(here(), kDefault, n, e); })
KP_BIND(MemDelete_2, [](u16string_view z, int32_t n, CXError& e) { return mem_delete(here(), z, n, e); })
KP_BIND(MemSetPosition_1, [](int32_t n, CXError& e) { return mem_set_position(here(), kDefault, n, e); })
KP_BIND(MemSetPosition_2,
        [](u16string_view z, int32_t n, CXError& e) { return mem_set_position(here(), z, n, e); })
KP_BIND(MemModify_1,
        [](int32_t n, V v, CXError& e) { return mem_modify(here(), kDefault, n, v, nullptr, e); })
KP_BIND(MemModify_2, [](int32_t n, V v, V k, CXError& e) { return mem_modify(here(), kDefault, n, v, k, e); })
KP_BIND(MemModify_3,
        [](u16string_view z, int32_t n, V v, CXError& e) { return mem_modify(here(), z, n, v, nullptr, e); })
KP_BIND(MemModify_4,
        [](u16string_view z, int32_t n, V v, V k, CXError& e) { return mem_modify(here(), z, n, v, k, e); })
KP_BIND(MemAdd_1, [](V v, CXError& e) { return mem_add(here(), kDefault, v, nullptr, e); })
KP_BIND(MemAdd_2, [](V v, V k, CXError& e) { return mem_add(here(), kDefault, v, k, e); })
KP_BIND(MemAdd_3, [](u16string_view z, V v, CXError& e) { return mem_add(here(), z, v, nullptr, e); })
KP_BIND(MemAdd_4, [](u16string_view z, V v, V k, CXError& e) { return mem_add(here(), z, v, k, e); })
KP_BIND(MemRetrieve_1, [](int32_t n, CXError& e) { return mem_retrieve(here(), kDefault, n, e); })
KP_BIND(MemRetrieve_2, [](u16string_view z, int32_t n, CXError& e) { return mem_retrieve(here(), z, n, e); })
KP_BIND(MemSeek_1, [](V k, CXError& e) { return mem_seek(here(), kDefault, k, e); })
KP_BIND(MemSeek_2, [](u16string_view z, V k, CXError& e) { return mem_seek(here(), z, k, e); })
KP_BIND(MemFirst_1, [](CXError& e) { return mem_first(here(), kDefault, e); })
KP_BIND(MemFirst_2, [](u16string_view z, CXError& e) { return mem_first(here(), z, e); })
KP_BIND(MemNext_1, [](CXError& e) { return mem_next(here(), kDefault, e); })
KP_BIND(MemNext_2, [](u16string_view z, CXError& e) { return mem_next(here(), z, e); })
KP_BIND(MemLast_1, [](CXError& e) { return mem_last(here(), kDefault, e); })
KP_BIND(MemLast_2, [](u16string_view z, CXError& e) { return mem_last(here(), z, e); })
KP_BIND(MemPrevious_1, [](CXError& e) { return mem_previous(here(), kDefault, e); })
KP_BIND(MemPrevious_2, [](u16string_view z, CXError& e) { return mem_previous(here(), z, e); })
KP_BIND(MemCount_1, [](CXError& e) { return mem_count(here(), kDefault, e); })
KP_BIND(MemCount_2, [](u16string_view z, CXError& e) { return mem_count(here(), z, e); })
KP_BIND(MemFound_1, [](CXError& e) { return mem_found(here(), kDefault, e); })
KP_BIND(MemFound_2, [](u16string_view z, CXError& e) { return mem_found(here(), z, e); })
KP_BIND(MemOut_1, [](CXError& e) { return mem_out(here(), kDefault, e); })
KP_BIND(MemOut_2, [](u16string_view z, CXError& e) { return mem_out(here(), z, e); })
KP_BIND(MemCurrent_1, [](CXError& e) { return mem_current(here(), kDefault, e); })
KP_BIND(MemCurrent_2, [](u16string_view z, CXError& e) { return mem_current(here(), z, e); })
KP_BIND(MemDeleteAll_1, [](CXError& e) { mem_delete_all(here(), kDefault, e); })
KP_BIND(MemDeleteAll_2, [](u16string_view z, CXError& e) { mem_delete_all(here(), z, e); })
KP_BIND(MemSort_55_1, [](CXError& e) { return mem_sort(here(), kDefault, e); })
KP_BIND(MemSort_55_2, [](u16string_view z, CXError& e) { return mem_sort(here(), z, e); })
KP_BIND(MemCreate_1, [](u16string_view z, CXError& e) { return mem_create(here(), z, e); })
KP_BIND(MemExist_1, [](u16string_view z) { return mem_exist(here(), z); })
KP_BIND(MemKeyVal_1, [](CXError& e) { return mem_key_val(here(), kDefault, e); })
KP_BIND(MemKeyVal_2, [](u16string_view z, CXError& e) { return mem_key_val(here(), z, e); })
KP_BIND(MemSort_1, [](CXError& e) { return mem_sort(here(), kDefault, e); })
KP_BIND(MemSort_2, [](u16string_view z, CXError& e) { return mem_sort(here(), z, e); })

} // namespace kp::handlers
