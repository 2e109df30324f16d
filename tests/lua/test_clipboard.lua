-- The clipboard between kp120 processes without a display (the device store of this test's own root), and
-- table controls built from Lua.
local T = dofile((arg[0]:match("^(.*)/") or ".") .. "/testlib.lua")
local exe, work = arg[1], arg[2]

local q = T.q
local root = work .. "/clipboard-device"
os.execute("rm -rf " .. q(root) .. " && mkdir -p " .. q(root))

-- A separate kp120 process on the shared root running a chunk: its command line, and its output.
local function cmdline(chunk) return "env -u DISPLAY " .. q(exe) .. " --root " .. q(root) .. " -e " .. q(chunk) end
local function process(chunk) local out, err = T.run(cmdline(chunk)) return out .. err end

T.group("two processes exchange text through the device store", function()
  T.eq(process('io.write(tostring(kp.ToClipboard("from A: \\u{E9}t\\u{E9} \\u{1F600}")))'), "true", "A puts")
  T.eq(process('io.write(kp.Clipboard())'), "from A: \u{E9}t\u{E9} \u{1F600}", "B reads")
  T.eq(process('io.write(tostring(kp.ClipboardFormat(1)), " ", tostring(kp.ClipboardFormat(2)), " ", kp.ClipboardWidth())'),
       "true false -1", "formats seen by a third process")
  -- The empty string is one zero character: text that reads back empty.
  T.eq(process('io.write(tostring(kp.ToClipboard("")))'), "true", "empty text")
  T.eq(process('io.write("[", kp.Clipboard(), "] ", tostring(kp.ClipboardFormat(1)))'), "[] true", "read back")
  -- Many writers at once: every one succeeds and the store stays whole.
  local writers = {}
  for k = 1, 4 do
    writers[k] = assert(io.popen(cmdline('for i = 1, 20 do assert(kp.ToClipboard("writer ' .. k .. ' " .. i)) end io.write("done")') .. " 2>&1"))
  end
  for k = 1, 4 do T.eq(writers[k]:read("a"), "done", "writer " .. k) writers[k]:close() end
  T.ok(process('io.write(kp.Clipboard())'):match("^writer %d 20$"), "the last text of one writer")
end)

T.group("tables built from Lua", function()
  local out = process([[
local t = kp.table{kind = 9, columns = {{title = "Name"}, {title = "Qty", visible = false}},
                   rows = {{"a", 1}, {"b", 2}}, selected = {2}, totals = {"", 3}}
io.write(kp.TableToText(t), "|", kp.TableToText(t, 2 + 8, ";", "/"), "|", kp.TableToText(t, 16 + 1, ",", "/"), "|")
io.write(tostring(kp.TableToClipboard(t, 1, ";", "/", 2)), "|", kp.Clipboard())
]])
  T.eq(out, "Name\r\na\r\nb\r\n|Name;Qty/a;1/b;2|b/|true|b/", "exports")
  -- The refusals of TableToText are tests/clipboard's; an unreadable table can only be built here.
  T.eq(process('io.write("[", kp.TableToText(kp.table{columns = {"x"}, unreadable = true}), "] ", kp.lasterror().severity)'),
       "[] 2", "an unreadable table")
  T.eq(process('local ok, e = pcall(kp.table, {rows = 3}) io.write(tostring(ok), " ", tostring(e):match("rows must be a table") or e)'),
       "false rows must be a table", "a bad description")
end)

T.done()
