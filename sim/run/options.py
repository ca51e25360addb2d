"""The command line."""

import os

USAGE = """usage: scripts/run [OPTION...] [-- ARGUMENT...]              boots sentrel on a simulated board
       scripts/run [OPTION...] PROGRAM [ARGUMENT...]        runs a client of libmarl there instead

  --board NAME|FILE  the board: one of --list, or a script of your own (default: camera)
  --fast             board time does not wait for real time (300 seconds of it, unless --for says otherwise)
  --for SECONDS      stop after so much board time (also 90s, 5m, 12h, 30d); without it a run lasts until Ctrl-C
  --preset NAME      the build to run: release (default), debug, asan, tsan, clang, or armel under an emulator
  --control SOCKET   where other programs may tell the board script lines while it runs, in real time; what is typed
                     is told to it, too: "level 23 0" presses the button, "help" lists the words
  --list             the boards there are
  --help             this

What is shown:
  --raw              the journal as it is
  --only WHO         console, a device or another name of the journal; may be given several times
  --quiet            the summary alone
  --json [FILE]      one object a line, to standard output without a FILE

What is kept for other tools:
  --vcd FILE         GPIO lines, expander, watchdog, heartbeats and upgrade flag for a waveform viewer
  --pcap FILE        the frames that the program sent, for a packet viewer
  --report FILE      a page (HTML) with a picture of the whole run

PROGRAM is a path, or the name of a program in the build directory or its tests.
Exit status: 0 when all went as wanted, 1 when an expectation of the board did not come true, 2 for usage and refusals,
3 after a reset of the board, 5 when nothing can ever happen again, 6 after a power cut, else that of the program."""

FAST_SECONDS = 300.0
UNITS = {"s": 1, "m": 60, "h": 3600, "d": 86400}


class Usage(Exception):
    """What is wrong with the command line."""


class Options:
    """What the user wants."""

    def __init__(self):
        self.board, self.preset, self.seconds = "camera", "release", None
        self.is_fast = self.is_raw = self.is_quiet = False
        self.wants_list = self.wants_help = False
        self.only = []
        self.json = self.vcd = self.pcap = self.report = self.control = None
        self.program, self.arguments = None, []


FLAGS = {"--fast": "is_fast", "--raw": "is_raw", "--quiet": "is_quiet", "--list": "wants_list", "--help": "wants_help",
         "-h": "wants_help"}
VALUES = ("board", "preset", "for", "only", "vcd", "pcap", "report", "control")


def seconds(text):
    """A span of time; 200, 200s, 30d."""
    unit = UNITS.get(text[-1:])
    digits = text[:-1] if unit else text
    if not digits.replace(".", "", 1).isdigit() or not digits.isascii():
        raise Usage("--for wants seconds")
    return float(digits) * (unit or 1)


def is_program(path):
    """Whether it can be executed."""
    return os.path.isfile(path) and os.access(path, os.X_OK)


def parse(words):
    """Options of a command line."""
    options, words = Options(), list(words)
    while words:
        word = words.pop(0)
        name, equals, value = word.removeprefix("--").partition("=")
        if word == "--":
            options.arguments = words
            break
        if word in FLAGS:
            setattr(options, FLAGS[word], True)
        elif word.startswith("--") and name == "json":
            is_file = not equals and words and not words[0].startswith("-") and not is_program(words[0])
            options.json = value if equals else words.pop(0) if is_file else "-"
        elif word.startswith("--") and name in VALUES:
            if not equals and not words:
                raise Usage(f"--{name} wants a value")
            _set(options, name, value if equals else words.pop(0))
        elif word.startswith("-"):
            raise Usage(f"unknown option: {word}")
        else:
            options.program, options.arguments = word, words
            break
    if options.is_fast and options.seconds is None:
        options.seconds = FAST_SECONDS
    return options


def _set(options, name, value):
    if not value:
        raise Usage(f"--{name} wants a value")
    if name == "only":
        options.only.append(value)
    elif name == "for":
        options.seconds = seconds(value)
    else:
        setattr(options, name, value)
