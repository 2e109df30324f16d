-- Saved parameters through kp120: both modes, the current
-- object set from Lua, values of each kind read back.
local T = dofile((arg[0]:match("^(.*)/") or ".") .. "/testlib.lua")

T.group("saved parameters", function()
  for _, mode in ipairs({kp.paramRegistry, kp.ParamIni}) do
    kp.InitParameter(mode)
    kp.SaveParameter("win/width", 640)
    kp.SaveParameter("win/ratio", 0.1)
    kp.SaveParameter("win/title", "a b\tc")
    T.eq(kp.LoadParameter("win/width", 0), 640, "integer, mode " .. mode)
    T.eq(kp.LoadParameter("win/ratio", 0.5), 0.1, "real, mode " .. mode)
    T.eq(kp.LoadParameter("win/title"), "a b\tc", "string, mode " .. mode)
    -- A currency, a real and a boolean read back as their kinds given a
    -- default of that kind (without one they come back as stored: text, or
    -- in the registry an integer for a boolean).
    kp.SaveParameter("win/price", kp.currency("-1234.567891"))
    kp.SaveParameter("win/on", true)
    T.eq(kp.LoadParameter("win/price", kp.currency("0")), kp.currency("-1234.567891"), "currency, mode " .. mode)
    T.eq(kp.LoadParameter("win/on", false), true, "boolean, mode " .. mode)
    T.eq(math.type(kp.LoadParameter("win/ratio", 0.5)), "float", "real kind, mode " .. mode)
    kp.setobject("win")
    T.eq(kp.DeleteParameter(), true, "the current object's group")
    kp.setobject(nil)
    T.eq(kp.LoadParameter("win/width", -1), -1, "deleted, mode " .. mode)
  end
  T.eq(kp.InitParameter(1), "", "paramXML is refused")
  T.eq(kp.lasterror().id, 80700, "with 80700")
end)

T.done()
