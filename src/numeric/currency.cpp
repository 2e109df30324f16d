// currency.cpp - the euro functions over the object module's rate table.
#include "numeric/currency.h"

#include <algorithm>

#include "component/runtime.h"

namespace kp::numeric {

namespace {
constexpr uint32_t kErrNoTable = 80190;
constexpr uint32_t kErrBadCurrency = 80191;
constexpr uint32_t kErrBadRate = 80192;
constexpr int32_t kMaxRateUnits = 2147;
constexpr uint32_t kErrorArithmeticOverflow = 534; // Win32 ERROR_ARITHMETIC_OVERFLOW
constexpr uint32_t kMsgRoundDifference = 1751;

uint16_t count_of(const kp_currency_table* t) {
    return std::min<uint16_t>(t->count, KP_CURRENCY_CAPACITY);
}

// The index 0xFFFF stands for, or the index itself.
int32_t resolve(const kp_currency_table* t, int32_t index, DefaultOf which) {
    if (index != kDefaultCurrency) return index;
    return which == DefaultOf::View ? t->default_view : t->default_memory;
}

void overflow(CXError& err) {
    err.set_system(kErrorArithmeticOverflow);
    err.set_severity(KP_SEVERITY_ERROR);
}

// Rounds a converted value (nullopt: it overflowed) and reports the difference.
Money finish(std::optional<Money> exact, int32_t decimals, Money* difference, CXError& err) {
    std::optional<Money> rounded = exact ? round_decimals(*exact, decimals) : std::nullopt;
    std::optional<Money> diff = rounded ? subtract(*exact, *rounded) : std::nullopt;
    if (!diff) {
        overflow(err);
        if (difference) *difference = Money();
        return Money();
    }
    if (difference) *difference = *diff;
    return *rounded;
}

Money failed(uint32_t id, Money* difference, CXError& err) {
    err.fail(id);
    if (difference) *difference = Money();
    return Money();
}
} // namespace

kp_currency_table* currency_table(CXError& err) {
    // The table is looked up on the first currency call of a calling thread
    // and kept; it is looked up again when the VM hands over another
    // services block.  A missing table is not kept: the next call asks again.
    struct Kept {
        const kp_services* services = nullptr;
        void* vm = nullptr;
        kp_currency_table* table = nullptr;
    };
    thread_local Kept kept;
    const kp_services* services = runtime::services();
    void* vm = runtime::vm();
    if (kept.table && kept.services == services && kept.vm == vm) return kept.table;
    kp_currency_table* t = nullptr;
    if (auto lookup = runtime::service(&kp_services::object_module_symbol)) {
        if (void* sym = lookup(vm, "OBJ_pclGetTauxDeChange"))
            t = reinterpret_cast<kp_currency_table_fn>(sym)();
    }
    kept = {services, vm, t};
    if (!t) err.fail(kErrNoTable);
    return t;
}

std::optional<int32_t> currency_rate(const kp_currency_table* t, int32_t index, DefaultOf which) {
    if (!t || count_of(t) == 0 || index == kInvalidCurrency) return std::nullopt;
    index = resolve(t, index, which);
    if (index < 0 || index >= count_of(t)) return std::nullopt;
    return t->rates[index];
}

std::optional<Money> money_to_euro(Money v, int32_t rate) {
    if (rate == kEuroRate) return v;
    // The rate as a monetary value: rate ÷ 1000000 is `rate` millionths.
    return divide(v, *Money::from_millionths(rate));
}

std::optional<Money> money_from_euro(Money v, int32_t rate) {
    if (rate == kEuroRate) return v;
    return multiply(v, *Money::from_millionths(rate));
}

void init_currency(kp_currency_table* t, int32_t index, std::u16string_view name, Money rate, CXError& err) {
    if (!t) {
        err.fail(kErrNoTable);
        return;
    }
    if (index < 0 || index >= count_of(t)) {
        err.fail(kErrBadCurrency);
        return;
    }
    // The stored rate is rate × 1000000 in 32 bits: a rate from 2147.483648
    // up is refused like any rate of 2148 and more, and a rate must be
    // positive so that no conversion divides by zero.
    if (rate.integer_part() > kMaxRateUnits || rate.millionths() > INT32_MAX || rate.millionths() <= 0) {
        err.fail(kErrBadRate, {kMaxRateUnits});
        return;
    }
    const auto stored = static_cast<int32_t>(rate.millionths());
    if (index == 0 && stored != kEuroRate) {
        err.fail(kErrBadCurrency);
        return;
    }
    t->rates[index] = stored;
    std::fill(std::begin(t->names[index]), std::end(t->names[index]), u'\0');
    std::copy_n(name.begin(), std::min<std::size_t>(name.size(), KP_CURRENCY_NAME_CHARS), t->names[index]);
}

double exchange_rate(const kp_currency_table* t, int32_t index, CXError& err) {
    if (!t) {
        err.fail(kErrNoTable);
        return -1.0;
    }
    std::optional<int32_t> rate = currency_rate(t, index, DefaultOf::View);
    if (!rate) {
        err.fail(kErrBadCurrency);
        return -1.0;
    }
    return *rate * 0.000001;
}

int32_t default_currency(kp_currency_table* t, DefaultOf which, std::optional<int32_t> new_index,
                         CXError& err) {
    if (!t) {
        err.fail(kErrNoTable);
        return -1;
    }
    uint16_t& slot = which == DefaultOf::View ? t->default_view : t->default_memory;
    const int32_t previous = slot;
    if (new_index && *new_index >= 0 && *new_index < count_of(t)) slot = static_cast<uint16_t>(*new_index);
    return previous;
}

std::u16string currency_name(const kp_currency_table* t, int32_t index, CXError& err) {
    if (!t) {
        err.fail(kErrNoTable);
        return {};
    }
    index = resolve(t, index, DefaultOf::View);
    if (index < 0 || index >= count_of(t)) {
        err.fail(kErrBadCurrency);
        return {};
    }
    const char16_t* n = t->names[index];
    return std::u16string(n, std::find(n, n + KP_CURRENCY_NAME_CHARS, u'\0'));
}

Money to_euro(const kp_currency_table* t, Money v, int32_t index, int32_t decimals, Money* difference,
              CXError& err) {
    if (!t) return failed(kErrNoTable, difference, err);
    std::optional<int32_t> rate = currency_rate(t, index, DefaultOf::Memory);
    if (!rate) return failed(kErrBadCurrency, difference, err);
    return finish(money_to_euro(v, *rate), decimals, difference, err);
}

Money to_currency(const kp_currency_table* t, Money v, int32_t index, int32_t decimals, Money* difference,
                  CXError& err) {
    if (!t) return failed(kErrNoTable, difference, err);
    std::optional<int32_t> rate = currency_rate(t, index, DefaultOf::View);
    if (!rate) return failed(kErrBadCurrency, difference, err);
    return finish(money_from_euro(v, *rate), decimals, difference, err);
}

Money change_currency(const kp_currency_table* t, Money v, int32_t from, int32_t to, int32_t decimals,
                      Money* difference, CXError& err) {
    if (!t) return failed(kErrNoTable, difference, err);
    std::optional<int32_t> from_rate = currency_rate(t, from, DefaultOf::Memory);
    std::optional<int32_t> to_rate = currency_rate(t, to, DefaultOf::View);
    if (!from_rate || !to_rate) return failed(kErrBadCurrency, difference, err);
    std::optional<Money> exact = v;
    if (resolve(t, from, DefaultOf::Memory) != resolve(t, to, DefaultOf::View)) {
        exact = money_to_euro(v, *from_rate);
        if (exact) exact = money_from_euro(*exact, *to_rate);
    }
    return finish(exact, decimals, difference, err);
}

Money round_difference(uintptr_t window) {
    if (window == 0) return Money();
    uint8_t buf[10] = {};
    if (auto send = runtime::service(&kp_services::send_window_message))
        send(runtime::vm(), window, kMsgRoundDifference, 0, reinterpret_cast<uintptr_t>(buf));
    return Money::from_bytes(buf);
}

} // namespace kp::numeric
