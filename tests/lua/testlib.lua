-- testlib.lua - checks for the Lua tests of kp120: each group runs in its own pcall; exit 1 when any failed.
local T = { failed = 0, groups = 0 }

local function show(v) return type(v) == "string" and string.format("%q", v) or tostring(v) end

local function differ(got, want, what, level)
  if got ~= want then error(string.format("%s: got %s, want %s", what, show(got), show(want)), level + 1) end
end

function T.eq(got, want, what) differ(got, want, what or "value", 2) end

function T.ok(cond, what)
  if not cond then error((what or "condition") .. " is false", 2) end
end

-- Checks every row {got, want, what} of a table with T.eq.
function T.rows(rows)
  for i, r in ipairs(rows) do differ(r[1], r[2], r[3] or i, 2) end
end

-- Calls f(...) and expects a Lua error whose message contains `needle`.
function T.raises(needle, f, ...)
  local ok, msg = pcall(f, ...)
  if ok then error("no error raised (wanted one containing '" .. needle .. "')", 2) end
  msg = tostring(msg)
  if not msg:find(needle, 1, true) then error("error '" .. msg .. "' does not contain '" .. needle .. "'", 2) end
  return msg
end

-- True when calling kp[name] with these arguments works; false when this build does not provide it.
function T.provided(name, ...)
  local ok, msg = pcall(kp[name], ...)
  if ok then return true end
  if tostring(msg):find("not provided", 1, true) then return false end
  error(msg, 0)
end

function T.group(name, f)
  T.groups = T.groups + 1
  local ok, msg = xpcall(f, debug.traceback)
  if ok then print("ok     " .. name)
  elseif tostring(msg):find("^SKIP") then print("skip   " .. name .. " (" .. tostring(msg):gsub("\n.*", "") .. ")")
  else T.failed = T.failed + 1 print("FAILED " .. name .. "\n" .. tostring(msg)) end
end

function T.skip(why) error("SKIP: " .. why, 0) end

-- A word for the shell, quoted.
function T.q(s) return "'" .. s:gsub("'", "'\\''") .. "'" end

-- The whole content of a file, and a file written whole.
function T.read(path) local f <close> = assert(io.open(path, "rb")) return f:read("a") end

function T.write(path, s) local f <close> = assert(io.open(path, "wb")) f:write(s) end

-- Runs a shell command line (standard input from `input`, or none): its stdout, stderr and exit code.
function T.run(cmdline, input)
  local errfile, infile = os.tmpname(), input and os.tmpname()
  if infile then T.write(infile, input) end
  local p = assert(io.popen(cmdline .. " 2>" .. T.q(errfile) .. " <" .. T.q(infile or "/dev/null")))
  local out = p:read("a")
  local _, _, code = p:close()
  local err = T.read(errfile)
  os.remove(errfile) if infile then os.remove(infile) end
  return out, err, code
end

-- Runs a command line that must succeed; its stdout.
function T.run_ok(cmdline, input)
  local out, err, code = T.run(cmdline, input)
  if code ~= 0 then error(cmdline .. ": exit code " .. tostring(code) .. ": " .. err, 2) end
  return out
end

function T.done()
  print(string.format("%d groups, %d failed", T.groups, T.failed))
  if T.failed > 0 then os.exit(1) end
end

return T
