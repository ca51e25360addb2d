"""Every test of every test program, on the board's kind of kernel."""
import os
import re

from runs import BUILD, TOP, Records, arm, job, programs_archive, run, say

TEST_LIMIT_S = 120  # of the machine's time


def programs():
    folder = TOP / 'build' / 'armel' / 'tests'
    return [f'tests/{file.name}' for file in sorted(folder.iterdir())
            if file.is_file() and os.access(file, os.X_OK) and '.' not in file.name]


def archive():
    return programs_archive('armel', ['sentrel', 'libmarl.so.1', 'libmarlsim.so', 'sim-launch', *programs()], 'tests')


class Result:
    """Of one machine, which did a part of the tests."""

    def __init__(self, label, records):
        report = BUILD / f'{label}.alignment'
        self.kernel = records.all('kernel')[0] if records.all('kernel') else 'no kernel'
        self.watched = int(re.search(r'watched (\d+)', report.read_text())[1])
        self.tests = [line.split() for line in records.all('test')]
        self.stacks = [(int(used), int(size), test)
                       for used, size, test in (line.split() for line in records.all('stack'))]
        self.wrong = records.faults(report)
        self.wrong += [f'{name} {word}, see {BUILD}/{label}.log' for name, word, _ in self.tests if word != 'passed']
        planned = int(records.all('planned')[0]) if records.all('planned') else 0
        if len(self.tests) != planned or planned == 0:
            self.wrong.append(f'{len(self.tests)} of {planned} tests were run, see {BUILD}/{label}.log')
        if self.watched == 0:
            self.wrong.append('no loads and stores were watched')


def run_part(part, parts, archives, only='.', label='tests'):
    label = f'{label}-{part + 1}'
    settings = f"part={part} parts={parts} limit={TEST_LIMIT_S} only='{only}'"
    records = run(arm(label, [*archives, job(f'{label}-job', settings, 'tests')]), Records())
    return Result(label, records)


def report(results):
    """The list of programs with their results; what went wrong."""
    wrong = [line for result in results for line in result.wrong]
    tests = [test for result in results for test in result.tests]
    wrong += report_programs(tests)
    say(f'  {sum(word == "passed" for _, word, _ in tests)} tests passed on {results[0].kernel}')
    stacks = [stack for result in results for stack in result.stacks]
    if stacks:
        used, size, test = max(stacks)
        say(f'  the clone task used {used} of {size} bytes of its stack at most, in {test}')
    else:
        wrong.append('no test told of the stack of the clone task')
    say(f'  {sum(result.watched for result in results)} loads and stores watched, '
        f'{sum(line.startswith("unaligned") for line in wrong)} places unaligned')
    return wrong


def report_programs(tests):
    wrong = []
    for program in (name.removeprefix('tests/') for name in programs() if name.endswith('_test')):
        own = [(word, float(seconds)) for name, word, seconds in tests if name.startswith(program + '.')]
        words = [word for word, _ in own]
        say(f'  {program:24} {words.count("passed"):4} passed {words.count("skipped"):3} skipped '
            f'{words.count("failed"):3} failed {sum(seconds for _, seconds in own):7.1f} s')
        if not own:
            wrong.append(f'{program} has run no test')
    return wrong
