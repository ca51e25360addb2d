"""The daemon in real time, without the simulated board, beside the watchdog of busybox; and its setting of the clock."""
import re
import zlib

from runs import Records, arm, job, pc, programs_archive, run, say

PRESETS = ['armel', 'release']
PROGRAMS = ['sentrel', 'libmarl.so.1', 'target/devices', 'target/figures', 'target/clock_call']


def environment():
    """A boot environment of a camera, as flash has it."""
    variables = b'appauto=1\0HWID=IPC-KN1E:1:2:1:0:1:0:1:1:1:1:1:1b0:1:0:1:1:1:0:1:0\0'
    body = variables.ljust(0x20000 - 4, b'\0')
    return zlib.crc32(body[:0x4000 - 4]).to_bytes(4, 'little') + body


def measure(seconds, preset='armel', archives=None, label='daemon'):
    label = f'{label}-{preset}'
    archives = archives or [programs_archive(preset, PROGRAMS, label)]
    script = job(f'{label}-job', f'seconds={seconds}', 'daemon', files={'marl/environment': environment()})
    archives = [*archives, script]
    # Not watched for unaligned accesses: that takes its time, which would be the daemon's here.
    machine = arm(label, archives, watched=False) if preset == 'armel' else pc(label, archives)
    return judge(run(machine, Records()))


def judge(records):
    """The figures as {name: {what: number}}, what was said of the clock, and what went wrong."""
    figures = {}
    for line in records.all('figures'):
        name, *words = line.split()
        figures[name] = {words[i]: float(words[i + 1]) for i in range(0, len(words), 2)}
    wrong = records.faults(None)
    if set(figures) != {'sentrel', 'busybox'} or not records.all('daemon'):
        wrong.append('the daemon could not be measured')
    for name, figure in figures.items():
        if figure['armed_ms'] < 0 or figure['parent'] != 1:
            wrong.append(f'{name}: no watchdog, or no child of the first process')
    clock = records.all('clock')
    if len(clock) != 1 or not re.search(r'2 with time and zone, 0 others; off by -?[01] s, zone -180', clock[0]):
        wrong.append(f'the clock was not set as it should be: {clock}')
    return figures, clock, wrong


FIGURES = [('armed_ms', 'start to armed', 'ms', 1), ('anonymous_kib', 'private memory', 'KiB', 0),
           ('private_kib', 'with the pages of files that it alone uses', 'KiB', 0), ('resident_kib', 'resident', 'KiB', 0),
           ('switches_minute', 'context switches a minute', '', 0), ('cpu_ms_minute', 'CPU time a minute', 'ms', 1)]


def report(results):
    """Columns: the daemon and busybox's watchdog on each machine."""
    columns = [figures.get(name) for figures, _, _ in results for name in ('sentrel', 'busybox')]
    if all(columns):
        say(f'  {"":42}{"".join(f"{preset:>24}" for preset in PRESETS)}')
        say(f'  {"":42}{"     sentrel    watchdog" * len(results)}')
        for key, what, unit, digits in FIGURES:
            say(f'  {what:42}{"".join(f"{column[key]:12.{digits}f}" for column in columns)} {unit}')
    for _, clock, _ in results:
        say(f'  clock: {" ".join(clock)}')
    return [line for _, _, wrong in results for line in wrong]
