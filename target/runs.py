"""What the machines are filled with, and a run of one: a job goes in, records come out."""
import subprocess

import packages
from machine import ARM, HERE, LIMIT_S, PC, Archive, Machine, interact

TOP = HERE.parent
BUILD = TOP / 'build' / 'target'
STRIP = {'armel': 'arm-linux-gnueabi-strip', 'release': 'strip'}
SYSTEMS = {'armel': 'armel', 'release': 'amd64'}  # of a preset


def say(text):
    print(text, flush=True)


def base_archive(system, place):
    """The distribution's part. It changes only with what was fetched, so it is kept."""
    path = BUILD / f'{system}.cpio.gz'
    guest = HERE / 'guest'
    newest = max(file.stat().st_mtime for file in [place / 'complete', *guest.iterdir()])
    if path.exists() and path.stat().st_mtime > newest:
        return path
    archive = Archive(path)
    archive.add(place / 'bin/busybox', 'bin/busybox')
    if (place / 'bin/dash').exists():
        archive.add(place / 'bin/dash', 'bin/sh')
    else:
        archive.link('busybox', 'bin/sh')
    archive.add(guest / 'init', 'init')
    for library in [*place.glob('lib/*/*.so*'), *place.glob('usr/lib/*/*.so*'), *place.glob('lib*/ld-linux*')]:
        archive.add(library, library.relative_to(place))
    for module in place.rglob('*.ko'):
        archive.add(module, module.relative_to(place))
    if (place / 'bin/ip').exists():
        archive.add(place / 'bin/ip', 'usr/bin/ip')
    return archive.close(packed=True)


def programs_archive(preset, names, label):
    """Ours, stripped, in the same places as in their build folder."""
    build = TOP / 'build' / preset
    archive = Archive(BUILD / f'{label}.cpio.gz')
    for name in names:
        archive.add(build / name, f'marl/{name}', strip=STRIP[preset])
    return archive.close(packed=True)


def alignment_plugin():
    source, plugin = HERE / 'alignment.c', BUILD / 'alignment.so'
    if not plugin.exists() or plugin.stat().st_mtime < source.stat().st_mtime:
        subprocess.run(['gcc', '-std=c11', '-D_DEFAULT_SOURCE', '-O2', '-Wall', '-Wextra', '-Werror',
                        '-fvisibility=hidden', '-fPIC', '-shared', '-o', plugin, source], check=True)
    return plugin


def prepare(presets):
    """What several machines need, made before they are many."""
    alignment_plugin()
    for preset in presets:
        system = SYSTEMS[preset]
        base_archive(system, packages.system(system, BUILD))


class Records:
    """What a machine told of its job: lines that begin with @@, each a word and the rest."""

    def __init__(self):
        self.lines = {}

    def take(self, line):
        if line.startswith('@@ '):
            word, _, rest = line[3:].partition(' ')
            self.lines.setdefault(word, []).append(rest)

    def all(self, word):
        return self.lines.get(word, [])

    def faults(self, report):
        """What nobody asked for, whatever the job was."""
        found = [f'the kernel complains: {line}' for line in self.all('complaint')]
        found += [f'missing: {name}' for name in self.all('missing')]
        found += [f'the kernel counted {n} unaligned accesses' for n in self.all('faults') if n != '0']
        if not self.all('end'):
            found.append('the machine did not come to the end of its job')
        if report:
            found += [line for line in report.read_text().splitlines() if line.startswith('unaligned')]
        return found


def arm(label, archives, limit=LIMIT_S, watched=True):
    """A machine of the board's kind, with its base; watched for unaligned accesses of its programs."""
    place = packages.system('armel', BUILD)
    plugin = f'{alignment_plugin()},report={BUILD / label}.alignment' if watched else None
    return Machine(ARM, packages.only(place, 'boot/vmlinuz*'), [base_archive('armel', place), *archives],
                   BUILD / f'{label}.log', limit, dtb=packages.only(place, 'usr/lib/linux-image*/*.dtb'), plugin=plugin)


def pc(label, archives, flash=None):
    """A machine of the desk's kind, with drivers of flash. What is in the flash is a file's."""
    place = packages.system('amd64', BUILD)
    options = [] if flash is None else [
        '-object', f'memory-backend-file,id=flash,share=on,size={flash.stat().st_size},mem-path={flash}',
        '-device', 'ivshmem-plain,memdev=flash']
    return Machine(PC, packages.only(place, 'boot/vmlinuz*'), [base_archive('amd64', place), *archives],
                   BUILD / f'{label}.log', LIMIT_S, options=options)


def job(label, text, name=None, files=()):
    """The settings of a job, and the script of that name that does it."""
    script = (HERE / 'guest' / name).read_text() if name else ''
    archive = Archive(BUILD / f'{label}.cpio')
    archive.write('job', (text + '\n' + script).encode())
    for file, data in dict(files).items():
        archive.write(file, data)
    return archive.close(packed=False)


def run(machine, records, tell=lambda line: None):
    with machine:
        for line in machine.lines():
            records.take(line)
            tell(line)
    return records


def shell(archives):
    """A prompt on a machine of the board's kind, in the time of the desk."""
    place = packages.system('armel', BUILD)
    machine = {**ARM, 'emulator': [word.removesuffix(',sleep=off') for word in ARM['emulator']]}
    script = job('shell-job', 'stty echo onlcr; exec </dev/console; setsid -c sh -i')
    return interact(machine, packages.only(place, 'boot/vmlinuz*'), [base_archive('armel', place), *archives, script],
                    BUILD / 'shell.initrd', packages.only(place, 'usr/lib/linux-image*/*.dtb'))
