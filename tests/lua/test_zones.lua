-- Memory zones, NumToString, Min and Max through kp: any-value arguments
-- and results of every Lua type.  The zones' and the formats' own rules,
-- failures included, are checked by tests/memzones and tests/numeric.
local T = dofile((arg[0]:match("^(.*)/") or ".") .. "/testlib.lua")

T.group("memory zones with values and keys of any type", function()
  if not T.provided("MemDeleteAll") then T.skip("memory zones not provided") end
  T.rows({ -- in turn
    { kp.MemAdd(3), 1, "integer value" }, { kp.MemAdd(1.5, "key"), 2, "real value, string key" },
    { kp.MemAdd(true), 3, "boolean value" }, { kp.MemAdd(kp.currency("0.125"), -1), 4, "currency value" },
    { kp.MemSort(), true, "MemSort" }, { kp.MemFirst(), kp.MemRetrieve(1), "first after the sort" },
    { kp.MemKeyVal(), -1, "key of the first" }, { kp.MemNext(), true, "then true (1)" }, { kp.MemNext(), 3, "then 3" },
    { kp.MemNext(), 1.5, "the string key last" }, { kp.MemNext(), "", "past the end" }, { kp.MemOut(), true, "MemOut" },
    { kp.MemSeek("key"), 4, "seek a string key" }, { kp["MemTrouvé"](), true, "MemTrouvé" },
    { kp["MemCrée"]("clients"), true, "named zone" },
    { kp.MemAdd("clients", "Dupont"), 1, "a string first argument names the zone" },
    { kp.MemCount("clients"), 1, "count of the named zone" }, { kp.MemCount(), 4, "the default zone is apart" },
  })
  kp.MemDeleteAll()
  T.eq(kp.MemCount(), 0, "emptied")
end)

T.group("NumToString, Min and Max", function()
  if not T.provided("Max", 1, 2) then T.skip("Min and Max not provided") end
  T.rows({
    { kp["NumériqueVersChaîne"](42, "(%05d)"), "(00042)", "French name, an integer" },
    { kp.NumToString(kp.currency("0.125"), "%.2f"), "0.13", "currency, half away from zero" },
    { kp.NumToString(1234567.891, "%,.2f"), "1,234,567.89", "a real" }, { kp.Min(3, 1.5, 7), 1.5, "Min of three" },
    { kp.Max(1, 2, 3, 4, 5, 6, 7, 8, 9, 10), 10, "Max of ten" },
  })
end)

T.done()
