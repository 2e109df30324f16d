-- Random bytes and values thrown at the kp values (fixed seed): a consistent result or a Lua error.
local T = dofile((arg[0]:match("^(.*)/") or ".") .. "/testlib.lua")
math.randomseed(120)

local function bytes(n) return (("x"):rep(n):gsub("x", function() return string.char(math.random(0, 255)) end)) end

-- Mostly valid UTF-8 with some damage: random bytes, lone surrogates.
local function text()
  local parts = {}
  for i = 1, math.random(0, 8) do
    local r = math.random(1, 6)
    parts[i] = r == 1 and bytes(math.random(1, 3)) or utf8.char(r == 2 and math.random(0xD800, 0xDFFF) or math.random(0, 0x10FFFF))
  end
  return table.concat(parts)
end

T.group("strings through variables", function()
  for _ = 1, 3000 do
    local s = text()
    local ok, v = pcall(kp.var, s)
    if ok then
      -- A high and a low surrogate spelled separately join into one pair.
      if not s:find("\237[\160-\175][\128-\191]\237[\176-\191][\128-\191]") then T.eq(v.value, s, "round trip of " .. string.format("%q", s)) end
      T.eq(kp.var(v.value).value, v.value, "second round trip")
      T.ok(utf8.len((s:gsub("\237[\160-\191][\128-\191]", "s"))) ~= nil, "accepted input is WTF-8")
    else
      T.ok(tostring(v):find("invalid UTF-8", 1, true), tostring(v))
    end
  end
end)

T.group("hex and currency texts", function()
  local alphabet = "0123456789abcdefABCDEF.-+ xe"
  for _ = 1, 3000 do
    local s = ("x"):rep(math.random(0, 24)):gsub("x", function() local k = math.random(1, #alphabet) return alphabet:sub(k, k) end)
    local ok, b = pcall(kp.hex, s)
    if ok then T.eq(b:hex(), s:lower(), "hex round trip") end
    local okc, c = pcall(kp.currency, s)
    if okc then T.eq(kp.currency(tostring(c)), c, "currency text reads back: " .. s) end
  end
end)

T.group("JSON of random tables", function()
  local function value(depth)
    local r = math.random(1, depth > 3 and 6 or 8)
    if r == 1 then return math.random(-1000, 1000)
    elseif r == 2 then return (math.random() - 0.5) * 10 ^ math.random(-300, 300)
    elseif r == 3 then return math.random(0, 1) == 1
    elseif r == 4 then return (text():gsub("[\128-\255]", "a"))
    elseif r == 5 then return kp.buffer(bytes(math.random(0, 6)))
    elseif r == 6 then return kp.currency(math.random(-10 ^ 6, 10 ^ 6))
    end
    local t = {}
    for i = 1, math.random(0, 5) do
      if r == 7 then t[i] = value(depth + 1) else t["k" .. math.random(1, 20)] = value(depth + 1) end
    end
    return t
  end
  for _ = 1, 1500 do
    local v = value(0)
    local j = kp.json(v)
    T.ok(type(j) == "string" and utf8.len(j) ~= nil, "json is UTF-8 text")
    if math.type(v) == "float" and v == v then T.eq(tonumber(j), v, "float reads back") end
  end
end)

T.done()
