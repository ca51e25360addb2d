"""The systems that the emulated machines are made of, out of the distribution's archive.

apt fetches them with a configuration and a state of its own, for architectures that this machine need not be of; nothing
is installed. What was fetched is kept in the build folder and used again."""
import os
import shutil
import subprocess

RELEASE = 'bookworm'
DEFAULT_MIRROR = 'http://deb.debian.org/debian'

# The package that names the current kernel, other packages, and the kernel's modules that are wanted.
SYSTEMS = {
    'armel': {
        'kernel': 'linux-image-rpi',
        'packages': ['busybox-static', 'libc6', 'libstdc++6', 'libgcc-s1',
                     # ip(8), for the tests, and what it needs; busybox's shell would run its own instead
                     'dash',
                     'iproute2', 'libbpf1', 'libelf1', 'libmnl0', 'libbsd0', 'libmd0', 'libcap2', 'zlib1g'],
        'modules': ['drivers/net/veth.ko', 'fs/fuse', 'drivers/watchdog/softdog.ko'],
    },
    'amd64': {
        'kernel': 'linux-image-amd64',
        'packages': ['busybox-static', 'libc6', 'libstdc++6', 'libgcc-s1'],
        'modules': ['drivers/mtd', 'lib/bch.ko', 'fs/fuse', 'drivers/watchdog/softdog.ko',
                    'drivers/watchdog/watchdog.ko'],
    },
}


def _configure(place):
    """The configuration's path, and the environment to run apt in."""
    for folder in ('lists/partial', 'cache/archives/partial'):
        (place / folder).mkdir(parents=True, exist_ok=True)
    (place / 'status').touch()
    asked = subprocess.run(['apt-get', 'indextargets', '--format', '$(SITE) $(REPO_URI) $(ORIGIN)',
                            'Created-By: Packages', 'Origin: Debian'], capture_output=True, text=True)
    mirror = asked.stdout.split()[1] if asked.stdout else DEFAULT_MIRROR
    (place / 'sources').write_text(f'deb {mirror} {RELEASE} main\n')
    configuration = place / 'apt.conf'
    configuration.write_text(f'''
APT::Architecture "amd64";
APT::Architectures {{ "amd64"; "armel"; }};
APT::Sandbox::User "root";
Acquire::Languages "none";
Acquire::Retries "3";
Dir::State "{place}";
Dir::State::lists "{place}/lists/";
Dir::State::status "{place}/status";
Dir::Cache "{place}/cache";
Dir::Etc::sourcelist "{place}/sources";
Dir::Etc::sourceparts "/dev/null";
''')
    return {**os.environ, 'APT_CONFIG': str(configuration)}


def _unpack(package, wanted, into):
    """What of a package lies below these paths."""
    tar = subprocess.Popen(['dpkg-deb', '--fsys-tarfile', package], stdout=subprocess.PIPE)
    subprocess.run(['tar', '-x', '-C', into, '--wildcards', '--no-anchored', *wanted], stdin=tar.stdout,
                   stderr=subprocess.DEVNULL)
    tar.stdout.close()
    tar.wait()


def _fetch(name, system, place):
    environment = _configure(place / 'apt')
    apt = {'cwd': place, 'env': environment, 'check': True}
    subprocess.run(['apt-get', '-q', 'update'], stdout=subprocess.DEVNULL, **apt)
    depends = subprocess.run(['apt-cache', 'depends', f'{system["kernel"]}:{name}'], capture_output=True, text=True,
                             **apt).stdout.split()
    kernel = next(word for word in depends if word.startswith('linux-image-6')).split(':')[0]
    names = [f'{package}:{name}' for package in [kernel, *system['packages']]]
    subprocess.run(['apt-get', '-q', 'download', *names], stdout=subprocess.DEVNULL, **apt)


def system(name, build):
    """The folder of a system's files, fetched unless it is there."""
    system = SYSTEMS[name]
    place = build / name
    mark = place / 'complete'
    wanted = repr(sorted(system.items()))
    if mark.exists() and mark.read_text() == wanted:
        return place
    shutil.rmtree(place, ignore_errors=True)
    place.mkdir(parents=True)
    _fetch(name, system, place)
    for package in place.glob('*.deb'):
        is_kernel = package.name.startswith('linux-image')
        _unpack(package, ['./boot/vmlinuz*', '*bcm2835-rpi-zero.dtb', 'modules.order', 'modules.builtin',
                          *(f'*/kernel/{part}' for part in system['modules'])]
                if is_kernel else ['./bin', './sbin', './lib', './lib64', './usr/lib', './usr/bin'], place)
        package.unlink()
    shutil.rmtree(place / 'apt')
    mark.write_text(wanted)
    return place


def only(place, pattern):
    """The one file of that name."""
    files = [path for path in place.glob(pattern) if path.is_file()]
    if not files:
        raise FileNotFoundError(f'{place} has no {pattern}')
    return files[0]
