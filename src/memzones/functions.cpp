// functions.cpp - the memory-zone functions over a store of zones.
#include "memzones/functions.h"

#include <new>

#include "component/runtime.h"

namespace kp::memzones {

namespace {

void unknown_zone(CXError& e, std::u16string_view zone) {
    e.fail(kErrZone);
    e.append_formatted(runtime::french() ? u"La zone mémoire « %1 » n'existe pas."
                                         : u"The memory zone \"%1\" does not exist.",
                       {zone});
}

void bad_number(CXError& e, int32_t n, int32_t count) {
    e.fail(kErrZone);
    e.append_formatted(runtime::french() ? u"L'élément %1!d! n'existe pas : la zone mémoire en compte %2!d!."
                                         : u"Element %1!d! does not exist: the memory zone holds %2!d!.",
                       {n, count});
}

void full_zone(CXError& e) {
    e.fail(kErrZone);
    e.append_formatted(runtime::french() ? u"La zone mémoire compte déjà %1!d! éléments."
                                         : u"The memory zone already holds %1!d! elements.",
                       {static_cast<int>(kMaxElements)});
}

Zone* zone_of(Store& s, std::u16string_view zone, CXError& e) {
    Zone* z = s.find(zone);
    if (!z) unknown_zone(e, zone);
    return z;
}

// The value and key of an element from the arguments.
bool read_element(const kp_variant* value, const kp_variant* key, Item& v, Item& k, CXError& e) {
    if (!item_from_variant(value, v, e)) return false;
    if (!key) {
        k = Item::same_as_value();
        return true;
    }
    return item_from_variant(key, k, e);
}

variant::Value to_value(const Element* el, bool key, CXError& e) {
    variant::Value out;
    static const Item kEmpty;
    const Item& item = !el ? kEmpty : (key ? el->key() : el->value);
    if (!item_to_variant(item, out.get())) {
        e.fail(kErrMemory);
        variant::set_string(out.get(), u"");
    }
    return out;
}

// Runs a body; memory exhaustion becomes error 80041 and the failure value.
template <typename R, typename Body> R guarded(CXError& e, R failure, Body&& body) {
    try {
        return body();
    } catch (const std::bad_alloc&) {
        e.fail(kErrMemory);
        return failure;
    }
}

} // namespace

bool mem_create(Store& s, std::u16string_view zone, CXError& e) {
    return guarded(e, false, [&] { return s.create(zone); });
}

bool mem_exist(Store& s, std::u16string_view zone) {
    return s.find(zone) != nullptr;
}

void mem_delete_all(Store& s, std::u16string_view zone, CXError& e) {
    if (Zone* z = zone_of(s, zone, e)) z->clear();
}

int32_t mem_add(Store& s, std::u16string_view zone, const kp_variant* value, const kp_variant* key,
                CXError& e) {
    Zone* z = zone_of(s, zone, e);
    if (!z) return 0;
    return guarded(e, 0, [&] {
        Item v, k;
        if (!read_element(value, key, v, k, e)) return 0;
        const int32_t n = z->add(std::move(v), std::move(k));
        if (!n) full_zone(e);
        return n;
    });
}

bool mem_modify(Store& s, std::u16string_view zone, int32_t n, const kp_variant* value, const kp_variant* key,
                CXError& e) {
    Zone* z = zone_of(s, zone, e);
    if (!z) return false;
    if (!z->valid(n)) {
        bad_number(e, n, z->count());
        return false;
    }
    return guarded(e, false, [&] {
        Item v, k;
        if (!read_element(value, key, v, k, e)) return false;
        z->modify(n, std::move(v), std::move(k));
        return true;
    });
}

bool mem_delete(Store& s, std::u16string_view zone, int32_t n, CXError& e) {
    Zone* z = zone_of(s, zone, e);
    if (!z) return false;
    if (!z->valid(n)) {
        bad_number(e, n, z->count());
        return false;
    }
    z->remove(n);
    return true;
}

variant::Value mem_retrieve(Store& s, std::u16string_view zone, int32_t n, CXError& e) {
    Zone* z = zone_of(s, zone, e);
    if (z && !z->valid(n)) {
        bad_number(e, n, z->count());
        z = nullptr;
    }
    return to_value(z ? &z->at(n) : nullptr, false, e);
}

int32_t mem_count(Store& s, std::u16string_view zone, CXError& e) {
    Zone* z = zone_of(s, zone, e);
    return z ? z->count() : 0;
}

int32_t mem_seek(Store& s, std::u16string_view zone, const kp_variant* key, CXError& e) {
    Zone* z = zone_of(s, zone, e);
    if (!z) return 0;
    return guarded(e, 0, [&] {
        Item k;
        if (!item_from_variant(key, k, e)) return 0;
        return z->seek(k);
    });
}

bool mem_found(Store& s, std::u16string_view zone, CXError& e) {
    Zone* z = zone_of(s, zone, e);
    return z && z->found();
}

variant::Value mem_first(Store& s, std::u16string_view zone, CXError& e) {
    Zone* z = zone_of(s, zone, e);
    return to_value(z ? z->first() : nullptr, false, e);
}

variant::Value mem_next(Store& s, std::u16string_view zone, CXError& e) {
    Zone* z = zone_of(s, zone, e);
    return to_value(z ? z->next() : nullptr, false, e);
}

variant::Value mem_last(Store& s, std::u16string_view zone, CXError& e) {
    Zone* z = zone_of(s, zone, e);
    return to_value(z ? z->last() : nullptr, false, e);
}

variant::Value mem_previous(Store& s, std::u16string_view zone, CXError& e) {
    Zone* z = zone_of(s, zone, e);
    return to_value(z ? z->previous() : nullptr, false, e);
}

bool mem_out(Store& s, std::u16string_view zone, CXError& e) {
    Zone* z = zone_of(s, zone, e);
    return z && z->out();
}

int32_t mem_current(Store& s, std::u16string_view zone, CXError& e) {
    Zone* z = zone_of(s, zone, e);
    return z ? z->current() : 0;
}

variant::Value mem_key_val(Store& s, std::u16string_view zone, CXError& e) {
    Zone* z = zone_of(s, zone, e);
    return to_value(z ? z->current_element() : nullptr, true, e);
}

bool mem_set_position(Store& s, std::u16string_view zone, int32_t n, CXError& e) {
    Zone* z = zone_of(s, zone, e);
    if (!z) return false;
    if (!z->valid(n)) {
        bad_number(e, n, z->count());
        return false;
    }
    z->set_position(n);
    return true;
}

bool mem_sort(Store& s, std::u16string_view zone, CXError& e) {
    Zone* z = zone_of(s, zone, e);
    if (!z) return false;
    return guarded(e, false, [&] {
        z->sort();
        return true;
    });
}

} // namespace kp::memzones
