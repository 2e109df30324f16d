-- Windows that scripts create on the headless handheld, seen through the
-- device functions.
local T = dofile((arg[0]:match("^(.*)/") or ".") .. "/testlib.lua")

T.group("kp.window on the handheld", function()
  local a = kp.window{title = "Orders", class = "KPForm", menus = 2}
  local b = kp.window{title = "Stock"}
  T.eq(kp.SysWinHandle("Orders"), a, "found by title")
  T.eq(kp.SysWinHandle("Orders", "KPForm"), a, "found by title and class")
  T.eq(kp.SysWinHandle("Stock", "KPForm"), 0, "the class must match")
  T.eq(kp.SysWinTitle(b), "Stock", "title")
  T.eq(kp.SysWinActive(), b, "the newest window is active")
  T.ok(kp.SysGetSubMenu(kp.SysGetMenu(a), 1) ~= 0, "second menu")
  T.eq(kp.SysXRes() .. "x" .. kp.SysYRes() .. "x" .. kp.SysColorRes(), "240x320x16", "screen")
  T.ok(kp.closewindow(a), "closed")
  T.eq(kp.closewindow(a), false, "closed once")
  T.eq(kp.SysValidHandle(a), false, "a closed window is no longer valid")
  T.raises("menus must be", kp.window, {title = "x", menus = -1})
  T.raises("title must be a string", kp.window, {title = 5})
end)

T.done()
