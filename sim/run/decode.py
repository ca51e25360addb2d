"""What an event means: its parts as numbers, and a text for people."""

from journal import plain, unquoted
from names import (BUTTON_LINES, CMOS_BYTES, EXPANDER_OUTPUTS, FILES, GPIO, EXPANDER_IN, EXPANDER_OUT, HEARTBEATS,
                   RESETS, RTC, UPGRADE_FLAG, WATCHDOG, WORDS, line_name, request_name)

# Calls that a reader of the story can do without as long as they succeed.
PREPARATIONS = ("open", "close", "stat", "lstat", "access", "opendir", "mmap", "seek", "setsockopt", "bind")
CONSOLE = {"out": "console", "err": "console!"}


class Decoded:
    """The meaning of one event. Events of one slot report on the same thing; state is what they say of it."""

    __slots__ = ("kind", "op", "size", "data", "number", "value", "error", "text", "slot", "state", "is_quiet")

    def __init__(self, kind, op=""):
        self.kind = kind  # call, console, board, beat, script or fault
        self.op = op
        self.size = self.data = self.number = self.value = self.error = None
        self.text = ""
        self.slot = self.state = None
        self.is_quiet = False


def decode(event):
    """The meaning of an event; it does not depend on the events before."""
    key = (event.who, event.what)
    found = _cache.get(key)
    if found is None:
        if len(_cache) > 5000:
            _cache.clear()
        found = _cache[key] = _decode(*key)
    return found


_cache = {}


def _decode(who, what):
    if who in CONSOLE:
        return _console(who, what)
    special = {"board": _board, "beat": _beat, "script": _script, "command": _command}.get(who)
    return special(what) if special else _call(who, what)


def _console(who, what):
    decoded = Decoded("console", "write")
    decoded.text, rest = unquoted(what)
    decoded.error = rest.removeprefix("-> ") or None
    decoded.slot = (who, plain(decoded.text))
    if decoded.error:
        decoded.text += f" (not written: {decoded.error})"
    return decoded


def _board(what):
    word, _, rest = what.partition(" ")
    if word == "fault":
        return _fault(rest)
    decoded = Decoded("board", word)
    if word == "told:":
        decoded.kind, decoded.text = "script", f"told: {rest}"
    else:
        decoded.text = "starts" if what == "start" else RESETS.get(what, what)
    return decoded


def _beat(what):
    path, _, count = what.partition(" ")
    decoded = Decoded("beat", "beat")
    decoded.number, decoded.value = path, int(count or 0)
    decoded.text = f"{HEARTBEATS.get(path, path)} beats"
    decoded.slot = ("beat", path)
    return decoded


def _script(what):
    decoded = Decoded("script", what.split(" ")[0])
    words = what.split()
    decoded.text = what
    if words[:1] == ["level"] and len(words) == 3 and words[1].isdigit():
        decoded.number, decoded.value = int(words[1]), int(words[2], 0)
        decoded.text = f"{line_name(decoded.number)} is {_level(decoded.number, decoded.value)}"
    elif words[:2] == ["word", UPGRADE_FLAG] and len(words) == 3:
        decoded.value = int(words[2], 0)
        decoded.text = f"upgrade flag := {decoded.value}"
    return decoded


def _fault(what):
    """A fault of the script: "TEXT: call N" comes before the call that it is injected into."""
    decoded = Decoded("fault", "fault")
    line, colon, number = what.rpartition(": call ")
    if not colon:
        decoded.op, decoded.text = "never", what
        return decoded
    target, op, *_ = [*line.split(), "", ""]
    name, _, request = op.partition(":")
    if request:
        name = f'"{request_name(target, int(request, 0))}"'
    decoded.number, decoded.value = int(number), line
    decoded.text = f"injected: {name} number {number} of {target} ({line})"
    decoded.slot, decoded.state = ("fault", line), line
    return decoded


def _command(what):
    decoded = Decoded("call", "command")
    text, rest = unquoted(what)
    words = [word for word in rest.split("-> ") if word]
    result = words[-1].strip() if words else "0"
    if result.lstrip("-").isdigit():
        decoded.value = int(result)
        ended = {0: "", 15: ", killed"}.get(decoded.value, f", exit status {decoded.value >> 8}")
    else:
        decoded.error, ended = result, f" -> {result}"
    decoded.text = f'"{text}"{ended}'
    decoded.slot = ("command", text, ended)
    return decoded


def _call(who, what):
    decoded = Decoded("call")
    what, arrow, error = what.rpartition(" -> ")
    if arrow and error.isupper() and error.startswith("E"):
        decoded.error = error
    elif arrow:
        what = f"{what} -> {error}"
    else:
        what = error
    if what.startswith("-> E") and not decoded.error:
        what, decoded.error = "", what[3:]
    head, _, data = what.partition(": ") if ": " in what else what.partition(" (")
    words = head.split(" ")
    decoded.op = words[0]
    if decoded.op in ("read", "write", "sendto") and len(words) > 1 and words[1].isdigit():
        _transfer(who, decoded, int(words[1]), *_bytes(data if ": " in what else f" ({data}"))
    elif decoded.op == "ioctl":
        _request(who, decoded, int(words[1], 16), what.partition(" ")[2].partition(" ")[2])
    else:
        _other(who, decoded, what)
    if decoded.error:
        decoded.text += f" -> {decoded.error}"
    decoded.state = (decoded.state, decoded.error)
    return decoded


def _bytes(text):
    """The bytes of a dump and the remark behind it."""
    dump, _, remark = text.partition(" (")
    words = [word for word in dump.split(" ") if len(word) == 2]
    return bytes.fromhex("".join(words)), remark.rstrip(")")


def _level(line, level):
    """A level; what it means for a button."""
    return f"{level}, held down" if line in BUTTON_LINES and level == 0 else str(level)


def _transfer(who, decoded, size, data, remark):
    decoded.size, decoded.data = size, data
    verb = {"read": "reads", "write": "writes", "sendto": "sends"}[decoded.op]
    decoded.slot = (who, decoded.op)
    decoded.text = f"{verb} {_amount(size)}{_shown(who, data, size)}"
    decoded.state = decoded.text
    decoded.is_quiet = decoded.op == "read" and size == 0
    special = {GPIO: _gpio, RTC: _cmos, EXPANDER_OUT: _expander, EXPANDER_IN: _inputs}.get(who)
    if special:
        special(decoded, data, remark)
    elif who in (UPGRADE_FLAG, *HEARTBEATS) and len(data) == 4:
        decoded.value = int.from_bytes(data, "little")
        decoded.text = f"{FILES[who]} {'is' if decoded.op == 'read' else ':='} {decoded.value}"
        decoded.state = decoded.value
    if decoded.op != "read":
        decoded.slot = (*decoded.slot, decoded.text)  # every write is news, unless it is the same again


def _gpio(decoded, data, remark):
    if decoded.op == "read" and remark.startswith("line "):
        decoded.number = int(remark[5:])
        decoded.slot = (GPIO, "read", decoded.number)
        decoded.value = data[0] if data else None
        is_level = "" if decoded.value is None else f" is {_level(decoded.number, decoded.value)}"
        decoded.text = (line_name(decoded.number) if data else f"reads {line_name(decoded.number)}") + is_level
        decoded.state = decoded.value
    elif decoded.op == "write" and len(data) == 2:
        decoded.number, decoded.value = data
        decoded.text = f"{line_name(decoded.number)} := {decoded.value}"


def _expander(decoded, data, _):
    if decoded.op == "write" and len(data) == 2:
        decoded.number, decoded.value = data
        decoded.text = f"output {decoded.number} ({EXPANDER_OUTPUTS.get(decoded.number, 'unnamed')}) := {decoded.value}"


def _inputs(decoded, data, _):
    if decoded.op == "read" and data:
        decoded.value = decoded.state = data[0]
        decoded.text = f"inputs are {data[0]:08b}"


def _cmos(decoded, data, remark):
    if decoded.op == "write" and len(data) > 1:
        decoded.number, shown = data[0], data[1:]
    elif remark.startswith("at "):
        decoded.number, shown = int(remark[3:]), data
    else:
        return
    decoded.slot = (RTC, decoded.op, decoded.number)
    verb = "is" if decoded.op == "read" else ":="
    name = CMOS_BYTES.get(decoded.number)
    place = f"CMOS {decoded.number}" + (f" ({name})" if name else "")
    decoded.text = decoded.state = f"{place} {verb} {shown.hex(' ')}"


def _amount(size):
    return f"{size >> 10} KiB" if size >= 4096 and size % 1024 == 0 else f"{size} byte" + "s" * (size != 1)


def _shown(who, data, size):
    """Text as text, all else in hexadecimal."""
    if not data:
        return ""
    more = "…" if len(data) < size else ""
    if size > 4096:
        return f" of the {FILES[who]}" if who in FILES else ""
    if all(32 <= byte < 127 or byte in b"\t\n\r" for byte in data):
        text = " | ".join(" ".join(line.split()) for line in data.decode("ascii").strip().split("\n"))
        return f': "{text}{more}"'
    return f": {data[:24].hex(' ')}{more or ('…' if len(data) > 24 else '')}"


def _request(who, decoded, number, rest):
    decoded.number = number
    name = request_name(who, number)
    decoded.slot = (who, "ioctl", number)
    before, arrow, answer = rest.rpartition("-> ")
    words = before.split() if arrow else answer.split()
    given = " ".join(words)
    if who == WATCHDOG and number == 5 and words and words[0].isdigit():
        decoded.value = int(words[0])
        given = f"{decoded.value / 1000:g} s"
    decoded.text = name if name.endswith("exchange") else f"{name} {given}".rstrip()
    if arrow:
        decoded.text += f": {_answer(decoded, number, answer)}"
    decoded.state = name if who == RTC else decoded.text  # the time goes on


def _answer(decoded, number, answer):
    try:
        decoded.value = int(answer, 0)
    except ValueError:
        return answer
    meaning = WORDS.get(number, {}).get(decoded.value)
    return f"{answer} ({meaning})" if meaning else answer


def _other(who, decoded, what):
    op = decoded.op
    decoded.slot = (who, op)
    decoded.text = decoded.state = what or "called"
    decoded.is_quiet = op in PREPARATIONS and decoded.error is None
    if who == "clock" and op == "settimeofday":
        words = what.split()
        decoded.value = int(words[1]) if len(words) > 1 and words[1].isdigit() else None
        decoded.text = f"system clock := {words[1]} s after 1970" if decoded.value is not None else "system clock: time zone"
        decoded.state = None
    elif (who, what) in (("thread", "start"), ("clone", "task")):
        decoded.text = f"a {who} starts" if who == "thread" else "a task starts"
        decoded.is_quiet = who == "thread" and decoded.error is None
    elif who == "clone" and what.startswith("stack"):
        decoded.text = what + " bytes"
    elif op == "open" and decoded.error == "ENOENT":
        decoded.text = "is not there"
