// currency.h - conversion between the euro and the currencies of the
// object module's rate table, the default currencies, currency names and
// rounding to a number of decimals.
//
// The table belongs to the VM's object module: it is fetched through the
// export "OBJ_pclGetTauxDeChange" on every call (80190 when the export is
// missing or gives nothing) and read and updated in place.  The functions
// below take the table as an argument (null = not obtained: 80190), so that
// they run on any table.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "component/error.h"
#include "kp120/vm.h"
#include "numeric/money.h"

namespace kp::numeric {

constexpr int32_t kDefaultCurrency = 0xFFFF; // the default currency of the call
constexpr int32_t kInvalidCurrency = 0xFFFE;
constexpr int32_t kEuroRate = 1000000;
// A number of decimals that leaves results unrounded (the forms without one).
constexpr int32_t kNoRounding = 6;

// Which default index 0xFFFF stands for.
enum class DefaultOf { Memory = 0, View = 1 };

// The object module's table, or null after recording 80190.
kp_currency_table* currency_table(CXError& err);

// The stored rate of an index (0xFFFF: the chosen default); nullopt for an
// empty table, 0xFFFE, a negative index or one not below the count.
std::optional<int32_t> currency_rate(const kp_currency_table* t, int32_t index, DefaultOf which);

// A value in a currency of the given rate to euros, and from euros.  Exact
// copies at the euro's own rate; nullopt on a zero rate or overflow.
std::optional<Money> money_to_euro(Money v, int32_t rate);
std::optional<Money> money_from_euro(Money v, int32_t rate);

// eInitCurrency(index, name, rate).
void init_currency(kp_currency_table* t, int32_t index, std::u16string_view name, Money rate, CXError& err);
// eExchangeRate([index]): the rate as a real; -1.0 with 80190 or 80191.
double exchange_rate(const kp_currency_table* t, int32_t index, CXError& err);
// eDefaultMemCurrency / eDefaultViewCurrency: the current default; an index
// from 0 to count - 1 becomes the new one, any other is ignored.  -1 with 80190.
int32_t default_currency(kp_currency_table* t, DefaultOf which, std::optional<int32_t> new_index,
                         CXError& err);
// eCurrencyName([index]): "" with 80191.
std::u16string currency_name(const kp_currency_table* t, int32_t index, CXError& err);

// The conversions: 0 with 80190 / 80191 (or with the system error 534,
// arithmetic overflow, when the result does not fit).  With `decimals` from
// 0 to 5 the result is rounded, and `difference` (when given) receives what
// the rounding took away: the unrounded result minus the rounded one (0
// when nothing is rounded).  The source index defaults to the memory
// currency, the target index to the display currency.
Money to_euro(const kp_currency_table* t, Money v, int32_t index, int32_t decimals, Money* difference,
              CXError& err);
Money to_currency(const kp_currency_table* t, Money v, int32_t index, int32_t decimals, Money* difference,
                  CXError& err);
Money change_currency(const kp_currency_table* t, Money v, int32_t from, int32_t to, int32_t decimals,
                      Money* difference, CXError& err);

// eRoundDifference(window): the value the window writes at the address of
// message 1751; 0 without a window.
Money round_difference(uintptr_t window);

} // namespace kp::numeric
