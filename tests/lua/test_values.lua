-- Values of the kp table that need no component function: buffers, currency, variables, JSON, WTF-8.
local T = dofile((arg[0]:match("^(.*)/") or ".") .. "/testlib.lua")

T.group("buffers from bytes and hex, and their bad input", function()
  local b = kp.buffer("A\0\255")
  T.eq(#b .. " " .. b:hex() .. " " .. tostring(b), "3 4100ff 4100ff", "length, hex and tostring")
  T.eq(b:bytes(), "A\0\255", "bytes")
  T.eq(kp.hex("4100FF"), b, "hex digits in either case")
  T.eq(#kp.buffer() + #kp.hex(""), 0, "empty buffer and empty hex")
  T.ok(kp.hex("00") ~= kp.hex("0000"), "different lengths differ")
  for _, c in ipairs({ { "odd number", "abc" }, { "position 3", "00zz" }, { "kp.hex", 12 } }) do T.raises(c[1], kp.hex, c[2]) end
  T.raises("kp.buffer", kp.buffer, {})
end)

T.group("currency text and bad currency input", function()
  for _, c in ipairs({ { "1.5", "1.500000" }, { "-2.5", "-2.500000" }, { 7, "7.000000" }, { 0.25, "0.250000" },
                       { "0.000001", "0.000001" } }) do
    T.eq(tostring(kp.currency(c[1])), c[2], tostring(c[1]))
  end
  T.eq(kp.currency("3"), kp.currency(3), "equality")
  T.ok(kp.currency("3") ~= kp.currency("-3"), "sign matters")
  T.eq(kp.currency(kp.currency("12.75")), kp.currency("12.75"), "copy")
  for _, v in ipairs({ "abc", "", "1e999", 0 / 0 }) do T.raises("not a currency value", kp.currency, v) end
  T.raises("kp.currency", kp.currency, true)
end)

T.group("variables", function()
  T.eq(kp.var().value, nil, "empty variable")
  for _, x in ipairs({ 42, "texte é", 1.5, true, kp.hex("0102") }) do T.eq(kp.var(x).value, x, tostring(x)) end
  T.eq(tostring(kp.var(kp.currency("2")).value), "2.000000", "currency")
  local v = kp.var()
  v.value = 42
  T.eq(v.value, 42, "assigned")  T.raises("only the field 'value'", function() return v.other end)
  T.raises("only the field 'value'", function() v.other = 1 end)
end)

T.group("WTF-8 round trips, invalid UTF-8 refused", function()
  -- Lone surrogates (high, low between letters, two highs: no pair) are kept.
  for _, s in ipairs({ "", "ascii", "é à ç", "€", "\u{10348}", "日本語", "\u{D800}", "a\u{DC00}b", "\u{DBFF}\u{D800}" }) do
    T.eq(kp.var(s).value, s, string.format("%q", s))
  end
  -- A pair spelled as two surrogate sequences joins into one code point.
  T.eq(kp.var("\u{D83D}\u{DE00}").value, "\u{1F600}", "pair joins")
  -- a bad byte, an overlong NUL, a value above U+10FFFF, a truncated sequence
  for _, c in ipairs({ { 2, "a\255" }, { 1, "\192\128" }, { 1, "\244\144\128\128" }, { 3, "ab\226\130" } }) do
    T.raises("invalid UTF-8 at byte " .. c[1], kp.var, c[2])
  end
  local v = kp.var()
  T.raises("invalid UTF-8", function() v.value = "\128" end)
end)

T.group("JSON of values and tables, and what it cannot write", function()
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
  T.raises("function value", kp.json, print)
  T.raises("not valid UTF-8", kp.json, "\255")
  T.raises("table key of type boolean", kp.json, { [true] = 1 })
  local loop = {}
  loop.self = loop
  T.raises("nested too deeply", kp.json, loop)
end)

T.done()
