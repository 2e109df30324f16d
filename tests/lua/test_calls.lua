-- Calls through kp: names in both languages and any case, constants,
-- overload choice and its errors, error records, procedure parameters.
local T = dofile((arg[0]:match("^(.*)/") or ".") .. "/testlib.lua")

T.group("names in both languages, any case", function()
  if not T.provided("ZigouigouiARoulette", 0) then T.skip("ZigouigouiARoulette not provided") end
  T.eq(kp.ZigouigouiARoulette(1), 24053, "exact name")
  T.eq(kp.zigouigouiaroulette(-5), 24053, "lower case")
  T.eq(kp["ZIGOUIGOUIAROULETTE"](7), 24053, "upper case")
  if T.provided("EstPair", 4) then
    T.eq(kp["EstPair"](4), true, "French name")
    T.eq(kp.IsEven(-3), false, "English name")
    T.eq(kp["estpair"](-4), true, "French name, lower case")
  end
  if T.provided("DateVersChaîne", "20240229") then
    T.eq(kp["DateVersChaîne"]("20240229"), kp.DateToString("20240229"), "accented French name")
    T.eq(kp["DATEVERSCHAÎNE"]("20240229"), kp.DateToString("20240229"), "accented capital")
  end
end)

T.group("unknown names", function()
  T.raises("unknown function or constant 'NoSuchFunction'", function() return kp.NoSuchFunction end)
  T.raises("unknown function or constant 'fOuvr'", function() return kp.fOuvr end)
  T.raises("unknown function or constant 'a\\xFF\\xFE'", function() return kp["a\255\254"] end)
  T.raises("names are strings", function() return kp[1] end)
end)

T.group("constants", function()
  T.eq(kp.foRead, 1, "English name")
  T.eq(kp.foLecture, 1, "French name")
  T.eq(kp.FOLECTUREECRITURE, 3, "case ignored")
  T.eq(kp.foUnicode, 4096, "value")
  T.eq(kp.fLockEmptyFile, -2, "0xFFFFFFFE is the 32-bit integer -2")
  T.eq(kp.scActiveBorder, 0x4000000A, "large value")
  T.eq(kp.Orient90, "90", "string constant")
  T.raises("constant exeName is not provided", function() return kp.exeName end)
  T.eq(kp["fRépertoire"], 2, "accented name")
  T.eq(kp.MciAudioCD, "cdaudio", "string constant, English")
  T.raises("constant foReadLock is not provided", function() return kp.foReadLock end)
  T.raises("not provided", function() return kp.schedDaily end)
end)

T.group("overload choice and its errors", function()
  if not T.provided("ZigouigouiARoulette", 0) then T.skip("ZigouigouiARoulette not provided") end
  T.raises("ZigouigouiARoulette", kp.ZigouigouiARoulette)
  T.raises("takes 2 arguments", kp.ZigouigouiARoulette, 1, 2)
  T.raises("does not fit a 32-bit integer", kp.ZigouigouiARoulette, 1 << 31)
  T.raises("does not fit a 32-bit integer", kp.ZigouigouiARoulette, -(1 << 31) - 1)
  T.eq(kp.ZigouigouiARoulette(-(1 << 31)), 24053, "smallest 32-bit integer fits")
  T.eq(kp.ZigouigouiARoulette(3.0), 24053, "whole float to integer")
  T.raises("ZigouigouiARoulette", kp.ZigouigouiARoulette, 3.5)
  T.raises("ZigouigouiARoulette", kp.ZigouigouiARoulette, "3")
  T.raises("argument 1: a nil value has no component type", kp.ZigouigouiARoulette, nil)
  T.raises("argument 1: a table value has no component type", kp.ZigouigouiARoulette, {})
  T.raises("argument 1: invalid UTF-8", kp.ZigouigouiARoulette, "\255")
  -- The scanner functions are left without a handler in this edition.
  T.raises("not provided", kp.TwainToBMP, "\\scan.bmp", true)
end)

T.group("error messages carry the caller's line", function()
  if not T.provided("ZigouigouiARoulette", 0) then T.skip("ZigouigouiARoulette not provided") end
  local msg = T.raises("ZigouigouiARoulette", function()
    local r = kp.ZigouigouiARoulette(1, 2)
    return r
  end)
  T.ok(msg:find("test_calls.lua:%d+:") ~= nil, "position in '" .. msg .. "'")
end)

T.group("overload by argument type", function()
  if not T.provided("Easter", 2024) then T.skip("Easter not provided") end
  T.eq(kp.Easter(2024), kp.Easter("2024"), "integer and string overloads agree")
  T.eq(kp.Easter(2024), "20240331", "date as a string")
end)

T.group("error records: cleared by a good call, a failure is not a Lua error", function()
  T.raises("expects \"fr\" or \"en\"", kp.setlang, "de")
  T.raises("expects \"fr\" or \"en\"", kp.setlang)
  if not T.provided("DateToString", "20240101") then T.skip("DateToString not provided") end
  kp.DateToString("20240101")
  local e = kp.lasterror()
  T.eq(e.id .. " " .. e.severity .. " " .. e.system .. " [" .. e.message .. "]", "0 1 0 []", "a clear record")
  T.eq(kp.DateToString("20231345"), "", "failure value")
  local en = kp.lasterror()
  T.eq(en.severity, 2, "severity")
  T.ok(en.id >= 80001 and en.id <= 81507, "identifier " .. en.id)
  T.ok(#en.message > 0, "message")
  kp.setlang("fr")
  kp.DateToString("20231345")
  local fr = kp.lasterror()
  kp.setlang("en")
  T.eq(fr.id, en.id, "same identifier in French")
  T.ok(fr.message ~= en.message, "message in the interface language: " .. fr.message)
  kp.DateToString("20240101")
  T.eq(kp.lasterror().severity, 1, "cleared by a good call")
end)

T.group("procedure parameters", function()
  local dir = "\\cb"
  if not T.provided("fMakeDir", dir) or not T.provided("fSaveText", dir .. "\\a.txt", "x") then
    T.skip("file functions not provided")
  end
  kp.fSaveText(dir .. "\\b.txt", "y")
  if not T.provided("fListFile", dir .. "\\*.txt", function() return true end) then
    T.skip("fListFile not provided")
  end
  local seen = {}
  local n = kp.fListFile(dir .. "\\*.txt", function(path, name)
    seen[#seen + 1] = name
    return true
  end)
  T.eq(n, 2, "files listed")
  table.sort(seen)
  T.eq(table.concat(seen, ","), "a.txt,b.txt", "names given to the procedure")
  -- An error inside the procedure stops the script once the call is over.
  T.raises("boom", kp.fListFile, dir .. "\\*.txt", function() error("boom") end)
end)

T.group("variables passed by reference", function()
  if T.provided("IsNumeric", "1") then
    T.eq(kp.IsNumeric(kp.var("12")), true, "variable read by the call")
    T.eq(kp.IsNumeric(kp.var("douze")), false, "variable read by the call")
  end
  if T.provided("MatchRegularExpression", "a", "a") then
    local y, m, d = kp.var(), kp.var("old"), kp.var(0)
    T.eq(kp.MatchRegularExpression("2024-11-21", "([0-9]+)-([0-9]+)-([0-9]+)", y, m, d), true, "match")
    T.eq(y.value, "2024", "first variable filled")
    T.eq(m.value, "11", "second variable replaced")
    T.eq(d.value, "21", "third variable")
    T.eq(kp.MatchRegularExpression("abc", "x(.)", y), false, "no match")
  end
  if T.provided("eToEuro", kp.currency("1"), 1) then
    local diff = kp.var(kp.currency("99"))
    kp.eToEuro(kp.currency("655.957"), 1, 2, diff)
    T.ok(diff.value ~= kp.currency("99"), "currency variable written by the call")
    T.ok(tostring(diff.value):match("^%-?%d+%.%d%d%d%d%d%d$"), "still a currency")
  end
end)

T.done()
