-- Walks calling back into Lua (stop on false, user value, recursion, interruption, a procedure that raises),
-- and the selectors answered by kp.onselect.
local T = dofile((arg[0]:match("^(.*)/") or ".") .. "/testlib.lua")

if not T.provided("fMakeDir", "\\lua") then T.skip("file management not provided") end

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

T.group("interruption, a procedure that raises", function()
  local n = kp.fListFile("\\lua\\*.txt", function(_, _, i) if i == 1 then kp.presskey(27) end return true end, 0, kp.frInterruptible)
  T.eq(n, 1, "Escape pressed during the first entry")
  local calls = 0
  T.raises("boom", kp.fListFile, "\\lua\\*.txt", function() calls = calls + 1 error("boom") end)
  T.eq(calls, 1, "the walk stops at the failing call")
  T.eq(kp.fListFile("\\lua\\*.txt", function() return true end), 3, "the next call works")
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
  T.eq(last.kind .. " " .. #last.texts .. " " .. last.options, "file 5 1", "kind, texts and options")
  T.eq(kp.fSelectDir("\\", "Pick", "x"), "", "nil cancels")
  T.eq(kp.fGraphicFilter(), "*.png", "filter")
  T.eq(last.kind, "filter", "filter kind")
  kp.onselect(function() error("dialog broke") end)
  T.raises("dialog broke", kp.fSelectDir, "\\", "Pick")
  kp.onselect()
  T.eq(kp.fSelect("a", "b", "c", "d"), "", "removed")
end)

T.done()
