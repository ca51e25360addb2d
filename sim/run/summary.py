"""What a run comes to: counts, faults, how it ended, and whether that was wanted."""

from decode import decode
from journal import plain
from names import BUTTON_LINES, GPIO, RESETS

RULE = "── summary "
MOST_DEVICES = 4


class ScriptFault:
    """A fault line of a script."""

    def __init__(self, number, words):
        self.line, self.text = number, " ".join(words)
        self.what, self.op, span = words[1], words[2], words[3]
        first, _, last = span.rstrip("+").partition("..")
        self.first = int(first)
        self.last = 1 << 32 if span.endswith("+") else int(last or first)
        self.count = 0

    def matches(self, what, op, number):
        """Whether an injected fault came of this line."""
        name, _, request = self.op.partition(":")
        own = f"{name}:0x{int(request, 0):x}" if request else name
        return self.what in ("*", what) and own == op and self.first <= number <= self.last


def script_faults(text):
    """The faults that a script has, now or later."""
    faults = []
    for number, line in enumerate(text.split("\n"), 1):
        words = line.split()
        if words[:1] == ["at"]:
            words = words[2:]
        if words[:1] != ["fault"]:
            continue
        try:
            faults.append(ScriptFault(number, words))
        except (IndexError, ValueError):
            pass  # the board refuses such a line
    return faults


class Summary:
    """Counts while the board runs."""

    def __init__(self, script_text):
        self.faults = script_faults(script_text)
        self.injected = self.passes = self.lines = self.error_lines = 0
        self.calls = {}

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
        elif decoded.kind == "fault":
            self.injected += 1
            words = event.what.split()
            for fault in self.faults:
                if len(words) > 2 and fault.matches(words[0], words[1], int(words[2])):
                    fault.count += 1

    def idle(self):
        """Nothing to do."""

    def unfired(self):
        """The faults of the script that no call met."""
        return [fault for fault in self.faults if fault.count == 0]

    def as_dictionary(self, outcome, status, wants):
        """For machines."""
        return {
            "end": outcome.end, "status": status, "reason": outcome.boots[-1][1],
            "boots": [{"seconds": round(seconds, 3), "end": why} for seconds, why in outcome.boots],
            "passes": self.passes, "calls": self.calls, "lines": self.lines, "error_lines": self.error_lines,
            "faults": self.injected, "unfired": [fault.text for fault in self.unfired()],
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
        yield "faults", f"{self.injected} injected" if self.injected or self.faults else "none"
        for fault in self.unfired():
            yield "never fired", f"line {fault.line}: {fault.text}"
        yield "console", f"{self.lines} lines, {self.error_lines} of them to standard error"
        speed = f", {outcome.simulated / outcome.real:.0f} times as fast" if outcome.real > 0 else ""
        yield "time", f"{outcome.simulated:.3f} s simulated in {outcome.real:.2f} s{speed}"


def verdict(options, outcome, wants):
    """The exit status of a run and why. wants: None where the board expects nothing, else what did not come true."""
    if outcome.code == 2 and outcome.messages:
        return 2, "the board could not be started"
    if wants is not None:
        return (1, "not as the board expects") if wants else (0, "as the board expects")
    if any(why.startswith("reset") for _, why in outcome.boots):
        return 3, "the board was reset"
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
