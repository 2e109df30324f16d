-- Values of the kp table that need no component function: buffers,
-- currency, variables, JSON and WTF-8 round trips.
local T = dofile((arg[0]:match("^(.*)/") or ".") .. "/testlib.lua")

T.group("buffers from bytes and hex", function()
  local b = kp.buffer("A\0\255")
  T.eq(#b, 3, "#b")
  T.eq(b:hex(), "4100ff", "hex")
  T.eq(b:bytes(), "A\0\255", "bytes")
  T.eq(tostring(b), "4100ff", "tostring")
  T.eq(kp.hex("4100FF"), b, "hex digits in either case")
  T.eq(#kp.buffer(), 0, "empty buffer")
  T.eq(#kp.hex(""), 0, "empty hex")
  T.ok(kp.hex("00") ~= kp.hex("0000"), "different lengths differ")
end)

T.group("bad hex and bad buffer input", function()
  T.raises("odd number", kp.hex, "abc")
  T.raises("position 3", kp.hex, "00zz")
  T.raises("kp.hex", kp.hex, 12)
  T.raises("kp.buffer", kp.buffer, {})
end)

T.group("currency text", function()
  for _, c in ipairs({ { "1.5", "1.500000" }, { "-2.5", "-2.500000" }, { 7, "7.000000" }, { 0.25, "0.250000" },
                       { "0.000001", "0.000001" } }) do
    T.eq(tostring(kp.currency(c[1])), c[2], tostring(c[1]))
  end
  T.eq(kp.currency("3"), kp.currency(3), "equality")
  T.ok(kp.currency("3") ~= kp.currency("-3"), "sign matters")
  local c = kp.currency("12.75")
  T.eq(kp.currency(c), c, "copy")
end)

T.group("bad currency input", function()
  for _, v in ipairs({ "abc", "", "1e999", 0 / 0 }) do T.raises("not a currency value", kp.currency, v) end
  T.raises("kp.currency", kp.currency, true)
end)

T.group("variables", function()
  local v = kp.var()
  T.eq(v.value, nil, "empty variable")
  v.value = 42
  T.eq(v.value, 42, "integer")
  v.value = "texte é"
  T.eq(v.value, "texte é", "string")
  T.eq(kp.var(1.5).value, 1.5, "float")
  T.eq(kp.var(true).value, true, "boolean")
  T.eq(kp.var(kp.hex("0102")).value, kp.hex("0102"), "buffer")
  T.eq(tostring(kp.var(kp.currency("2")).value), "2.000000", "currency")
  T.raises("only the field 'value'", function() return v.other end)
  T.raises("only the field 'value'", function() v.other = 1 end)
end)

T.group("WTF-8 round trips", function()
  local samples = {
    "", "ascii", "é à ç", "€", "\u{10348}", "日本語",
    "\u{D800}",             -- lone high surrogate
    "a\u{DC00}b",           -- lone low surrogate between letters
    "\u{DBFF}\u{D800}",     -- two high surrogates: no pair
  }
  for i, s in ipairs(samples) do
    T.eq(kp.var(s).value, s, "sample " .. i)
  end
  -- A pair spelled as two surrogate sequences joins into one code point.
  T.eq(kp.var("\u{D83D}\u{DE00}").value, "\u{1F600}", "pair joins")
end)

T.group("invalid UTF-8 is refused", function()
  -- a bad byte, an overlong NUL, a value above U+10FFFF, a truncated sequence
  for _, c in ipairs({ { 2, "a\255" }, { 1, "\192\128" }, { 1, "\244\144\128\128" }, { 3, "ab\226\130" } }) do
    T.raises("invalid UTF-8 at byte " .. c[1], kp.var, c[2])
  end
  local v = kp.var()
  T.raises("invalid UTF-8", function() v.value = "\128" end)
end)

T.group("JSON of values and tables", function()
  local cases = { -- value, JSON text
    { nil, "null" }, { true, "true" }, { -17, "-17" }, { math.mininteger, "-9223372036854775808" },
    { 0.1, "0.1" }, { 1 / 3, "0.3333333333333333" }, { 2.0, "2.0" }, { 1e300, "1e+300" },
    { 0 / 0, "null" }, { math.huge, "null" }, { "a\"b\\c\n\t\1", '"a\\"b\\\\c\\n\\t\\u0001"' },
    { "é/€", '"é/€"' }, { "x\u{D800}y", '"x\\ud800y"' }, { kp.hex("00ff"), '{"buffer":"00ff"}' },
    { kp.currency("-2.5"), '{"currency":"-2.500000"}' }, { kp.var(5), "5" },
    { {}, "[]" }, { { 1, "a", false }, '[1,"a",false]' }, { { b = 1, a = 2, C = 3 }, '{"C":3,"a":2,"b":1}' },
    { { [1] = "x", [3] = "y" }, '{"1":"x","3":"y"}' }, { { [1] = 1, n = 2 }, '{"1":1,"n":2}' },
    { { list = { {}, { k = kp.hex("01") } } }, '{"list":[[],{"k":{"buffer":"01"}}]}' },
  }
  for i = 1, #cases do T.eq(kp.json(cases[i][1]), cases[i][2], "case " .. i) end
end)

T.group("JSON refuses what it cannot write", function()
  T.raises("function value", kp.json, print)
  T.raises("not valid UTF-8", kp.json, "\255")
  T.raises("table key of type boolean", kp.json, { [true] = 1 })
  local loop = {}
  loop.self = loop
  T.raises("nested too deeply", kp.json, loop)
end)

T.done()
