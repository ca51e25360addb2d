"""Boots a program on a simulated board and tells what happens there. Started by scripts/run, which builds before."""

import os
import sys

import options as command_line
import summary
from options import Usage, is_program
from places import BOARDS, COMMAND, programs, usage
from runner import Runner
from view import Chosen, RawView, StoryView, terminal_width

SUFFIX = ".board"


def read(path):
    """The text of a script."""
    with open(path, encoding="utf-8", errors="replace") as file:
        return file.read()


def list_boards():
    """The boards there are, one a line."""
    for name in sorted(os.listdir(BOARDS)):
        if name.endswith(SUFFIX):
            lines = read(os.path.join(BOARDS, name)).split("\n")
            described = [line.removeprefix("describe ") for line in lines if line.startswith("describe ")]
            print(f"{name.removesuffix(SUFFIX):<20} {''.join(described[:1])}")


def find_board(name):
    """The script of a board."""
    known = os.path.join(BOARDS, name + SUFFIX)
    if "/" not in name and os.path.isfile(known):
        return known
    if os.path.isfile(name):
        return os.path.abspath(name)
    raise Usage(f"no such board: {name} ({COMMAND} --list shows them)")


def find_program(options, build):
    """The program to run."""
    options.is_daemon = options.program is None
    if options.is_daemon:
        options.program = os.path.join(build, "sentrel")
        return
    places = [options.program, os.path.join(build, options.program), os.path.join(build, "tests", options.program)]
    found = [place for place in places if is_program(place)]
    if not found:
        raise Usage(f"no such program: {options.program}")
    options.program = os.path.abspath(found[0])


def expectations(script, text):
    """What the script expects of the run, if it does."""
    if "expect" not in text and "never" not in text:
        return None
    try:
        from expect import Expectations
        wanted = Expectations.of(script)
    except ValueError as problem:
        raise Usage(str(problem)) from problem
    return wanted if wanted.any else None


def make_viewers(options, script, counts):
    """Those that are shown or fed every event; the last one is the view itself, or None."""
    viewers, story = [counts], None
    if options.json is not None:
        from export_json import JsonWriter
        viewers.append(JsonWriter(options, script))
    if options.vcd is not None:
        from export_vcd import VcdWriter
        viewers.append(VcdWriter(options.vcd))
    if options.pcap is not None:
        from export_pcap import PcapWriter
        viewers.append(PcapWriter(options.pcap))
    if options.report is not None:
        from report import ReportWriter
        viewers.append(ReportWriter(options, script))
    if options.is_raw:
        story = RawView(sys.stdout, Chosen(options.only))
    elif not options.is_quiet and options.json != "-":
        story = StoryView(sys.stdout, Chosen(options.only), not options.is_fast)
    return viewers + ([story] if story else [])


def unmet(wanted, outcome):
    """What did not come true, and how much was left out: a run that just ended early is not held to what lies later."""
    wants = wanted.finish(outcome.end)
    if outcome.end != "running" or summary.downs(outcome):
        return wants, 0
    later = [f"{each.place}: {each.line}: " for each in wanted.wanted if each.first > outcome.simulated]
    due = [want for want in wants if not want.startswith(tuple(later))]
    return due, len(wants) - len(due)


class Result:
    """All that is known at the end, for viewers that write then."""

    def __init__(self, options, outcome, counts, wanted):
        self.outcome, self.counts = outcome, counts
        self.wants, left_out = unmet(wanted, outcome) if wanted is not None else (None, 0)
        self.status, self.verdict = summary.verdict(options, outcome, self.wants)
        if left_out:
            self.verdict += f", so far: {left_out} of its expectations lie later"


def run(options):
    """The run that the options ask for; its exit status."""
    build = programs(options.preset)
    script = find_board(options.board)
    find_program(options, build)
    text = read(script)
    counts = summary.Summary()
    # What the boards of the list expect, they expect of the daemon.
    is_own = os.path.dirname(script) != BOARDS
    wanted = expectations(script, text) if options.is_daemon or is_own else None
    viewers = make_viewers(options, script, counts)
    feeders = [*viewers, _Feeding(wanted)] if wanted is not None else viewers
    runner = Runner(options, script, build, feeders)
    outcome = runner.run()
    result = Result(options, outcome, counts, wanted)
    for message in outcome.messages:
        print(message, file=sys.stderr)
    for viewer in viewers:
        if viewer is not counts:
            viewer.finish(result)
    was_refused = result.status == 2 and outcome.messages
    if not options.is_raw and options.json != "-" and not was_refused:
        summary.write(sys.stdout, counts.rows(outcome), result.verdict, result.wants, terminal_width(sys.stdout))
    elif result.wants:
        print("\n".join(result.wants), file=sys.stderr)
    return result.status


class _Feeding:
    """Expectations as one more viewer."""

    def __init__(self, wanted):
        self.feed = wanted.feed

    def idle(self):
        """Nothing to do."""


def main(words):
    """The exit status."""
    try:
        sys.stdout.reconfigure(errors="replace")
        options = command_line.parse(words)
        if options.wants_help or options.wants_list:
            print(usage(command_line.USAGE)) if options.wants_help else list_boards()
            return 0
        status = run(options)
        sys.stdout.flush()
        return status
    except Usage as problem:
        print(f"{COMMAND}: {problem}\n{usage(command_line.USAGE)}", file=sys.stderr)
        return 2
    except BrokenPipeError:  # whoever read this has seen enough
        os.dup2(os.open(os.devnull, os.O_WRONLY), sys.stdout.fileno())
        return 141
    except OSError as problem:
        print(f"{COMMAND}: {problem}", file=sys.stderr)
        return 2


sys.exit(main(sys.argv[1:]))
