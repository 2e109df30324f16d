-- bench.lua - cost of a call through kp120 and of kp.json.
--   kp120 --root DIR --registry FILE examples/bench.lua
local function time(label, n, f)
  local t = os.clock()
  for i = 1, n do f(i) end
  print(string.format("%-44s %9.2f us", label, (os.clock() - t) / n * 1e6))
end

local ok = pcall(kp.ZigouigouiARoulette, 0)
if ok then
  local z = kp.ZigouigouiARoulette
  time("call, integer argument and result", 200000, function(i) z(i) end)
  time("call, name looked up each time", 200000, function(i) kp.ZigouigouiARoulette(i) end)
end
if pcall(kp.URLEncode, "") then
  local s = string.rep("é", 1000)
  time("URLEncode of 1000 characters", 20000, function() kp.URLEncode(s) end)
end
local records = {}
for i = 1, 1000 do records[i] = { name = "x" .. i, v = i * 0.5, b = kp.hex("00ff") } end
time("kp.json of 1000 records", 100, function() kp.json(records) end)
time("kp.var round trip of 1000 characters", 20000, function() return kp.var(string.rep("a", 1000)).value end)
