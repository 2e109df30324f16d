// zones.h - memory zones: in-memory lists of the calling program.
//
// A zone is a list of elements numbered from 1, each a value and a key of
// any simple type (the key is the value unless the program gives one), with
// a current position.  Zones are named by a string; every VM thread has a
// default zone, reached by the overloads without a name and also by the
// empty name.  Zone names are compared exactly, code unit by code unit.
//
// The rules the functions follow:
//   - MemCreate makes an empty zone and answers false, without an error,
//     when the name is taken; MemExist answers false for an unknown name,
//     without an error.  MemDeleteAll empties a zone, which stays known.
//   - MemAdd appends and answers the new element's number; the current
//     position does not move.  MemModify replaces element n's value and key
//     (the key is the new value when none is given).  MemDelete removes
//     element n and the following elements move down by one.
//   - The position is before the first element, at an element, or after
//     the last.  A new zone and an emptied one are before the first.
//     MemNext from before the first goes to element 1, MemPrevious from
//     after the last goes to the last element; MemFirst and MemLast go to
//     the ends.  A move past either end leaves the position outside (before
//     the first, or after the last) and gives the empty value.  MemOut is
//     true whenever the position is not at an element (so on an empty zone
//     too), MemCurrent is then 0 and MemKeyVal gives the empty value.
//   - MemDelete of an element before the current one keeps the current
//     element (its number goes down by one); deleting the current element
//     leaves the position on the same number, now the element that
//     followed it, or after the last when there is none.
//   - MemSeek makes the first element whose key equals the key current and
//     answers its number; when no key equals, it answers 0 and the position
//     does not move.  MemFound tells whether the last MemSeek found an
//     element; it is false in a new or emptied zone.
//   - MemSort orders the elements by key, ascending and stable; the current
//     element stays current at its new number, so sorting during an
//     iteration is allowed.
//   - Key order: the empty value first, then numbers (booleans as 0 and 1,
//     integers, reals and currency values together, by value, compared at
//     the precision of an extended real: exact for every integer, every
//     real and every currency value up to 2^64 millionths; a NaN sorts after
//     every other number and equals only NaN), then strings by UTF-16 code
//     unit, then binary buffers by byte.  A number never equals a string.
//   - A zone holds at most 2,147,483,647 elements (numbers are 32-bit); an
//     element costs 32 bytes plus the text of its string or buffer value
//     and key.
//   - Failures record an error and give the failure value of the result:
//     an unknown zone or an element number outside 1..count record 80001
//     with an explanation; a value of no simple type (a procedure, a value
//     the VM cannot turn into text) records 80014; a full zone records
//     80001; memory exhaustion records 80041.  The failure values are 0,
//     false and the empty string.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "component/error.h"
#include "kp120/vm.h"

namespace kp::memzones {

// Error identifiers.
constexpr uint32_t kErrZone = 80001;         // unknown zone, element number, full zone (explained)
constexpr uint32_t kErrNotStorable = 80014;  // the value cannot be converted
constexpr uint32_t kErrMemory = 80041;       // an internal object cannot be created
constexpr int64_t kMaxElements = 2147483647; // element numbers are 32-bit

enum class Kind : uint8_t { Empty, Bool, Int, Int64, Real, Currency, String, Buffer, SameAsValue };

// A value of a simple type as a zone keeps it: 16 bytes, text on the heap.
class Item {
  public:
    Item() = default;
    ~Item() { release(); }
    Item(Item&& o) noexcept : u_(o.u_), high_(o.high_), kind_(o.kind_) { o.kind_ = Kind::Empty; }
    Item& operator=(Item&& o) noexcept;
    Item(const Item&) = delete;
    Item& operator=(const Item&) = delete;
    Item clone() const; // throws std::bad_alloc

    static Item boolean(bool v);
    static Item integer(int32_t v);
    static Item int64(int64_t v);
    static Item real(double v);
    static Item currency(const uint8_t (&cy)[10]);
    static Item string(std::u16string_view s); // throws std::bad_alloc
    static Item buffer(std::span<const uint8_t> b);
    static Item same_as_value();

    Kind kind() const { return kind_; }
    int64_t integer_value() const { return u_.i; } // Bool, Int, Int64
    double real_value() const { return u_.d; }
    void currency_bytes(uint8_t (&out)[10]) const;
    std::u16string_view text() const;       // String
    std::span<const uint8_t> bytes() const; // Buffer

    // Key order and equality (see the header comment).
    friend int compare(const Item& a, const Item& b);

  private:
    struct Blob {
        uint32_t size; // bytes that follow
    };
    static Item with_blob(Kind kind, const void* data, std::size_t bytes);
    void release();
    union {
        int64_t i;
        double d;
        uint64_t low; // currency: the low 8 bytes
        Blob* blob;
    } u_{};
    uint16_t high_ = 0; // currency: the top 2 bytes
    Kind kind_ = Kind::Empty;
};

struct Element {
    Item value;
    Item key_; // Kind::SameAsValue when the key is the value
    const Item& key() const { return key_.kind() == Kind::SameAsValue ? value : key_; }
};

class Zone {
  public:
    int32_t count() const { return static_cast<int32_t>(elements_.size()); }
    bool valid(int64_t n) const { return n >= 1 && n <= count(); }

    // The new element's number, 0 when the zone is full.  Throws std::bad_alloc.
    int32_t add(Item value, Item key);
    void modify(int32_t n, Item value, Item key); // n must be valid
    void remove(int32_t n);                       // n must be valid
    const Element& at(int32_t n) const { return elements_[static_cast<std::size_t>(n) - 1]; }
    void clear();

    int32_t seek(const Item& key); // 0 when no key equals
    bool found() const { return found_; }

    // Moves; the element reached, or null when the position is outside.
    const Element* first();
    const Element* last();
    const Element* next();
    const Element* previous();
    void set_position(int32_t n); // n must be valid
    const Element* current_element() const { return place_ == Place::At ? &at(pos_) : nullptr; }
    int32_t current() const { return place_ == Place::At ? pos_ : 0; }
    bool out() const { return place_ != Place::At; }

    void sort(); // throws std::bad_alloc

  private:
    enum class Place : uint8_t { Before, At, After };
    std::vector<Element> elements_;
    int32_t pos_ = 0;
    Place place_ = Place::Before;
    bool found_ = false;
};

// The zones of one VM thread: the default zone and the named ones.
class Store {
  public:
    // The zone of that name (the empty name is the default zone), or null.
    Zone* find(std::u16string_view name);
    // False when the name is taken.  Throws std::bad_alloc.
    bool create(std::u16string_view name);

  private:
    struct Hash {
        using is_transparent = void;
        std::size_t operator()(std::u16string_view s) const { return std::hash<std::u16string_view>()(s); }
    };
    Zone default_;
    std::unordered_map<std::u16string, Zone, Hash, std::equal_to<>> named_;
};

// Every VM thread's zones.  Without a threading descriptor all calls share
// one store; in per-thread mode each VM thread, known by the string
// allocator the VM keeps for it in thread-local storage, has its own, made
// at its first call and kept as long as the component.
class Registry {
  public:
    Store& for_caller();
    Store& for_thread(const void* thread_key); // thread_key null: the shared store

  private:
    Store shared_;
    std::mutex lock_;
    std::unordered_map<const void*, std::unique_ptr<Store>> threads_;
};

// The component's registry (kept in the component's state).
Registry& registry();

// Values travelling as variants.  Reading fails (false, error recorded) for
// values of no simple type; a string conversion goes through the VM.
bool item_from_variant(const kp_variant* v, Item& out, CXError& e);
// Writes the item into a fresh variant; false when a string cannot be made.
bool item_to_variant(const Item& item, kp_variant* out);

} // namespace kp::memzones
