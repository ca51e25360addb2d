#!/usr/bin/env python3
"""scripts/check-architecture holds on the tree, and sees what is planted in a copy of it."""
import pathlib
import shutil
import subprocess
import sys
import tempfile

top = pathlib.Path(__file__).resolve().parent.parent
PLANTED = {  # file and line to add -> what the check must say
    ("src/board/gpio.cpp", '#include "net/config_file.h"'): "an arrow from board up to net",
    ("include/libmarl/cmos.h", '#include "libmarl/reboot.h"'): "an arrow from board up to system",
    ("src/net/arp.cpp", '#include "modem/record.h"'): "an arrow from net sideways to modem",
    ("src/base/fd.h", '#include "base/object.h"\n#include "base/text.h"\n#include "base/fd.h"'): "a circle",
    ("docs/architecture.md", "## The way of a datum\n\n1. `no_such_call` in `src/net/arp.cpp`."): "no_such_call does not stand",
}


def check(tree):
    return subprocess.run([top / "scripts/check-architecture", tree], capture_output=True, text=True)


failures = [] if check(top).returncode == 0 else [check(top).stderr]
for (file, line), wanted in PLANTED.items():
    with tempfile.TemporaryDirectory() as copy:
        for part in ("src", "include", "docs"):
            shutil.copytree(top / part, pathlib.Path(copy, part))
        planted = pathlib.Path(copy, file)
        text = planted.read_text()
        planted.write_text(text.replace("## The way of a datum", line, 1) if file.endswith(".md") else line + "\n" + text)
        result = check(copy)
        if result.returncode == 0 or wanted not in result.stderr:
            failures.append(f"{file}: {line!r} was not seen as {wanted!r}: {result.stderr}")
print("\n".join(failures) or "the architecture holds, and every planted fault was seen")
sys.exit(bool(failures))
