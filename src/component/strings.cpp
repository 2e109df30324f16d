// strings.cpp - creation, sharing, shortening, growth and release of the
// string buffers.  Without a VM allocator (unit tests of pure code) buffers
// are C-library blocks with a null owner.
#include "component/strings.h"

#include <cstdlib>
#include <cstring>

#include "component/runtime.h"

namespace kp::str {

namespace {

kp_string_header* header(char16_t* s) {
    return kp_string_header_of(s);
}

// Frees a block the component allocated itself: the per-thread allocator
// may take it; otherwise the C library frees it.
void free_own(kp_string_header* h) {
    if (runtime::per_thread_mode()) {
        kp_allocator* a = runtime::allocator();
        if (a && a->ops && a->ops->offer && a->ops->offer(a, h) != 0) return;
    }
    std::free(h);
}

// A raw buffer of at least `bytes` bytes, header owner and capacity set.
int32_t allocate(uint32_t bytes, char16_t** out) {
    *out = nullptr;
    kp_allocator* a = runtime::allocator();
    if (a && a->ops && a->ops->create) {
        char16_t* p = nullptr;
        int32_t rc = a->ops->create(a, bytes, &p);
        if (rc != 0) return rc;
        if (!p) return kOutOfMemory;
        *out = p;
        return kOk;
    }
    void* block = std::malloc(static_cast<std::size_t>(bytes) + KP_STRING_BLOCK_EXTRA);
    if (!block) return kOutOfMemory;
    auto* h = static_cast<kp_string_header*>(block);
    h->owner = nullptr;
    h->flags = 0;
    h->refcount = 0;
    h->capacity = bytes;
    h->length = 0;
    *out = reinterpret_cast<char16_t*>(h + 1);
    std::memset(reinterpret_cast<char*>(*out) + bytes, 0, 2);
    return kOk;
}

void set_kind(kp_string_header* h, uint32_t kind) {
    h->flags = (h->flags & ~0xEu) | (kind << 1);
}

} // namespace

std::span<const uint8_t> bytes(const char16_t* s) {
    if (!s) return {};
    const kp_string_header* h = kp_string_header_of(s);
    std::size_t n = is_binary(s) ? h->length : static_cast<std::size_t>(h->length) * 2;
    return {reinterpret_cast<const uint8_t*>(s), n};
}

int32_t create(const char16_t* chars, int64_t n, char16_t** out) {
    *out = nullptr;
    if (n <= 0) return kOk;
    if (n >= static_cast<int64_t>(KP_STRING_MAX_CHARS)) return kTooLong;
    char16_t* p = nullptr;
    int32_t rc = allocate(static_cast<uint32_t>(n) * 2, &p);
    if (rc != kOk) return rc;
    if (chars) std::memcpy(p, chars, static_cast<std::size_t>(n) * 2);
    kp_string_header* h = header(p);
    set_kind(h, KP_STRING_KIND_TEXT);
    h->refcount = 1;
    h->length = static_cast<uint32_t>(n);
    p[n] = 0;
    *out = p;
    return kOk;
}

int32_t create_binary(std::span<const uint8_t> data, char16_t** out) {
    *out = nullptr;
    if (data.empty()) return kOk;
    if (data.size() >= static_cast<std::size_t>(KP_STRING_MAX_CHARS) * 2) return kTooLong;
    char16_t* p = nullptr;
    int32_t rc = allocate(static_cast<uint32_t>(data.size()), &p);
    if (rc != kOk) return rc;
    std::memcpy(p, data.data(), data.size());
    kp_string_header* h = header(p);
    set_kind(h, kKindBinary);
    h->refcount = 1;
    h->length = static_cast<uint32_t>(data.size());
    std::memset(reinterpret_cast<char*>(p) + data.size(), 0, 2);
    *out = p;
    return kOk;
}

void release(char16_t* s) {
    if (!s) return;
    kp_string_header* h = header(s);
    if (h->refcount <= 1) {
        h->refcount = 0;
        kp_allocator* owner = h->owner;
        if (owner && owner->ops && owner->ops->free_buffer)
            owner->ops->free_buffer(owner, s);
        else
            free_own(h);
        return;
    }
    --h->refcount;
}

int32_t share(char16_t** dst, char16_t* src, int64_t n) {
    if (!src) {
        *dst = nullptr;
        return kOk;
    }
    *dst = src;
    ++header(src)->refcount;
    if (n >= 0 && n < static_cast<int64_t>(header(src)->length))
        return shorten(dst, static_cast<uint32_t>(n));
    return kOk;
}

int32_t shorten(char16_t** s, uint32_t n) {
    char16_t* p = *s;
    if (!p) return kOk;
    kp_string_header* h = header(p);
    if (n >= h->length) return kOk;
    if (h->refcount > 1) {
        char16_t* copy = nullptr;
        int32_t rc = is_binary(p) ? create_binary({reinterpret_cast<const uint8_t*>(p), n}, &copy)
                                  : create(p, n, &copy);
        if (rc != kOk) return rc;
        release(p);
        *s = copy;
        return kOk;
    }
    h->length = n;
    h->flags &= ~1u;
    if (is_binary(p))
        std::memset(reinterpret_cast<char*>(p) + n, 0, 2);
    else
        p[n] = 0;
    return kOk;
}

uint32_t growth_capacity(uint32_t request, uint32_t current) {
    if (request <= current && current != 0) return current;
    if (request < 105) return 104;
    if (request <= 1000) return 1000;
    uint64_t c = current;
    uint64_t shortfall = request - c;
    uint64_t cap;
    if (shortfall < c / 10)
        cap = c + c / 5;
    else if (shortfall < c / 5)
        cap = c + c / 2;
    else if (shortfall < c / 2)
        cap = 2 * c;
    else
        cap = 2 * static_cast<uint64_t>(request);
    const uint64_t limit = static_cast<uint64_t>(KP_STRING_MAX_CHARS) * 2;
    if (cap > limit) cap = request > limit ? request : limit;
    return static_cast<uint32_t>(cap);
}

int32_t grow(char16_t** s, uint32_t bytes) {
    if (bytes >= static_cast<uint64_t>(KP_STRING_MAX_CHARS) * 2) return kTooLong;
    char16_t* p = *s;
    if (!p) {
        char16_t* fresh = nullptr;
        int32_t rc = allocate(growth_capacity(bytes, 0), &fresh);
        if (rc != kOk) return rc;
        kp_string_header* h = header(fresh);
        set_kind(h, KP_STRING_KIND_TEXT);
        h->refcount = 1;
        h->length = 0;
        fresh[0] = 0;
        *s = fresh;
        return kOk;
    }
    kp_string_header* old = header(p);
    if (bytes <= old->capacity) return kOk;
    uint32_t cap = growth_capacity(bytes, old->capacity);
    std::size_t used = is_binary(p) ? old->length : static_cast<std::size_t>(old->length) * 2;

    if (runtime::per_thread_mode()) {
        kp_allocator* a = runtime::allocator();
        if (a && a->ops && a->ops->grow) {
            if (char16_t* fresh = a->ops->grow(a, cap)) {
                kp_string_header* h = header(fresh);
                h->flags = old->flags;
                h->length = old->length;
                h->refcount = 1;
                std::memcpy(fresh, p, used);
                std::memset(reinterpret_cast<char*>(fresh) + used, 0, 2);
                std::memset(reinterpret_cast<char*>(fresh) + h->capacity, 0, 2);
                old->refcount = 0;
                kp_allocator* owner = old->owner ? old->owner : a;
                if (owner->ops && owner->ops->free_buffer)
                    owner->ops->free_buffer(owner, p);
                else
                    free_own(old);
                *s = fresh;
                return kOk;
            }
        }
    }
    void* block = std::realloc(old, static_cast<std::size_t>(cap) + KP_STRING_BLOCK_EXTRA);
    if (!block) return kOutOfMemory;
    auto* h = static_cast<kp_string_header*>(block);
    h->capacity = cap;
    char16_t* chars = reinterpret_cast<char16_t*>(h + 1);
    std::memset(reinterpret_cast<char*>(chars) + cap, 0, 2);
    *s = chars;
    return kOk;
}

} // namespace kp::str
