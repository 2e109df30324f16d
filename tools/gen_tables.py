#!/usr/bin/env python3
"""Turns the declarative descriptor tables (src/component/tables/*.tbl) into C++.

Usage: gen_tables.py TABLE_DIR OUTPUT.cpp

functions.tbl, one function a line, its overloads on the following lines:
    function ID "French" "English" ATTRIBUTES
      overload HANDLER RESULT (PARAM, PARAM, ...)
HANDLER is `h` when this edition implements the overload (the handler is
kp::handlers::<English>_<n>, n counting the function's overloads from 1) or
`-` when it does not.  Types are names (see TYPES) or hex words; a name may
carry `*` for the VM-converts bit 0x8000 and `!` for the bit 0x4000.

constants.tbl, one a line:
    constant "French" "English" ATTRIBUTES int VALUE
    constant "French" "English" ATTRIBUTES none
    constant "French" "English" ATTRIBUTES string "TEXT"

variables.tbl, one a line:
    variable ID "French" "English" ATTRIBUTES TYPE

Names are UTF-8 here and become Windows-1252 bytes in the tables.  Blank
lines and lines starting with # are ignored.

Besides the three tables the output defines kp::tables::provided_mask[], one
16-bit word a function entry: bit n is set when overload n + 1 is marked `h`.
The VM never reads it; tests read it to tell the overloads this edition
provides from those it leaves out.

Handlers are ordinary (strong) references: an overload marked `h` whose
handler no family defines fails the link of the module.

A second output, kp120_signatures.h beside OUTPUT.cpp, gives each handler's
overload as a constant kp::sig::<English>_<n> (result and parameter type
words).  KP_BIND and KP_HANDLER name it, so a handler the table does not
have, or a bound signature whose types disagree with the table's, fails to
compile (src/component/bind.h).
"""
import shlex
import sys
from pathlib import Path

TYPES = {
    "none": 0x00, "bool": 0x01, "int": 0x08, "int64": 0x09, "currency": 0x0A,
    "real": 0x0C, "hin": 0x0E, "hout": 0x0F, "str": 0x12, "sres": 0x13,
    "date": 0x18, "time": 0x19, "datetime": 0x1A, "duration": 0x1B,
    "buffer": 0x1C, "any": 0x1F, "window": 0x2C, "image": 0x2E,
    "control": 0x39, "proc": 0x43, "rawstr": 0x4B, "raw": 0x4D, "store": 0x59,
}


def fail(path, lineno, msg):
    sys.exit(f"{path}:{lineno}: {msg}")


def type_word(tok, path, lineno):
    word = 0
    while tok and tok[-1] in "*!":
        word |= 0x8000 if tok[-1] == "*" else 0x4000
        tok = tok[:-1]
    if tok.lower().startswith("0x"):
        return word | int(tok, 16)
    if tok not in TYPES:
        fail(path, lineno, f"unknown type {tok!r}")
    return word | TYPES[tok]


def c_bytes(name):
    out = []
    for b in name.encode("cp1252"):
        if b == 0x22 or b == 0x5C:
            out.append("\\" + chr(b))
        elif 0x20 <= b < 0x7F:
            out.append(chr(b))
        else:
            out.append("\\%03o" % b)
    return '"' + "".join(out) + '"'


def c_utf16(text):
    units = []
    for ch in text:
        cp = ord(ch)
        if cp < 0x10000:
            units.append(cp)
        else:
            cp -= 0x10000
            units += [0xD800 + (cp >> 10), 0xDC00 + (cp & 0x3FF)]
    return "{" + ", ".join(hex(u) for u in units + [0]) + "}"


def lines(path):
    for n, raw in enumerate(path.read_text(encoding="utf-8").splitlines(), 1):
        s = raw.strip()
        if s and not s.startswith("#"):
            yield n, s


def parse_params(text, path, n):
    text = text.strip()
    if not (text.startswith("(") and text.endswith(")")):
        fail(path, n, "parameters must be written (a, b, ...)")
    inner = text[1:-1].strip()
    if not inner:
        return []
    params = [type_word(t.strip(), path, n) for t in inner.split(",")]
    if len(params) > 10:
        fail(path, n, "at most ten parameters")
    return params


def main():
    tdir, out = Path(sys.argv[1]), Path(sys.argv[2])
    functions = []
    path = tdir / "functions.tbl"
    for n, s in lines(path):
        if s.startswith("function "):
            t = shlex.split(s)
            if len(t) != 5:
                fail(path, n, "function ID \"French\" \"English\" ATTRIBUTES")
            functions.append({"id": int(t[1], 0), "fr": t[2], "en": t[3], "attr": int(t[4], 0), "ov": []})
        elif s.startswith("overload "):
            if not functions:
                fail(path, n, "overload before any function")
            head, _, rest = s.partition("(")
            t = head.split()
            if len(t) != 3 or t[1] not in ("h", "-"):
                fail(path, n, "overload h|- RESULT (PARAMS)")
            functions[-1]["ov"].append({"h": t[1] == "h", "result": type_word(t[2], path, n),
                                        "params": parse_params("(" + rest, path, n)})
        else:
            fail(path, n, "expected function or overload")

    constants = []
    path = tdir / "constants.tbl"
    for n, s in lines(path):
        t = shlex.split(s)
        if t[0] != "constant" or len(t) < 5:
            fail(path, n, "constant \"French\" \"English\" ATTRIBUTES KIND [VALUE]")
        kind = t[4]
        c = {"fr": t[1], "en": t[2], "attr": int(t[3], 0), "kind": kind}
        if kind == "int":
            c["value"] = int(t[5], 0) & 0xFFFFFFFF
        elif kind == "string":
            c["value"] = t[5]
        elif kind != "none":
            fail(path, n, f"unknown constant kind {kind!r}")
        constants.append(c)

    variables = []
    path = tdir / "variables.tbl"
    for n, s in lines(path):
        t = shlex.split(s)
        if t[0] != "variable" or len(t) != 6:
            fail(path, n, "variable ID \"French\" \"English\" ATTRIBUTES TYPE")
        variables.append({"id": int(t[1], 0), "fr": t[2], "en": t[3], "attr": int(t[4], 0),
                          "type": type_word(t[5], path, n)})

    handlers = []
    seen = set()
    for f in functions:
        if not f["ov"] or len(f["ov"]) > 12:
            sys.exit(f"function {f['en']}: 1 to 12 overloads")
        for i, o in enumerate(f["ov"], 1):
            if o["h"]:
                name = f"{f['en']}_{i}"
                if not name.isidentifier() or not name.isascii():
                    sys.exit(f"function {f['en']}: the English name must make an identifier")
                if name in seen:
                    sys.exit(f"handler {name} named twice")
                seen.add(name)
                o["name"] = name
                handlers.append(name)

    w = []
    w.append("// Generated by tools/gen_tables.py from src/component/tables/*.tbl. Do not edit.")
    w.append('#include "component/tables.h"\n')
    w.append("namespace kp::handlers {")
    for h in handlers:
        w.append(f'int32_t {h}(kp_call_frame*, kp_call_context*, void**) noexcept;')
    w.append("} // namespace kp::handlers\n")
    w.append("namespace kp::tables {")
    w.append("namespace {")
    for i, f in enumerate(functions):
        rows = []
        for o in f["ov"]:
            p = o["params"] + [0] * (10 - len(o["params"]))
            h = f"&kp::handlers::{o['name']}" if o["h"] else "nullptr"
            rows.append(f"    {{{h}, {{{', '.join(hex(x) for x in p)}}}, 0, 0, {len(o['params'])}, {hex(o['result'] & 0xFF)}}}")
        w.append(f"const kp_overload ov{i}[] = {{\n" + ",\n".join(rows) + "};")
    for i, c in enumerate(constants):
        if c["kind"] == "string":
            w.append(f"const char16_t text{i}[] = {c_utf16(c['value'])};")
    w.append("} // namespace\n")
    w.append(f"const kp_function functions[{len(functions)}] = {{")
    for i, f in enumerate(functions):
        ident = (f["id"] & 0xFFFF) | (8 << 16) | (len(f["ov"]) << 24)
        w.append(f"    {{{c_bytes(f['fr'])}, {c_bytes(f['en'])}, {hex(f['attr'])}, {hex(ident)}, ov{i}}},")
    w.append("};")
    w.append(f"const std::size_t function_count = {len(functions)};\n")
    w.append(f"const kp_constant constants[{len(constants)}] = {{")
    for i, c in enumerate(constants):
        if c["kind"] == "int":
            val, kind = hex(c["value"]), "KP_CONST_INT"
        elif c["kind"] == "none":
            val, kind = "0", "KP_CONST_NO_VALUE"
        else:
            val, kind = f"reinterpret_cast<uintptr_t>(text{i})", "KP_CONST_STRING"
        w.append(f"    {{{c_bytes(c['fr'])}, {c_bytes(c['en'])}, {hex(c['attr'])}, {val}, {kind}}},")
    w.append("};")
    w.append(f"const std::size_t constant_count = {len(constants)};\n")
    w.append(f"const kp_variable variables[{len(variables)}] = {{")
    for v in variables:
        ident = (v["id"] & 0xFFFF) | (8 << 16) | ((v["type"] & 0xFF) << 24)
        w.append(f"    {{{c_bytes(v['fr'])}, {c_bytes(v['en'])}, {hex(v['attr'])}, {hex(ident)}}},")
    w.append("};")
    w.append(f"const std::size_t variable_count = {len(variables)};\n")
    w.append("extern const uint16_t provided_mask[];")
    w.append(f"const uint16_t provided_mask[{len(functions)}] = {{")
    for f in functions:
        mask = sum(1 << i for i, o in enumerate(f["ov"]) if o["h"])
        w.append(f"    {hex(mask)},")
    w.append("};")
    w.append("} // namespace kp::tables")
    out.parent.mkdir(parents=True, exist_ok=True)
    write_if_changed(out, "\n".join(w) + "\n")

    h = ["// Generated by tools/gen_tables.py from src/component/tables/functions.tbl. Do not edit.",
         "#pragma once", "", '#include "component/signature.h"', "", "namespace kp::sig {", ""]
    for f in functions:
        for o in f["ov"]:
            if o["h"]:
                p = ", ".join(hex(x) for x in o["params"])
                h.append(f"inline constexpr Overload {o['name']}{{{hex(o['result'])}, {len(o['params'])}, {{{p}}}}};")
    h.append("")
    h.append("} // namespace kp::sig")
    write_if_changed(out.parent / "kp120_signatures.h", "\n".join(h) + "\n")


def write_if_changed(path, text):
    if not path.exists() or path.read_text() != text:
        path.write_text(text)


def docs_main(tdir, out_cpp, out_md=None):
    """gen_tables.py --docs TABLE_DIR OUT.cpp [OUT.md]: the reference of the
    provided functions, from functions_doc.tbl, as C++ for the kp120 command
    (kp::cli::function_docs()) and as Markdown (docs/functions.md).

    functions_doc.tbl, one function a line, grouped under family lines:
        family "Dates and times"
        ENGLISH | PARAMETER NAMES, ... | PURPOSE | FAILURE VALUE | ERROR IDS
    Every function with a provided overload has exactly one line."""
    entries = {}
    path = tdir / "functions.tbl"
    order = []
    for n, s in lines(path):
        if s.startswith("function "):
            t = shlex.split(s)
            order.append({"fr": t[2], "en": t[3], "ov": [], "provided": False})
        elif s.startswith("overload "):
            head, _, rest = s.partition("(")
            order[-1]["ov"].append({"h": head.split()[1] == "h", "result": head.split()[2],
                                    "params": rest.strip().rstrip(")").strip()})
            order[-1]["provided"] |= head.split()[1] == "h"
    by_en = {f["en"]: f for f in order}
    docs, family = [], None
    path = tdir / "functions_doc.tbl"
    for n, s in lines(path):
        if s.startswith("family "):
            family = shlex.split(s)[1]
            continue
        parts = [x.strip() for x in s.split("|")]
        if len(parts) != 5 or family is None:
            fail(path, n, "ENGLISH | PARAMS | PURPOSE | FAILURE | ERRORS, after a family line")
        en, params, purpose, failure, errors = parts
        if en not in by_en:
            fail(path, n, f"no function {en!r} in functions.tbl")
        if en in entries:
            fail(path, n, f"{en} described twice")
        for e in errors.split():
            for x in e.split("-", 1):
                if not (x.isdigit() and (x == "0" or 80001 <= int(x) <= 81507)):
                    fail(path, n, f"error identifier {e!r} is not 0 nor 80001 to 81507 (or a range A-B)")
        entries[en] = True
        docs.append({"en": en, "fr": by_en[en]["fr"], "family": family, "params": params,
                     "purpose": purpose, "failure": failure, "errors": errors, "ov": by_en[en]["ov"]})
    missing = [f["en"] for f in order if f["provided"] and f["en"] not in entries]
    if missing:
        sys.exit(f"{path}: no description of {', '.join(missing)}")

    def c_str(text):
        return '"' + text.replace("\\", "\\\\").replace('"', '\\"') + '"'

    w = ["// Generated by tools/gen_tables.py --docs from src/component/tables/functions_doc.tbl. Do not edit.",
         '#include "function_docs.h"\n', "namespace kp::cli {", "namespace {",
         f"const FunctionDoc docs[{max(len(docs), 1)}] = {{"]
    for d in docs:
        w.append("    {" + ", ".join(c_str(d[k]) for k in ("en", "family", "params", "purpose", "failure", "errors"))
                 + "},")
    w += ["};", "} // namespace\n",
          f"std::span<const FunctionDoc> function_docs() {{ return {{docs, {len(docs)}}}; }}",
          "} // namespace kp::cli"]
    text = "\n".join(w) + "\n"
    out_cpp.parent.mkdir(parents=True, exist_ok=True)
    if not out_cpp.exists() or out_cpp.read_text() != text:
        out_cpp.write_text(text)
    def signature(ov):
        params = ", ".join(p.strip() for p in ov["params"].split(",") if p.strip())
        res = "" if ov["result"] == "none" else " → " + ov["result"]
        return f"({params}){res}"

    if out_md:
        legend = ", ".join(f"{k} 0x{v:02X}" for k, v in TYPES.items())
        m = ["# The provided functions", "",
             "Generated from `src/component/tables/functions_doc.tbl` by `tools/gen_tables.py --docs`;",
             "`kp120 describe NAME` and `help NAME` at the prompt give the same entries (names French /",
             "English there).  Dates are \"AAAAMMJJ\" strings, times \"HHmmSSCC\", durations",
             "milliseconds; device file names are absolute (\"\\Data\\a.txt\").", "",
             "Names are English / French.  Overloads lists the provided overloads' parameter and result",
             f"type codes (the overload records' codes): {legend}; `*` adds 0x8000 (the VM converts",
             "the argument first), `!` 0x4000 (passed by reference).", "",
             "## Masks", "",
             "Date masks (DateToString, StringToDate) accept the French and the English letters; each",
             "token is found in upper case, or wholly in lower case when the upper-case spelling is",
             "absent (StringToDate reads them in any case); any other character is literal text",
             "(skipped, not compared, when reading).", "",
             "| French | English | Writes | Read by StringToDate |", "|---|---|---|---|",
             "| JJJJ | DDDD | full day name (regional settings) | no |",
             "| JJJ | DDD | day name cut to three letters (four for \"jui...\") and \".\" | no |",
             "| JJ | DD | day, two digits | yes |",
             "| MMMM | MMMM | full month name | no |",
             "| MMM | MMM | month name, cut as the day name | no |",
             "| MM | MM | month, two digits | yes |",
             "| AAAA | YYYY | year, four digits | yes |",
             "| AA | YY | year, two digits | yes: 00-50 give 2000-2050, 51-99 give 1951-1999 |", "",
             "Without a mask dates use \"JJ/MM/AAAA\".  \"UseSystemMask\" uses the VM's regional short",
             "date instead (a picture in the letters d, M and y of `kp_regional_settings`, used nowhere else).",
             "Time masks (TimeToString): HH hours, MM (or mm) minutes, SS seconds, CC hundredths, AP",
             "AM or PM with hours on 12 (midnight 00); without a mask \"HH:MM:SS:CC\".  Duration masks",
             "(DurationToString, StringToDuration): J days, HH hours, MM minutes, SS seconds, LLL",
             "milliseconds (LL hundredths, L tenths), \"+\" the sign; a VM replaces the letters J H M",
             "S L with its message texts 28577 to 28581.", ""]
        fam = None
        for d in docs:
            if d["family"] != fam:
                fam = d["family"]
                m += [f"## {fam}", "",
                      "| English / French | Parameters | Overloads | Purpose | On failure | Errors |",
                      "|---|---|---|---|---|---|"]
            cell = lambda t: t.replace("|", "\\|")
            sigs = "<br>".join(signature(o) for o in d["ov"] if o["h"]).replace("*", "\\*")
            m.append(f"| `{d['en']}` / `{d['fr']}` | {cell(d['params'])} | {cell(sigs)} | {cell(d['purpose'])} | "
                     f"{cell(d['failure'])} | {d['errors']} |")
            if d is docs[-1] or docs[docs.index(d) + 1]["family"] != fam:
                m.append("")
        Path(out_md).write_text("\n".join(m))


if __name__ == "__main__":
    if len(sys.argv) > 1 and sys.argv[1] == "--docs":
        docs_main(Path(sys.argv[2]), Path(sys.argv[3]), sys.argv[4] if len(sys.argv) > 4 else None)
    else:
        main()
