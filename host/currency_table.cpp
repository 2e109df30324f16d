// currency_table.cpp - the object module's currency table and the windows
// that answer eRoundDifference.
#include "currency_table.h"

#include <array>
#include <cstring>
#include <map>
#include <mutex>
#include <string_view>

#include "services.h"

namespace kp::host {

namespace {

struct Currency {
    std::u16string_view code;
    int32_t rate; // units for one euro × 1000000
};

// The euro, then the irrevocable conversion rates (six significant digits)
// in the order the currencies joined.
constexpr Currency kCurrencies[] = {
    {u"EUR", 1000000}, {u"ATS", 13760300},  {u"BEF", 40339900},  {u"DEM", 1955830},    {u"ESP", 166386000},
    {u"FIM", 5945730}, {u"FRF", 6559570},   {u"IEP", 787564},    {u"ITL", 1936270000}, {u"LUF", 40339900},
    {u"NLG", 2203710}, {u"PTE", 200482000}, {u"GRD", 340750000}, {u"SIT", 239640000},  {u"CYP", 585274},
    {u"MTL", 429300},  {u"SKK", 30126000},  {u"EEK", 15646600},  {u"LVL", 702804},     {u"LTL", 3452800},
    {u"HRK", 7534500},
};
static_assert(std::size(kCurrencies) <= KP_CURRENCY_CAPACITY);

struct Windows {
    std::mutex lock;
    std::map<uintptr_t, std::array<uint8_t, 10>> round_difference;
};
Windows& windows() {
    static Windows w;
    return w;
}

constexpr uint32_t kMsgRoundDifference = 1751;

} // namespace

namespace {
kp_currency_table& storage() {
    static kp_currency_table table{};
    return table;
}

void fill(kp_currency_table& t) {
    std::memset(&t, 0, sizeof t);
    uint16_t i = 0;
    for (const Currency& c : kCurrencies) {
        t.rates[i] = c.rate;
        std::memcpy(t.names[i], c.code.data(), c.code.size() * sizeof(char16_t));
        ++i;
    }
    t.count = i;
    t.default_view = 0;
    t.default_memory = 0;
}
} // namespace

kp_currency_table* currency_table() {
    static std::once_flag filled;
    std::call_once(filled, [] { fill(storage()); });
    return &storage();
}

void reset_currency_table() {
    fill(*currency_table());
}

void set_window_round_difference(uintptr_t window, const uint8_t (&value)[10]) {
    Windows& w = windows();
    std::lock_guard<std::mutex> g(w.lock);
    std::memcpy(w.round_difference[window].data(), value, 10);
}

void forget_window(uintptr_t window) {
    Windows& w = windows();
    std::lock_guard<std::mutex> g(w.lock);
    w.round_difference.erase(window);
}

intptr_t answer_window_message(uintptr_t window, uint32_t message, uintptr_t, uintptr_t lparam) {
    if (message != kMsgRoundDifference || lparam == 0) return 0;
    Windows& w = windows();
    std::lock_guard<std::mutex> g(w.lock);
    auto it = w.round_difference.find(window);
    if (it == w.round_difference.end()) return 0;
    std::memcpy(reinterpret_cast<void*>(lparam), it->second.data(), 10);
    return 1;
}

} // namespace kp::host

extern "C" __attribute__((visibility("default"))) kp_currency_table* OBJ_pclGetTauxDeChange() {
    return kp::host::currency_table();
}
