"""The board as signals: what is high or low, or has which value, from when on."""

from decode import decode
from names import (BUTTON_LINES, EXPANDER_IN, EXPANDER_OUT, EXPANDER_OUTPUTS, GPIO, GPIO_LINES, HEARTBEATS, UPGRADE_FLAG,
                   WATCHDOG)

BOOT, ARMED, FLAG = "boot", "watchdog_armed", "upgrade_flag"


def _identifier(text):
    return "".join(c if c.isalnum() else "_" for c in text.split(",")[0].split(" or ")[0])


class Signals:
    """Values over time: name -> [(seconds, value)], where only changes are kept. Widths are in bits."""

    def __init__(self):
        self.changes, self.widths = {}, {}

    def feed(self, event):
        """Takes what an event says of a signal."""
        decoded, at = decode(event), event.total
        if decoded.kind == "board":
            self._board(event, decoded)
        elif decoded.kind == "beat":
            self._set(f"beat_{HEARTBEATS.get(decoded.number, _identifier(decoded.number))}", 32, at, decoded.value)
        elif decoded.value is None or decoded.error:
            if event.who == WATCHDOG and decoded.number == 7 and not decoded.error:
                self._set(ARMED, 1, at, 1)
        elif event.who == GPIO or (decoded.kind == "script" and decoded.op == "level"):
            name = GPIO_LINES.get(decoded.number)
            self._set(f"gpio{decoded.number}" + (f"_{_identifier(name)}" if name else ""), 1, at, decoded.value)
        elif event.who == EXPANDER_OUT:
            name = EXPANDER_OUTPUTS.get(decoded.number)
            self._set(f"expander_out{decoded.number}" + (f"_{_identifier(name)}" if name else ""), 1, at, decoded.value)
        elif event.who == EXPANDER_IN:
            for bit in range(8):
                self._set(f"expander_in{bit}", 1, at, decoded.value >> bit & 1)
        elif event.who == UPGRADE_FLAG or (decoded.kind == "script" and decoded.op == "word"):
            self._set(FLAG, 1, at, int(decoded.value != 0))

    def _board(self, event, decoded):
        at = event.total
        if decoded.op == "start":
            self._set(BOOT, 8, at, event.boot)
            self._set(ARMED, 1, at, 0)
            for name in self.changes:  # what was driven floats high
                if name.startswith(("gpio", "expander_out")) and not any(f"gpio{n}_" in name for n in BUTTON_LINES):
                    self._set(name, 1, at, 1)
                elif name == FLAG:
                    self._set(name, 1, at, 0)

    def _set(self, name, width, at, value):
        changes = self.changes.setdefault(name, [])
        self.widths[name] = width
        if not changes or changes[-1][1] != value:
            changes.append((at, value))
