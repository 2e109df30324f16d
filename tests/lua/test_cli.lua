-- The kp120 command line: modes, options, listings, exit codes and the
-- one-line messages of bad input.
local T = dofile((arg[0]:match("^(.*)/") or ".") .. "/testlib.lua")

local exe, work = arg[1], arg[2]
assert(exe and work, "usage: test_cli.lua KP120 WORKDIR")

local q, run = T.q, T.run
local base = q(exe) .. " --root " .. q(work .. "/cli-device") .. " --registry " .. q(work .. "/cli.sqlite3")

local function one_line(s, what)
  T.ok(s:match("^[^\n]+\n$") ~= nil, what .. " is one line: " .. string.format("%q", s))
end

T.group("help and version", function()
  local out, err, code = run(q(exe) .. " --help")
  T.eq(code, 0, "exit code")
  T.ok(out:find("kp120 [OPTIONS] -e CHUNK", 1, true), "usage lists -e")
  T.ok(out:find("--registry FILE", 1, true), "usage lists --registry")
  T.eq(err, "", "stderr")
  out, err, code = run(q(exe) .. " --version")
  T.eq(code, 0, "exit code")
  T.ok(out:match("^kp120 %d+%.%d+%.%d+ %(Lua 5%.4"), "version line: " .. out)
end)

T.group("-e, script files, standard input and arg", function()
  local out, err, code = run(base .. " -e " .. q("print(1 + 1)"))
  T.eq(out, "2\n", "-e output")
  T.eq(code, 0, "exit code")
  out = run(base .. " -e " .. q("io.write('a')") .. " -e " .. q("io.write('b')"))
  T.eq(out, "ab", "several -e run in order")
  local script = work .. "/args.lua"
  local f = assert(io.open(script, "w"))
  f:write("print(#arg, arg[0] ~= nil, ...)\n")
  f:close()
  out, err, code = run(base .. " " .. q(script) .. " x 'y z'")
  T.eq(out, "2\ttrue\tx\ty z\n", "arguments in arg and ...")
  T.eq(code, 0, "exit code")
  out, err, code = run(base .. " -", "print('from stdin')")
  T.eq(out, "from stdin\n", "'-' reads standard input")
  out, err, code = run(base, "print('piped')")
  T.eq(out, "piped\n", "no terminal: standard input is the script")
  out, err, code = run(base .. " -- " .. q(script) .. " -e")
  T.eq(out, "1\ttrue\t-e\n", "-- ends the options")
end)

T.group("exit codes", function()
  local _, _, code = run(base .. " -e " .. q("os.exit(3)"))
  T.eq(code, 3, "os.exit(3)")
  _, _, code = run(base .. " -e " .. q("os.exit(true)"))
  T.eq(code, 0, "os.exit(true)")
  _, _, code = run(base .. " -e " .. q("os.exit(false)"))
  T.eq(code, 1, "os.exit(false)")
  local out
  out, _, code = run(base .. " -e " .. q("os.exit(0)") .. " -e " .. q("print('not reached')"))
  T.eq(out, "", "os.exit ends every chunk")
  T.eq(code, 0, "exit code")
end)

-- A Lua error: its message on the first line of stderr, then the traceback.
local function traced(s, what)
  T.ok(s:match("^kp120: [^\n]+\nstack traceback:\n") ~= nil, what .. ": message then traceback: " .. s)
end

T.group("Lua errors: the message and a traceback on stderr, exit 1", function()
  local out, err, code = run(base .. " -e " .. q("local function f() error('bad thing') end f()"))
  T.eq(code, 1, "exit code")
  T.eq(out, "", "stdout")
  traced(err, "message")
  T.ok(err:find("bad thing", 1, true), "message text: " .. err)
  T.ok(err:find("in local 'f'", 1, true) or err:find("in function 'f'", 1, true), "traceback names f: " .. err)
  _, err, code = run(base .. " -e " .. q("kp.NoSuchName()"))
  T.eq(code, 1, "unknown name")
  traced(err, "unknown name")
  T.ok(err:find("NoSuchName", 1, true), "names the name: " .. err)
  _, err, code = run(base .. " -e " .. q("kp.ZigouigouiARoulette(1, 2, 3)"))
  T.eq(code, 1, "wrong argument count")
  traced(err, "wrong argument count")
  T.ok(err:find("ZigouigouiARoulette", 1, true), "names the function: " .. err)
  _, err, code = run(base .. " -e " .. q("kp.ZigouigouiARoulette(1 << 40)"))
  T.eq(code, 1, "out of range")
  traced(err, "out of range")
  _, err, code = run(base .. " -e " .. q("kp.ZigouigouiARoulette('\\255')"))
  T.eq(code, 1, "invalid UTF-8")
  traced(err, "invalid UTF-8")
  T.ok(err:find("UTF-8", 1, true), "says UTF-8: " .. err)
  _, err, code = run(base .. " -e " .. q("error({})"))
  T.eq(code, 1, "error with a table")
  traced(err, "error with a table")
  _, err, code = run(base .. " -e " .. q("this is not lua"))
  T.eq(code, 1, "syntax error")
  one_line(err, "syntax error")
end)

T.group("bad command lines", function()
  local cases = {
    { q(exe) .. " --nope", "unknown option" },
    { q(exe) .. " --lang de -e 1", "--lang" },
    { q(exe) .. " --root", "needs a value" },
    { q(exe) .. " -e", "needs a value" },
    { base .. " " .. q(work .. "/missing.lua"), "missing.lua" },
    { base .. " " .. q(work), "directory" },
    { base .. " describe", "usage" },
    { base .. " describe NoSuchName", "NoSuchName" },
    { base .. " functions a b", "usage" },
    { base .. " -e 1 " .. q(work .. "/args.lua"), "cannot be given together" },
    -- --lang fr gives kp120's own messages in French, even before --lang
    { q(exe) .. " --nope --lang fr", "option inconnue '--nope'" },
    { base .. " --lang fr describe", "usage : kp120 describe NOM" },
    { base .. " --lang fr -e 1 " .. q(work .. "/args.lua"), "ne peuvent pas être donnés ensemble" },
  }
  for _, c in ipairs(cases) do
    local out, err, code = run(c[1])
    T.eq(code, 1, c[1])
    T.eq(out, "", "stdout of " .. c[1])
    one_line(err, c[1])
    T.ok(err:find(c[2], 1, true), "'" .. err .. "' mentions " .. c[2])
  end
end)

T.group("functions listing", function()
  local out, err, code = run(base .. " functions")
  T.eq(code, 0, "exit code")
  T.ok(out:match("\n?0%s+DateSys%s+DateSys%s+2%s+[a-z ]+\n"), "first entry")
  out = run(base .. " functions datevers")
  T.ok(out:find("DateVersChaîne%s+DateToString%s+2"), "substring, any case: " .. out)
  for line in out:gmatch("[^\n]+") do
    T.ok(line:lower():find("datevers", 1, true), line)
  end
  out = run(base .. " functions 'f?uvre'")
  T.ok(out:match("^%d+%s+fOuvre%s+fOpen%s+2%s+[a-z ]+\n$"), "wildcard ?: " .. out)
  out = run(base .. " functions 'TwainToBMP'")
  T.ok(out:find("TwainVersBMP%s+TwainToBMP%s+2%s+not provided"), "TwainToBMP has no handler: " .. out)
  out = run(base .. " functions 'PÂQUES'")
  T.ok(out:find("Pâques%s+Easter"), "accented capital matches: " .. out)
  out, err, code = run(base .. " functions nothingmatches")
  T.eq(out, "", "no match")
  T.eq(code, 0, "no match is not an error")
  local untouched = work .. "/listing-root"
  os.execute("rm -rf " .. q(untouched))
  out, err, code = run(q(exe) .. " --root " .. q(untouched) .. " --registry " .. q(untouched .. "/r.sqlite3")
    .. " functions Max")
  T.eq(code, 0, "exit code")
  T.eq(io.open(untouched .. "/", "r"), nil, "a listing creates no device root")
end)

T.group("constants listing", function()
  local out, _, code = run(base .. " constants 'fo*'")
  T.eq(code, 0, "exit code")
  T.ok(out:find("foLecture%s+foRead%s+1\n"), "integer constant: " .. out)
  T.ok(out:find("foBloqueLecture%s+foReadLock%s+%(not provided%)"), "missing value")
  out = run(base .. " constants orient9")
  T.ok(out:find('^Orient90%s+Orient90%s+"90"\n$'), "string constant: " .. out)
  out = run(base .. " constants exeName")
  T.ok(out:find('exeNom%s+exeName%s+%(not provided%)'), "a value this edition leaves out: " .. out)
end)

T.group("describe, the reference and functions --family", function()
  local cases = { -- name as typed, what the entry must hold
    { "fopen", "^fOuvre / fOpen: Files, provided\n  Opens a file" },
    { "fopen", "\n  fOpen%(file: string, mode: integer%) %-> integer\n" },
    { "fopen", "On failure: %-1; errors it may record: 0 80021 80600" },
    { "DateVersChaine", "^DateVersChaîne / DateToString: Dates and times" },
    { "DATEVERSCHAÎNE", "mask: string%) %-> string" },
    { "MatchRegularExpression", "variables: any by reference" },
    { "TwainToBMP", "not provided" },
    { "fLockEmptyFile", "constant, %-2" },
  }
  for _, c in ipairs(cases) do
    local out, _, code = run(base .. " describe " .. q(c[1]))
    T.eq(code, 0, c[1] .. ": exit code")
    T.ok(out:find(c[2]), c[1] .. ": " .. c[2] .. " in " .. out)
    T.ok(not out:find("[0x", 1, true), c[1] .. ": codes as words")
  end
  local _, err, code = run(base .. " describe fOpne")
  T.eq(code, 1, "unknown name")
  T.ok(err:find("did you mean fOpen", 1, true), "nearest name: " .. err)
  local out = run(base .. " functions --family registry")
  local n = select(2, out:gsub("\n", ""))
  T.eq(n, 10, "ten registry functions: " .. out)
  T.ok(out:find("RegistreLit%s+RegistryQueryValue%s+The data of a value"), "a line: " .. out)
  _, err, code = run(base .. " functions --family nothing")
  T.eq(code, 1, "unknown family")
end)

T.group("error records, kp.strict and system texts", function()
  kp.setlang("en")
  T.eq(kp.fLoadText("\\No\\such.txt"), "", "failure value")
  local e = kp.lasterror()
  T.eq(e.system, 3, "system code")
  T.eq(e.systemtext, "The system cannot find the path specified.", "system text")
  T.eq(tostring(e), "error 0, system code 3: The system cannot find the path specified.", "printed")
  T.eq(kp.strict(true), false, "strict was off")
  local ok, err = pcall(kp.DateToInteger, "20261345")
  T.ok(not ok and type(err) == "table", "strict raises the record")
  T.eq(err.id, 80125, "identifier")
  T.eq(tostring(err), "error 80125: The month must be between 1 and 12.", "text without traces")
  T.eq(kp.DateToInteger("20261124"), 82873, "a good call still returns")
  ok, err = pcall(kp.fOpen, "relative.txt", kp.foRead)
  T.ok(not ok and not tostring(err):find("##", 1, true), "no trace lines: " .. tostring(err))
  T.eq(kp.strict(false), true, "strict was on")
  T.eq(kp.DateToInteger("20261345"), -1, "not strict: the failure value")
end)

T.group("currency arithmetic and UTF-16 buffers", function()
  local c = kp.currency
  local cases = {
    { c("0.1") + c("0.2"), "0.300000" }, { c("10") - 2.5, "7.500000" }, { c("1.5") * c("1.5"), "2.250000" },
    { c("1") / 3, "0.333333" }, { -c("2.5"), "-2.500000" }, { c("-7") / 2, "-3.500000" },
    { c("-0.000001") * c("0.5"), "0.000000" }, { c("123456789012.345678") * 1000, "123456789012345.678000" },
  }
  for i, k in ipairs(cases) do T.eq(tostring(k[1]), k[2], "case " .. i) end
  T.ok(c("0.1") < c("0.2") and c("2") <= 2 and not (c("3") < 1), "comparisons")
  T.eq(c("1.25"):tonumber(), 1.25, "to a number")
  T.raises("currency overflow", function() return c("600000000000000000") * 1000 end)
  T.raises("division by zero", function() return c("1") / 0 end)
  T.eq(kp.buffer("h\0\233\0"):text(), "hé", "UTF-16LE buffer as text")
  -- The registry keeps currency and reals as bytes, booleans as integers.
  local key = "HKEY_CURRENT_USER\\Software\\kp120\\cli"
  T.eq(kp.RegistryCreateKey(key), true, "key")
  T.eq(kp.RegistrySetValue(key, "c", c("-12.345")), true, "currency written")
  T.eq(kp.RegistryQueryValue(key, "c"):currency(), c("-12.345"), "currency read back")
  T.eq(kp.RegistrySetValue(key, "r", 2.5), true, "real written")
  T.eq(kp.RegistryQueryValue(key, "r"):real(), 2.5, "real read back")
  T.eq(kp.RegistrySetValue(key, "b", true), true, "boolean written")
  T.eq(kp.RegistryQueryValue(key, "b"), 1, "boolean reads back as 1")
end)

T.group("the prompt on a terminal", function()
  if not run("command -v python3") :find("python3") then T.skip("python3 is missing") end
  local pty = (arg[0]:match("^(.*)/") or ".") .. "/pty_run.py"
  local state = work .. "/state"
  os.execute("rm -rf " .. q(state))
  local keys = 'kp.DateToInteger("20261345")\n#"Tournée", kp["Pâques"](2026)\nkp.DateToStr\t("20240229")\n' ..
    'help fOpne\nkp.fLoadText("\\\\No\\\\such.txt")\n{1, "a", x = kp.currency("2")}\n'
  local out = run("env LC_ALL=C.UTF-8 XDG_STATE_HOME=" .. q(state) .. " python3 " .. q(pty) .. " " .. base .. " --lang fr", keys)
  for _, want in ipairs({
    "appelle une fonction", -- the banner in French
    "\n%-1 %[error 80125: [^\n]*%]\n", -- a failed call shows its record
    "\n8, \"20260405\"\n", -- non-ASCII text typed at the prompt
    "\"29/02/2024\"", -- Tab completed the name
    "vouliez%-vous dire fOpen", -- help with the nearest name
    "\n\"\" %[error 0, system code 3: [^\n]+%]\n", -- the system's text
  }) do
    T.ok(out:find(want), want .. " in " .. out)
  end
  local f = io.open(state .. "/kp120/history", "rb")
  local history = f and f:read("a") or ""
  if f then f:close() end
  T.ok(history:find("Tournée", 1, true), "history kept under XDG_STATE_HOME: " .. history)
end)

T.group("French interface language", function()
  local chunk = "local ok, d = pcall(kp.IntegerToDayInAlpha, 1) print(ok and d or 'n/a')"
  local fr, _, code = run(base .. " --lang fr -e " .. q(chunk))
  T.eq(code, 0, "exit code")
  local en = run(base .. " --lang en -e " .. q(chunk))
  local _, err = run(base .. " --lang fr -e " .. q("return kp.NoSuchName"))
  T.ok(err:find("fonction ou constante inconnue 'NoSuchName'", 1, true), err)
  T.ok(run(q(exe) .. " --lang fr --help"):find("exécute du code Lua", 1, true), "French usage")
  local _, jerr = run(base .. " --lang fr -e " .. q("return kp.json(print)"))
  T.ok(jerr:find("une valeur function ne peut pas s'écrire en JSON", 1, true), jerr)
  if fr == "n/a\n" then T.skip("IntegerToDayInAlpha not provided") end
  T.ok(fr ~= en, "day names follow --lang: " .. fr .. en)
end)

T.group("Ctrl-C stops a running script", function()
  -- The signal is sent once the script runs, however long it takes to start.
  -- ThreadSanitizer holds a signal back until the program next enters the
  -- C library, which a loop of bare Lua never does: under it
  -- (tools/test-tsan.sh sets KP120_TSAN) the loop allocates.
  local loop = os.getenv("KP120_TSAN") and "while true do local t = {} end" or "while true do end"
  local ready = work .. "/ctrl-c.out"
  os.remove(ready)
  local cmd = "sh -c " .. q(base .. " -e 'io.write(\"ready\") io.stdout:flush() " .. loop .. "' >" .. q(ready)
    .. " & p=$!; until grep -q ready " .. q(ready) .. " 2>/dev/null; do sleep 0.1; done; kill -INT $p; wait $p")
  local out, err, code = run(cmd)
  T.eq(code, 1, "exit code")
  traced(err, "message")
  T.ok(err:find("interrupted", 1, true), err)
end)

T.group("component that cannot be loaded", function()
  local out, err, code = run("KP120_COMPONENT=" .. q(work .. "/no-such-lib.so") .. " " .. base .. " -e 1")
  T.eq(code, 1, "exit code")
  T.eq(out, "", "stdout")
  one_line(err, "message")
  T.ok(err:find("cannot load the component", 1, true), err)
end)

T.group("device root and registry paths", function()
  local root = work .. "/root-check"
  local cmd = q(exe) .. " --root " .. q(root) .. " --registry " .. q(work .. "/sub/dir/reg.sqlite3")
  local chunk = [[
    local ok, r = pcall(kp.fSaveText, "\\in-root.txt", "x")
    if not ok then print("n/a") return end
    print(r, kp.fSaveText("/Data/slash.txt", "y"))
  ]]
  os.execute("rm -rf " .. q(root))
  local out, err, code = run(cmd .. " -e " .. q("print(1)"))
  T.eq(code, 0, "exit code: " .. err)
  T.ok(io.open(root .. "/", "r") ~= nil, "device root created")
  T.ok(io.open(work .. "/sub/dir/", "r") ~= nil, "registry folder created")
  os.execute("mkdir -p " .. q(root .. "/Data"))
  out, err, code = run(cmd .. " -e " .. q(chunk))
  T.eq(code, 0, "exit code: " .. err)
  if out == "n/a\n" then T.skip("fSaveText not provided") end
  T.eq(out, "true\ttrue\n", "both names written")
  for _, name in ipairs({ "/in-root.txt", "/Data/slash.txt" }) do
    local f = io.open(root .. name, "rb")
    T.ok(f ~= nil, name .. " lands under the root")
    f:close()
  end
end)

T.done()
