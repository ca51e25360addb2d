#!/usr/bin/env python3
"""What a board script expects of a run, held against the run's journal.

usage: expect.py SCRIPT [--end reset|running|exit N] < JOURNAL

The journal may be that of several boots, one after the other. Without --end its last line tells how the run ended.
Exit status: 0 when every expectation holds, 1 when one does not, 2 when the script cannot be used.
"""
import re
import sys
from dataclasses import dataclass
from difflib import SequenceMatcher

MILLISECOND = 0.001  # the journal's grain
TOLERANCE = 0.05  # seconds
REMEMBERED = 5000  # different texts, to name the nearest of them

NUMBER = r"\d+(?:\.\d+)?"
WITHIN = re.compile(rf"(?P<text>.+) within (?P<first>{NUMBER})\.\.(?P<last>{NUMBER})")
AT = re.compile(rf"(?P<time>{NUMBER})\s+(?P<text>.+)")
END = re.compile(r"end\s+(?P<end>reset|running|exit\s+\d+)")
BOOT = re.compile(r"boot\s+(?P<boot>\d+)\s+(?P<line>.*)")
ESCAPE = re.compile(r"\\(x[0-9a-f]{2}|.)")
COLOUR = re.compile(r"\x1b\[[0-9;]*[A-Za-z]")
LETTERS = {"n": "\n", "t": "\t", "e": "\x1b"}


@dataclass
class Event:
    time: float  # board time of this boot
    total: float  # board time of all boots
    boot: int
    who: str
    what: str
    line: str  # "SECONDS.MMM WHO WHAT"


def plain(event):
    """The event's text with what is quoted as a terminal shows it."""
    if not event.what.startswith('"'):
        return f"{event.who} {event.what}"
    text, _, rest = event.what[1:].rpartition('"')
    text = ESCAPE.sub(lambda found: chr(int(found[1][1:], 16)) if found[1][1:] else LETTERS.get(found[1], found[1]), text)
    return f"{event.who} {COLOUR.sub('', text)}{rest}"


class Expectation:
    """One line of a script. `seen` is the event that decided it, `nearest` one that nearly did."""

    def __init__(self, place, line, boot):
        self.place, self.line, self.boot = place, line, boot
        self.seen = self.nearest = None
        self.text = self.end = None
        word, _, rest = line.partition(" ")
        rest = rest.strip()
        self.never = word == "never"
        self.by_total = False
        self.first, self.last = 0.0, float("inf")
        if self.never:
            found = re.fullmatch("(?P<text>.+)", rest)
        elif rest.split()[:1] == ["end"]:
            found = END.fullmatch(rest)
            self.end = found and " ".join(found["end"].split())
        elif found := WITHIN.fullmatch(rest):
            self.by_total = True
            self.first, self.last = float(found["first"]), float(found["last"])
        elif found := AT.fullmatch(rest):
            self.first, self.last = float(found["time"]) - TOLERANCE, float(found["time"]) + TOLERANCE
        if not found:
            raise ValueError(f"{place}: {line}: wants TIME TEXT, TEXT within A..B, or end reset|running|exit N")
        self.text = None if self.end else found["text"].strip()

    def distance(self, event):
        if self.boot is not None and event.boot != self.boot:
            return float("inf")
        time = event.total if self.by_total else event.time
        return max(self.first - time, time - self.last, 0.0)

    def feed(self, event, text, raw):
        if self.seen or self.text is None or (self.text not in text and self.text not in raw):
            return
        distance = self.distance(event)
        if distance < MILLISECOND / 2:
            self.seen = event
        elif not self.never and (self.nearest is None or distance < self.nearest[0]):
            self.nearest = (distance, event)

    def failure(self, end, texts):
        if self.end:
            return None if self.end == end else f"the run ended with {end}"
        if self.never:
            return f"seen {shown(self.seen)}" if self.seen else None
        if self.seen:
            return None
        if self.nearest:
            return f"nearest {shown(self.nearest[1])}"
        return f"never seen; most like it {shown(most_like(self.text, texts))}" if texts else "nothing was seen"


def shown(event):
    return f"in boot {event.boot}, after {event.total:.3f} s in all: {event.line}"


def most_like(text, texts):
    def common(candidate):
        return SequenceMatcher(None, text, candidate, autojunk=False).find_longest_match().size

    return texts[max(texts, key=common)]


class Expectations:
    """All of a script: to be fed with the events of a run, and finished with its end."""

    def __init__(self, wanted):
        self.wanted = wanted
        self.any = bool(wanted)
        self.texts = {}

    @classmethod
    def of(cls, script_path):
        wanted = []
        with open(script_path, encoding="utf-8", errors="replace") as script:
            for number, line in enumerate(script, 1):
                line, boot = line.strip(), None
                while found := BOOT.fullmatch(line):
                    boot, line = int(found["boot"]), found["line"].strip()
                if line.split()[:1] in (["expect"], ["never"]):
                    wanted.append(Expectation(f"{script_path}:{number}", line, boot))
        return cls(wanted)

    def feed(self, event):
        if not self.any:
            return
        raw, text = f"{event.who} {event.what}", plain(event)
        if len(self.texts) < REMEMBERED:
            self.texts.setdefault(text, event)
        for each in self.wanted:
            each.feed(event, text, raw)

    def finish(self, end):
        failures = ((each, each.failure(end, self.texts)) for each in self.wanted)
        return [f"{each.place}: {each.line}: {failure}" for each, failure in failures if failure]


def events_of(lines):
    """Events of a journal in text: every "board start" begins a boot."""
    boot, before, time = 0, 0.0, 0.0
    for line in lines:
        line = line.rstrip("\n")
        found = re.match(r"(\d+\.\d{3}) (\S+) ?(.*)", line)
        if not found:
            continue
        if (found[2], found[3]) == ("board", "start"):
            boot, before, time = boot + 1, before + time, 0.0
        time = float(found[1])
        yield Event(time, before + time, boot, found[2], found[3], line)


def end_of(event):
    """What the last event of a run says of its end."""
    what = event.what if event is not None and event.who == "board" else ""
    ends = {"reset": "reset", "end": "running", "cut": "exit 6", "stuck:": "exit 5"}
    return ends.get(what.split(" ")[0], "exit 0")


def main(arguments):
    if len(arguments) not in (1, 3, 4) or (len(arguments) > 1 and arguments[1] != "--end"):
        print(__doc__, file=sys.stderr)
        return 2
    try:
        expectations = Expectations.of(arguments[0])
    except (OSError, ValueError) as error:
        print(error, file=sys.stderr)
        return 2
    event = None
    for event in events_of(open(0, encoding="utf-8", errors="replace")):
        expectations.feed(event)
    failures = expectations.finish(" ".join(arguments[2:]) or end_of(event))
    for failure in failures:
        print(failure)
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
