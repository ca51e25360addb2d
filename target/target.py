"""The board's own programs on a kernel of the board's own kind. See docs/target.md."""
import argparse
import concurrent.futures
import shlex
import sys
import time
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent))
import daemon  # noqa: E402
import flash  # noqa: E402
import tests  # noqa: E402
from runs import BUILD, TOP, Records, arm, job, prepare, run, say, shell  # noqa: E402

PARTS = {'tests': ['armel'], 'daemon': daemon.PRESETS, 'flash': ['release']}  # with the builds that they run


def everything(parts, cuts, seconds):
    """Two machines at a time, for two processors. Gives what went wrong."""
    prepare(sorted({preset for part in parts for preset in PARTS[part]}))
    with concurrent.futures.ThreadPoolExecutor(max_workers=2) as pool:
        reports = []

        def plan(title, calls, report):
            reports.append((title, [pool.submit(*call) for call in calls], report))

        if 'tests' in parts:
            archives = [tests.archive()]
            plan('the tests', [(tests.run_part, part, 2, archives) for part in range(2)], tests.report)
        if 'daemon' in parts:
            plan(f'the daemon, {seconds} s in real time, beside the watchdog of busybox',
                 [(daemon.measure, seconds, preset) for preset in daemon.PRESETS], daemon.report)
        if 'flash' in parts:
            plan("flash on the kernel's own drivers", [(flash.run_cases,), (flash.run_cuts, cuts)], flash.report)
        return [line for each in reports for line in judged(*each)]


def judged(title, tasks, report):
    try:
        results = [task.result() for task in tasks]
    except (OSError, ValueError) as error:  # no end, a bad end, a file that never came, a number that is none
        say(f'==== {title}')
        return [f'{title}: {error}']
    say(f'==== {title}')
    return report(results)


def run_program(name, arguments):
    prepare(['armel'])
    build = TOP / 'build' / 'armel'
    places = [build / name, build / 'tests' / name, build / 'target' / name, Path(name).resolve()]
    program = next((place for place in places if place.is_file()), None)
    if program is None:
        sys.exit(f'scripts/target: there is no program {name}, nor one in {build}')
    within = program.relative_to(build) if program.is_relative_to(build) else Path(program.name)
    command = ' '.join(shlex.quote(word) for word in [f'./{within}', *arguments])
    script = job('program-job', f'module veth\n{command} </dev/null\necho "@@ status $?"',
                 files={f'marl/{within}': program.read_bytes()})
    records = run(arm('program', [tests.archive(), script]), Records(),
                  lambda line: line.startswith('@@') or say(line))
    wrong = records.faults(BUILD / 'program.alignment')
    for line in wrong:
        say(f'scripts/target: {line}')
    return int(records.all('status')[0]) or int(bool(wrong))


def main():
    BUILD.mkdir(parents=True, exist_ok=True)
    words = sys.argv[1:]
    if words[:1] == ['--shell']:
        prepare(['armel'])
        return shell([tests.archive()])
    if words[:1] == ['--self-test']:
        import self_test
        return self_test.main()
    if words and words[0] not in PARTS and not words[0].startswith('-'):
        return run_program(words[0], words[1:])
    parser = argparse.ArgumentParser(prog='scripts/target')
    parser.add_argument('parts', nargs='*', metavar='tests|daemon|flash')
    parser.add_argument('--cuts', type=int, default=20, help='power cuts in the middle of an upgrade')
    parser.add_argument('--seconds', type=int, default=60, help='how long the daemon is looked at')
    options = parser.parse_args(words)
    if set(options.parts) - set(PARTS):
        parser.error(f'the parts are {", ".join(PARTS)}')
    started = time.monotonic()
    wrong = everything(options.parts or list(PARTS), options.cuts, options.seconds)
    for line in wrong:
        say(f'scripts/target: {line}')
    say(f'==== {"failed" if wrong else "passed"} in {time.monotonic() - started:.0f} s')
    return 1 if wrong else 0


if __name__ == '__main__':
    sys.exit(main())
