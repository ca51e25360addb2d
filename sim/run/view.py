"""The view for people: one line an event that matters, polls folded, names in the place of numbers."""

import os
import time

from fold import Folder, duration
from journal import STREAMS, plain

PIPE_WIDTH = 132
PULSE = 1.0  # seconds that a GPIO line may be low and it still is one event
COLOURS = {"fault": "1;33", "reset": "1;31", "board": "1", "script": "35", "beat": "32", "error": "31", "fold": "2"}
REAL_PAUSE = 0.25  # between two states of the status line


def terminal_width(stream):
    """Columns to write in."""
    try:
        width = os.get_terminal_size(stream.fileno()).columns
        if width > 0:
            return width
    except (OSError, ValueError):
        pass
    if not stream.isatty():
        columns = os.environ.get("COLUMNS", "")
        if columns.isdigit() and int(columns) > 0:
            return int(columns)
    return PIPE_WIDTH


def wants_colour(stream):
    """On a terminal, unless the user has said otherwise."""
    return stream.isatty() and not os.environ.get("NO_COLOR") and os.environ.get("TERM") != "dumb"


class Chosen:
    """Which events --only lets through."""

    def __init__(self, names):
        self.names = set(names)

    def __contains__(self, event):
        if not self.names:
            return True
        who = "fault" if event.who == "board" and event.what.startswith("fault ") else event.who
        short = "console" if who in STREAMS else who.rpartition("/")[2]
        return who in self.names or short in self.names or (who == "beat" and event.what.split(" ")[0] in self.names)


class RawView:
    """The journal as it is."""

    def __init__(self, stream, chosen):
        self.stream, self.chosen = stream, chosen

    def feed(self, event):
        if event in self.chosen:
            self.stream.write(event.line + "\n")

    def idle(self):
        self.stream.flush()

    def finish(self, _):
        self.stream.flush()


class StoryView:
    """The story."""

    def __init__(self, stream, chosen, with_status):
        self.chosen = chosen
        self.folder = Folder(self._began, self._ended, bool(chosen.names))
        self.paper = Paper(stream)
        self.with_status = with_status and stream.isatty()
        self.drawn, self.seen, self.last = 0.0, 0, None

    def feed(self, event):
        self.last = event
        self.seen += 1
        if event in self.chosen:
            self.folder.feed(event)

    def idle(self):
        """Nothing more for the moment: what is there shall be seen."""
        if self.with_status and self.last is not None and time.monotonic() > self.drawn + REAL_PAUSE:
            self.drawn = time.monotonic()
            self.paper.status(f"{self.last.boot} {self.last.total:9.3f}  {self.seen} events so far, Ctrl-C ends the run")

    def finish(self, _):
        self.folder.finish()
        self.paper.finish()

    def _began(self, run):
        event, decoded = run.event, run.decoded
        is_error = decoded.error is not None and decoded.error != "ENOENT"
        colour = decoded.kind if decoded.kind in COLOURS else "error" if is_error else ""
        if decoded.kind == "console":
            text = decoded.text if self.paper.has_colour else plain(decoded.text)
            for line in text.split("\n"):
                if plain(line).strip():
                    self.paper.line(event, event.total, line, colour)
        elif decoded.kind == "board" and decoded.op == "start":
            self.paper.new_boot(event)
        elif decoded.kind == "board":
            text = f"{event.what}: {decoded.text}" if decoded.text != event.what else event.what
            self.paper.line(event, event.total, text, "reset" if decoded.op == "reset" else "board")
        else:
            self.paper.line(event, event.total, run.text, colour)

    def _ended(self, run, now):
        if run.count < 2 or (run.count == 2 and run.period() == 0):
            return
        shown_at = self.last.total if now is None else now
        until = f", the last {duration(shown_at - run.last)} ago" if shown_at > run.last + 1.5 * run.longest else ""
        if run.decoded.kind == "beat":
            name = run.text.removesuffix(" beats")
            text = f"{name} {'is silent: ' if until else ''}{run.summary()}{until}"
        else:
            subject = plain(run.text).strip().removeprefix("injected: ").replace("\n", " | ")
            text = f"{run.summary()}{until}: {subject}"
        self.paper.line(run.event, shown_at, text, "fold")


class Paper:
    """What lines are written on: as wide as the terminal, in colour where there is any."""

    def __init__(self, stream):
        self.stream, self.has_colour, self.width = stream, wants_colour(stream), terminal_width(stream)
        self.who_width = max(8, min(26, self.width // 4))
        self.has_status = False
        self.pending = None  # boot, time, who, text, colour of a line that the next event may be added to
        self.started, self.lines, self.model, self.skipped, self.title = 0.0, [], [], 0, ""

    def new_boot(self, event):
        """A rule; from here on lines that are those of the boot before are left out."""
        self._flush()
        self._head()
        self.started, self.model, self.lines = event.total, self.lines, []
        self.title = f"── boot {event.boot} at {event.total:.3f} s "

    def line(self, event, seconds, text, colour):
        """One event, or one more of the same moment and origin."""
        who = {"out": "console", "err": "console!", "beat": "heartbeat"}.get(event.who, event.who)
        if event.who == "board" and event.what.startswith("fault "):
            who = "fault"
        entry = (event.boot, seconds, who, text, colour)
        held = self.pending
        joined = self._joined(held, entry) if held is not None else None
        if joined is None:
            self._flush()
        self.pending = entry if joined is None else (*held[:3], joined, colour)

    def status(self, text):
        """A line that is there until the next one."""
        self._flush()
        self._clear_status()
        self.stream.write("\r\033[K" + text[: self.width - 1])
        self.has_status = True
        self.stream.flush()

    def finish(self):
        """Nothing follows."""
        self._flush()
        self._head()
        self._clear_status()
        self.stream.flush()

    def _joined(self, held, entry):
        """The text of both, if they are of one moment or the two halves of a pulse."""
        boot, seconds, who, text, colour = entry
        if (boot, who, colour) != (held[0], held[2], held[4]) or who.startswith("console"):
            return None
        subject, sets, level = text.rpartition(" := ")
        if (colour in ("", "beat") or who == "heartbeat") and seconds == held[1]:
            joined = f"{held[3]}; {text}"
        elif sets and held[3] == f"{subject} := 0" and seconds - held[1] < PULSE:
            joined = f"{held[3]}, := {level} after {duration(seconds - held[1])}"
        else:
            return None
        return joined if len(joined) <= self._room() else None

    def _room(self):
        return max(10, self.width - self.who_width - 14)

    def _flush(self):
        if self.pending is None:
            return
        boot, seconds, who, text, colour = self.pending
        self.pending = None
        key = (round(seconds - self.started, 3), who, text)
        self.lines.append(key)
        at = len(self.lines) - 1
        if at < len(self.model) and self.model[at] == key and who != "board":
            self.skipped += 1
            return
        self._head()
        if who != "board":
            self.model = []
        self._print(boot, seconds, who, text, colour)

    def _head(self):
        """What stands over the next line: a boot's rule, and what it has repeated of the one before."""
        same = f"{self.skipped} lines as in the boot before" if self.skipped else ""
        title = f"{self.title or '── '}{'─ ' if same and self.title else ''}{same} ".replace("  ", " ")
        if self.title or same:
            self._write(title + "─" * max(0, min(self.width, 80) - len(title)), "fold")
        self.title, self.skipped = "", 0

    def _print(self, boot, seconds, who, text, colour):
        """Console text goes on in the next line, all else is cut at the terminal's width."""
        if len(who) > self.who_width:
            who = "…" + who[1 - self.who_width :]
        head, room = f"{boot} {seconds:9.3f}  {who:<{self.who_width}} ", self._room()
        shown = plain(text)
        is_console = who.startswith("console") and colour != "fold"
        if len(shown) <= room:
            self._write(head + text, colour, is_console)
        elif is_console:
            for at in range(0, len(shown), room):
                self._write((" " * len(head) if at else head) + shown[at : at + room], colour)
        else:
            self._write(head + shown[: room - 1] + "…", colour)

    def _write(self, text, colour, has_own_colours=False):
        self._clear_status()
        if self.has_colour and (colour or has_own_colours):
            text = f"\033[{COLOURS.get(colour, '0')}m{text}\033[0m"
        self.stream.write(text + "\n")

    def _clear_status(self):
        if self.has_status:
            self.stream.write("\r\033[K")
            self.has_status = False
