-- The kp120 command line: modes, options, listings, exit codes and the one-line messages of bad input.
local T = dofile((arg[0]:match("^(.*)/") or ".") .. "/testlib.lua")

local exe, work = arg[1], arg[2]
assert(exe and work, "usage: test_cli.lua KP120 WORKDIR")

local q, run = T.q, T.run
local base = q(exe) .. " --root " .. q(work .. "/cli-device") .. " --registry " .. q(work .. "/cli.sqlite3")
-- Runs chunks given with -e (after `opts`); stdout, stderr, exit code.
local function chunk(c, opts) return run(base .. " " .. (opts or "") .. " -e " .. q(c)) end

-- A failure: no stdout, exit code 1, on stderr one line naming `needle` (or a Lua error and its traceback).
local function failed(what, needle, traced, out, err, code)
  T.eq(out .. "|" .. code, "|1", what)
  T.ok(err:match(traced and "^kp120: [^\n]+\nstack traceback:\n" or "^[^\n]+\n$"), what .. ": form of " .. err)
  T.ok(err:find(needle, 1, true), what .. ": '" .. err .. "' mentions " .. needle)
end

T.group("help and version", function()
  local out, err, code = run(q(exe) .. " --help")
  T.eq(code .. err, "0", "exit code and stderr")
  T.ok(out:find("-e CHUNK", 1, true) and out:find("--registry FILE", 1, true), "usage: " .. out)
  T.ok(run(q(exe) .. " --version"):match("^kp120 %d+%.%d+%.%d+ %(Lua 5%.4"), "version line")
  T.ok(run(q(exe) .. " --lang fr --help"):find("exécute du code Lua", 1, true), "French usage")
end)

T.group("-e, script files, standard input, arg and exit codes", function()
  local script = work .. "/args.lua"
  T.write(script, "print(#arg, arg[0] ~= nil, ...)\n")
  local e = function(c) return "-e " .. q(c) end
  local cases = { -- command line after the options, standard input, stdout, exit code
    { e("print(1 + 1)"), nil, "2\n", 0 }, { e("io.write('a')") .. " " .. e("io.write('b')"), nil, "ab", 0 },
    { q(script) .. " x 'y z'", nil, "2\ttrue\tx\ty z\n", 0 }, { "-", "print('from stdin')", "from stdin\n", 0 },
    { "", "print('piped')", "piped\n", 0 }, -- no terminal: standard input is the script
    { "-- " .. q(script) .. " -e", nil, "1\ttrue\t-e\n", 0 }, -- -- ends the options
    { e("os.exit(3)"), nil, "", 3 }, { e("os.exit(true)"), nil, "", 0 }, { e("os.exit(false)"), nil, "", 1 },
    { e("os.exit(0)") .. " " .. e("print('not reached')"), nil, "", 0 },
  }
  for _, c in ipairs(cases) do
    local out, _, code = run(base .. " " .. c[1], c[2])
    T.eq(out .. "|" .. code, c[3] .. "|" .. c[4], c[1])
  end
end)

T.group("Lua errors and bad command lines: exit 1, the message on stderr", function()
  local errors = { -- chunk, options, text of the message: each with a traceback
    { "local function f() error('bad thing') end f()", "", "bad thing" }, { "kp.NoSuchName()", "", "NoSuchName" },
    { "kp.ZigouigouiARoulette(1, 2, 3)", "", "ZigouigouiARoulette" }, { "error({})", "", "" },
    { "kp.ZigouigouiARoulette(1 << 40)", "", "ZigouigouiARoulette" }, { "kp.ZigouigouiARoulette('\\255')", "", "UTF-8" },
    { "return kp.NoSuchName", "--lang fr", "fonction ou constante inconnue 'NoSuchName'" },
    { "return kp.json(print)", "--lang fr", "une valeur function ne peut pas s'écrire en JSON" },
  }
  for _, c in ipairs(errors) do failed(c[1], c[3], true, chunk(c[1], c[2])) end
  local _, err = chunk(errors[1][1])
  T.ok(err:find("in local 'f'", 1, true) or err:find("in function 'f'", 1, true), "traceback names f: " .. err)
  local lines = { -- command line, text of its one-line message
    { base .. " -e 'this is not lua'", "" }, { q(exe) .. " --nope", "unknown option" },
    { q(exe) .. " --lang de -e 1", "--lang" }, { q(exe) .. " --root", "needs a value" }, { q(exe) .. " -e", "needs a value" },
    { base .. " " .. q(work .. "/missing.lua"), "missing.lua" }, { base .. " " .. q(work), "directory" },
    { base .. " describe", "usage" }, { base .. " describe NoSuchName", "NoSuchName" },
    { base .. " describe fOpne", "did you mean fOpen" }, { base .. " functions a b", "usage" },
    { base .. " functions --family nothing", "nothing" },
    { base .. " -e 1 " .. q(work .. "/args.lua"), "cannot be given together" },
    { "KP120_COMPONENT=" .. q(work .. "/no-such-lib.so") .. " " .. base .. " -e 1", "cannot load the component" },
    -- --lang fr gives kp120's own messages in French, even before --lang
    { q(exe) .. " --nope --lang fr", "option inconnue '--nope'" }, { base .. " --lang fr describe", "usage : kp120" },
  }
  for _, c in ipairs(lines) do failed(c[1], c[2], false, run(c[1])) end
end)

T.group("functions and constants listings, describe", function()
  local cases = { -- arguments, pattern the output must match
    { "functions", "\n?0%s+DateSys%s+DateSys%s+2%s+[a-z ]+\n" },
    { "functions datevers", "DateVersChaîne%s+DateToString%s+2" }, -- substring, any case
    { "functions 'f?uvre'", "^%d+%s+fOuvre%s+fOpen%s+2%s+[a-z ]+\n$" }, { "functions nothingmatches", "^$" },
    { "functions 'PÂQUES'", "Pâques%s+Easter" }, { "functions 'TwainToBMP'", "TwainToBMP%s+2%s+not provided" },
    { "functions --family registry", "RegistreLit%s+RegistryQueryValue%s+The data of a value" },
    { "constants 'fo*'", "foLecture%s+foRead%s+1\n" }, { "constants exeName", "exeNom%s+exeName%s+%(not provided%)" },
    { "describe fopen", "^fOuvre / fOpen: Files, provided\n  Opens a file" },
    { "describe fopen", "\n  fOpen%(file: string, mode: integer%) %-> integer\n" },
    { "describe DateVersChaine", "^DateVersChaîne / DateToString: Dates and times" },
    { "describe 'DATEVERSCHAÎNE'", "mask: string%) %-> string" },
    { "describe MatchRegularExpression", "variables: any by reference" },
    { "describe fLockEmptyFile", "constant, %-2" },
  }
  for _, c in ipairs(cases) do
    local out, _, code = run(base .. " " .. c[1])
    T.eq(code, 0, c[1] .. ": exit code")
    T.ok(out:find(c[2]) and not out:find("[0x", 1, true), c[1] .. ": " .. c[2] .. ", codes as words, in " .. out)
  end
  for line in run(base .. " functions datevers"):gmatch("[^\n]+") do T.ok(line:lower():find("datevers", 1, true), line) end
  T.eq(select(2, run(base .. " functions --family registry"):gsub("\n", "")), 10, "ten registry functions")
  local untouched = work .. "/listing-root"
  os.execute("rm -rf " .. q(untouched))
  T.eq(select(3, run(q(exe) .. " --root " .. q(untouched) .. " --registry " .. q(untouched .. "/r.sqlite3")
    .. " functions Max")), 0, "exit code")
  T.eq(io.open(untouched .. "/", "r"), nil, "a listing creates no device root")
end)

T.group("error records, kp.strict and system texts", function()
  kp.setlang("en")
  T.eq(kp.fLoadText("\\No\\such.txt"), "", "failure value")
  local e = kp.lasterror()
  T.eq(tostring(e), "error 0, system code 3: The system cannot find the path specified.", "printed")
  T.eq(e.system .. " " .. e.systemtext, "3 The system cannot find the path specified.", "system code and text")
  T.eq(kp.strict(true), false, "strict was off")
  local ok, err = pcall(kp.DateToInteger, "20261345")
  T.ok(not ok and type(err) == "table", "strict raises the record")
  T.eq(err.id .. " " .. tostring(err), "80125 error 80125: The month must be between 1 and 12.", "text without traces")
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
  T.ok(kp.RegistryCreateKey(key) and kp.RegistrySetValue(key, "c", c("-12.345"))
    and kp.RegistrySetValue(key, "r", 2.5) and kp.RegistrySetValue(key, "b", true), "values written")
  T.rows({ { kp.RegistryQueryValue(key, "c"):currency(), c("-12.345"), "currency" },
    { kp.RegistryQueryValue(key, "r"):real(), 2.5, "real" }, { kp.RegistryQueryValue(key, "b"), 1, "boolean as 1" } })
end)

T.group("the prompt on a terminal", function()
  if not run("command -v python3") :find("python3") then T.skip("python3 is missing") end
  local pty = (arg[0]:match("^(.*)/") or ".") .. "/pty_run.py"
  local state = work .. "/state"
  os.execute("rm -rf " .. q(state))
  local keys = 'kp.DateToInteger("20261345")\n#"Tournée", kp["Pâques"](2026)\nkp.DateToStr\t("20240229")\n' ..
    'help fOpne\nkp.fLoadText("\\\\No\\\\such.txt")\n{1, "a", x = kp.currency("2")}\n'
  local out = run("env LC_ALL=C.UTF-8 XDG_STATE_HOME=" .. q(state) .. " python3 " .. q(pty) .. " " .. base .. " --lang fr", keys)
  for _, want in ipairs({ -- the French banner, a failed call's record, typed non-ASCII text, Tab completion,
    -- help with the nearest name, the system's text
    "appelle une fonction", "\n%-1 %[error 80125: [^\n]*%]\n", "\n8, \"20260405\"\n", "\"29/02/2024\"",
    "vouliez%-vous dire fOpen", "\n\"\" %[error 0, system code 3: [^\n]+%]\n" }) do T.ok(out:find(want), want .. " in " .. out) end
  local _, history = pcall(T.read, state .. "/kp120/history")
  T.ok(history:find("Tournée", 1, true), "history kept under XDG_STATE_HOME: " .. history)
end)

T.group("day names follow --lang", function()
  local day = "local ok, d = pcall(kp.IntegerToDayInAlpha, 1) print(ok and d or 'n/a')"
  local fr, en = chunk(day, "--lang fr"), chunk(day, "--lang en")
  if fr == "n/a\n" then T.skip("IntegerToDayInAlpha not provided") end
  T.ok(fr ~= en, fr .. en)
end)

T.group("Ctrl-C stops a running script", function()
  -- Sent once the script runs.  ThreadSanitizer delivers a signal only as the program enters the C library:
  -- under it (tools/test-tsan.sh sets KP120_TSAN) the loop allocates.
  local loop = os.getenv("KP120_TSAN") and "while true do local t = {} end" or "while true do end"
  local ready = work .. "/ctrl-c.out"
  os.remove(ready)
  local cmd = "sh -c " .. q(base .. " -e 'io.write(\"ready\") io.stdout:flush() " .. loop .. "' >" .. q(ready)
    .. " & p=$!; until grep -q ready " .. q(ready) .. " 2>/dev/null; do sleep 0.1; done; kill -INT $p; wait $p")
  local _, err, code = run(cmd)
  failed("Ctrl-C", "interrupted", true, "", err, code)
end)

T.group("device root and registry paths", function()
  local root = work .. "/root-check"
  local cmd = q(exe) .. " --root " .. q(root) .. " --registry " .. q(work .. "/sub/dir/reg.sqlite3")
  os.execute("rm -rf " .. q(root))
  local _, err, code = run(cmd .. " -e " .. q("print(1)"))
  T.eq(code, 0, "exit code: " .. err)
  T.ok(io.open(root .. "/", "r") and io.open(work .. "/sub/dir/", "r"), "device root and registry folder created")
  os.execute("mkdir -p " .. q(root .. "/Data"))
  local out, err2 = run(cmd .. " -e " .. q([[
    local ok, r = pcall(kp.fSaveText, "\\in-root.txt", "x")
    if not ok then print("n/a") return end
    print(r, kp.fSaveText("/Data/slash.txt", "y"))]]))
  if out == "n/a\n" then T.skip("fSaveText not provided") end
  T.eq(out, "true\ttrue\n", "both names written: " .. err2)
  T.ok(io.open(root .. "/in-root.txt", "rb") and io.open(root .. "/Data/slash.txt", "rb"), "both land under the root")
end)

T.done()
