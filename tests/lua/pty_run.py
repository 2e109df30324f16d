#!/usr/bin/env python3
"""Runs a command on a pseudo-terminal, types the lines of standard input one
at a time (as a user would), and prints everything the terminal showed.
    pty_run.py COMMAND [ARG...] < keystrokes
Each line of the input is sent once the program has shown something since
the previous one; the input ends with Ctrl-D.  Ends when the program does."""
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
