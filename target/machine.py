"""An emulated machine: the archive that it starts from, and a run of it."""
import os
import select
import shutil
import subprocess
import tempfile
import time
from pathlib import Path

HERE = Path(__file__).resolve().parent

# What each needs to start from nothing. The machine's time is that of the instructions it has done, four nanoseconds each,
# and where it would wait, time goes on at once: so a run does not depend on what else the desk is doing. (With the time of
# the desk, a timer is lost for an hour when the emulator is held up between two accesses to its counter.)
TIME = ['-icount', 'shift=2,sleep=off']
ARM = {
    'emulator': ['qemu-system-arm', '-M', 'raspi0', '-m', '512', *TIME],
    # The emulator lacks a part of the board, whose first access would be the end.
    'arguments': 'console=ttyAMA0 initcall_blacklist=bcm2835_power_driver_init',
}
PC = {
    'emulator': ['qemu-system-x86_64', '-M', 'pc', '-m', '256', '-nodefaults', *TIME],
    'arguments': 'console=ttyS0 no_timer_check',
}

# Two minutes of a processor at most: only a machine that hangs comes to this, whatever else the desk does.
LIMIT_S = 900


class Archive:
    """What the machine's memory is filled with before its first program."""

    def __init__(self, path):
        self.path = Path(path)
        self.tree = Path(tempfile.mkdtemp(prefix='tree-', dir=self.path.parent))

    def add(self, source, target, strip=None):
        place = self.tree / target
        place.parent.mkdir(parents=True, exist_ok=True)
        if strip:
            subprocess.run([strip, '-o', place, source], check=True)
        else:
            shutil.copy2(source, place, follow_symlinks=False)

    def link(self, to, target):
        place = self.tree / target
        place.parent.mkdir(parents=True, exist_ok=True)
        place.symlink_to(to)

    def write(self, target, data):
        place = self.tree / target
        place.parent.mkdir(parents=True, exist_ok=True)
        place.write_bytes(data)
        place.chmod(0o755)

    def close(self, packed):
        names = '\0'.join(sorted(str(p.relative_to(self.tree)) for p in self.tree.rglob('*')))
        with open(self.path, 'wb') as out:
            made = subprocess.run(['cpio', '-o', '-0', '-H', 'newc', '-R', '0:0', '--quiet'], input=names.encode(),
                                  cwd=self.tree, stdout=subprocess.PIPE, check=True).stdout
            # Archives follow each other on multiples of four.
            made += bytes(-len(made) % 4)
            out.write(subprocess.run(['gzip', '-1n'], input=made, stdout=subprocess.PIPE, check=True).stdout
                      if packed else made)
        shutil.rmtree(self.tree)
        return self.path


def _command(kind, kernel, archives, initrd, dtb):
    with open(initrd, 'wb') as out:
        for archive in archives:
            data = Path(archive).read_bytes()
            out.write(data + bytes(-len(data) % 4))
    return [*kind['emulator'], '-kernel', str(kernel), '-initrd', str(initrd), '-display', 'none', '-monitor', 'none',
            '-no-reboot', '-append', kind['arguments'] + ' rdinit=/init panic=-1 quiet',
            *(['-dtb', str(dtb)] if dtb else [])]


def interact(kind, kernel, archives, initrd, dtb):
    """A machine whose console is this one."""
    command = _command(kind, kernel, archives, initrd, dtb)
    return subprocess.call([*command, '-chardev', 'stdio,id=console,signal=off', '-serial', 'chardev:console'])


class Machine:
    """A run: starts at once, gives the lines of its console, and is gone with the `with`."""

    def __init__(self, kind, kernel, archives, log, limit, dtb=None, plugin=None, options=()):
        self.log = open(log, 'w', errors='replace')
        self.deadline = time.monotonic() + limit
        self.limit = limit
        self.initrd = Path(str(log) + '.initrd')
        command = _command(kind, kernel, archives, self.initrd, dtb) + ['-serial', 'stdio', *options]
        if plugin:
            command += ['-plugin', plugin]
        self.process = subprocess.Popen(command, stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                        stderr=subprocess.STDOUT)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.kill()
        self.log.close()
        self.initrd.unlink(missing_ok=True)

    def kill(self):
        self.process.kill()
        self.process.wait()

    def lines(self):
        """Until the machine switches itself off, or its time is over."""
        rest = b''
        while True:
            left = self.deadline - time.monotonic()
            if left <= 0 or not select.select([self.process.stdout], [], [], left)[0]:
                raise TimeoutError(f'the machine did not end by itself in {self.limit} s')
            got = os.read(self.process.stdout.fileno(), 65536)
            if not got:
                break
            *whole, rest = (rest + got).split(b'\n')
            for line in whole:
                line = line.rstrip(b'\r').decode(errors='replace')
                self.log.write(line + '\n')
                self.log.flush()
                yield line
        if self.process.wait() != 0:
            raise ChildProcessError(f'the emulator ended with {self.process.returncode}: {rest.decode(errors="replace")}')

    def tell(self, line):
        self.process.stdin.write(line.encode() + b'\n')
        self.process.stdin.flush()
