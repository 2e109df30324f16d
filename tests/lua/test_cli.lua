-- The kp120 command line: modes, options, listings, exit codes and the
-- one-line messages of bad input.
local T = dofile((arg[0]:match("^(.*)/") or ".") .. "/testlib.lua")

local exe, work = arg[1], arg[2]
assert(exe and work, "usage: test_cli.lua KP120 WORKDIR")

local q, run = T.q, T.run
local base = q(exe) .. " --root " .. q(work .. "/cli-device") .. " --registry " .. q(work .. "/cli.sqlite3")
-- Runs chunks given with -e (after `opts`); stdout, stderr, exit code.
local function chunk(c, opts) return run(base .. " " .. (opts or "") .. " -e " .. q(c)) end

local function one_line(s, what)
  T.ok(s:match("^[^\n]+\n$") ~= nil, what .. " is one line: " .. string.format("%q", s))
end

-- A Lua error: its message on the first line of stderr, then the traceback.
local function traced(s, what)
  T.ok(s:match("^kp120: [^\n]+\nstack traceback:\n") ~= nil, what .. ": message then traceback: " .. s)
end

T.group("help and version", function()
  local out, err, code = run(q(exe) .. " --help")
  T.eq(code .. err, "0", "exit code and stderr")
  T.ok(out:find("kp120 [OPTIONS] -e CHUNK", 1, true) and out:find("--registry FILE", 1, true), "usage: " .. out)
  out, err, code = run(q(exe) .. " --version")
  T.eq(code, 0, "exit code")
  T.ok(out:match("^kp120 %d+%.%d+%.%d+ %(Lua 5%.4"), "version line: " .. out)
end)

T.group("-e, script files, standard input, arg and exit codes", function()
  local script = work .. "/args.lua"
  T.write(script, "print(#arg, arg[0] ~= nil, ...)\n")
  local cases = { -- command line after the options, standard input, stdout, exit code
    { "-e " .. q("print(1 + 1)"), nil, "2\n", 0 },
    { "-e " .. q("io.write('a')") .. " -e " .. q("io.write('b')"), nil, "ab", 0 }, -- in order
    { q(script) .. " x 'y z'", nil, "2\ttrue\tx\ty z\n", 0 },
    { "-", "print('from stdin')", "from stdin\n", 0 },
    { "", "print('piped')", "piped\n", 0 }, -- no terminal: standard input is the script
    { "-- " .. q(script) .. " -e", nil, "1\ttrue\t-e\n", 0 }, -- -- ends the options
    { "-e " .. q("os.exit(3)"), nil, "", 3 },
    { "-e " .. q("os.exit(true)"), nil, "", 0 },
    { "-e " .. q("os.exit(false)"), nil, "", 1 },
    { "-e " .. q("os.exit(0)") .. " -e " .. q("print('not reached')"), nil, "", 0 },
  }
  for _, c in ipairs(cases) do
    local out, _, code = run(base .. " " .. c[1], c[2])
    T.eq(out .. "|" .. code, c[3] .. "|" .. c[4], c[1])
  end
end)

T.group("Lua errors: the message and a traceback on stderr, exit 1", function()
  local cases = { -- chunk, text of the message
    { "local function f() error('bad thing') end f()", "bad thing" },
    { "kp.NoSuchName()", "NoSuchName" },
    { "kp.ZigouigouiARoulette(1, 2, 3)", "ZigouigouiARoulette" },
    { "kp.ZigouigouiARoulette(1 << 40)", "ZigouigouiARoulette" },
    { "kp.ZigouigouiARoulette('\\255')", "UTF-8" },
    { "error({})", "" },
  }
  for _, c in ipairs(cases) do
    local out, err, code = chunk(c[1])
    T.eq(out .. "|" .. code, "|1", c[1])
    traced(err, c[1])
    T.ok(err:find(c[2], 1, true), c[1] .. ": " .. err)
  end
  local _, err = chunk("local function f() error('bad thing') end f()")
  T.ok(err:find("in local 'f'", 1, true) or err:find("in function 'f'", 1, true), "traceback names f: " .. err)
  local _, err, code = chunk("this is not lua")
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
    { base .. " describe fOpne", "did you mean fOpen" },
    { base .. " functions a b", "usage" },
    { base .. " functions --family nothing", "nothing" },
    { base .. " -e 1 " .. q(work .. "/args.lua"), "cannot be given together" },
    { "KP120_COMPONENT=" .. q(work .. "/no-such-lib.so") .. " " .. base .. " -e 1", "cannot load the component" },
    -- --lang fr gives kp120's own messages in French, even before --lang
    { q(exe) .. " --nope --lang fr", "option inconnue '--nope'" },
    { base .. " --lang fr describe", "usage : kp120 describe NOM" },
    { base .. " --lang fr -e 1 " .. q(work .. "/args.lua"), "ne peuvent pas être donnés ensemble" },
  }
  for _, c in ipairs(cases) do
    local out, err, code = run(c[1])
    T.eq(out .. "|" .. code, "|1", c[1])
    one_line(err, c[1])
    T.ok(err:find(c[2], 1, true), "'" .. err .. "' mentions " .. c[2])
  end
end)

T.group("functions and constants listings, describe", function()
  local cases = { -- arguments, pattern the output must match
    { "functions", "\n?0%s+DateSys%s+DateSys%s+2%s+[a-z ]+\n" },
    { "functions datevers", "DateVersChaîne%s+DateToString%s+2" }, -- substring, any case
    { "functions 'f?uvre'", "^%d+%s+fOuvre%s+fOpen%s+2%s+[a-z ]+\n$" },
    { "functions 'TwainToBMP'", "TwainVersBMP%s+TwainToBMP%s+2%s+not provided" },
    { "functions 'PÂQUES'", "Pâques%s+Easter" },
    { "functions nothingmatches", "^$" },
    { "functions --family registry", "RegistreLit%s+RegistryQueryValue%s+The data of a value" },
    { "constants 'fo*'", "foLecture%s+foRead%s+1\n" },
    { "constants 'fo*'", "foBloqueLecture%s+foReadLock%s+%(not provided%)" },
    { "constants orient9", '^Orient90%s+Orient90%s+"90"\n$' },
    { "constants exeName", "exeNom%s+exeName%s+%(not provided%)" },
    { "describe fopen", "^fOuvre / fOpen: Files, provided\n  Opens a file" },
    { "describe fopen", "\n  fOpen%(file: string, mode: integer%) %-> integer\n" },
    { "describe fopen", "On failure: %-1; errors it may record: 0 80021 80600" },
    { "describe DateVersChaine", "^DateVersChaîne / DateToString: Dates and times" },
    { "describe 'DATEVERSCHAÎNE'", "mask: string%) %-> string" },
    { "describe MatchRegularExpression", "variables: any by reference" },
    { "describe TwainToBMP", "not provided" },
    { "describe fLockEmptyFile", "constant, %-2" },
  }
  for _, c in ipairs(cases) do
    local out, _, code = run(base .. " " .. c[1])
    T.eq(code, 0, c[1] .. ": exit code")
    T.ok(out:find(c[2]), c[1] .. ": " .. c[2] .. " in " .. out)
    T.ok(not out:find("[0x", 1, true), c[1] .. ": codes as words")
  end
  for line in run(base .. " functions datevers"):gmatch("[^\n]+") do
    T.ok(line:lower():find("datevers", 1, true), line)
  end
  T.eq(select(2, run(base .. " functions --family registry"):gsub("\n", "")), 10, "ten registry functions")
  local untouched = work .. "/listing-root"
  os.execute("rm -rf " .. q(untouched))
  local _, _, code = run(q(exe) .. " --root " .. q(untouched) .. " --registry " .. q(untouched .. "/r.sqlite3")
    .. " functions Max")
  T.eq(code, 0, "exit code")
  T.eq(io.open(untouched .. "/", "r"), nil, "a listing creates no device root")
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
  T.ok(kp.RegistrySetValue(key, "c", c("-12.345")) and kp.RegistrySetValue(key, "r", 2.5)
    and kp.RegistrySetValue(key, "b", true), "values written")
  T.eq(kp.RegistryQueryValue(key, "c"):currency(), c("-12.345"), "currency read back")
  T.eq(kp.RegistryQueryValue(key, "r"):real(), 2.5, "real read back")
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
  local _, err = chunk("return kp.NoSuchName", "--lang fr")
  T.ok(err:find("fonction ou constante inconnue 'NoSuchName'", 1, true), err)
  T.ok(run(q(exe) .. " --lang fr --help"):find("exécute du code Lua", 1, true), "French usage")
  _, err = chunk("return kp.json(print)", "--lang fr")
  T.ok(err:find("une valeur function ne peut pas s'écrire en JSON", 1, true), err)
  local day = "local ok, d = pcall(kp.IntegerToDayInAlpha, 1) print(ok and d or 'n/a')"
  local fr, en = chunk(day, "--lang fr"), chunk(day, "--lang en")
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
  local _, err, code = run(cmd)
  T.eq(code, 1, "exit code")
  traced(err, "message")
  T.ok(err:find("interrupted", 1, true), err)
end)

T.group("device root and registry paths", function()
  local root = work .. "/root-check"
  local cmd = q(exe) .. " --root " .. q(root) .. " --registry " .. q(work .. "/sub/dir/reg.sqlite3")
  os.execute("rm -rf " .. q(root))
  local _, err, code = run(cmd .. " -e " .. q("print(1)"))
  T.eq(code, 0, "exit code: " .. err)
  T.ok(io.open(root .. "/", "r") ~= nil, "device root created")
  T.ok(io.open(work .. "/sub/dir/", "r") ~= nil, "registry folder created")
  os.execute("mkdir -p " .. q(root .. "/Data"))
  local out
  out, err = run(cmd .. " -e " .. q([[
    local ok, r = pcall(kp.fSaveText, "\\in-root.txt", "x")
    if not ok then print("n/a") return end
    print(r, kp.fSaveText("/Data/slash.txt", "y"))]]))
  if out == "n/a\n" then T.skip("fSaveText not provided") end
  T.eq(out, "true\ttrue\n", "both names written: " .. err)
  for _, name in ipairs({ "/in-root.txt", "/Data/slash.txt" }) do
    T.ok(io.open(root .. name, "rb") ~= nil, name .. " lands under the root")
  end
end)

T.done()
