#!/usr/bin/env python3
"""Instructions per call of the op_* functions of a benchmark run under
callgrind: inclusive instructions divided by the calls their callers made.
    callgrind_percall.py callgrind.out"""
import re
import subprocess
import sys

out = subprocess.run(["callgrind_annotate", "--inclusive=yes", "--tree=caller", sys.argv[1]],
                     capture_output=True, text=True, check=True).stdout
callers = []
for line in out.splitlines():
    m = re.match(r"\s*([\d,]+) \([^)]*\)\s+([<*>])\s+(.*)$", line)
    if not m:
        callers = []
        continue
    ir, mark, rest = int(m.group(1).replace(",", "")), m.group(2), m.group(3)
    if mark == "<":
        n = re.search(r"\((\d[\d,]*)x\)", rest)
        callers.append(int(n.group(1).replace(",", "")) if n else 0)
    elif mark == "*":
        f = re.search(r"(op_\w+)", rest)
        if f and callers:
            calls = sum(callers)
            print(f"{f.group(1):22s} {ir:>12,} Ir {calls:>8,} calls {ir / calls:8.0f} Ir/call")
        callers = []
