#!/usr/bin/env python3
"""pty_run.py COMMAND [ARG...] < keystrokes: runs COMMAND on a pseudo-terminal, types each line once the
program has shown something since the previous one, then Ctrl-D, and prints everything the terminal showed."""
import os
import pty
import select
import sys

keys = sys.stdin.buffer.read().split(b"\n")
pid, fd = pty.fork()
if pid == 0:
    os.execvp(sys.argv[1], sys.argv[1:])
out = b""
pending = [k + b"\r" for k in keys if k] + [b"\x04"]
while True:
    ready, _, _ = select.select([fd], [], [], 0.3)
    if ready:
        try:
            data = os.read(fd, 4096)
        except OSError:
            break
        if not data:
            break
        out += data
    elif pending:
        os.write(fd, pending.pop(0))
os.waitpid(pid, 0)
sys.stdout.buffer.write(out.replace(b"\r\n", b"\n"))
