"""Lines of a script that are told while the board runs, in real time: typed, or written to a socket by another program."""

import os
import socket
import sys
import threading
import time

PATIENCE = 3.0  # seconds for a board that is just starting, again


def ask(path, line):
    """What the board answers to a line; None when there is no board."""
    until = time.monotonic() + PATIENCE
    while True:
        try:
            with socket.socket(socket.AF_UNIX, socket.SOCK_STREAM) as board:
                board.settimeout(PATIENCE)
                board.connect(path)
                board.sendall(line.encode() + b"\n")
                with board.makefile("r", encoding="utf-8", errors="replace") as answer:
                    return answer.readline().rstrip("\n") or None
        except OSError:
            if time.monotonic() > until:
                return None
            time.sleep(0.05)


def is_ours():
    """Whether standard input is there to be read: not that of a terminal whose foreground is somebody else's."""
    try:
        return not os.isatty(0) or os.tcgetpgrp(0) == os.getpgrp()
    except OSError:
        return False


def forward(path):
    """Tells the board what comes in. What it has done shows in the story; the rest is answered here."""
    for line in sys.stdin:
        line = line.strip()
        if not line:
            continue
        answer = ask(path, line)
        if answer != "ok":
            print(answer.replace("; ", "\n") if answer else "no board is listening", file=sys.stderr, flush=True)


def listen(path):
    """Begins to; the run does not wait for it."""
    if is_ours():
        threading.Thread(target=forward, args=(path,), daemon=True).start()
