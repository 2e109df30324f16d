-- Windows that scripts create on the headless handheld, seen through the
-- device functions.
local T = dofile((arg[0]:match("^(.*)/") or ".") .. "/testlib.lua")

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
