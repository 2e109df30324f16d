-- Memory zones, NumToString, Min and Max through kp: any-value arguments
-- and results of every Lua type.  The zones' and the formats' own rules,
-- failures included, are checked by tests/memzones and tests/numeric.
local T = dofile((arg[0]:match("^(.*)/") or ".") .. "/testlib.lua")

T.group("memory zones with values and keys of any type", function()
  if not T.provided("MemDeleteAll") then T.skip("memory zones not provided") end
  T.eq(kp.MemAdd(3), 1, "integer value")
  T.eq(kp.MemAdd(1.5, "key"), 2, "real value, string key")
  T.eq(kp.MemAdd(true), 3, "boolean value")
  T.eq(kp.MemAdd(kp.currency("0.125"), -1), 4, "currency value")
  T.ok(kp.MemSort(), "MemSort")
  T.eq(kp.MemFirst(), kp.MemRetrieve(1), "first after the sort")
  T.eq(kp.MemKeyVal(), -1, "key of the first")
  T.eq(kp.MemNext(), true, "then true (1)")
  T.eq(kp.MemNext(), 3, "then 3")
  T.eq(kp.MemNext(), 1.5, "the string key last")
  T.eq(kp.MemNext(), "", "past the end")
  T.ok(kp.MemOut(), "MemOut")
  T.eq(kp.MemSeek("key"), 4, "seek a string key")
  T.ok(kp["MemTrouvé"](), "MemTrouvé")
  T.ok(kp["MemCrée"]("clients"), "named zone")
  T.eq(kp.MemAdd("clients", "Dupont"), 1, "a string first argument names the zone")
  T.eq(kp.MemCount("clients"), 1, "count of the named zone")
  T.eq(kp.MemCount(), 4, "the default zone is apart")
  kp.MemDeleteAll()
  T.eq(kp.MemCount(), 0, "emptied")
end)

T.group("NumToString, Min and Max", function()
  if not T.provided("Max", 1, 2) then T.skip("Min and Max not provided") end
  T.eq(kp["NumériqueVersChaîne"](42, "(%05d)"), "(00042)", "French name, an integer")
  T.eq(kp.NumToString(kp.currency("0.125"), "%.2f"), "0.13", "currency, half away from zero")
  T.eq(kp.NumToString(1234567.891, "%,.2f"), "1,234,567.89", "a real")
  T.eq(kp.Min(3, 1.5, 7), 1.5, "Min of three")
  T.eq(kp.Max(1, 2, 3, 4, 5, 6, 7, 8, 9, 10), 10, "Max of ten")
end)

T.done()
