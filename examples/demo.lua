-- demo.lua - a tour of the standard functions through the kp table.
--
-- Run with:  kp120 --root DIR --registry FILE examples/demo.lua
-- Every step prints the call and its result.  A function that this build
-- does not provide yet is reported and skipped; the tour goes on.  A step
-- fails when it raises a Lua error, when a call records an error it was not
-- meant to, or when a call meant to fail (marked "expected") succeeds; the
-- last line counts them and the script exits with 1 when any failed.

local skipped, failed, done = 0, 0, 0

local function cut(s)
  if utf8.len(s) and utf8.len(s) > 70 then return s:sub(1, utf8.offset(s, 68) - 1) .. "..." end
  return s
end

local function show(v)
  local t = type(v)
  if t == "string" then
    return cut(kp.json(v))
  elseif t == "userdata" or t == "table" then
    return cut(kp.json(v))
  end
  return tostring(v)
end

-- Left-justifies by characters, not bytes.
local function pad(s, width)
  local n = utf8.len(s) or #s
  return n < width and s .. string.rep(" ", width - n) or s
end

-- Runs one call; `text` is the Lua expression shown to the reader.  With
-- `expected` the call is meant to record an error (a bad argument shown on
-- purpose).
local function step(text, f, expected)
  local r = table.pack(pcall(f))
  if r[1] then
    done = done + 1
    local shown = {}
    for i = 2, r.n do shown[#shown + 1] = show(r[i]) end
    print("  " .. pad(text, 52) .. " -> " .. (#shown > 0 and table.concat(shown, ", ") or "(no result)"))
    local e = kp.lasterror()
    if e.severity > 1 then
      print(string.format("  %s    %s: %s", pad("", 52), expected and "fails as expected" or "FAILED",
        cut(e.text)))
      if not expected then failed = failed + 1 end
    elseif expected then
      failed = failed + 1
      print(string.format("  %s    FAILED: the call was meant to record an error", pad("", 52)))
    end
    return table.unpack(r, 2, r.n)
  end
  local msg = tostring(r[2])
  if msg:find("not provided", 1, true) then
    skipped = skipped + 1
    print("  " .. pad(text, 52) .. "    (not provided in this build)")
  else
    failed = failed + 1
    print("  " .. pad(text, 52) .. "    Lua error: " .. msg)
  end
end

local function section(title) print("\n" .. title) end

print("kp120 demo: the standard functions from Lua")

-- The process steps run a program installed on the device: /bin/echo as
-- \Windows\echo under the device root (made when it is not there yet).
local function shell_quoted(s) return "'" .. s:gsub("'", "'\\''") .. "'" end
if kp.deviceroot then
  local dir = kp.deviceroot .. "/Windows"
  local echo = io.open(dir .. "/echo", "rb")
  if echo then
    echo:close()
  else
    os.execute("mkdir -p " .. shell_quoted(dir) .. " && cp /bin/echo " .. shell_quoted(dir .. "/echo"))
  end
end

section("Dates and times (dates are \"AAAAMMJJ\" strings, times \"HHmmSSCC\", durations milliseconds)")
step('kp.DateSys()', function() return kp.DateSys() end)
step('kp.TimeSys()', function() return kp.TimeSys() end)
step('kp.Now()', function() return kp.Now() end)
step('kp.DateToString("20240229")', function() return kp.DateToString("20240229") end)
step('kp.DateValid("20230229")', function() return kp.DateValid("20230229") end)
step('kp.DateDifference("20240101", "20241225")', function() return kp.DateDifference("20240101", "20241225") end)
step('kp.Easter(2025)', function() return kp.Easter(2025) end)
step('kp["Pâques"]("2026")', function() return kp["Pâques"]("2026") end)
step('kp.IntegerToDayInAlpha(1)', function() return kp.IntegerToDayInAlpha(1) end)
step('kp.setlang("fr"); kp.EntierVersJourEnLettre(1)', function()
  kp.setlang("fr")
  local ok, d = pcall(kp.EntierVersJourEnLettre, 1)
  kp.setlang("en")
  if not ok then error(d, 0) end
  return d
end)
step('kp.DurationToString(90061001, 0)', function() return kp.DurationToString(90061001, 0) end)

section("Numbers, colours and currency")
step('kp.ZigouigouiARoulette(7)', function() return kp.ZigouigouiARoulette(7) end)
step('kp.IsEven(-4), kp.IsOdd(-3)', function() return kp.IsEven(-4), kp.IsOdd(-3) end)
step('kp.RGB(255, 128, 0)', function() return kp.RGB(255, 128, 0) end)
step('kp.RGBGreen(kp.RGB(255, 128, 0))', function() return kp.RGBGreen(kp.RGB(255, 128, 0)) end)
step('kp.Random(6)', function() return kp.Random(6) end)
step('kp.LengthToString(123456789)', function() return kp.LengthToString(123456789) end)
step('kp.IsNumeric("12.5")', function() return kp.IsNumeric("12.5") end)
step('kp.eToEuro(kp.currency("655.957"), 1)', function() return kp.eToEuro(kp.currency("655.957"), 1) end)

section("Files (absolute device names resolve under the device root)")
local w = step('h = kp.fCreate("\\\\hello.txt")', function() return kp.fCreate("\\hello.txt") end)
if type(w) == "number" and w >= 0 then
  step('kp.fWriteLine(h, "Bonjour, é€")', function() return kp.fWriteLine(w, "Bonjour, é€") end)
  step('kp.fWriteLine(h, "Hello")', function() return kp.fWriteLine(w, "Hello") end)
  step('kp.fClose(h)', function() return kp.fClose(w) end)
end
local h = step('h = kp.fOpen("/hello.txt", kp.foRead)', function() return kp.fOpen("/hello.txt", kp.foRead) end)
if type(h) == "number" and h >= 0 then
  step('kp.fReadLine(h)', function() return kp.fReadLine(h) end)
  step('kp.fReadLine(h)', function() return kp.fReadLine(h) end)
  step('kp.fReadLine(h) at the end: U+0004', function() return kp.fReadLine(h) end)
  step('kp.fClose(h)', function() return kp.fClose(h) end)
end
step('kp.fSize("\\\\hello.txt")', function() return kp.fSize("\\hello.txt") end)
step('kp.fFileExist("\\\\hello.txt")', function() return kp.fFileExist("\\hello.txt") end)
step('kp.fLoadText("\\\\hello.txt")', function() return kp.fLoadText("\\hello.txt") end)
step('kp.fMakeDir("\\\\Demo")', function() return kp.fMakeDir("\\Demo") end)
step('kp.fSaveText("\\\\Demo\\\\note.txt", "saved")', function() return kp.fSaveText("\\Demo\\note.txt", "saved") end)
step('kp.fCopyFile("\\\\hello.txt", "\\\\Demo\\\\copy.txt")', function()
  return kp.fCopyFile("\\hello.txt", "\\Demo\\copy.txt")
end)
step('kp.fListFile("\\\\Demo\\\\*.txt", function(dir, name) ... end)', function()
  local names = {}
  local n = kp.fListFile("\\Demo\\*.txt", function(dir, name)
    names[#names + 1] = name
    return true
  end)
  return n, names
end)
step('kp.INIWrite("Demo", "greeting", "bonjour", "\\\\Demo\\\\demo.ini")', function()
  return kp.INIWrite("Demo", "greeting", "bonjour", "\\Demo\\demo.ini")
end)
step('kp.INIRead("Demo", "greeting", "", "\\\\Demo\\\\demo.ini")', function()
  return kp.INIRead("Demo", "greeting", "", "\\Demo\\demo.ini")
end)
step('kp.fLoadText("\\\\No\\\\such.txt")', function() return kp.fLoadText("\\No\\such.txt") end, "expected")

section("Registry and saved parameters (a SQLite file plays the registry)")
local key = "HKEY_CURRENT_USER\\Software\\kp120\\Demo"
step('kp.RegistryCreateKey(key)', function() return kp.RegistryCreateKey(key) end)
step('kp.RegistrySetValue(key, "Count", 42)', function() return kp.RegistrySetValue(key, "Count", 42) end)
step('kp.RegistrySetValue(key, "Name", "démo")', function() return kp.RegistrySetValue(key, "Name", "démo") end)
step('kp.RegistryQueryValue(key, "Count")', function() return kp.RegistryQueryValue(key, "Count") end)
step('kp.RegistryQueryValue(key, "Name")', function() return kp.RegistryQueryValue(key, "Name") end)
step('kp.RegistryListValue(key)', function() return kp.RegistryListValue(key) end)
step('kp.SaveParameter("visits", 3)', function() return kp.SaveParameter("visits", 3) end)
step('kp.LoadParameter("visits", 0)', function() return kp.LoadParameter("visits", 0) end)

section("Data transforms")
local secret = step('c = kp.Crypt("mon secret", "motdepasse")', function() return kp.Crypt("mon secret", "motdepasse") end)
if secret ~= nil and secret ~= "" then
  -- The encoded result is text; as a buffer it holds UTF-16LE characters.
  local text = type(secret) == "userdata" and secret:bytes():gsub("(.)%z", "%1") or secret
  step('kp.Uncrypt(text of c, "motdepasse") as text', function()
    local b = kp.Uncrypt(text, "motdepasse")
    return type(b) == "userdata" and (b:bytes():gsub("(.)%z", "%1")) or b
  end)
end
local packed = step('z = kp.Compress(kp.buffer(string.rep("abc", 100)))', function()
  return kp.Compress(kp.buffer(string.rep("abc", 100)))
end)
if packed ~= nil then
  step('#z, #kp.Uncompress(z)', function() return #packed, #kp.Uncompress(packed) end)
end
step('kp.sComputeCrc32(kp.buffer("123456789")) in hex', function()
  return string.format("%08x", kp.sComputeCrc32(kp.buffer("123456789")) & 0xffffffff)
end)
step('kp.MatchRegularExpression("2024-11-21", "([0-9]+)-([0-9]+)-[0-9]+", y, m)', function()
  local y, m = kp.var(), kp.var()
  local ok = kp.MatchRegularExpression("2024-11-21", "([0-9]+)-([0-9]+)-[0-9]+", y, m)
  return ok, y.value, m.value
end)
step('kp.Phonetic("Philippe")', function() return kp.Phonetic("Philippe") end)
step('kp.URLEncode("a b&c=é")', function() return kp.URLEncode("a b&c=é") end)
step('kp.URLDecode("a%20b%26c")', function() return kp.URLDecode("a%20b%26c") end)

section("System")
step('kp.ExeRun("\\Windows\\echo hello from a child process", 1, 1)', function()
  return kp.ExeRun("\\Windows\\echo hello from a child process", 1, 1)
end)
step('kp.ExeRun("echo relative", 1, 1)', function() return kp.ExeRun("echo relative", 1, 1) end, "expected")
step('kp.SysXRes(), kp.SysYRes()', function() return kp.SysXRes(), kp.SysYRes() end)
step('kp.SysDir(kp.srMyDocuments)', function() return kp.SysDir(kp.srMyDocuments) end)
step('kp.ToClipboard("kp120")', function() return kp.ToClipboard("kp120") end)
step('kp.Clipboard()', function() return kp.Clipboard() end)

section("Memory zones and numbers")
step('kp.MemAdd("b"), kp.MemAdd("a"), kp.MemSort(), kp.MemFirst()', function()
  return kp.MemAdd("b"), kp.MemAdd("a"), kp.MemSort(), kp.MemFirst()
end)
step('kp.NumToString(1234567.891, "%,.2f")', function() return kp.NumToString(1234567.891, "%,.2f") end)
step('kp.Max(3, 9.5, -1), kp.Min(3, 9.5, -1)', function() return kp.Max(3, 9.5, -1), kp.Min(3, 9.5, -1) end)

section("Values in Lua")
print("  kp.json({kp.hex(\"00ff\"), kp.currency(\"-2.5\"), \"x\\u{D800}\", n = 1.5})")
print("    " .. kp.json({ kp.hex("00ff"), kp.currency("-2.5"), "x\u{D800}", n = 1.5 }))
step('kp.foReadWrite, kp["foLectureEcriture"], kp.Orient90', function()
  return kp.foReadWrite, kp["foLectureEcriture"], kp.Orient90
end)

print(string.format("\n%d calls made, %d not provided in this build, %d failed", done, skipped, failed))
if failed > 0 then os.exit(1) end
