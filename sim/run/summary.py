"""What a run comes to: counts, faults, how it ended, and whether that was wanted."""

from decode import decode
from journal import plain
from names import BUTTON_LINES, GPIO, RESETS

RULE = "── summary "
MOST_DEVICES = 4


class Summary:
    """Counts while the board runs."""

    def __init__(self):
        self.injected = self.passes = self.lines = self.error_lines = 0
        self.calls, self.fired, self.never_fired = {}, set(), set()

    def feed(self, event):
        """One more event."""
        decoded = decode(event)
        if decoded.kind == "call":
            self.calls[event.who] = self.calls.get(event.who, 0) + 1
            if event.who == GPIO and decoded.op == "read" and decoded.number in BUTTON_LINES:
                self.passes += 1
        elif decoded.kind == "console":
            count = sum(1 for line in plain(decoded.text).split("\n") if line.strip())
            self.lines += count
            self.error_lines += count if event.who == "err" else 0
        elif decoded.kind == "fault" and decoded.op == "never":
            self.never_fired.add(decoded.text.removesuffix(" never fired"))
        elif decoded.kind == "fault":
            self.injected += 1
            self.fired.add(decoded.value)

    def idle(self):
        """Nothing to do."""

    def unfired(self):
        """The faults of the script that no call met, in any boot."""
        return sorted(self.never_fired - self.fired)

    def as_dictionary(self, outcome, status, wants):
        """For machines."""
        return {
            "end": outcome.end, "status": status, "reason": outcome.boots[-1][1],
            "boots": [{"seconds": round(seconds, 3), "end": why} for seconds, why in outcome.boots],
            "passes": self.passes, "calls": self.calls, "lines": self.lines, "error_lines": self.error_lines,
            "faults": self.injected, "unfired": self.unfired(),
            "simulated": round(outcome.simulated, 3), "real": round(outcome.real, 3), "unmet": wants,
        }

    def rows(self, outcome):
        """For people: pairs of a heading and a text."""
        boots = outcome.boots
        if len(boots) == 1:
            yield "ended", RESETS.get(boots[0][1], boots[0][1])
        for number, (seconds, why) in enumerate(boots, 1) if len(boots) > 1 else ():
            yield f"boot {number}", f"{seconds:.3f} s; {RESETS.get(why, why)}"
        if self.passes:
            yield "passes", f"{self.passes} of the daemon's loop, each polls the reset button"
        most = sorted(self.calls.items(), key=lambda item: -item[1])
        rest = sum(count for _, count in most[MOST_DEVICES:])
        shown = ", ".join(f"{who} {count}" for who, count in most[:MOST_DEVICES])
        yield "calls", (shown or "none") + (f", others {rest}" if rest else "")
        yield "faults", f"{self.injected} injected" if self.injected or self.never_fired else "none"
        for fault in self.unfired():
            yield "never fired", fault
        yield "console", f"{self.lines} lines" + (f", {self.error_lines} of them to standard error" if self.error_lines else "")
        speed = outcome.simulated / max(outcome.real, 0.001)
        faster = f", {speed:.0f} times as fast" if speed >= 2 else ""
        yield "time", f"{outcome.simulated:.3f} s simulated in {outcome.real:.2f} s{faster}"


def downs(outcome):
    """The ways in which the board went down in a run: reset, cut."""
    return {why.split(" ")[0] for _, why in outcome.boots} & {"reset", "cut"}


def verdict(options, outcome, wants):
    """The exit status of a run and why. wants: None where the board expects nothing, else what did not come true."""
    if outcome.code == 2 and outcome.messages:
        return 2, "the board could not be started"
    if wants is not None and not wants:
        return 0, "as the board expects"
    but = "not as the board expects, " if wants else ""
    if "reset" in downs(outcome):
        return 3, but + "the board was reset"
    if "cut" in downs(outcome):
        return 6, but + "the power was cut"
    if wants:
        return outcome.code or 1, "not as the board expects"
    if outcome.end == "running":
        return 0, "all in order: the program was running and the board was never reset"
    if options.is_daemon and outcome.code == 0:
        return 1, "the daemon ended, which it never should"
    return outcome.code, f"the program ended with status {outcome.code}" if outcome.code else "the program is done"


def write(stream, rows, text, wants, width):
    """The summary, for people."""
    stream.write(RULE + "─" * (min(width, 80) - len(RULE)) + "\n")
    for heading, row in [*rows, *(("wanted", want) for want in wants or ()), ("verdict", text)]:
        lines, line = [], ""
        for word in row.split(" "):
            if line and len(line) + len(word) + 1 > width - 14:
                lines, line = [*lines, line], ""
            line = f"{line} {word}" if line else word
        for at, part in enumerate([*lines, line]):
            stream.write(f" {heading if at == 0 else '':<12} {part}\n")
