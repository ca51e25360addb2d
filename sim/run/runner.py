"""Runs a program on a simulated board, boot after boot, and hands on what the journal says."""

import fcntl
import os
import select
import signal
import time

from journal import parse, quoted, unquoted
from names import ENDS

BOOTS_AGAIN = (3, 6)  # how the process ends when the board was reset or its power cut
HIGH = 20  # descriptors from here on do not get into each other's way
MOST_BOOTS_AT_ONCE = 20
PARENT, START = "/tmp", "marl-board."  # the simulated board's own directories are named so, too
MESSAGE = "simulated board: "
ORDERS = ".orders"  # where the board takes those that come while it runs
PRESET_VARIABLES = {
    "armel": {"MARL_SIM_CLONE": "thread"},
    "tsan": {"MARL_SIM_CLONE": "thread", "TSAN_OPTIONS": "halt_on_error=1:ignore_noninstrumented_modules=1"},
    "asan": {"ASAN_OPTIONS": "verify_asan_link_order=0:detect_leaks=1", "UBSAN_OPTIONS": "print_stacktrace=1"},
}


class Outcome:
    """How a run went."""

    def __init__(self):
        self.end = "running"  # or "reset", "exit N"
        self.code = 0  # of the last boot; 0 when it was still running
        self.boots = []  # seconds of each, why it ended
        self.simulated = self.real = 0.0
        self.was_interrupted = False
        self.messages = []


def remove_tree(path):
    """A directory and all in it."""
    for directory, below, files in os.walk(path, topdown=False):
        for name in files:
            os.unlink(os.path.join(directory, name))
        for name in below:
            inner = os.path.join(directory, name)
            os.unlink(inner) if os.path.islink(inner) else os.rmdir(inner)
    os.rmdir(path)


def lock(path):
    """A descriptor that holds a directory; None when somebody else does or has removed it."""
    try:
        descriptor = os.open(path, os.O_RDONLY | os.O_DIRECTORY | os.O_NOFOLLOW)
    except OSError:
        return None
    try:
        fcntl.flock(descriptor, fcntl.LOCK_EX | fcntl.LOCK_NB)
        if os.stat(path).st_ino == os.fstat(descriptor).st_ino and os.fstat(descriptor).st_uid == os.geteuid():
            return descriptor
    except OSError:
        pass
    os.close(descriptor)
    return None


def clear_left_behind():
    """What boots that were killed have left: nobody holds it."""
    for name in os.listdir(PARENT):
        path = os.path.join(PARENT, name)
        descriptor = lock(path) if name.startswith(START) else None
        if descriptor is not None:
            remove_tree(path)
            os.close(descriptor)


class BoardDirectory:
    """The files of the board. They outlast its resets, and go with the run."""

    def __enter__(self):
        self.held = None
        while self.held is None:
            self.path = os.path.join(PARENT, START + os.urandom(4).hex())
            os.mkdir(self.path, 0o700)
            self.held = lock(self.path)
        return self.path

    def __exit__(self, *_):
        remove_tree(self.path)
        os.close(self.held)


def pipe():
    """A pipe out of the way of the descriptors that the program is given."""
    ends = []
    for end in os.pipe():
        ends.append(fcntl.fcntl(end, fcntl.F_DUPFD_CLOEXEC, HIGH))
        os.close(end)
    return ends


def emulator(build):
    """What starts the programs of a build that are not for this machine; told, or the build's own."""
    if "MARL_EMULATOR" in os.environ:
        return os.environ["MARL_EMULATOR"].split()
    try:
        with open(os.path.join(build, "emulator"), encoding="utf-8") as file:
            return file.read().split()
    except FileNotFoundError:
        return []


class Boot:
    """One process: from power-on until the board goes down."""

    def __init__(self, command, variables, keeps_output):
        null = os.open("/dev/null", os.O_RDWR)
        self.journal, journal_end = pipe()
        self.errors, errors_end = pipe()
        self.output, output_end = pipe() if keeps_output else (None, null)
        actions = [(os.POSIX_SPAWN_DUP2, end, place)
                   for place, end in enumerate((null, output_end, errors_end, journal_end))]
        environment = {name: value for name, value in os.environ.items() if name != "MARL_SIM_FOR"}
        self.pid = os.posix_spawnp(command[0], command, {**environment, **variables}, file_actions=actions,
                                  setpgroup=0, setsigdef=[signal.SIGPIPE])
        for end in {null, output_end, errors_end, journal_end}:
            os.close(end)
        self.texts = {}  # all that came from the pipes other than the journal

    def chunks(self):
        """What the journal brings; empty at moments when there is nothing."""
        poll = select.poll()
        waiting = {end for end in (self.journal, self.errors, self.output) if end is not None}
        for end in waiting:
            poll.register(end, select.POLLIN)
        while waiting:
            for end, _ in poll.poll(200) or [(None, 0)]:
                data = os.read(end, 1 << 16) if end is not None else b""
                if end is not None and not data:
                    poll.unregister(end)
                    os.close(end)
                    waiting.discard(end)
                elif end == self.journal or end is None:
                    yield data
                else:
                    self.texts[end] = self.texts.get(end, b"") + data
                    if end == self.errors:
                        self.texts[end] = self.texts[end][-65536:]

    def kill(self):
        """Ends it where it stands."""
        try:
            os.kill(self.pid, signal.SIGKILL)
        except ProcessLookupError:
            pass

    def wait(self):
        """Its exit status, or 128 and the signal."""
        _, status = os.waitpid(self.pid, 0)
        return os.WEXITSTATUS(status) if os.WIFEXITED(status) else 128 + os.WTERMSIG(status)

    def messages(self):
        """What the simulated board itself had to say."""
        lines = self.texts.get(self.errors, b"").decode(errors="replace").split("\n")
        return [line[line.index(MESSAGE) :] for line in lines if MESSAGE in line]

    def unseen(self, who, seen):
        """What the program wrote past the journal, by the C library's streams."""
        text = self.texts.get(self.output if who == "out" else self.errors, b"").decode(errors="replace")
        parts = []
        for part in seen:
            before, found, after = text.partition(part)
            if found:
                parts.append(before)
                text = after
        return "".join([*parts, text])


class Runner:
    """Boots a board until its time is over, and again after each reset."""

    def __init__(self, options, script, build, viewers):
        self.options, self.script, self.viewers = options, script, viewers
        self.launcher = [*emulator(build), os.path.join(build, "sim-launch")]
        self.command = [*self.launcher, options.program, *options.arguments]
        self.keeps_output = not options.is_daemon
        self.outcome = Outcome()
        self.boot, self.total, self.last, self.last_of_board = None, 0.0, None, ""

    def stop(self, *_):
        """The user has seen enough."""
        self.outcome.was_interrupted = True
        if self.boot is not None:
            self.boot.kill()

    def run(self):
        """The whole run; how it went."""
        for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
            signal.signal(number, self.stop)
        started, at_once = time.monotonic(), 0
        with BoardDirectory() as root:
            if not self.options.is_fast:
                import live
                orders = os.path.join(root, ORDERS)
                live.listen(live.Live(self.launcher, self.script, orders, self._number), self.options.control)
            while True:
                began = time.monotonic()
                code = self._boot_once(root)
                at_once = at_once + 1 if self.outcome.boots[-1][0] == 0 else 0
                if code not in BOOTS_AGAIN or self._is_over() or at_once == MOST_BOOTS_AT_ONCE:
                    break
                if not self.options.is_fast and time.monotonic() < began + 1:
                    time.sleep(1)
        if self.outcome.was_interrupted:
            clear_left_behind()
        self.outcome.real = time.monotonic() - started
        self.outcome.simulated = self.total
        return self.outcome

    def _number(self):
        """Of the present boot."""
        return len(self.outcome.boots) + 1

    def _is_over(self):
        seconds = self.options.seconds
        return self.outcome.was_interrupted or (seconds is not None and self.total >= seconds)

    def _variables(self, root):
        variables = {"MARL_SIM_BOARD": self.script, "MARL_SIM_ROOT": root, "MARL_SIM_JOURNAL": "/proc/self/fd/3",
                     "MARL_SIM_TIME": "virtual" if self.options.is_fast else "real"}
        if not self.options.is_fast:
            variables["MARL_SIM_CONTROL"] = os.path.join(root, ORDERS)
        if self.options.seconds is not None:
            variables["MARL_SIM_FOR"] = f"{self.options.seconds - self.total:.3f}"
        return {**variables, **PRESET_VARIABLES.get(os.path.basename(self.options.preset), {})}

    def _boot_once(self, root):
        offset, outcome = self.total, self.outcome
        number = self._number()
        self.boot = Boot(self.command, self._variables(root), self.keeps_output)
        self.last, self.last_of_board, seen, rest = None, "", {"out": [], "err": []}, b""
        try:
            for data in self.boot.chunks():
                *lines, rest = (rest + data).split(b"\n")
                for line in lines:
                    self._feed(parse(line.decode(errors="replace"), number, offset), seen)
                for viewer in self.viewers:
                    viewer.idle()
        except BaseException:
            self.boot.kill()
            self.boot.wait()
            raise
        code = self.boot.wait()
        for who in list(seen) if self.keeps_output else ():
            self._show_unseen(number, offset, who, self.boot.unseen(who, seen.pop(who)))
        outcome.messages += self.boot.messages()
        last, self.boot = self.last, None
        self.total = last.total if last is not None else offset
        self._judge(code, self.last_of_board)
        return code

    def _feed(self, event, seen):
        if event is None:
            return
        self.last = event
        if event.who == "board" and event.what.split(" ")[0] in ENDS:
            self.last_of_board = event.what
        if self.keeps_output and event.who in seen:
            seen[event.who].append(unquoted(event.what)[0])
        for viewer in self.viewers:
            viewer.feed(event)

    def _show_unseen(self, number, offset, who, text):
        seconds = self.last.time if self.last is not None else 0.0
        for line in text.splitlines():
            if not line.startswith(MESSAGE):
                self._feed(parse(f"{seconds:.3f} {who} {quoted(line + chr(10))}", number, offset), {})

    def _judge(self, code, what):
        """Notes how a boot ended."""
        outcome = self.outcome
        if outcome.was_interrupted:
            end, why, code = "running", "ended by the user", 0
        elif code in BOOTS_AGAIN and what.startswith("reset"):
            end, why = "reset", what
        elif code == 0 and what == "end time":
            end, why = "running", "the time was over"
        elif what:
            end, why = f"exit {code}", what
        else:
            end, why = f"exit {code}", f"the program ended with status {code}"
        outcome.end, outcome.code = end, code
        outcome.boots.append((self.total - sum(boot[0] for boot in outcome.boots), why))
