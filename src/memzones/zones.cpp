// zones.cpp - memory zones: named in-memory lists of the calling program
// (the rules are in zones.h).
#include "memzones/zones.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <new>

#include "component/runtime.h"
#include "component/strings.h"
#include "component/variant.h"
#include "numeric/int128.h"

namespace kp::memzones {

// ---------------------------------------------------------------- Item

Item& Item::operator=(Item&& o) noexcept {
    if (this != &o) {
        release();
        u_ = o.u_;
        high_ = o.high_;
        kind_ = o.kind_;
        o.kind_ = Kind::Empty;
    }
    return *this;
}

void Item::release() {
    if ((kind_ == Kind::String || kind_ == Kind::Buffer) && u_.blob) ::operator delete(u_.blob);
    kind_ = Kind::Empty;
}

Item Item::with_blob(Kind kind, const void* data, std::size_t bytes) {
    Item it;
    if (bytes > 0xFFFFFFF0u) throw std::bad_alloc();
    void* p = ::operator new(sizeof(Blob) + bytes);
    it.u_.blob = static_cast<Blob*>(p);
    it.u_.blob->size = static_cast<uint32_t>(bytes);
    if (bytes) std::memcpy(it.u_.blob + 1, data, bytes);
    it.kind_ = kind;
    return it;
}

Item Item::clone() const {
    if (kind_ == Kind::String || kind_ == Kind::Buffer) return with_blob(kind_, u_.blob + 1, u_.blob->size);
    Item it;
    it.u_ = u_;
    it.high_ = high_;
    it.kind_ = kind_;
    return it;
}

Item Item::boolean(bool v) {
    Item it;
    it.u_.i = v ? 1 : 0;
    it.kind_ = Kind::Bool;
    return it;
}
Item Item::integer(int32_t v) {
    Item it;
    it.u_.i = v;
    it.kind_ = Kind::Int;
    return it;
}
Item Item::int64(int64_t v) {
    Item it;
    it.u_.i = v;
    it.kind_ = Kind::Int64;
    return it;
}
Item Item::real(double v) {
    Item it;
    it.u_.d = v;
    it.kind_ = Kind::Real;
    return it;
}
Item Item::currency(const uint8_t (&cy)[10]) {
    Item it;
    std::memcpy(&it.u_.low, cy, 8);
    it.high_ = static_cast<uint16_t>(cy[8] | (cy[9] << 8));
    it.kind_ = Kind::Currency;
    return it;
}
Item Item::string(std::u16string_view s) {
    return with_blob(Kind::String, s.data(), s.size() * sizeof(char16_t));
}
Item Item::buffer(std::span<const uint8_t> b) {
    return with_blob(Kind::Buffer, b.data(), b.size());
}
Item Item::same_as_value() {
    Item it;
    it.kind_ = Kind::SameAsValue;
    return it;
}

void Item::currency_bytes(uint8_t (&out)[10]) const {
    std::memcpy(out, &u_.low, 8);
    out[8] = static_cast<uint8_t>(high_ & 0xFF);
    out[9] = static_cast<uint8_t>(high_ >> 8);
}
std::u16string_view Item::text() const {
    if (kind_ != Kind::String) return {};
    return {reinterpret_cast<const char16_t*>(u_.blob + 1), u_.blob->size / sizeof(char16_t)};
}
std::span<const uint8_t> Item::bytes() const {
    if (kind_ != Kind::Buffer) return {};
    return {reinterpret_cast<const uint8_t*>(u_.blob + 1), u_.blob->size};
}

namespace {

// Class of a key in the order: empty, numbers, strings, buffers.
int rank(Kind k) {
    switch (k) {
    case Kind::Empty:
    case Kind::SameAsValue:
        return 0;
    case Kind::String:
        return 2;
    case Kind::Buffer:
        return 3;
    default:
        return 1;
    }
}

// A numeric key: integers and currency values exactly, as millionths in
// 128 bits; reals as they are.  Keys compare on those, never through long
// double, whose width differs between targets (on 32-bit ARM it is a
// double's, which cannot tell 64-bit integers apart near their ends).
// `v` is the key in long double, for the sort's first pass.
struct Number {
    bool nan = false;
    bool exact = false;
    numeric::int128 millionths = 0;
    double real = 0;
    long double v = 0;
};

Number number_of(const Item& it) {
    Number n;
    switch (it.kind()) {
    case Kind::Real: {
        const double d = it.real_value();
        n.nan = std::isnan(d);
        if (!n.nan) {
            n.real = d;
            n.v = static_cast<long double>(d);
        }
        return n;
    }
    case Kind::Currency: {
        uint8_t b[10];
        it.currency_bytes(b);
        uint64_t low;
        std::memcpy(&low, b, 8);
        const int16_t high = static_cast<int16_t>(b[8] | (b[9] << 8));
        n.millionths = (static_cast<numeric::int128>(high) << 64) | static_cast<numeric::int128>(low);
        n.v = (static_cast<long double>(high) * 18446744073709551616.0L + static_cast<long double>(low)) /
              1000000.0L;
        break;
    }
    default:
        n.millionths = static_cast<numeric::int128>(it.integer_value()) * 1000000;
        n.v = static_cast<long double>(it.integer_value());
        break;
    }
    n.exact = true;
    return n;
}

// Sign of d - m / 10^6: the integer parts compare exactly, the fractions in
// double (they could only disagree for a real within a rounding error of a
// millionth it is not equal to).
int compare_real_exact(double d, numeric::int128 m) {
    constexpr double kTwo64 = 18446744073709551616.0; // beyond any exact key's integer part
    if (d >= kTwo64) return 1;
    if (d <= -kTwo64) return -1;
    const double whole = std::floor(d);
    const numeric::int128 dq = static_cast<numeric::int128>(whole);
    numeric::int128 q = m / 1000000, r = m % 1000000;
    if (r < 0) {
        q -= 1;
        r += 1000000;
    }
    if (dq != q) return dq < q ? -1 : 1;
    const double fd = (d - whole) * 1e6, fr = static_cast<double>(static_cast<int64_t>(r));
    return fd < fr ? -1 : (fr < fd ? 1 : 0);
}

int compare_numbers(const Number& a, const Number& b) {
    if (a.nan || b.nan) return a.nan == b.nan ? 0 : (a.nan ? 1 : -1);
    if (a.exact && b.exact) return a.millionths < b.millionths ? -1 : (b.millionths < a.millionths ? 1 : 0);
    if (a.exact) return -compare_real_exact(b.real, a.millionths);
    if (b.exact) return compare_real_exact(a.real, b.millionths);
    return a.real < b.real ? -1 : (b.real < a.real ? 1 : 0);
}

template <typename T> int compare_spans(std::basic_string_view<T> a, std::basic_string_view<T> b) {
    const int c = a.compare(b);
    return c < 0 ? -1 : (c > 0 ? 1 : 0);
}

int compare_bytes(std::span<const uint8_t> a, std::span<const uint8_t> b) {
    const std::size_t n = std::min(a.size(), b.size());
    if (n) {
        const int c = std::memcmp(a.data(), b.data(), n);
        if (c) return c < 0 ? -1 : 1;
    }
    return a.size() < b.size() ? -1 : (a.size() > b.size() ? 1 : 0);
}

} // namespace

int compare(const Item& a, const Item& b) {
    const int ra = rank(a.kind()), rb = rank(b.kind());
    if (ra != rb) return ra < rb ? -1 : 1;
    switch (ra) {
    case 1:
        return compare_numbers(number_of(a), number_of(b));
    case 2:
        return compare_spans(a.text(), b.text());
    case 3:
        return compare_bytes(a.bytes(), b.bytes());
    default:
        return 0;
    }
}

// ---------------------------------------------------------------- Zone

int32_t Zone::add(Item value, Item key) {
    if (static_cast<int64_t>(elements_.size()) >= kMaxElements) return 0;
    elements_.push_back(Element{std::move(value), std::move(key)});
    return count();
}

void Zone::modify(int32_t n, Item value, Item key) {
    Element& el = elements_[static_cast<std::size_t>(n) - 1];
    el.value = std::move(value);
    el.key_ = std::move(key);
}

void Zone::remove(int32_t n) {
    elements_.erase(elements_.begin() + (n - 1));
    if (place_ != Place::At) return;
    if (n < pos_) --pos_;
    if (pos_ > count()) place_ = Place::After, pos_ = 0;
}

void Zone::clear() {
    std::vector<Element>().swap(elements_); // gives the memory back
    place_ = Place::Before;
    pos_ = 0;
    found_ = false;
}

int32_t Zone::seek(const Item& key) {
    found_ = false;
    for (std::size_t i = 0; i < elements_.size(); ++i) {
        if (compare(elements_[i].key(), key) == 0) {
            found_ = true;
            place_ = Place::At;
            pos_ = static_cast<int32_t>(i + 1);
            return pos_;
        }
    }
    return 0;
}

const Element* Zone::first() {
    if (elements_.empty()) {
        place_ = Place::After, pos_ = 0;
        return nullptr;
    }
    place_ = Place::At, pos_ = 1;
    return &at(pos_);
}

const Element* Zone::last() {
    if (elements_.empty()) {
        place_ = Place::Before, pos_ = 0;
        return nullptr;
    }
    place_ = Place::At, pos_ = count();
    return &at(pos_);
}

const Element* Zone::next() {
    if (place_ == Place::Before) return first();
    if (place_ == Place::At && pos_ < count()) {
        ++pos_;
        return &at(pos_);
    }
    place_ = Place::After, pos_ = 0;
    return nullptr;
}

const Element* Zone::previous() {
    if (place_ == Place::After) return last();
    if (place_ == Place::At && pos_ > 1) {
        --pos_;
        return &at(pos_);
    }
    place_ = Place::Before, pos_ = 0;
    return nullptr;
}

void Zone::set_position(int32_t n) {
    place_ = Place::At;
    pos_ = n;
}

namespace {

// A real as 64 bits whose unsigned order is the real's order (no NaN here;
// -0 made +0 first, as they are equal keys).
uint64_t ordered_bits(double d) {
    if (d == 0) d = 0;
    uint64_t u;
    std::memcpy(&u, &d, sizeof u);
    return (u >> 63) ? ~u : (u | (uint64_t{1} << 63));
}

struct SortKey {
    uint64_t order;
    uint32_t index;
};

// Stable sort of the keys by `order`: least significant digit first, digits
// of 11 bits (6 of them; 2048 counters each stay in the first-level cache),
// a pass for each digit that is not the same in every key.
void radix_sort(std::vector<SortKey>& keys) {
    constexpr int kBits = 11, kDigits = (64 + kBits - 1) / kBits;
    constexpr std::size_t kValues = std::size_t{1} << kBits;
    const std::size_t n = keys.size();
    auto digit = [](uint64_t order, int d) {
        return static_cast<std::size_t>(order >> (kBits * d)) & (kValues - 1);
    };
    std::vector<uint32_t> counts(kDigits * kValues, 0);
    for (const SortKey& k : keys)
        for (int d = 0; d < kDigits; ++d)
            ++counts[static_cast<std::size_t>(d) * kValues + digit(k.order, d)];
    std::vector<SortKey> other(n);
    for (int d = 0; d < kDigits; ++d) {
        uint32_t* c = &counts[static_cast<std::size_t>(d) * kValues];
        if (c[digit(keys[0].order, d)] == n) continue; // one value: nothing moves
        uint32_t at = 0;
        for (std::size_t v = 0; v < kValues; ++v) {
            const uint32_t k = c[v];
            c[v] = at;
            at += k;
        }
        for (const SortKey& k : keys)
            other[c[digit(k.order, d)]++] = k;
        keys.swap(other);
    }
}

} // namespace

void Zone::sort() {
    const std::size_t n = elements_.size();
    if (n < 2) return;
    // The classes in key order: empty keys, numbers, NaN, then strings and
    // buffers.  Numbers sort by their value rounded to a double, which keeps
    // the order (x <= y gives double(x) <= double(y)), so only runs of equal
    // doubles need the exact comparison; empty keys and NaN are all equal
    // and keep their order.
    std::vector<uint32_t> empty, nan, texts;
    std::vector<SortKey> numbers;
    numbers.reserve(n);
    for (std::size_t i = 0; i < n; ++i) {
        const Item& k = elements_[i].key();
        const uint32_t index = static_cast<uint32_t>(i);
        switch (rank(k.kind())) {
        case 0:
            empty.push_back(index);
            break;
        case 1: {
            const Number num = number_of(k);
            if (num.nan)
                nan.push_back(index);
            else
                numbers.push_back({ordered_bits(static_cast<double>(num.v)), index});
            break;
        }
        default:
            texts.push_back(index);
            break;
        }
    }
    const std::vector<Element>& el = elements_;
    auto exact = [&el](uint32_t a, uint32_t b) { return compare(el[a].key(), el[b].key()) < 0; };
    if (!numbers.empty()) radix_sort(numbers);
    for (std::size_t i = 0; i < numbers.size();) {
        std::size_t j = i + 1;
        while (j < numbers.size() && numbers[j].order == numbers[i].order)
            ++j;
        if (j - i > 1)
            std::stable_sort(
                numbers.begin() + static_cast<std::ptrdiff_t>(i),
                numbers.begin() + static_cast<std::ptrdiff_t>(j),
                [&exact](const SortKey& a, const SortKey& b) { return exact(a.index, b.index); });
        i = j;
    }
    std::stable_sort(texts.begin(), texts.end(), exact);
    // Where each place takes its element from: the numbers' own list when
    // every key is a number (the usual zone), else the classes end to end.
    std::vector<uint32_t> order;
    const bool numbers_only = numbers.size() == n;
    if (!numbers_only) {
        order.reserve(n);
        order.insert(order.end(), empty.begin(), empty.end());
        for (const SortKey& k : numbers)
            order.push_back(k.index);
        order.insert(order.end(), nan.begin(), nan.end());
        order.insert(order.end(), texts.begin(), texts.end());
    }
    auto from = [&](std::size_t i) { return numbers_only ? numbers[i].index : order[i]; };
    std::vector<Element> sorted;
    sorted.reserve(n);
    int32_t new_pos = 0;
    // The elements are gathered in a random order: each is asked for a
    // few steps before it is moved.
    constexpr std::size_t kAhead = 16;
    for (std::size_t i = 0; i < n; ++i) {
        if (i + kAhead < n) __builtin_prefetch(&elements_[from(i + kAhead)]);
        const uint32_t k = from(i);
        sorted.push_back(std::move(elements_[k]));
        if (place_ == Place::At && k + 1 == static_cast<uint32_t>(pos_))
            new_pos = static_cast<int32_t>(i + 1);
    }
    elements_.swap(sorted);
    if (place_ == Place::At) pos_ = new_pos;
}

// ---------------------------------------------------------------- Store

Zone* Store::find(std::u16string_view name) {
    if (name.empty()) return &default_;
    auto it = named_.find(name);
    return it == named_.end() ? nullptr : &it->second;
}

bool Store::create(std::u16string_view name) {
    if (find(name)) return false;
    named_.emplace(std::u16string(name), Zone());
    return true;
}

Store& Registry::for_thread(const void* thread_key) {
    if (!thread_key) return shared_;
    std::lock_guard<std::mutex> guard(lock_);
    auto& slot = threads_[thread_key];
    if (!slot) slot = std::make_unique<Store>();
    return *slot;
}

Store& Registry::for_caller() {
    if (!runtime::per_thread_mode()) return shared_;
    return for_thread(runtime::allocator());
}

Registry& registry() {
    return runtime::family_state<Registry>();
}

// ---------------------------------------------------------------- variants

bool item_from_variant(const kp_variant* v, Item& out, CXError& e) {
    if (!v) {
        out = Item();
        return true;
    }
    switch (variant::type_of(v)) {
    case KP_T_NONE:
        out = Item();
        return true;
    case KP_T_BOOL:
        out = Item::boolean(v->value.i32 != 0);
        return true;
    case KP_T_INT:
        out = Item::integer(v->value.i32);
        return true;
    case KP_T_INT64:
        out = Item::int64(v->value.i64);
        return true;
    case KP_T_REAL:
        out = Item::real(v->value.real);
        return true;
    case KP_T_CURRENCY:
        out = Item::currency(v->value.currency);
        return true;
    case KP_T_STRING:
    case KP_T_STRING_RESULT:
        out = Item::string(str::view(v->value.str));
        return true;
    case KP_T_BUFFER:
        out = Item::buffer(str::bytes(v->value.str));
        return true;
    default:
        break;
    }
    // Any other type (dates, times and the like) is kept as its text, as the
    // VM converts it.
    kp_variant copy;
    variant::init(&copy);
    bool ok = variant::copy(&copy, v) == 0 && variant::convert(&copy, KP_T_STRING) < 100 &&
              (variant::type_of(&copy) == KP_T_STRING || variant::type_of(&copy) == KP_T_STRING_RESULT);
    if (ok) out = Item::string(str::view(copy.value.str));
    variant::destroy(&copy);
    if (!ok) e.fail(kErrNotStorable);
    return ok;
}

bool item_to_variant(const Item& item, kp_variant* out) {
    switch (item.kind()) {
    case Kind::Bool:
        variant::set_bool(out, item.integer_value() != 0);
        return true;
    case Kind::Int:
        variant::set_int(out, static_cast<int32_t>(item.integer_value()));
        return true;
    case Kind::Int64:
        variant::set_int64(out, item.integer_value());
        return true;
    case Kind::Real:
        variant::set_real(out, item.real_value());
        return true;
    case Kind::Currency: {
        uint8_t b[10];
        item.currency_bytes(b);
        variant::set_currency(out, b);
        return true;
    }
    case Kind::String:
        return variant::set_string(out, item.text()) == 0;
    case Kind::Buffer:
        return variant::set_buffer(out, item.bytes()) == 0;
    default:
        // The empty value reaches the program as the empty string.
        return variant::set_string(out, u"") == 0;
    }
}

} // namespace kp::memzones
