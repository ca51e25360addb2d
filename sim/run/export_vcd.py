"""The board's signals as a value change dump, which waveform viewers read."""

from signals import Signals


class VcdWriter:
    """Collects the changes and writes them at the end, when all signals are known."""

    def __init__(self, path):
        self.file = open(path, "w", encoding="ascii", errors="replace")
        self.signals = Signals()
        self.feed = self.signals.feed

    def idle(self):
        """Nothing to do."""

    def finish(self, result):
        """Writes the file."""
        names = sorted(self.signals.changes)
        codes = {name: self._code(index) for index, name in enumerate(names)}
        write = self.file.write
        write("$timescale 1 ms $end\n$scope module board $end\n")
        for name in names:
            write(f"$var {'wire' if self.signals.widths[name] == 1 else 'reg'} {self.signals.widths[name]} "
                  f"{codes[name]} {name} $end\n")
        write("$upscope $end\n$enddefinitions $end\n#0\n$dumpvars\n")
        for name in names:
            write(self._value(self.signals.widths[name], "x", codes[name]))
        write("$end\n")
        changes = [(round(at * 1000), order, name, value) for name in names
                   for order, (at, value) in enumerate(self.signals.changes[name])]
        now = 0
        for at, _, name, value in sorted(changes):
            if at != now:
                now = at
                write(f"#{at}\n")
            write(self._value(self.signals.widths[name], f"{value:b}", codes[name]))
        end = round(result.outcome.simulated * 1000)
        write(f"#{end}\n" if end > now else "")
        self.file.close()

    @staticmethod
    def _code(index):
        """Identifiers are of printable characters, without an alphabet's end."""
        code = ""
        while True:
            code += chr(33 + index % 94)
            index = index // 94 - 1
            if index < 0:
                return code

    @staticmethod
    def _value(width, value, code):
        return f"{value}{code}\n" if width == 1 else f"b{value} {code}\n"
