"""The run as one page for a browser: a picture of its time, the summary, the story and the console."""

import html
import io
import os

from decode import decode
from fold import Folder
from journal import STREAMS, plain
from names import HEARTBEATS, RESET_LINE
from signals import ARMED, BOOT, FLAG, Signals
from view import Chosen, StoryView

TEMPLATE = os.path.join(os.path.dirname(os.path.abspath(__file__)), "report.html")
LEFT, WIDTH = 250, 1290  # of the picture, in its own units; the page scales it
ROW, GAP, TOP = 22, 7, 34
CONSOLE_ROWS = 5
MOST_SHAPES, MOST_LINES, MOST_TICKS = 6000, 3000, 3000
LABEL = 44
ON_TOP = ("pulse", "still", "error", "fault")  # as short as they may be


class Lane:
    """A row of the picture."""

    def __init__(self, name, rows=1):
        self.name, self.rows, self.shapes = name, rows, []

    def add(self, kind, start, end, text, label=""):
        """A bar from start to end; label stands beside it where there is room."""
        self.shapes.append((kind, start, end, text, label))


def escape(text):
    """For attributes and contents; without control characters, which no page may have."""
    return html.escape("".join(c if c >= " " or c == "\n" else " " for c in text), quote=True)


class ReportWriter:
    """Collects what it draws at the end."""

    def __init__(self, options, script):
        self.file = open(options.report, "w", encoding="utf-8")
        self.options, self.script = options, script
        self.signals, self.runs, self.silences, self.console = Signals(), [], [], []
        self.beats, self.resets = {}, []
        self.folder = Folder(self.runs.append, self._ended)
        self.story = StoryView(io.StringIO(), Chosen([]), False)
        self.missing = 0

    def feed(self, event):
        """Takes one event."""
        self.signals.feed(event)
        self.story.feed(event)
        if len(self.runs) < MOST_SHAPES:
            self.folder.feed(event)
        else:
            self.missing += 1
        if event.who == "beat":
            self.beats.setdefault(decode(event).number, []).append(event.total)
        elif event.who in STREAMS and len(self.console) < MOST_LINES:
            self.console.append(event)
        elif event.who == "board" and event.what.startswith(("reset", "cut")):
            self.resets.append((event.total, event.what))

    def _ended(self, run, now):
        if run.decoded.kind == "beat" and now is not None:
            self.silences.append(run)

    def idle(self):
        """Nothing to do."""

    def finish(self, result):
        """Writes the page."""
        self.folder.finish()
        self.story.finish(result)
        outcome = result.outcome
        self.end = max(outcome.simulated, 0.001)
        rows = [*result.counts.rows(outcome), *(("wanted", want) for want in result.wants or ())]
        if self.missing:
            rows.append(("picture", f"without the last {self.missing} events, which were too many for it"))
        with open(TEMPLATE, encoding="utf-8") as file:
            page = file.read()
        program = " ".join([os.path.basename(self.options.program), *self.options.arguments])
        board = os.path.basename(self.script).removesuffix(".board")
        for name, text in {
            "TITLE": escape(f"{program} on the {board} board"),
            "STATE": "good" if result.status == 0 else "bad",
            "VERDICT": escape(result.verdict),
            "SUMMARY": "".join(f"<tr><th>{escape(head)}</th><td>{escape(text)}</td></tr>" for head, text in rows),
            "PICTURE": self._picture(),
            "STORY": escape(self.story.paper.stream.getvalue()),
            "CONSOLE": "".join(self._console_line(event) for event in self.console),
        }.items():
            page = page.replace("{{" + name + "}}", text)
        self.file.write(page)
        self.file.close()

    @staticmethod
    def _console_line(event):
        text = plain(decode(event).text).rstrip("\n")
        kind = " class=err" if event.who == "err" else ""
        return f"<tr{kind}><td>{event.boot}</td><td>{event.total:.3f}</td><td>{escape(text)}</td></tr>"

    # --- Lanes

    def _lanes(self):
        boots, console = Lane("boots"), Lane("console", CONSOLE_ROWS)
        lanes = {"script": Lane("script"), "fault": Lane("faults injected"), "out": console, "err": console}
        self._fill_boots(boots)
        beats = [self._beat_lane(path, times) for path, times in self.beats.items()]
        signals = [lane for name in sorted(self.signals.changes) if (lane := self._signal_lane(name))]
        seen = set()
        for run in self.runs:
            who = run.event.who
            if run.decoded.kind in ("fault", "script"):
                who = run.decoded.kind
            elif who in ("board", "beat"):
                continue
            lane = lanes.setdefault(who, Lane(who))
            self._add_run(lane, run, seen)
        first = [boots, lanes.pop("script"), lanes.pop("fault"), lanes.pop("out"), *beats]
        lanes.pop("err")
        looks = [lanes.pop(path) for path in HEARTBEATS if path in lanes]
        return [lane for lane in [*first, *looks, *signals, *lanes.values()] if lane.shapes]

    def _fill_boots(self, lane):
        changes = self.signals.changes.get(BOOT, [])
        for at, (start, number) in enumerate(changes):
            end = changes[at + 1][0] if at + 1 < len(changes) else self.end
            lane.add("boot", start, end, f"boot {number}: {start:.3f} s to {end:.3f} s", f"boot {number}")

    def _beat_lane(self, path, times):
        name = HEARTBEATS.get(path, path)
        lane = Lane(f"beats of {name}")
        silent = {round(run.last, 3): run for run in self.silences if run.decoded.number == path}
        if len(times) > MOST_TICKS:
            for run in self.runs:
                if run.decoded.number == path and run.decoded.kind == "beat":
                    lane.add("beat", run.event.total, run.last, f"{name}: {run.summary()}")
            return lane
        for at in times:
            run = silent.get(round(at, 3))
            label = f"silent after {at:.3f} s" if run is not None else ""
            lane.add("beat", at, at, f"{at:.3f} s: {name} beats" + (f", and then falls {label}" if label else ""), label)
        return lane

    def _signal_lane(self, name):
        changes = self.signals.changes[name]
        is_still = all(value == changes[0][1] for _, value in changes)
        if self.signals.widths[name] != 1 or (is_still and name not in (FLAG, ARMED)):
            return None
        lane = Lane(name.replace("_", " "))
        if changes[0][0] > 0:
            lane.add("undriven", 0.0, changes[0][0], f"{lane.name}: nothing known before {changes[0][0]:.3f} s")
        for at, (start, value) in enumerate(changes):
            end = changes[at + 1][0] if at + 1 < len(changes) else self.end
            is_pulse = name.startswith(f"gpio{RESET_LINE}_") and value == 0 and end - start < 1
            label = f"pulse of {round((end - start) * 1000)} ms" if is_pulse else ""
            lane.add("pulse" if is_pulse else "high" if value else "low", start, end,
                     f"{lane.name} is {value} from {start:.3f} s to {end:.3f} s", label)
        return lane

    @staticmethod
    def _add_run(lane, run, seen):
        """A run of events; what is new and comes after the start has a label."""
        decoded, start = run.decoded, run.event.total
        text = plain(run.text).strip()
        kind = ("error" if decoded.error or run.event.who == "err" else
                decoded.kind if decoded.kind in ("fault", "script", "console") else "call")
        is_still = decoded.op == "read" and " stands still" in text
        if is_still:
            kind = "still"
        is_news = text not in seen and run.event.time > 0.5
        seen.add(text)
        has_label = decoded.kind in ("fault", "script") or is_still or (decoded.kind == "console" and is_news)
        label = text.split("\n")[0][:LABEL] if has_label else ""
        if is_still:
            label = "still " + text.rpartition(", ")[2].split()[0]
        more = f"\n{run.summary()}, the last at {run.last:.3f} s" if run.count > 1 else ""
        end = run.last if decoded.op in ("read", "ioctl") or run.period() < 2 else start
        lane.add(kind, start, end, f"{start:.3f} s  {run.event.who}\n{text}{more}", label)

    # --- Drawing

    def _x(self, at):
        return LEFT + at / self.end * WIDTH

    def _picture(self):
        lanes, shapes, names, y = self._lanes(), [], [], TOP
        for lane in lanes:
            height = lane.rows * ROW
            names.append(f'<rect class="lane" x="{LEFT}" y="{y}" width="{WIDTH}" height="{height}"/>'
                         f'<text class="name" x="{LEFT - 10}" y="{y + 15}">{escape(self._short(lane.name))}</text>')
            labels = []
            for kind, start, end, text, label in sorted(lane.shapes, key=lambda shape: shape[0] in ON_TOP):
                shapes.append(self._shape(kind, start, end, text, y, height))
                if label:
                    labels.append(f'<text class="label {kind}" data-a="{start:.3f}" data-y="{y}" data-rows="{lane.rows}" '
                                  f'x="{self._x(start) + 6:.1f}" y="{y + 15}">{escape(label)}</text>')
            shapes += labels
            y += height + GAP
        marks = [f'<line class="reset" data-a="{at:.3f}" x1="{self._x(at):.1f}" x2="{self._x(at):.1f}" y1="{TOP - 6}" '
                 f'y2="{y}"/><text class="label resetlabel" data-a="{at:.3f}" data-y="{TOP - 24}" data-rows="1" '
                 f'x="{self._x(at):.1f}" y="{TOP - 9}">{escape(what)}</text>' for at, what in self.resets]
        return (f'<svg id="picture" viewBox="0 0 {LEFT + WIDTH + 20} {y + 30}" data-left="{LEFT}" data-width="{WIDTH}" '
                f'data-end="{self.end:.3f}" data-axis="{y + 4}" data-row="{ROW}">'
                f'<defs><clipPath id="plot"><rect x="{LEFT}" y="0" width="{WIDTH + 20}" height="{y + 30}"/></clipPath></defs>'
                f'{"".join(names)}<g id="axis"></g><g clip-path="url(#plot)">{"".join(shapes)}{"".join(marks)}</g></svg>')

    @staticmethod
    def _short(name):
        return name if len(name) <= 32 else "…" + name[-31:]

    def _shape(self, kind, start, end, text, y, height):
        top, tall = {"low": (y + height - 6, 3), "undriven": (y + 10, 2), "high": (y + 5, height - 8), "boot": (y + 1, height - 2)}.get(
            kind, (y + 4, height - 8))
        return (f'<rect class="shape {kind}" data-a="{start:.3f}" data-b="{end:.3f}" data-t="{escape(text)}" '
                f'x="{self._x(start):.1f}" y="{top}" width="{max(2.5, self._x(end) - self._x(start)):.1f}" height="{tall}"/>')
