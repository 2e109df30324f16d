-- Calls through kp: names, constants, overloads, error records, variables, memory zones with values of every
-- Lua type (their rules: tests/memzones), saved parameters in both modes, windows on the headless handheld.
local T = dofile((arg[0]:match("^(.*)/") or ".") .. "/testlib.lua")

T.group("unknown names", function()
  for _, name in ipairs({ "NoSuchFunction", "fOuvr", "a\255\254" }) do
    T.raises("unknown function or constant '" .. name:gsub("\255\254", "\\xFF\\xFE") .. "'", function() return kp[name] end)
  end
  T.raises("names are strings", function() return kp[1] end)
end)

T.group("constants", function()
  local cases = { -- value, expected, what
    { kp.foRead, 1, "English name" }, { kp.foLecture, 1, "French name" }, { kp.FOLECTUREECRITURE, 3, "any case" },
    { kp.foUnicode, 4096, "value" }, { kp.fLockEmptyFile, -2, "0xFFFFFFFE is the 32-bit integer -2" },
    { kp.scActiveBorder, 0x4000000A, "large value" }, { kp.Orient90, "90", "string constant" },
    { kp["fRépertoire"], 2, "accented name" }, { kp.MciAudioCD, "cdaudio", "string constant, English" },
  }
  for _, c in ipairs(cases) do T.eq(c[1], c[2], c[3]) end
  for _, name in ipairs({ "exeName", "foReadLock", "schedDaily" }) do
    T.raises("constant " .. name .. " is not provided", function() return kp[name] end)
  end
end)

T.group("overload choice and its errors", function()
  if not T.provided("ZigouigouiARoulette", 0) then T.skip("ZigouigouiARoulette not provided") end
  local z = kp.ZigouigouiARoulette
  local cases = { -- message, arguments
    { "ZigouigouiARoulette" }, { "takes 2 arguments", 1, 2 }, { "does not fit a 32-bit integer", 1 << 31 },
    { "does not fit a 32-bit integer", -(1 << 31) - 1 }, { "ZigouigouiARoulette", 3.5 }, { "ZigouigouiARoulette", "3" },
    { "argument 1: a table value has no component type", {} }, { "argument 1: invalid UTF-8", "\255" },
  }
  for _, c in ipairs(cases) do T.raises(c[1], z, table.unpack(c, 2)) end
  T.raises("argument 1: a nil value has no component type", z, nil)
  T.eq(z(-(1 << 31)), 24053, "smallest 32-bit integer fits")
  T.eq(z(3.0), 24053, "whole float to integer")
  -- A refusal names the caller's line.
  local msg = T.raises("ZigouigouiARoulette", function() local r = z(1, 2) return r end)
  T.ok(msg:find("test_calls.lua:%d+:"), "position in '" .. msg .. "'")
  -- The scanner functions are left without a handler in this edition.
  T.raises("not provided", kp.TwainToBMP, "\\scan.bmp", true)
end)

T.group("error records: cleared by a good call, a failure is not a Lua error", function()
  for _, args in ipairs({ { "de" }, {} }) do T.raises("expects \"fr\" or \"en\"", kp.setlang, table.unpack(args)) end
  if not T.provided("DateToString", "20240101") then T.skip("DateToString not provided") end
  kp.DateToString("20240101")
  local e = kp.lasterror()
  T.eq(e.id .. " " .. e.severity .. " " .. e.system .. " [" .. e.message .. "]", "0 1 0 []", "a clear record")
  T.eq(kp.DateToString("20231345"), "", "failure value")
  local en = kp.lasterror()
  T.ok(en.severity == 2 and en.id >= 80001 and en.id <= 81507 and #en.message > 0, "severity, id, message")
  kp.setlang("fr")
  kp.DateToString("20231345")
  local fr = kp.lasterror()
  kp.setlang("en")
  T.ok(fr.id == en.id and fr.message ~= en.message, "same identifier, message in French: " .. fr.message)
  kp.DateToString("20240101")
  T.eq(kp.lasterror().severity, 1, "cleared by a good call")
end)

T.group("variables passed by reference", function()
  if T.provided("IsNumeric", "1") then
    T.eq(kp.IsNumeric(kp.var("12")), true, "variable read by the call")
    T.eq(kp.IsNumeric(kp.var("douze")), false, "variable read by the call")
  end
  if T.provided("MatchRegularExpression", "a", "a") then
    local y, m, d = kp.var(), kp.var("old"), kp.var(0)
    T.eq(kp.MatchRegularExpression("2024-11-21", "([0-9]+)-([0-9]+)-([0-9]+)", y, m, d), true, "match")
    T.eq(y.value .. " " .. m.value .. " " .. d.value, "2024 11 21", "variables filled or replaced")
    T.eq(kp.MatchRegularExpression("abc", "x(.)", y), false, "no match")
  end
  if T.provided("eToEuro", kp.currency("1"), 1) then
    local diff = kp.var(kp.currency("99"))
    kp.eToEuro(kp.currency("655.957"), 1, 2, diff)
    T.ok(diff.value ~= kp.currency("99"), "currency variable written by the call")
    T.ok(tostring(diff.value):match("^%-?%d+%.%d%d%d%d%d%d$"), "still a currency")
  end
end)

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

T.group("saved parameters", function()
  -- name, value, default: read back as the default's kind (without one: as stored, text or an integer)
  local cases = { { "width", 640, 0 }, { "ratio", 0.1, 0.5 }, { "title", "a b\tc" },
    { "price", kp.currency("-1234.567891"), kp.currency("0") }, { "on", true, false } }
  for _, mode in ipairs({kp.paramRegistry, kp.ParamIni}) do
    kp.InitParameter(mode)
    for _, c in ipairs(cases) do kp.SaveParameter("win/" .. c[1], c[2]) end
    for _, c in ipairs(cases) do
      T.eq(kp.LoadParameter("win/" .. c[1], table.unpack(c, 3)), c[2], c[1] .. ", mode " .. mode)
    end
    kp.setobject("win")
    T.eq(kp.DeleteParameter(), true, "the current object's group")
    kp.setobject(nil)
    T.eq(kp.LoadParameter("win/width", -1), -1, "deleted, mode " .. mode)
  end
  T.eq(kp.InitParameter(1), "", "paramXML is refused")
  T.eq(kp.lasterror().id, 80700, "with 80700")
end)

T.group("kp.window on the handheld", function()
  local a = kp.window{title = "Orders", class = "KPForm", menus = 2}
  local b = kp.window{title = "Stock"}
  T.rows({
    { kp.SysWinHandle("Orders"), a, "found by title" }, { kp.SysWinHandle("Orders", "KPForm"), a, "found by title and class" },
    { kp.SysWinHandle("Stock", "KPForm"), 0, "the class must match" }, { kp.SysWinTitle(b), "Stock", "title" },
    { kp.SysWinActive(), b, "the newest window is active" },
    { kp.SysGetSubMenu(kp.SysGetMenu(a), 1) ~= 0, true, "second menu" },
    { kp.SysXRes() .. "x" .. kp.SysYRes() .. "x" .. kp.SysColorRes(), "240x320x16", "screen" },
    { kp.closewindow(a), true, "closed" }, { kp.closewindow(a), false, "closed once" },
    { kp.SysValidHandle(a), false, "a closed window is no longer valid" },
  })
  T.raises("menus must be", kp.window, {title = "x", menus = -1})
  T.raises("title must be a string", kp.window, {title = 5})
end)

T.done()
