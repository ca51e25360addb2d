"""Lines of a script that are told while the board runs, in real time: typed, or written to a socket by another program."""

import os
import socket
import subprocess
import sys
import threading

SEPARATOR = "\x1f"  # of the orders in an answer of the launcher


class Live:
    """Has orders made of lines, and hands these to whichever boot comes to take them."""

    def __init__(self, launcher, script, orders, boot):
        self.command, self.boot = [*launcher, "--tell", script], boot
        self.compiler, self.lock = None, threading.Lock()
        os.mkfifo(orders, 0o600)
        self.orders = os.open(orders, os.O_RDWR | os.O_CLOEXEC)

    def tell(self, line):
        """Does a line; what is answered."""
        with self.lock:
            if self.compiler is None:
                self.compiler = subprocess.Popen(self.command, stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True,
                                                 errors="replace", start_new_session=True)
            print(self.boot(), line, file=self.compiler.stdin, flush=True)
            word, _, rest = self.compiler.stdout.readline().rstrip("\n").partition(": ")
            if word == "help":
                return f"ok: {rest}"
            if word != "ok":
                return f"error: {rest}"
            os.write(self.orders, rest.replace(SEPARATOR, "\n").encode())
            return "ok"

    def take_typed(self):
        """Lines of standard input. What the board has done shows in the story; the rest is answered here."""
        for line in sys.stdin:
            answer = self.tell(line.strip()) if line.strip() else "ok"
            if answer != "ok":
                print(answer.replace("; ", "\n"), file=sys.stderr, flush=True)

    def take_written(self, listener):
        """Lines of whoever connects to the socket."""
        while True:
            client, _ = listener.accept()
            start(self.serve, client)

    def serve(self, client):
        """An answer to each line."""
        try:
            with client, client.makefile("rw", encoding="utf-8", errors="replace") as stream:
                for line in stream:
                    print(self.tell(line.strip()), file=stream, flush=True)
        except OSError:  # gone
            pass


def start(work, *arguments):
    """Beside the run, which does not wait for it."""
    threading.Thread(target=work, args=arguments, daemon=True).start()


def is_ours():
    """Whether standard input is there to be read: not that of a terminal whose foreground is somebody else's."""
    try:
        return not os.isatty(0) or os.tcgetpgrp(0) == os.getpgrp()
    except OSError:
        return False


def listen(live, path):
    """Begins to, at a socket too where a path is given."""
    if path is not None:
        if os.path.exists(path):
            os.unlink(path)
        listener = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        listener.bind(path)
        listener.listen()
        start(live.take_written, listener)
    if is_ours():
        start(live.take_typed)
