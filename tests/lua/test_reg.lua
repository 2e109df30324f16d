-- kp120 reg export and import of registry editor files: bad lines with their numbers, all or nothing.
local T = dofile((arg[0]:match("^(.*)/") or ".") .. "/testlib.lua")

local exe, work = arg[1], arg[2]
assert(exe and work, "usage: test_reg.lua KP120 WORKDIR")
os.execute("mkdir -p '" .. work .. "'")

local q, run, run_ok, read, write = T.q, T.run, T.run_ok, T.read, T.write
-- kp120 on the registry a.sqlite3 or b.sqlite3, with these arguments.
local function kp120(reg, args) return q(exe) .. " --root " .. q(work .. "/reg-device") .. " --registry " .. q(work .. "/" .. reg) .. " " .. args end
-- Runs Lua code with kp120 on a registry; its output.
local function lua(reg, code) return run_ok(kp120(reg, "-e " .. q(code))) end
local key = q("HKEY_CURRENT_USER\\Software\\Reg")

for _, f in ipairs({ "a.sqlite3", "b.sqlite3" }) do os.remove(work .. "/" .. f) end

T.group("export: the 5.00 form in UTF-16 and the REGEDIT4 form", function()
  lua("a.sqlite3", [[local k = "HKEY_CURRENT_USER\\Software\\Reg"
    assert(kp.RegistryCreateKey(k .. "\\Sub") and kp.RegistrySetValue(k, "s", "text") and kp.RegistrySetValue(k, "n", 42)
      and kp.RegistrySetValue(k .. "\\Sub", "r", 1.5))]])
  T.eq(run_ok(kp120("a.sqlite3", "reg export --regedit4 " .. key)),
    "REGEDIT4\r\n\r\n[HKEY_CURRENT_USER\\Software\\Reg]\r\n\"s\"=\"text\"\r\n\"n\"=dword:0000002a\r\n\r\n"
    .. "[HKEY_CURRENT_USER\\Software\\Reg\\Sub]\r\n\"r\"=hex:00,00,00,00,00,00,f8,3f\r\n\r\n", "REGEDIT4 text")
  run_ok(kp120("a.sqlite3", "reg export " .. key .. " " .. q(work .. "/a.reg")))
  T.eq(read(work .. "/a.reg"):sub(1, 10), "\255\254W\0i\0n\0d\0", "byte-order mark and UTF-16LE header")
  local _, err, code = run(kp120("a.sqlite3", "reg export " .. q("HKEY_CURRENT_USER\\Nope")))
  T.eq(code, 1, "missing key")
  T.ok(err:find("no key", 1, true), err)
end)

T.group("import: round trip, then all or nothing", function()
  run_ok(kp120("b.sqlite3", "reg import " .. q(work .. "/a.reg")))
  run_ok(kp120("b.sqlite3", "reg export " .. key .. " " .. q(work .. "/b.reg")))
  T.eq(read(work .. "/b.reg"), read(work .. "/a.reg"), "the same file back")

  write(work .. "/bad.reg", "REGEDIT4\r\n[-HKEY_CURRENT_USER\\Software\\Reg]\r\n[HKEY_USERS\\X]\r\n\"a\"=dword:xyz\r\n\"b\"=hex:1,2\r\nnonsense\r\n")
  local _, err, code = run(kp120("b.sqlite3", "reg import " .. q(work .. "/bad.reg")))
  T.eq(code, 1, "exit code")
  T.ok(err:find("bad.reg:4: ", 1, true) and err:find("bad.reg:6: ", 1, true), "lines 4 and 6 reported: " .. err)
  T.ok(not err:find("bad.reg:5: ", 1, true), "line 5 is good")
  T.eq(lua("b.sqlite3", 'print(kp.RegistryExist("HKEY_CURRENT_USER\\\\Software\\\\Reg\\\\Sub"))'), "true\n",
    "the deletion of a file with bad lines is not applied")

  write(work .. "/del.reg", "REGEDIT4\r\n[-HKEY_CURRENT_USER\\Software\\Reg\\Sub]\r\n[HKEY_CURRENT_USER\\Software\\Reg]\r\n\"s\"=-\r\n")
  run_ok(kp120("b.sqlite3", "reg import " .. q(work .. "/del.reg")))
  T.eq(lua("b.sqlite3", 'local k = "HKEY_CURRENT_USER\\\\Software\\\\Reg" print(kp.RegistryListValue(k), kp.RegistryFirstSubKey(k) == "")'),
    "n\ttrue\n", "value and key deleted")
  -- A name no file can hold is left out and said; a file that is no database refuses the import.
  lua("b.sqlite3", 'assert(kp.RegistrySetValue("HKEY_CURRENT_USER\\\\Software\\\\Reg", "two\\nlines", 1))')
  local out, err2, code2 = run(kp120("b.sqlite3", "reg export --regedit4 " .. key))
  T.eq(code2, 0, "export with a name left out")
  T.ok(err2:find("left out", 1, true) and not out:find("lines", 1, true), "name with a line end: " .. err2)
  write(work .. "/not-a-database", ("x"):rep(4096))
  local _, err3, code3 = run(kp120("not-a-database", "reg import " .. q(work .. "/del.reg")))
  T.eq(code3, 1, "import into a file that is no database")
  T.ok(err3:find("nothing imported: key", 1, true), err3)
  for _, args in ipairs({ "reg import " .. q(work .. "/none.reg"), "reg frobnicate" }) do
    T.eq(select(3, run(kp120("b.sqlite3", args))), 1, args)
  end
end)

T.done()
