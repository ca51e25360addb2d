"""The library's flash on the kernel's own drivers, and power cuts in the middle of an upgrade."""
import functools
import mmap
import random
import signal
import threading
import time

from runs import BUILD, HERE, Records, job, pc, programs_archive, run, say

CASES = 18  # on each driver

SIZE = 8 << 20
SYSTEM = 0x80000  # of the partition that is upgraded, up to the end
SECTOR = 0x10000


def backing_file(label):
    path = BUILD / f'{label}.flash'
    path.write_bytes(b'\xff' * SIZE)
    return path


def archive_of(label):
    return programs_archive('release', ['libmarl.so.1', 'target/flash_check'], label)


def flash_job(label, settings, name):
    return job(label, settings + '\n' + (HERE / 'guest' / 'flash').read_text(), name)


def run_cases():
    script = flash_job('flash-cases', '', 'flash-cases')
    machine = pc('flash-cases', [archive_of('flash-cases'), script], backing_file('flash-cases'))
    records = run(machine, Records())
    wrong = records.faults(None) + [f'a case of flash: {line}' for line in records.all('failed')]
    lines = records.all('flash')
    done = sum(line.endswith(': passed') for line in lines)
    wrong += [f'flash: {line}' for line in lines if line.endswith(': failed')]
    drivers = [line.removeprefix('driver ') for line in lines if line.startswith('driver')]
    if done != CASES * len(drivers) or len(drivers) != 2:
        wrong.append(f'{done} cases of flash on {drivers}')
    return f'  {done} cases on {" and on ".join(drivers)}, {records.all("kernel")[0]}', wrong


class Cut(threading.Thread):
    """Takes the machine's power in the middle of an upgrade: a random moment after a random sector has begun to change."""

    def __init__(self, machine, flash, dice):
        super().__init__(daemon=True)
        self.machine, self.flash, self.dice = machine, flash, dice

    def run(self):
        first = SYSTEM + SECTOR * self.dice.randrange((SIZE - SYSTEM) // SECTOR)
        old = self.flash[first:first + SECTOR]
        self.machine.tell('go')
        while self.flash[first:first + SECTOR] == old and self.machine.process.poll() is None:
            pass
        time.sleep(self.dice.random() * 0.002)
        self.machine.process.kill()


def one_life(label, archive, flash, memory, previous, following, dice):
    """Of the machine: completes what the life before had begun, begins what follows, and is cut off in the middle."""
    script = flash_job(f'{label}-job', f'previous={previous} next={following}', 'flash-cut')
    machine = pc(f'{label}-{following or previous + 1}', [archive, script], flash)
    records = Records()
    try:
        run(machine, records, lambda line: line == '@@ ready' and Cut(machine, memory, dice).start())
    except ChildProcessError:
        if machine.process.returncode != -signal.SIGKILL:
            raise
    if following and not records.all('ready'):
        raise ChildProcessError(f'boot {following} of the power cuts did not come to its upgrade')
    return records


def states(flash, seed):
    """How many sectors of the partition hold the image before that, the image, and neither: one that was cut in two."""
    old, new = image(seed - 1), image(seed)
    count = [0, 0, 0]
    for at in range(0, SIZE - SYSTEM, SECTOR):
        sector = flash[SYSTEM + at:SYSTEM + at + SECTOR]
        count[0 if sector == old[at:at + SECTOR] else 1 if sector == new[at:at + SECTOR] else 2] += 1
    return count


@functools.cache
def first_image():
    return bytes((i + 1) * 2654435761 >> 24 & 0xff for i in range(SIZE - SYSTEM))


def image(seed):
    """What flash_check writes; nothing is stored before the first."""
    if seed == 0:
        return b'\xff' * (SIZE - SYSTEM)
    return first_image().translate(bytes(byte ^ seed * 97 & 0xff for byte in range(256)))


def run_cuts(cuts, label='flash-cuts'):
    """Powers a machine down that often in the middle of an upgrade; each time the next boot has to complete it."""
    seed = random.randrange(1 << 32)
    dice = random.Random(seed)
    archive, flash = archive_of(label), backing_file(label)
    told, wrong, inside, boots = [], [], 0, 0
    with open(flash, 'r+b') as file, mmap.mmap(file.fileno(), SIZE) as memory:
        while inside < cuts and boots < 2 * cuts:
            wrong += completed(one_life(label, archive, flash, memory, boots, boots + 1, dice), boots)
            boots += 1
            old, new, torn = states(memory, boots)
            inside += new + torn > 0 and old + torn > 0
            told.append(f'{new}+{torn}')
        records = one_life(label, archive, flash, memory, boots, 0, dice)
        wrong += records.faults(None) + completed(records, boots)
    if inside < cuts:
        wrong.append(f'only {inside} of {boots} power cuts fell into an upgrade')
    story = (f'  {inside} power cuts in the middle of an upgrade of {(SIZE - SYSTEM) // SECTOR} sectors on phram, '
             f'{len(wrong)} of them not completed by the next boot\n'
             f'  sectors written + cut in two at each (seed {seed}): {" ".join(told)}')
    return story, wrong


def completed(records, number):
    """What is wrong with a boot that had an upgrade to complete; the first has none."""
    if number == 0 or records.all('completed'):
        return []
    return [f'the upgrade {number} was not completed by the next boot']


def report(results):
    for story, _ in results:
        say(story)
    return [line for _, wrong in results for line in wrong]
