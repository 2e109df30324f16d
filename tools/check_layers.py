#!/usr/bin/env python3
"""Fails when the objects of a family call a system library it does not link.

  check_layers.py NM STAMP FAMILY --objects OBJ... --forbidden LIB...

Every library the component links is listed after --forbidden, but for
those the family links itself.  An undefined symbol of an object that one
of them defines means the family reaches the library directly instead of
through src/platform/; the check then names the objects, the symbols and
the libraries, and the build stops.  On success STAMP is written.
"""
import os
import subprocess
import sys


def symbols(nm, args, path):
    out = subprocess.run([nm, *args, path], check=True, capture_output=True, text=True).stdout
    names = set()
    for line in out.splitlines():
        parts = line.split()
        if parts:
            names.add(parts[0].split("@")[0])
    return names


def main():
    nm, stamp, family = sys.argv[1:4]
    rest = sys.argv[4:]
    cut = rest.index("--forbidden")
    objects = [o for o in rest[1:cut] if o]
    libraries = sorted({l for l in rest[cut + 1:] if l.endswith(".so") or ".so." in l})
    provided = {}
    for lib in libraries:
        for name in symbols(nm, ["-D", "--defined-only", "--format=posix"], lib):
            provided.setdefault(name, os.path.basename(lib))
    faults = []
    for obj in objects:
        for name in sorted(symbols(nm, ["-u", "--format=posix"], obj)):
            if name in provided:
                faults.append(f"  {os.path.basename(obj)}: {name} ({provided[name]})")
    if faults:
        sys.stderr.write(f"family {family} calls libraries it does not link; "
                         "its calls go through src/platform/:\n" + "\n".join(faults) + "\n")
        return 1
    with open(stamp, "w") as f:
        f.write("ok\n")
    return 0


if __name__ == "__main__":
    sys.exit(main())
