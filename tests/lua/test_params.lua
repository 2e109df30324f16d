-- Saved parameters through kp120: both modes, the current
-- object set from Lua, values of each kind read back.
local T = dofile((arg[0]:match("^(.*)/") or ".") .. "/testlib.lua")

T.group("saved parameters", function()
  -- name, value, default: a currency, a real and a boolean read back as
  -- their kinds given a default of that kind (without one they come back as
  -- stored: text, or in the registry an integer for a boolean).
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

T.done()
