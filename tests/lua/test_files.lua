-- Files by name through kp120: walks calling back into Lua (counts, stop on
-- false, user value, recursion, interruption with kp.presskey, a procedure
-- that raises), and the selectors answered by kp.onselect.
local T = dofile((arg[0]:match("^(.*)/") or ".") .. "/testlib.lua")

if not T.provided("fMakeDir", "\\lua") then
  T.skip("file management not provided")
end

kp.fMakeDir("\\lua\\sub")
for _, n in ipairs({ "\\lua\\a.txt", "\\lua\\b.txt", "\\lua\\c.log", "\\lua\\sub\\d.txt" }) do
  assert(kp.fSaveText(n, n))
end

T.group("procedure forms", function()
  local seen = {}
  local n = kp.fListFile("\\lua\\*.txt", function(dir, name, i, user)
    seen[#seen + 1] = dir .. name .. "#" .. i .. "#" .. user
    return true
  end, 9)
  T.eq(n, 3, "count")
  T.eq(table.concat(seen, " "), "\\lua\\a.txt#1#9 \\lua\\b.txt#2#9 \\lua\\sub\\d.txt#3#9", "entries")
  T.eq(kp.fListFile("\\lua\\*.txt", function() return true end, 0, kp.frNotRecursive), 2, "not recursive")
  T.eq(kp.fListFile("\\lua\\*.txt", function(_, _, i) return i < 2 end), 2, "stops on false")
  T.eq(kp.fListDirectory("\\lua\\*", function() return true end), 1, "directories")
end)

T.group("interruption", function()
  local n = kp.fListFile("\\lua\\*.txt", function(_, _, i)
    if i == 1 then kp.presskey(27) end
    return true
  end, 0, kp.frInterruptible)
  T.eq(n, 1, "Escape pressed during the first entry")
end)

T.group("a procedure that raises", function()
  local calls = 0
  T.raises("boom", kp.fListFile, "\\lua\\*.txt", function()
    calls = calls + 1
    error("boom")
  end)
  T.eq(calls, 1, "the walk stops at the failing call")
  T.eq(kp.fListFile("\\lua\\*.txt", function() return true end), 3, "the next call works")
end)

T.group("text forms", function()
  T.eq(kp.fListFile("\\lua\\*.txt", kp.frNotRecursive), "\\lua\\a.txt\r\n\\lua\\b.txt", "names")
  T.eq(kp.fListFile("\\lua\\c.*", kp.frFullInformation), "\\lua\\c.log\t", "with attributes (none: 0644 and no stored record)")
end)

T.group("selectors", function()
  T.eq(kp.fSelectDir("\\", "Pick"), "", "cancelled without a selector")
  local last
  kp.onselect(function(r)
    last = r
    if r.kind == "directory" then return nil end
    if r.kind == "filter" then return "*.png" end
    return "\\lua\\" .. r.texts[2]
  end)
  T.eq(kp.fSelect("\\lua", "a.txt", "Open", "*.txt", "txt", 1), "\\lua\\a.txt", "file")
  T.eq(last.kind, "file", "kind")
  T.eq(#last.texts, 5, "texts")
  T.eq(last.options, 1, "options")
  T.eq(kp.fSelectDir("\\", "Pick", "x"), "", "nil cancels")
  T.eq(kp.fGraphicFilter(), "*.png", "filter")
  T.eq(last.kind, "filter", "filter kind")
  kp.onselect(function() error("dialog broke") end)
  T.raises("dialog broke", kp.fSelectDir, "\\", "Pick")
  kp.onselect()
  T.eq(kp.fSelect("a", "b", "c", "d"), "", "removed")
end)

T.done()
