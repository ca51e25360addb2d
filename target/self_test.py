"""That scripts/target fails when it should, and only then: faults are planted, in a copy of the sources where they are the
product's, and each has to be found; what only looks like one has not."""
import concurrent.futures
import os
import shutil
import subprocess
import sys

import daemon
import tests
from machine import Archive
from runs import BUILD, STRIP, TOP, Records, arm, job, prepare, programs_archive, run, say

# A file of the product, what stands there, and what is planted.
CLONE = ('src/daemon/clone_task.cpp', 'CLONE_VM | CLONE_FS | CLONE_FILES | CLONE_SIGHAND | SIGCHLD',
         'CLONE_VM | CLONE_FS | CLONE_FILES | CLONE_THREAD | SIGCHLD')
CLOCK = ('src/daemon/clock_sync.cpp', 'return syscall(SYS_settimeofday, &now, &zone) == 0;',
         'return syscall(SYS_settimeofday, &now, nullptr) == 0 && syscall(SYS_settimeofday, nullptr, &zone) == 0;')


def planted_tree():
    """A copy of the sources with the faults, and the programs that have them, as the armel preset builds them."""
    tree = BUILD / 'planted'
    shutil.copytree(TOP, tree, dirs_exist_ok=True, ignore=shutil.ignore_patterns('.git', 'build', '__pycache__'))
    for file, right, wrong in (CLONE, CLOCK):
        text = (tree / file).read_text()
        assert right in text, f'{file} has changed: the planted fault must follow'
        (tree / file).write_text(text.replace(right, wrong))
    environment = {**os.environ, 'SOURCE_DATE_EPOCH': '0'}
    for command in (['cmake', '--preset', 'armel'],
                    ['ninja', '-C', 'build/armel', '--quiet', 'sentrel', 'target_clock_call']):
        subprocess.run(command, cwd=tree, env=environment, stdout=subprocess.DEVNULL, check=True)
    return tree / 'build' / 'armel'


def with_planted(archive_label, names, planted):
    """The programs of the armel build, with those of the planted one in their places."""
    ours = programs_archive('armel', names, archive_label)
    theirs = Archive(BUILD / f'{archive_label}-planted.cpio.gz')
    for name in planted:
        theirs.add(planted[name], f'marl/{name}', strip=STRIP['armel'])
    return [ours, theirs.close(packed=True)]


def unaligned(argument):
    """What is said of a program that makes such an access, see target/programs/unaligned.cpp."""
    label = f'unaligned-{argument}'
    archive = programs_archive('armel', ['target/unaligned'], label)
    records = run(arm(label, [archive, job(f'{label}-job', f'target/unaligned {argument}; echo "@@ status $?"')]),
                  Records())
    return records.faults(BUILD / f'{label}.alignment')


def clone_flag(build):
    """The scenarios of the co-processor, whose monitor the kernel then refuses to start."""
    names = ['sentrel', 'libmarl.so.1', 'libmarlsim.so', 'sim-launch', 'tests/supervision_test']
    archives = with_planted('clone', names, {'sentrel': build / 'sentrel'})
    return tests.run_part(0, 1, archives, only='Coprocessor.HealthyAndKnown', label='clone').wrong


def clock_calls(build):
    planted = {'target/clock_call': build / 'target/clock_call'}
    return daemon.measure(2, archives=with_planted('clock', daemon.PROGRAMS, planted), label='clock')[2]


def endless():
    try:
        run(arm('endless', [job('endless-job', 'while :; do :; done')], 20), Records())
    except TimeoutError as error:
        return [str(error)]
    return []


def main():
    """Two at a time, for two processors; the planted programs are built meanwhile."""
    prepare(['armel'])
    with concurrent.futures.ThreadPoolExecutor(max_workers=2) as pool:
        build = pool.submit(planted_tree)
        cases = [(what, pool.submit(plant), word) for what, plant, word in (
            ('an unaligned word', lambda: unaligned('word'), 'unaligned at'),
            ('unaligned words in one instruction', lambda: unaligned('several'), 'the kernel counted 1 unaligned'),
            ('an unaligned double word', lambda: unaligned('pair'), ': 8 bytes at'),
            ('a machine that does not end', endless, 'did not end by itself'),
            ('a wrong flag of the clone task', lambda: clone_flag(build.result()), 'HealthyAndKnownIsOnlyLookedAt failed'),
            ('a second clock call', lambda: clock_calls(build.result()), 'the clock was not set'),
        )]
        harmless = pool.submit(unaligned, 'page')
        missed = 0
        for what, task, word in cases:
            told = [line for line in task.result() if word in line]
            say(f'{what}: {"found: " + told[0] if told else "NOT FOUND"}')
            missed += not told
        told = harmless.result()
        say(f'words at the end of a page of Thumb code: {"FOUND: " + told[0] if told else "no fault, none found"}')
    return 1 if missed or told else 0


if __name__ == '__main__':
    sys.exit(main())
