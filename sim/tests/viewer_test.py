#!/usr/bin/env python3
"""The runner of the simulated board: what it shows, what it writes for other tools, how it ends.

usage: viewer_test.py BUILD-DIRECTORY
"""
import json
import os
import pathlib
import re
import shutil
import struct
import subprocess
import sys
import tempfile
import unittest

from picture import Picture

TOP = pathlib.Path(__file__).resolve().parents[2]
BUILD = os.path.abspath(sys.argv.pop(1))
CAMERA = (TOP / "sim/boards/camera.board").read_text()
QUIET_CAMERA = "".join(line + "\n" for line in CAMERA.split("\n") if not line.startswith(("expect", "never")))
scratch = pathlib.Path(tempfile.mkdtemp())


def run(*options, board=None, columns=None, typed=None):
    """The lines that the runner shows, and its exit status."""
    if board is not None:
        (scratch / "own.board").write_text(board)
        options = ("--board", scratch / "own.board", *options)
    environment = {**os.environ, **({"COLUMNS": columns} if columns else {})}
    done = subprocess.run([sys.executable, TOP / "sim/run", "--preset", BUILD, *options], capture_output=True, text=True,
                          env=environment, **({"input": typed} if typed else {"stdin": subprocess.DEVNULL}))
    return done.stdout.splitlines(), done.returncode


def changes(path):
    """A value change dump as a waveform viewer has read it: signal -> [(milliseconds, value)]."""
    wave, names, found, now = scratch / "wave.fst", {}, {}, 0
    subprocess.run(["vcd2fst", path, wave], check=True, capture_output=True)
    dump = subprocess.run(["fst2vcd", wave], check=True, capture_output=True, text=True).stdout
    for word in dump.replace("$dumpvars", "").split("\n"):
        words = word.split()
        if words[:1] == ["$var"]:
            names[words[3]] = words[4]
        elif word.startswith("#"):
            now = int(word[1:])
        elif word[:1] == "b":
            found.setdefault(names[words[1]], []).append((now, words[0][1:].lstrip("0")))
        elif word[:1] in "01x" and word:
            found.setdefault(names[word[1:]], []).append((now, word[0]))
    return found


def reader(name):
    """Leaves a test out for want of a program of others; where everything is tested, everything is there."""
    if not shutil.which(name):
        if os.environ.get("CI") == "true":
            raise AssertionError(f"there is no {name}: scripts/prepare ci")
        raise unittest.SkipTest(f"no {name}")


class Viewer(unittest.TestCase):
    def has(self, lines, *texts):
        for text in texts:
            self.assertTrue(any(text in line for line in lines), f"{text!r} is not in\n" + "\n".join(lines))

    def test_a_board_in_order_is_told_in_a_page(self):
        lines, status = run("--fast", "--for", "200s")
        self.assertEqual(status, 0)
        self.assertLessEqual(len(lines), 60)
        self.has(lines, "set period 25 s; resume; keepalive", "polled 995 times, every 200 ms: line 23 (reset button) is 1",
                 "mediaguard beat 201 times, every 1 s", '"DEMAC Error : 0"', "passes       995")
        for columns in ("50", "80"):
            lines, _ = run("--fast", "--for", "200s", columns=columns)
            self.assertLessEqual(max(map(len, lines)), int(columns))

    def test_a_stalled_board_is_told_for_people_and_tools(self):
        files = {name: scratch / f"stalled.{name}" for name in ("json", "vcd", "report")}
        lines, status = run("--board", "stalled", "--fast", "--for", "100",
                            *(word for name, path in files.items() for word in (f"--{name}", path)))
        self.assertEqual(status, 3, "the board was reset, and its story is not over")
        self.assertLessEqual(len(lines), 60)
        self.has(lines, "mediaguard is silent: beat 60 times", "stands still at 60, 4 looks", "MediaGuard is killed",
                 "line 35 (board reset) := 0, := 1 after 20 ms", "boot 2 at 84.420 s")
        self.assertEqual(run("--board", "stalled", "--fast", "--quiet")[1], 0, "all that the board expects has been seen")

        records = [json.loads(line) for line in files["json"].read_text().splitlines()]
        self.assertEqual([records[0]["type"], records[-1]["type"]], ["run", "summary"])
        self.assertEqual(records[-1]["boots"][0], {"seconds": 84.42, "end": "reset gpio35"})
        times = [record["total"] for record in records[1:-1]]
        self.assertEqual(times, sorted(times), "board time runs on over the reset")
        self.assertIn((2, "resume"), [(record["boot"], record["text"]) for record in records[1:-1]])

        page = files["report"].read_text()
        self.has([page], "beats of mediaguard", "silent after 59.000 s", "gpio35 board reset", "upgrade flag", "boot 2",
                 "pulse of 20 ms", "MediaGuard is killed", "<svg")
        self.assertNotRegex(page, r"(src|href)=|https?://|\{\{")

        reader("vcd2fst")
        signals = changes(files["vcd"])
        self.assertEqual(signals["gpio35_board_reset"][1:], [(84400, "0"), (84420, "1")])
        self.assertEqual(signals["boot"][1:], [(0, "1"), (84420, "10")])
        beats = [at for at, _ in signals["beat_mediaguard"] if 58000 < at < 90000]
        self.assertEqual(beats[:2], [59000, 84420])
        self.assertEqual(signals["watchdog_armed"][-1][1], "1")

    def test_the_page_shows_the_story_of_a_stalled_board(self):
        reader("chromium")
        page = scratch / "picture.html"
        run("--board", "stalled", "--fast", "--for", "100", "--report", page)
        picture = Picture(page, scratch)
        for wanted, kind, lane, seconds in (
                (True, "beat", "beats of mediaguard", 30), (True, "beat", "beats of mediaguard", 59), (False, "beat", "beats of mediaguard", 70),
                (True, "beat", "beats of encode", 70), (True, "beat", "beats of mediaguard", 90.42), (True, "still", "/tmp/mediaguard_to_sentrel", 67.6),
                (True, "console", "console", 83.2), (False, "console", "console", 45), (True, "pulse", "gpio35 board reset", 84.41),
                (False, "pulse", "gpio35 board reset", 80), (True, "high", "gpio35 board reset", 95), (True, "high", "watchdog armed", 50),
                (True, "low", "upgrade flag", 50), (True, "boot", "boots", 40), (True, "boot", "boots", 95)):
            with self.subTest(lane=lane, kind=kind, seconds=seconds):
                self.assertEqual(picture.shows(kind, lane, seconds), wanted)
        shown = re.findall(r'<text class="label(?:(?!display: none)[^>])*>([^<]*)<', picture.dom)
        for text in ("boot 1", "boot 2", "silent after 59.000 s", "still 4", "[sentrel] MediaGuard is killed", "pulse of 20 ms", "reset gpio35"):
            self.assertIn(text, shown, "a label that has found no room")
        self.assertRegex(picture.dom, r'<text class="tick"[^>]*>100 s<')

    def test_frames_are_whole(self):
        path = scratch / "frames.pcap"
        lines, status = run("--fast", "--pcap", path, "announce")
        self.assertEqual(status, 0)
        self.has(lines, "announced: 0")
        data = path.read_bytes()
        self.assertEqual(struct.unpack("<IHHiIII", data[:24])[0::6], (0xA1B2C3D4, 1))
        self.assertEqual(struct.unpack("<IIII", data[24:40])[2:], (60, 60))
        self.assertEqual(data[40:].hex(), "ff" * 6 + "0012314a0c5e0806" + "0001080006040002"
                         + "0012314a0c5ec0a8016c" + "00" * 6 + "c0a8016c" + "00" * 18)
        reader("tcpdump")
        shown = subprocess.run(["tcpdump", "-nr", path], capture_output=True, text=True).stdout
        self.assertIn("ARP, Reply 192.168.1.108 is-at 00:12:31:4a:0c:5e", shown)

    def test_faults_are_seen(self):
        lines, status = run("--fast", "--for", "20", board=QUIET_CAMERA + "fault /dev/misc/gpio read 7 EIO\n"
                            "fault /dev/misc/rtc write 1 EIO\nat 9 level 30 0\n")
        self.assertEqual(status, 0)
        self.has(lines, "injected: read number 7 of /dev/misc/gpio", "reads line 23 (reset button) -> EIO", "faults       1",
                 "never fired  /dev/misc/rtc write 1 EIO", "line 30 (reset button) is 0")

    def test_what_is_typed_acts_on_the_board(self):
        lines, status = run("--for", "1.5", board=QUIET_CAMERA, typed="nonsense\nlevel 23 0\n")
        self.assertEqual(status, 0)
        self.has(lines, "told: level 23 0", "line 23 (reset button) is 0, held down")

    def test_the_status_tells_how_it_went(self):
        for wanted, board, options in ((2, "nonsense\n", ()), (2, None, ("--frob",)), (2, None, ("--board", "no")),
                                       (1, QUIET_CAMERA + "expect 1 what never comes\n", ("--for", "5")),
                                       (3, QUIET_CAMERA + "wdt fed 1\n", ("--for", "90")),
                                       (6, QUIET_CAMERA + "at 3 cut now\n", ("--for", "5"))):
            with self.subTest(board=board, options=options):
                self.assertEqual(run("--fast", "--quiet", *options, board=board)[1], wanted)


result = unittest.main(exit=False).result
shutil.rmtree(scratch)
sys.exit(not result.wasSuccessful())
