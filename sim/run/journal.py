"""The journal of a simulated board: one line an event, "SECONDS.MMM WHO WHAT..."."""

ESCAPES = {"n": "\n", "t": "\t", "e": "\033", '"': '"', "\\": "\\"}
STREAMS = ("out", "err")


class Event:
    """A journal line with the boot that it belongs to."""

    __slots__ = ("time", "total", "boot", "who", "what", "line")

    def __init__(self, time, total, boot, who, what, line):
        self.time = time  # board time in this boot
        self.total = total  # board time, running on over resets
        self.boot = boot  # from 1
        self.who = who
        self.what = what
        self.line = line


def parse(line, boot=1, offset=0.0):
    """The event of a line; None for what is none, such as the rest of a line that was cut off."""
    time, _, rest = line.partition(" ")
    who, _, what = rest.partition(" ")
    try:
        seconds = float(time)
    except ValueError:
        return None
    return Event(seconds, offset + seconds, boot, who, what, line) if who else None


def unquoted(what):
    """The text that a quoted argument stands for, and what comes after it."""
    text, at = [], 1
    while at < len(what) and what[at] != '"':
        letter = what[at]
        if letter != "\\":
            text.append(letter)
        elif what[at + 1 : at + 2] == "x":
            text.append(chr(int(what[at + 2 : at + 4], 16)))
            at += 3
        else:
            text.append(ESCAPES.get(what[at + 1 : at + 2], ""))
            at += 1
        at += 1
    return "".join(text), what[at + 1 :].strip()


def quoted(text):
    """The other way round, for what the program writes past the journal."""
    letters = {value: "\\" + name for name, value in ESCAPES.items()}
    return '"' + "".join(letters.get(c, c if c >= " " else f"\\x{ord(c):02x}") for c in text) + '"'


def plain(text):
    """Console text without the sequences that colour it and without other control characters."""
    parts = text.split("\033[")
    rest = [part.lstrip("0123456789;")[1:] for part in parts[1:]]
    return "".join(c for c in parts[0] + "".join(rest) if c >= " " or c in "\n\t")
