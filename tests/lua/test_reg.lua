-- kp120 reg export and import: registry editor files out of and into the
-- registry of the command line, the bad lines of a file with their numbers,
-- and nothing written from a file that does not parse.
local T = dofile((arg[0]:match("^(.*)/") or ".") .. "/testlib.lua")

local exe, work = arg[1], arg[2]
assert(exe and work, "usage: test_reg.lua KP120 WORKDIR")
os.execute("mkdir -p '" .. work .. "'")

local q, run, read, write = T.q, T.run, T.read, T.write
local function kp120(reg) return q(exe) .. " --root " .. q(work .. "/reg-device") .. " --registry " .. q(work .. "/" .. reg) end

os.remove(work .. "/a.sqlite3")
os.remove(work .. "/b.sqlite3")
local setup = [[
  assert(kp.RegistryCreateKey("HKEY_CURRENT_USER\\Software\\Reg\\Sub"))
  assert(kp.RegistrySetValue("HKEY_CURRENT_USER\\Software\\Reg", "s", "text"))
  assert(kp.RegistrySetValue("HKEY_CURRENT_USER\\Software\\Reg", "n", 42))
  assert(kp.RegistrySetValue("HKEY_CURRENT_USER\\Software\\Reg\\Sub", "r", 1.5))
]]

T.group("export: the 5.00 form in UTF-16 and the REGEDIT4 form", function()
  local _, err, code = run(kp120("a.sqlite3") .. " -e " .. q(setup))
  T.eq(code, 0, "setup: " .. err)
  local out
  out, err, code = run(kp120("a.sqlite3") .. " reg export --regedit4 " .. q("HKEY_CURRENT_USER\\Software\\Reg"))
  T.eq(code, 0, "exit code: " .. err)
  T.eq(out, "REGEDIT4\r\n\r\n[HKEY_CURRENT_USER\\Software\\Reg]\r\n\"s\"=\"text\"\r\n\"n\"=dword:0000002a\r\n\r\n"
    .. "[HKEY_CURRENT_USER\\Software\\Reg\\Sub]\r\n\"r\"=hex:00,00,00,00,00,00,f8,3f\r\n\r\n", "REGEDIT4 text")
  out, err, code = run(kp120("a.sqlite3") .. " reg export " .. q("HKEY_CURRENT_USER\\Software\\Reg") .. " " .. q(work .. "/a.reg"))
  T.eq(code, 0, "exit code: " .. err)
  local file = read(work .. "/a.reg")
  T.eq(file:sub(1, 2), "\255\254", "byte-order mark")
  T.eq(file:sub(3, 10), "W\0i\0n\0d\0", "UTF-16LE header")
  out, err, code = run(kp120("a.sqlite3") .. " reg export " .. q("HKEY_CURRENT_USER\\Nope"))
  T.eq(code, 1, "missing key")
  T.ok(err:find("no key", 1, true), err)
end)

T.group("import: round trip, then all or nothing", function()
  local _, err, code = run(kp120("b.sqlite3") .. " reg import " .. q(work .. "/a.reg"))
  T.eq(code, 0, "exit code: " .. err)
  _, err, code = run(kp120("b.sqlite3") .. " reg export " .. q("HKEY_CURRENT_USER\\Software\\Reg") .. " " .. q(work .. "/b.reg"))
  T.eq(code, 0, "exit code: " .. err)
  T.eq(read(work .. "/b.reg"), read(work .. "/a.reg"), "the same file back")

  write(work .. "/bad.reg", "REGEDIT4\r\n[-HKEY_CURRENT_USER\\Software\\Reg]\r\n[HKEY_USERS\\X]\r\n\"a\"=dword:xyz\r\n\"b\"=hex:1,2\r\nnonsense\r\n")
  local out
  out, err, code = run(kp120("b.sqlite3") .. " reg import " .. q(work .. "/bad.reg"))
  T.eq(code, 1, "exit code")
  T.ok(err:find("bad.reg:4: ", 1, true), "line 4 reported: " .. err)
  T.ok(err:find("bad.reg:6: ", 1, true), "line 6 reported: " .. err)
  T.ok(not err:find("bad.reg:5: ", 1, true), "line 5 is good")
  out, err, code = run(kp120("b.sqlite3") .. " -e " .. q('print(kp.RegistryExist("HKEY_CURRENT_USER\\\\Software\\\\Reg\\\\Sub"))'))
  T.eq(out, "true\n", "the deletion of a file with bad lines is not applied: " .. err)

  write(work .. "/del.reg", "REGEDIT4\r\n[-HKEY_CURRENT_USER\\Software\\Reg\\Sub]\r\n[HKEY_CURRENT_USER\\Software\\Reg]\r\n\"s\"=-\r\n")
  _, err, code = run(kp120("b.sqlite3") .. " reg import " .. q(work .. "/del.reg"))
  T.eq(code, 0, "exit code: " .. err)
  out = run(kp120("b.sqlite3") .. " -e " .. q('print(kp.RegistryListValue("HKEY_CURRENT_USER\\\\Software\\\\Reg"), kp.RegistryFirstSubKey("HKEY_CURRENT_USER\\\\Software\\\\Reg") == "")'))
  T.eq(out, "n\ttrue\n", "value and key deleted")
  _, err, code = run(kp120("b.sqlite3") .. " reg import " .. q(work .. "/none.reg"))
  T.eq(code, 1, "unreadable file")
  _, err, code = run(kp120("b.sqlite3") .. " reg frobnicate")
  T.eq(code, 1, "unknown reg command")
end)

T.done()
