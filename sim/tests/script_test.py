"""usage: script_test.py BUILD-DIRECTORY [EMULATOR...]: what board scripts do, and what is told of wrong ones."""
import os
import pathlib
import re
import shutil
import socket
import subprocess
import sys
import tempfile
import time
import unittest

TOP = os.path.abspath(os.path.join(os.path.dirname(__file__), "../.."))
BUILD, EMULATOR = os.path.abspath(sys.argv[1]), sys.argv[2:]
sys.path.insert(0, os.path.join(TOP, "sim/run"))
from expect import Expectations, events_of  # noqa: E402

MANUAL = pathlib.Path(TOP, "docs/simulated-board.md").read_text(encoding="utf-8")

WRONG = [("lvel 3", "one of: describe"), ("level 72 0", "line, 0 to 71"), ("level 7 2", "0 or 1"), ("env FOO", "NAME=VALUE"),
         ("fault /dev/misc/gpoi read 1 EIO", "/dev/misc/gpio"), ("fault /dev/misc/gpio sleep 1 EIO", "open close read"),
         ("fault gpio read 1 EIO", "COMMAND system"), ("fault /dev/misc/gpio read 0 EIO", "N, N..M or N+"),
         ("fault /dev/misc/gpio read 1..x EIO", "N, N..M or N+"), ("fault /dev/misc/gpio read 1 EFOO", "an error"),
         ("fault /dev/misc/gpio read 1", "an error"), ("at x level 7 1", "seconds"), ("at 3 boot 2 level 99 1", "line, 0 to 71"),
         ("at 3 never foo", "does something"), ("boot 2 at 3 levl 2", "one of: describe"), ("beat /tmp/x evry 2", "line's end"),
         ("file /usr/x y", "a path below"), ("expect foo", "seconds"), ("expect foo within 3..x", "seconds"),
         ("expect end never", "reset, running"), ("present /dev/misc/foo", "/dev/misc/wdt"), ("usb 1 2 1-1. a/b", "a place"),
         ("usb 1 2 1-1 ab", "MAKER/NAME"), ("mtd 0 boot 16 /no/file", "a file"), ("env a=1\nmtd 1 env 16", "before the first env"),
         ("rtc 2038-02-30", "a date"), ("rtc 2038-01-19 24:00:00", "a date"), ("storm 1", "seconds"), ("storm 1 0", "more than 0"),
         ("file /tmp/x " + "y" * 1100, "shorter")]


JOURNAL = r"""0.000 board start
0.050 out "\e[1mone\e[m \"two\"\n"
84.420 board reset gpio35
0.000 board start
5.200 /tmp/x open rw
9.000 board end time"""
HELD = ["expect 0 one \"two\"", "expect 0.1 out one", r'expect 0.05 out "\e[1mone', "expect reset within 84..85", "boot 2 expect 5.2 /tmp/x",
        "expect /tmp/x within 89..90", "boot 2 never one", "expect end running"]
FAILED = [("expect 0.11 one", "0.050 out"), ("boot 2 expect 0 one", "boot 1"), ("expect /tmp/x within 5..6", "after 89.620 s"),
          ("expect 5.2 /tmp/y", "/tmp/x"), ("never reset", "84.420 board"), ("expect end reset", "running")]


class Board(unittest.TestCase):
    def setUp(self):
        self.place = tempfile.mkdtemp(dir=BUILD)
        self.addCleanup(shutil.rmtree, self.place)

        self.path = lambda name: os.path.join(self.place, name)

    def start(self, script, seconds=1, **variables):
        pathlib.Path(self.place, "board").write_text(script, encoding="utf-8")
        os.makedirs(self.path("root"), exist_ok=True)
        variables = {"BOARD": self.path("board"), "ROOT": self.path("root"), "JOURNAL": self.path("journal"), "FOR": str(seconds), **variables}
        return subprocess.Popen([*EMULATOR, BUILD + "/sim-launch", BUILD + "/sentrel"], stdout=subprocess.DEVNULL,
                                stderr=subprocess.PIPE, stdin=subprocess.DEVNULL, text=True,
                                env={**os.environ, **{"MARL_SIM_" + name: value for name, value in variables.items()}})

    def run_board(self, script):
        process = self.start(script)
        errors = process.communicate()[1]
        return process.returncode, errors

    def read(self, name):
        return pathlib.Path(self.place, name).read_text(encoding="latin-1")

    def test_every_wrong_line_is_told_before_the_start(self):
        status, errors = self.run_board("level 7 1\n" + "\n".join(line for line, _ in WRONG))
        self.assertEqual(status, 2)
        told = dict(re.findall(rf"^simulated board: {self.path('board')}:(\d+): (.*)$", errors, re.M))
        place = 1
        for line, wanted in WRONG:
            place += 1 + line.count("\n")
            self.assertIn(wanted, told.pop(str(place), ""), line)
        self.assertEqual(told, {})

    def test_the_manual_has_every_line_and_its_examples_can_be_done(self):
        listed = re.search(r'one of: (.*)', self.run_board("help")[1])[1]
        scripts = MANUAL[MANUAL.index("## Scripts"):MANUAL.index("What can fail")]
        documented = re.findall(r"`([^`]+)`", " ".join(re.findall(r"^\| (`.*?) \| ", scripts.replace("\\|", "\0"), re.M)))
        forms = {form.replace("\0", "|") for form in documented}
        self.assertEqual({form.strip().replace(": ", ":") for form in listed.split(";")}, forms)
        examples = "\n".join(re.findall(r"^    (.*)", MANUAL[MANUAL.index("### One of each"):MANUAL.index("## Journal")], re.M))
        self.assertEqual(self.run_board(examples)[0], 0)

    def test_partitions_and_modems_and_boots(self):
        script = ("mtd 0 boot 0x20000 " + self.path("image") + "\nmtd 1 env 0x30000\nenv A=1\nmtd 2 app 0x10000 erase 0x1000\n"
                  "boot 1 fault /dev/misc/gpio read 2 5\nboot 2 fault /dev/misc/gpio read 200+ short 0\nboot 1 at 0.5 cut now\n"
                  "usb 05e3 0608 1-1 driver hub Maker/Hub\nusb 19d2 fff1 1-1.2 tty 2 Maker, Inc/HSPA modem\n")
        pathlib.Path(self.place, "image").write_text("image", encoding="utf-8")
        self.assertEqual([self.run_board(script)[0], self.run_board(script)[0]], [6, 0])
        journal = self.read("journal")
        for line in ("0.400 board fault /dev/misc/gpio read 2 5: call 2\n0.400 /dev/misc/gpio read 1 (line 23) -> EIO",
                     "0.500 board cut\n0.000 board start", "1.000 board fault /dev/misc/gpio read 200+ short 0 never fired"):
            self.assertIn(line, journal)
        self.assertEqual(self.read("root/dev/mtd/0"), "image" + "\xff" * 0x1fffb)
        self.assertEqual(self.read("root/dev/mtd/1")[4:11], "A=1\0\0\xff\xff")
        self.assertEqual(self.read("root/proc/mtd").splitlines()[1:], ['mtd0: 00020000 00010000 "boot"', 'mtd1: 00030000 00010000 "env"', 'mtd2: 00010000 00001000 "app"'])
        self.assertEqual(re.findall(r"Lev=(\d+) Prnt=(\d+) Port=(\d+)", self.read("root/proc/bus/usb/devices")),
                         [("00", "00", "00"), ("01", "00", "00"), ("02", "01", "01")])
        modem = "root/sys/devices/platform/musb_hdrc/usb1/1-1/1-1.2/"
        self.assertEqual([self.read(modem + "idVendor"), os.listdir(self.path(modem + "1-1.2:1.0"))[1][:6]], ["19d2\n", "ttyUSB"])

    def test_a_storm_is_the_same_every_time_and_says_what_it_does_as_fault_lines(self):
        lines = "rtc 2038-01-19 03:14:07\nfile /proc/net/emac_stats DEMAC Error               : 0\n"
        journals = []
        for storm in ("storm 7 2", "storm 7 2", "storm 8 2"):
            process = self.start(lines + storm, seconds=2000, JOURNAL=self.path(f"journal{len(journals)}"), ROOT=self.path(f"root{len(journals)}"),
                                 ONLY="board /dev/misc/rtc")
            process.communicate()
            journals.append(self.read(f"journal{len(journals)}"))
        self.assertEqual(journals[0], journals[1])
        self.assertNotEqual(journals[0], journals[2])
        self.assertRegex(journals[0], r"-> 2038-01-19 03:[1-4]")
        self.assertFalse(re.search(r"^[0-9.]+ (?!board|/dev/misc/rtc)", journals[0], re.M))
        faults = re.findall(r"^([0-9.]+) board (fault .*): call \d+$", journals[0], re.M)
        self.assertGreater(len(faults), 100)
        status, errors = self.run_board(lines + "\n".join(line for _, line in faults[:60]))
        self.assertEqual(status, 0, errors)

    def test_lines_act_while_the_board_runs(self):
        pathlib.Path(self.place, "board").write_text("present /dev/mcu\n", encoding="utf-8")
        process = subprocess.Popen([sys.executable, "-B", TOP + "/sim/run", "--preset", BUILD, "--board", self.path("board"), "--raw",
                                    "--for", "60", "--control", self.path("socket")], stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, text=True)
        self.addCleanup(process.stdout.close)
        self.addCleanup(process.wait)
        self.addCleanup(process.terminate)
        client = socket.socket(socket.AF_UNIX)
        while client.connect_ex(self.path("socket")) != 0 and process.poll() is None:
            time.sleep(0.05)
        with client, client.makefile("rw") as stream:
            for line, answer in [("level 23 0", "ok\n"), ("level 99 0", 'error: "99" should be'), ("at 3 lvel", "error: "), ("env", "error: "),
                                 ("help", "ok: one of: describe"), ("boot 2 cut now", "ok\n"), ("at 5 level 23 1", "ok\n"), ("wrong", "error: ")]:
                print(line, file=stream, flush=True)
                self.assertTrue(stream.readline().startswith(answer), line)
        steps = ["board told: level 23 0", "board told: boot 2 cut now", "board told: at 5", "gpio read 1: 00 (line 23)", "script level 23 1",
                 "gpio read 1: 01 (line 23)"]
        for line in process.stdout:
            if steps[0] in line:
                steps.pop(0)
            if not steps:
                break
        self.assertEqual(steps, [])

    def test_a_run_is_held_against_its_script(self):
        script = pathlib.Path(self.place, "script")
        script.write_text("\n".join(HELD + [line for line, _ in FAILED]), encoding="utf-8")
        expectations = Expectations.of(script)
        for event in events_of(JOURNAL.splitlines()):
            expectations.feed(event)
        failures = expectations.finish("running")
        for place, ((line, wanted), failure) in enumerate(zip(FAILED, failures, strict=True), len(HELD) + 1):
            self.assertIn(f"{script}:{place}: {line.split('boot 2 ')[-1]}: ", failure)
            self.assertIn(wanted, failure)


unittest.main(argv=sys.argv[:1])
