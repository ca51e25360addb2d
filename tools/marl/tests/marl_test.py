"""usage: marl_test.py BUILD-DIRECTORY [EMULATOR...]: the tool on the simulated board, every command and every refusal."""
import json
import os
import pathlib
import pty
import re
import select
import shlex
import shutil
import signal
import subprocess
import sys
import tempfile
import unittest

TOP = pathlib.Path(__file__).resolve().parents[3]
BUILD, EMULATOR = pathlib.Path(sys.argv[1]).resolve(), sys.argv[2:]
TOOL = BUILD / "tools/marl/marl"
MANUAL = TOP.joinpath("docs/marl.1").read_text(encoding="utf-8")
SANITIZERS = {"ASAN_OPTIONS": "verify_asan_link_order=0:detect_leaks=1", "TSAN_OPTIONS": "ignore_noninstrumented_modules=1",
              "MARL_SIM_CLONE": "thread"}
SECTOR, MIB = 0x10000, 1 << 20

BOARD = r"""mtd 0 boot 0x20000
mtd 1 environment 0x20000
mtd 2 system 0x1000000
mtd 3 data 0x40000
env ethaddr=00:12:31:4a:0c:5e
env appauto=1
env HWID=QZ-NRX2:1:1:4:0:2:1:8:1:ff:3:2:12c_12c:2:0:1:2:1:0:2:0
env quoted=a "b\c
cmos 60 11 22 33
expander 0x08
level 23 0
at 1 level 23 1
at 2 level 23 0
present /dev/mcu
mcu answer 18 1 a0 12 00 01 00 00 0a ff
file /proc/meminfo MemTotal:          61440 kB
file /proc/meminfo MemFree:           20480 kB
file /proc/meminfo Cached:            10240 kB
file /proc/stat cpu  100 0 100 600 0 0 0
file /proc/stat ctxt 4711
at 1 file! /proc/stat cpu  150 0 150 700 0 0 0\nctxt 4712\n
file /proc/qorzo/bootpara qz_keyboard:2
file /proc/net/dev   eth0: 1843200    2048    0    0    0     0          0         0   524288    1024    0    0
file /mnt/mtd/Config/network HOSTIP = 10.0.0.2
usb 19d2 fff1 1-1 tty 3 ZTE, Incorporated/HSPA modem
"""

# What is asked; the members that the answer has, among others; what the journal has, among others.
DONE = [
    ("id", {"model": "QZ-NRX2", "type": 9, "identified_by": "boot environment, colon-separated", "is_settled": True,
            "store_interface": 2, "cpu_clock_mhz": [300, 300]}, ""),
    ("env list", {"variables": [{"name": "ethaddr", "value": "00:12:31:4a:0c:5e"}, {"name": "appauto", "value": "1"},
                                {"name": "HWID", "value": "QZ-NRX2:1:1:4:0:2:1:8:1:ff:3:2:12c_12c:2:0:1:2:1:0:2:0"},
                                {"name": "quoted", "value": "a \"b\\c"}]}, ""),
    ("env get quoted", {"name": "quoted", "value": "a \"b\\c"}, ""),
    ("env set --yes new 1", {"name": "new", "changed": True}, "/dev/mtd/1 ioctl 0x40084d02 0 131072"),
    ("env unset --yes appauto", {"name": "appauto", "changed": True}, "/dev/mtd/1 ioctl 0x40084d02 0 131072"),
    ("env unset --yes nothing", {"name": "nothing", "changed": False}, ""),
    ("gpio get 23", {"line": 23, "level": 0}, "/dev/misc/gpio read 1: 00 (line 23)"),
    ("gpio set 49 0", {"line": 49, "level": 0}, "/dev/misc/gpio write 2: 31 00"),
    ("gpio pulse 4 --level 0 --for 50", {"line": 4, "level": 0, "ms": 50},
     "0.000 /dev/misc/gpio write 2: 04 00\n0.050 /dev/misc/gpio write 2: 04 01"),
    ("gpio watch 23 --every 250 --for 3", [{"ms": 0, "line": 23, "level": 0}, {"ms": 1000, "line": 23, "level": 1},
                                           {"ms": 2000, "line": 23, "level": 0}], ""),
    ("expander get 3", {"inputs": [{"input": 3, "level": 1}]}, ""),
    ("expander get", {"inputs": [{"input": i, "level": int(i == 3)} for i in range(8)]}, ""),
    ("expander set 6 1", {"output": 6, "level": 1}, "/dev/misc/gio_expander write 2: 06 01"),
    ("cmos read 60 3", {"offset": 60, "bytes": [0x11, 0x22, 0x33]}, ""),
    ("cmos write --yes 61 0x66 7", {"offset": 61, "bytes": [0x66, 7]}, ""),
    ("net show eth0", {"eth0": {"saved_address": "10.0.0.2", "saved_mask": "255.255.255.0", "saved_gateway": "192.168.1.1",
                                "saved_priority": "0", "address": None, "mask": None, "mac": None, "mtu": None,
                                "link": "unknown"}}, ""),
    ("net dns", {"primary": "8.8.8.8", "secondary": "8.8.8.8"}, ""),
    ("net dns 10.0.0.1", {"primary": "10.0.0.1", "secondary": None}, ""),
    ("net mac", {"running": None, "next_start": "00:12:31:4a:0c:5e"}, ""),
    ("net mac --yes 02:00:00:00:00:01", {"name": "ethaddr", "changed": True}, "/dev/mtd/1 ioctl 0x40084d02 0 131072"),
    ("net host camera-7", {"host": "camera-7"}, 'command "hostname camera-7"'),
    ("flash map", {"partitions": [
        {"number": n, "name": name, "address": address, "size": size, "sector": SECTOR} for n, name, address, size in
        [(0, "boot", 0x2000000, 0x20000), (1, "environment", 0x2020000, 0x20000), (2, "system", 0x2040000, 0x1000000),
         (3, "data", 0x3040000, 0x40000)]]}, ""),
    ("flash erase data --offset 64K --length 0x10000 --yes", {"target": "data", "offset": SECTOR, "sectors": 1},
     "/dev/mtd/3 ioctl 0x40084d02 65536 65536"),
    ("modem list", {"has_modem": True, "modem": {
        "manufacturer": "ZTE, Incorporated", "product": "HSPA modem", "vendor_id": "19d2", "product_id": "fff1", "usb": "2.00",
        "mbit_s": "480", "is_known": True}}, ""),
    ("modem power on", {"power": True}, "/dev/misc/gio_expander write 2: 06 01"),
    ("modem reset --wait", {"is_back": True}, "0.000 /dev/misc/gio_expander write 2: 06 00\n2.000 /dev/misc/gio_expander write 2: 06 01"),
    ("mcu status 18", {"switch": 18, "state": 1}, "/dev/mcu write 7: a1 12 01"),
    ("mcu power 18 on", {"switch": 18, "state": 1}, "/dev/mcu write 7: a1 12 00 01"),
    ("watchdog arm --yes 5000", {"period_ms": 5000}, "/dev/misc/wdt ioctl 0x5 5000"),
    ("watchdog feed", {"fed": True}, "/dev/misc/wdt ioctl 0x4"),
    ("upgrade begin", {"upgrade": True}, "/tmp/upgrade_ing write 4: 01 00 00 00"),
    ("upgrade end", {"upgrade": False}, ""),
    ("upgrade status", {"upgrade": False}, ""),
    ("restart-kind", {"restart_kind": 0, "end": "orderly"}, ""),
    ("stats --over 3", {"memory": {"total_kb": 61440, "available_kb": 30720},
                        "processor": {"usage_percent": 50, "context_switches": 4712},
                        "interfaces": {"eth0": {"rx_bytes": 1843200, "rx_packets": 2048, "tx_bytes": 524288, "tx_packets": 1024}}}, ""),
]

# What is asked, the status, and what the standard error has of it. Lines of a board go before ":".
NOT_DONE = [
    ("", 2, "a command is wanted"), ("frob", 2, "no command frob"), ("flash", 2, "usage: marl flash write FILE TARGET"),
    ("flash frob", 2, "flash has no command frob"), ("gpio get", 2, "it wants LINE"), ("gpio get 72", 2, "not 72"),
    ("gpio get 1 2", 2, "one argument too many: 2"), ("gpio get x", 2, "not x"), ("gpio set 1 2", 2, "it should be 0|1, not 2"),
    ("gpio pulse 1 --for", 2, "not nothing"), ("gpio pulse 1 --far 2", 2, "no option --far"), ("modem reset --wait=1", 2, "no value"),
    ("gpio get 1 --json=yes", 2, "no option --json"), ("cmos write 1", 2, "it wants BYTE"), ("cmos write 1 256", 2, "not 256"),
    ("cmos read 250 7", 2, "are too many"), ("env set a=b c", 2, "NAME is"), ("env get nothing", 1, "there is no boot variable nothing"),
    ("net set 10.0.0.1", 2, "IP/MASK is"), ("net set 10.0.0.1/33", 2, "IP/MASK is"), ("net mac 00:11", 2, "MAC is"),
    ("net host a;b", 2, "HOST is"), ("net set 10.0.0.1/24", 1, "the address cannot be set"), ("mcu status 19", 2, "not 19"),
    ("env set a b", 2, "say --yes"), ("env unset appauto", 2, "say --yes"), ("cmos write 1 1", 2, "say --yes"),
    ("reboot", 2, "say --yes"), ("gpio set 35 0", 2, "say --yes"), ("gpio pulse 35", 2, "say --yes"),
    ("net mac 02:00:00:00:00:01", 2, "say --yes"), ("flash erase data", 2, "say --yes"), ("watchdog arm 5000", 2, "say --yes"),
    ("flash write IMAGE data", 2, "say --yes"), ("flash write IMAGE nowhere --yes", 2, "there is no nowhere"),
    ("flash write IMAGE data --yes --offset 64K", 2, "do not fit"), ("flash write IMAGE data --yes --offset 1", 2, "do not fit"),
    ("flash write /nothing data --yes", 1, "/nothing: No such file"), ("flash write IMAGE fpga --yes", 2, "524288 bytes"),
    ("flash erase data --length 1 --yes", 2, "no whole sectors"), ("flash erase data --length 0 --yes", 2, "SIZE is"),
    ("flash read data --length 0K", 2, "SIZE is"), ("flash erase data --offset 256K --yes", 2, "262144 bytes only"), ("flash erase fpga --yes", 2, "cannot be erased"),
    ("flash verify IMAGE data", 1, ""), ("flash read system --json", 2, "wants a FILE"),
    ("word /tmp/upgrade_ing 1: reboot --yes", 2, "an upgrade runs"), ("missing /dev/misc/gpio: id", 1, ""),
    ("fault * sleep 1 EINTR: gpio pulse 4", 1, "line 4 was set back before 100 ms"),
    ("fault /dev/misc/gpio read 1 EIO: gpio get 3", 1, "line 3 cannot be read: Input/output error"),
    ("fault /dev/misc/rtc read 1 short 2: cmos read 60 3", 1, "not all of the CMOS bytes were read"),
    ("fault /dev/mtd/1 ioctl 1 EIO: env set a b --yes", 1, "a is not in flash"), ("env appauto=0: watchdog feed", 1, "appauto"),
    ("fault /tmp/upgrade_ing write 2+ EIO: flash erase data --yes", 1, "the upgrade flag could not be lowered"),
    ("fault /dev/mtd/3 read 1 EIO: flash write IMAGE data --yes", 1, "nothing was written"),
    ("fault /dev/mtd/3 write 2 EIO: flash write IMAGE data --yes", 1, "the same command writes what it lacks (1 sectors were written)"),
]


def members(value):
    """Names of all members of a JSON value; interfaces have names of their own."""
    if isinstance(value, list):
        return set().union(*map(members, value))
    if not isinstance(value, dict):
        return set()
    return set().union(*map(members, value.values())) | {name for name in value if not name.startswith("eth")}


class Tool(unittest.TestCase):
    def setUp(self):
        self.place = pathlib.Path(tempfile.mkdtemp(dir=BUILD))
        self.addCleanup(shutil.rmtree, self.place)

    def command(self, words, script=BOARD, root="root"):
        self.journal_file = self.place / "journal"
        self.journal_file.unlink(missing_ok=True)
        self.place.joinpath(root).mkdir(exist_ok=True)
        self.place.joinpath("board").write_text(script, encoding="utf-8")
        variables = {"BOARD": self.place / "board", "ROOT": self.place / root, "JOURNAL": self.journal_file, "TIME": "virtual",
                     "PASS": self.place}
        environment = {**os.environ, **SANITIZERS, **{"MARL_SIM_" + name: str(value) for name, value in variables.items()}}
        return {"args": [*EMULATOR, BUILD / "sim-launch", TOOL, *words], "env": environment}

    def marl(self, line, before=(), **board):
        words = [str(self.place / word.lower()) if word in ("IMAGE", "OUT") else word for word in line.split()]
        run = self.command(words, **board)
        done = subprocess.run([*before, *run["args"]], env=run["env"], stdin=subprocess.DEVNULL, capture_output=True, check=False)
        self.status, self.out = done.returncode, done.stdout
        self.errors = done.stderr.decode(errors="replace")
        self.journal = self.journal_file.read_text(encoding="latin-1") if self.journal_file.exists() else ""
        return self.status

    def answer(self, line, **board):
        self.assertEqual(self.marl(line + " --json", **board), 0, line + "\n" + self.errors)
        return [json.loads(text) for text in self.out.decode("ascii").splitlines()]

    def image(self, name, size, seed=1):
        data = b"".join((seed * 100003 + i).to_bytes(8, "little") * 512 for i in range(size // 4096 + 1))[:size]
        self.place.joinpath(name).write_bytes(data)
        return data

    def flash(self, number):
        return self.place.joinpath(f"root/dev/mtd/{number}").read_bytes()

    def calls(self):
        """What the journal has of devices and files."""
        return re.sub(r"^\S+ (?:board|out|err) .*\n", "", self.journal, flags=re.M)

    def erases(self):
        return self.journal.count(" ioctl 0x40084d02 ")

    def test_every_command_answers_in_documented_json(self):
        asked = set()
        for number, (line, wanted, journal) in enumerate(DONE):
            with self.subTest(line):
                answers = self.answer(line, root=f"root{number}")
                if isinstance(wanted, list):
                    self.assertEqual(answers, wanted)
                else:
                    self.assertEqual(len(answers), 1)
                    self.assertEqual({**answers[0], **wanted}, answers[0])
                for part in journal.split("\n"):
                    self.assertIn(part, self.calls())
                undocumented = [name for name in members(answers) if not re.search(rf"\b{name}\b", MANUAL)]
                self.assertEqual(undocumented, [])
                asked.add(line)
        rest = {"net set", "net arp", "flash read", "flash write", "flash verify", "reboot", "completion"}
        synopsis = re.findall(r"^\\fBmarl ([^\\]*(?:\\-[^\\]*)*)\\fP", MANUAL.split(".SH")[2], re.M)
        names = {name.replace("\\-", "-") for name in synopsis}
        self.assertEqual({name for name in names if not any(line.startswith(name) for line in asked)}, rest)

    def test_what_is_wrong_is_said_and_changes_nothing(self):
        self.image("image", 4 * SECTOR)
        for number, (line, status, wanted) in enumerate(NOT_DONE):
            with self.subTest(line):
                script, _, words = line.rpartition(": ")
                board = BOARD if not script.startswith("env ") else BOARD.replace("env appauto=1", script)
                self.assertEqual(self.marl(words, script=board + script if board is BOARD else board, root=f"root{number}"), status, self.errors)
                self.assertIn(wanted, self.errors)
                if status == 2:
                    self.assertEqual(self.out, b"")
                    self.assertNotRegex(self.calls(), " (write|ioctl|ftruncate) |command")

    def test_a_failure_leaves_whole_json(self):
        self.assertEqual((self.marl("expander get --json", script=BOARD + "fault /dev/misc/gio_expd_in read 3 EIO\n"), self.out), (1, b""))
        self.assertEqual(self.marl("stats --json", script=BOARD.replace("file /proc/meminfo", "file /tmp/nothing")), 1)
        self.assertEqual((json.loads(self.out)["memory"], json.loads(self.out)["processor"]["usage_percent"]), (None, 25))

    def test_results_and_messages_are_apart(self):
        self.marl("env get appauto")
        self.assertEqual(self.out, b"1\n")
        self.assertIn("libmarl.so Build on", self.errors)
        self.assertIn('out "1\\n"', self.journal)
        self.assertEqual(self.marl("env set a b --yes -q"), 0)
        self.assertEqual((self.out, self.errors), (b"", ""))
        self.assertIn(b"\na=b\n", (self.marl("env list"), self.out)[1])
        self.assertEqual(self.marl("env set a b --yes"), 0)
        self.assertEqual(self.erases(), 0)
        for line, status in ("gpio set 49 0", 0), ("gpio get 23", 1):
            self.assertEqual(self.marl(line, before=["sh", "-c", "exec \"$@\" >&-", "sh"]), status)
            self.assertEqual("standard output: Bad file descriptor" in self.errors, status == 1)

    def test_help_needs_no_board(self):
        names = re.findall(r"^  (\S+) ", subprocess.run([*EMULATOR, TOOL, "--help"], capture_output=True, check=True, text=True).stdout, re.M)
        for words in ["--version"], ["id", "--help"], ["flash", "write", "-h"], *([name, "--help"] for name in names if name[0] != "-" and name != "marl"):
            done = subprocess.run([*EMULATOR, TOOL, *words], capture_output=True, check=True, text=True)
            self.assertEqual(done.stderr, "")
            self.assertTrue(words == ["--version"] or "examples:\n  marl " in done.stdout, done.stdout)
        examples = MANUAL.split(".SH EXAMPLES")[1]
        for section in subprocess.run([*EMULATOR, TOOL, "completion", "man"], capture_output=True, check=True, text=True).stdout.split(".SH")[1:]:
            self.assertIn(section.strip(), MANUAL)
        self.assertEqual(len(re.findall(r"^marl (?:.*\|)?", examples, re.M)), examples.count("\nmarl "))

    def test_bash_completes(self):
        shipped = TOP.joinpath("tools/marl/marl.bash")
        made = subprocess.run([*EMULATOR, TOOL, "completion", "bash"], capture_output=True, check=True, text=True).stdout
        self.assertEqual(made, shipped.read_text(encoding="utf-8"))
        for words, wanted in [("marl fl", "flash"), ("marl flash w", "write"), ("marl --json modem power o", "on off"),
                              ("marl reboot --w", "--when-idle"), ("marl flash write /etc/passw", "/etc/passwd")]:
            count = len(words.split()) - 1
            script = f"source {shlex.quote(str(shipped))}; COMP_WORDS=({words}); COMP_CWORD={count}; _marl; echo \"${{COMPREPLY[@]}}\""
            shown = subprocess.run(["bash", "-c", script], capture_output=True, check=True, text=True).stdout
            self.assertTrue(set(wanted.split()) <= set(shown.split()), words + ": " + shown)

    def test_a_write_that_lost_its_power_is_completed(self):
        data = self.image("image", 16 * MIB)
        cut = BOARD + "boot 1 cut 515\n"
        self.assertEqual(self.marl("flash write IMAGE system --yes", script=cut), 6)
        self.assertNotEqual(self.flash(2), data)
        answer = self.answer("flash write IMAGE system --yes", script=cut)[0]
        self.assertEqual(self.flash(2), data)
        self.assertEqual((answer["sectors"], answer["written"] + answer["unchanged"]), (256, 256))
        self.assertTrue(120 < answer["unchanged"] < 136, answer)
        self.assertEqual(self.erases(), answer["written"])
        self.assertEqual(self.marl("flash write IMAGE system --yes"), 0)
        self.assertEqual(self.out, b"system: 0 of 256 sectors differed and were written, 256 were right already\n")
        self.assertEqual(self.erases(), 0)
        self.assertEqual(self.marl("flash verify IMAGE system"), 0)

    def test_parts_of_partitions(self):
        for target, number, offset, size in [("boot", 0, SECTOR, 5000), ("data", 3, 0, SECTOR + 1), ("mtd3", 3, 2 * SECTOR, 2 * SECTOR)]:
            data = self.image("image", size, seed=number + offset)
            for written in (size + SECTOR - 1) // SECTOR, 0:
                answer = self.answer(f"flash write IMAGE {target} --offset {offset} --yes")[0]
                self.assertEqual((answer["written"], self.erases()), (written, written))
            self.assertEqual(self.flash(number)[offset:offset + size], data)
            self.assertEqual(self.marl(f"flash read {target} OUT --offset {offset} --length {size}"), 1)  # outside of the board
            self.assertEqual(self.marl(f"flash read {target} --offset {offset} --length {size}"), 0)
            self.assertEqual(self.out, data)
            self.assertEqual(self.answer(f"flash read {target} /mnt/mtd/out --offset {offset} --length {size}")[0]["bytes"], size)
            self.assertEqual(self.marl("flash read fpga /mnt/mtd/out"), 1)
            self.assertEqual(self.place.joinpath("root/mnt/mtd/out").read_bytes(), data)
        self.assertEqual(self.flash(0)[SECTOR + 5000:], b"\xff" * (SECTOR - 5000))

    def test_the_fpga_takes_whole_images(self):
        data = self.image("image", 0x80000)
        self.place.joinpath("root/dev/misc").mkdir(parents=True)
        self.place.joinpath("root/dev/misc/spi1").write_bytes(b"\xff" * 0x80000)
        script = BOARD + "present /dev/misc/spi1\n"
        for written in 128, 0:
            self.assertEqual(self.answer("flash write IMAGE fpga --yes", script=script)[0]["written"], written)
            self.assertEqual("0xc0046508" in self.journal, written > 0)
        self.image("image", 0x80000, seed=2)
        for fault, wanted in ("read 1", "nothing was written\n"), ("ioctl:0xc0046508 1", "the same command writes what it lacks\n"):
            self.assertEqual(self.marl("flash write IMAGE fpga --yes", script=script + f"fault /dev/misc/spi1 {fault} EIO\n"), 1)
            self.assertIn(wanted, self.errors)
        self.assertEqual(self.place.joinpath("root/dev/misc/spi1").read_bytes(), data)

    def on_terminal(self, line, typed, interrupted_at=None):
        run = self.command([str(self.place / word.lower()) if word in ("IMAGE", "OUT") else word for word in line.split()])
        master, slave = pty.openpty()
        process = subprocess.Popen(run["args"], env=run["env"], stdin=slave, stderr=slave, stdout=subprocess.PIPE)
        os.close(slave)
        shown = b""
        try:
            while select.select([master], [], [], 60)[0] and (part := os.read(master, 65536)):
                shown += part
                if typed and b"[y/N]" in shown:
                    os.write(master, typed)
                    typed = b""
                if interrupted_at and interrupted_at in shown:
                    process.send_signal(signal.SIGINT)
                    interrupted_at = None
        except OSError:  # the other end is closed
            pass
        os.close(master)
        out = process.communicate()[0]
        return process.returncode, out, shown.decode(errors="replace")

    def test_a_terminal_is_asked_and_shows_progress(self):
        self.image("image", 4 * SECTOR)
        status, _, shown = self.on_terminal("flash write IMAGE data", b"n\n")
        self.assertEqual((status, "flash write erases and rewrites flash. Go on?" in shown, self.flash(3)), (2, True, b"\xff" * 4 * SECTOR))
        status, out, shown = self.on_terminal("flash write IMAGE data", b"y\n")
        self.assertEqual((status, out), (0, b"data: 4 of 4 sectors differed and were written, 0 were right already\n"))
        self.assertRegex(shown, r"\rwriting \[#{30}\] 100 % of 0\.\d MiB, [\d.]+ MiB/s, 0 s left")
        self.marl("flash verify IMAGE data")
        self.assertNotIn("MiB", self.errors)

    def test_a_write_that_is_interrupted_ends_in_order(self):
        self.image("image", 16 * MIB)
        status, out, shown = self.on_terminal("flash write IMAGE system --yes", b"", b"flash erase")
        self.assertEqual((status, out), (1, b""))
        self.assertRegex(shown, r"(?s)interrupted after \d+ of 16777216 bytes.*the same command writes what it lacks")
        self.assertEqual(self.place.joinpath("root/tmp/upgrade_ing").read_bytes(), bytes(4))

    def test_a_watch_ends_in_time(self):
        self.assertEqual(self.marl("gpio watch 23 --every 5000 --for 7", script=BOARD + "at 8 level 23 1\n"), 0)
        self.assertRegex(self.journal, r"\n5\.000 /dev/misc/gpio read .*\n\Z")

    def test_a_flag_of_another_stays_raised(self):
        self.image("image", SECTOR)
        for flag in 0, 1:
            for line in "flash read data", "flash write IMAGE data --yes", "flash erase data --yes":
                self.assertEqual(self.marl(line, script=BOARD + f"word /tmp/upgrade_ing {flag}\n"), 0)
                self.assertEqual(self.place.joinpath("root/tmp/upgrade_ing").read_bytes(), flag.to_bytes(4, "little"))

    def test_the_board_is_reset_when_it_may_be(self):
        self.assertEqual(self.marl("reboot --yes"), 3)
        self.assertEqual((self.marl("gpio pulse 35 --level 0 --yes"), "board reset gpio35" in self.journal), (3, True))
        script = BOARD + "word /tmp/upgrade_ing 1\nat 95 word /tmp/upgrade_ing 0\n"
        self.assertEqual(self.marl("reboot --when-idle --yes --json", script=script), 3)
        self.assertEqual(json.loads(self.out), {"reboot": "when idle"})
        self.assertRegex(self.journal, r"(?s)\n0\.\d+ sync\n.*\n10[01]\.\d+ board reset gpio35")

    def test_a_running_network(self):
        script = BOARD + "network real\n"
        before = ["unshare", "-n", "sh", "-c", "ip link add eth0 address 02:00:00:00:00:07 type veth peer name peer0 && "
                  "MARL_SIM_NETWORK=$(readlink /proc/self/ns/net) exec \"$@\"", "sh"]
        if subprocess.run([*before, "true"], capture_output=True, check=False).returncode != 0:
            self.skipTest("no network namespace of our own")
        self.assertEqual(self.marl("net set 10.0.0.7/16 10.0.0.1 --json", before=before, script=script), 0, self.errors)
        self.assertEqual(json.loads(self.out), {"interface": "eth0", "address": "10.0.0.7", "mask": "255.255.0.0", "gateway": "10.0.0.1", "saved": True})
        # The network is gone with the process; what was saved is not.
        self.assertEqual(self.marl("net show eth0 --json", before=before, script=script), 0)
        shown = json.loads(self.out)["eth0"]
        self.assertEqual([shown[name] for name in ("saved_address", "saved_mask", "saved_gateway", "mac", "mtu")],
                         ["10.0.0.7", "255.255.0.0", "10.0.0.1", "02:00:00:00:00:07", 1500])
        self.assertEqual(self.marl("net arp --json", before=before, script=script), 0)


unittest.main(argv=sys.argv[:1])
