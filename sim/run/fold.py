"""Folds what repeats: events that say the same of the same thing become one run with a count and a period."""

from decode import decode
from names import ENDS, HEARTBEATS

MOST_STATES = 12  # of one slot in one boot; what changes more often than that is taken as one run
SILENT_PERIODS, SILENT_SECONDS = 2.5, 2.0  # after so many, both, what had a period has ended
LOOK_EVERY = 0.9
MOST_STILLS = 6
VERBS = {"read": "polled", "ioctl": "polled", "beat": "beat", "write": "written", "fault": "injected", "open": "tried",
         "command": "run"}


class Run:
    """Events of one slot, one after the other, that say the same."""

    __slots__ = ("event", "decoded", "text", "state", "count", "last", "longest", "usual", "votes")

    def __init__(self, event, decoded, text, state):
        self.event, self.decoded, self.text, self.state = event, decoded, text, state
        self.count, self.last = 1, event.total
        self.longest, self.usual, self.votes = 0.0, 0.0, 0

    def add(self, event):
        """One more of them."""
        gap = event.total - self.last
        if gap > self.longest:
            self.longest = gap
        if abs(gap - self.usual) < 0.0015:  # a vote for what most of the gaps are
            self.votes += 1
        elif self.votes > 0:
            self.votes -= 1
        else:
            self.usual, self.votes = gap, 1
        self.last = event.total
        self.count += 1

    def period(self):
        """The mean time between two of them."""
        return (self.last - self.event.total) / (self.count - 1) if self.count > 1 else 0.0

    def summary(self):
        """How often, and how regularly."""
        verb = "said" if self.decoded.kind == "console" else VERBS.get(self.decoded.op, "called")
        period = self.period()
        if period == 0:
            return f"{verb} {self.count} times at once"
        is_regular = self.votes > (self.count - 1) // 2 and self.usual > 0.0005
        return f"{verb} {self.count} times, " + (f"every {duration(self.usual)}" if is_regular
                                                 else f"about every {duration(period)}")


def duration(seconds):
    """A time in the unit that suits it."""
    return f"{seconds * 1000:.3g} ms" if seconds < 0.9995 else f"{round(seconds, 3):.4g} s"


class Folder:
    """Takes events and tells its listener of what is new (began) and of runs that are over (ended)."""

    def __init__(self, began, ended, wants_all=False):
        self.began, self.ended, self.wants_all = began, ended, wants_all
        self._start()

    def _start(self):
        self.runs, self.states, self.words, self.looked_at = {}, {}, {}, 0.0

    def feed(self, event):
        """Takes one event."""
        decoded = decode(event)
        if decoded.is_quiet and not self.wants_all:
            return
        slot, state, text = decoded.slot, decoded.state, decoded.text
        if slot is None:
            if decoded.kind == "board" and decoded.op in ENDS:
                self.finish()
            self.began(Run(event, decoded, text, state))
            return
        if event.who in HEARTBEATS and decoded.op == "read" and decoded.value is not None:
            state, text = self._look(event.who, decoded)
        run = self.runs.get(slot)
        if run is not None and (run.state == state or self.states[slot] > MOST_STATES):
            run.add(event)
            run.text = text
        else:
            if run is not None:
                self.ended(run, event.total)
            self.states[slot] = self.states.get(slot, 0) + 1
            run = self.runs[slot] = Run(event, decoded, text, state)
            self.began(run)
        if event.total > self.looked_at + LOOK_EVERY:
            self._look_for_silence(event.total)

    def finish(self):
        """The boot is over: all runs are."""
        for run in sorted(self.runs.values(), key=lambda run: run.event.total):
            self.ended(run, None)
        self._start()

    def _look(self, path, decoded):
        """Whether a heartbeat has moved since it was looked at last."""
        name, value = HEARTBEATS[path], decoded.value
        last, stills = self.words.get(path, (None, 0))
        stills = stills + 1 if value == last and value != 0 else 0
        self.words[path] = (value, stills)
        if value == 0:
            return ("zero", decoded.error), f"heartbeat of {name} is 0"
        if stills == 0:
            return ("goes on", decoded.error), f"heartbeat of {name} goes on"
        looks = "1 look" if stills == 1 else f"{stills} looks in a row"
        return ("still", min(stills, MOST_STILLS)), f"heartbeat of {name} stands still at {value}, {looks}"

    def _look_for_silence(self, now):
        self.looked_at = now
        for slot, run in list(self.runs.items()):
            is_silent = run.count > 2 and now > run.last + max(SILENT_SECONDS, SILENT_PERIODS * run.longest)
            if is_silent and self.states[slot] <= MOST_STATES:
                del self.runs[slot]
                self.ended(run, now)
