"""Rows about repositories: publishing one, one that is far away or goes away, and many agents at one."""
import json
import os
import signal
import socket
import struct
import subprocess
import sys
import time
import zlib
from concurrent.futures import ThreadPoolExecutor
from contextlib import contextmanager
from pathlib import Path

from ground import PIECE
from measure import BenchError, Sample, Side, interleaved, run_once, tool
from rows import Row, thousands

ROUND_TRIP = 50  # milliseconds: an ordinary home line, or a VPN
LINE = 20_000_000  # bytes a second
PLATFORM = 'cpe:/o:apple:mac_os_x'
KEPT = ('opt/zelor', 'var/zelor/unzip', 'var/zelor/content')
TOC = b'<?xml version="1.0"?><xar><toc></toc></xar>'
PACKED = zlib.compress(TOC)
PACKAGE_HEAD = struct.pack('>4sHHQQI', b'xar!', 28, 1, len(PACKED), len(TOC), 1) + PACKED
TOOLS = {'sw_vers': 'case $1 in -productName) echo Mac OS X ;; *) echo 10.10.5 ;; esac',
         'softwareupdate': 'true', 'installer': 'sleep 1; echo The install was successful.'}


class Site:
    """A published repository, a machine's root and its requests. What nginx serves is removed with it."""

    def __init__(self, ground, entries):
        self.ground = ground
        self.directory = ground.directory / 'site'
        ground.empty(self.directory, ground.web / 'content', ground.web / 'patches')
        ground.empty(ground.web)
        self.tools = self.directory / 'tools'
        self.tools.mkdir()
        for name, text in TOOLS.items():
            (self.tools / name).write_text(f'#!/bin/sh\n{text}\n')
            (self.tools / name).chmod(0o755)
        self.requests = self.directory / 'requests.json'
        self.requests.write_text(json.dumps({f'cpe:/a:example:product_{number}': entry['identifier']
                                             for number, entry in enumerate(entries)}))
        manifest = self.directory / 'manifest.json'
        manifest.write_text(json.dumps(entries))
        subprocess.run([ground.program('zelor-content'), 'publish', str(manifest), '--key', str(ground.key), '--out',
                        str(ground.web)], check=True, stdout=subprocess.DEVNULL)
        (ground.web / 'ready').write_text('ready')

    def machine(self, name, port):
        """A new machine whose repository is at that port of loopback."""
        root = self.directory / name
        for below in ('etc/zelor', *KEPT):
            (root / below).mkdir(0o700, parents=True, exist_ok=True)
        (root / 'etc/zelor/repository.pem').write_bytes(self.ground.public_key.read_bytes())
        (root / 'etc/zelor/zelor.ini').write_text(f'[Repository]\nUrl = http://127.0.0.1:{port}\n'
                                                  'TrustedKey = /etc/zelor/repository.pem\n')
        return root

    def run(self, programs, root, clean=True, status=0):
        """One run there, at first without anything kept when `clean`."""
        def prepare():
            if clean:
                self.ground.empty(root / 'opt', root / 'var')
                for below in KEPT:
                    (root / below).mkdir(0o700, parents=True)

        def check(found, errors):
            if found != status:
                raise BenchError(f'a run ended with {found}, not {status}: {errors.strip()[-1000:]}')
        return Side([str(Path(programs) / 'zelor-remediate'), 'run', str(self.requests), '--quiet', '--root', str(root),
                     '--tools', str(self.tools)], prepare, check)

    def curl(self, port, conditional=False):
        """All files of the repository, or the question whether they changed."""
        out = self.directory / ('again' if conditional else 'fetched')
        out.mkdir(exist_ok=True)
        blocks = []
        for file in sorted(self.ground.web.glob('*/*')):
            target = out / file.name
            block = f'url = "http://127.0.0.1:{port}/{file.relative_to(self.ground.web)}"\noutput = "{target}"\n'
            if conditional:
                target.write_bytes(b'')
                os.utime(target, (file.stat().st_atime, file.stat().st_mtime))
                block += f'time-cond = "{target}"\n'
            blocks.append(block + 'silent\nfail\n')
        config = self.directory / f'{out.name}.curl'
        config.write_text('next\n'.join(blocks))
        return Side([tool('curl'), '--parallel', '--parallel-max', '16', '-K', str(config)])


@contextmanager
def relay(ground, *options):
    """The port of a relay to the web server."""
    with socket.socket() as probe:
        probe.bind(('127.0.0.1', 0))
        port = probe.getsockname()[1]
    program = Path(__file__).with_name('relay.py')
    child = subprocess.Popen([sys.executable, str(program), str(port), str(ground.port), *options],
                             stdout=subprocess.PIPE, text=True)
    try:
        for _ in range(200):
            try:
                socket.create_connection(('127.0.0.1', port)).close()
                break
            except OSError:
                time.sleep(0.025)
        yield port
    finally:
        child.send_signal(signal.SIGTERM)
        child.wait()
        child.stdout.close()


def scripts(ground, count):
    directory = ground.directory / 'sources'
    ground.empty(directory)
    entries = []
    for number in range(count):
        (directory / f'fix-{number}.bsh').write_text(f'exit 0  # {number}\n')
        entries.append({'identifier': f'CCE-{70000 + number}-1', 'platform': PLATFORM, 'impact': 'None.',
                        'instructions': 'Run the script.', 'file': str(directory / f'fix-{number}.bsh')})
    return entries


def contents(ground, count):
    """For another platform, so that nothing but the content is asked for."""
    return [{**scripts(ground, 1)[0], 'identifier': f'CCE-{70000 + number}-1', 'platform': 'cpe:/o:example:other',
             'omitArchive': True} for number in range(count)]


def packages(ground, count, size):
    directory = ground.directory / 'sources'
    ground.empty(directory)
    entries = []
    for number in range(count):
        package = directory / f'product-{number}.pkg'
        ground.random_file(package, size)
        with open(package, 'r+b') as file:
            file.write(PACKAGE_HEAD)
        entries.append({'identifier': f'CVE-2026-{10000 + number}', 'platform': PLATFORM, 'impact': 'None.',
                        'product': f'cpe:/a:example:product_{number}', 'instructions': 'Install the package.',
                        'file': str(package)})
    return entries


def beside_before(ground, row, sides, samples):
    """The release that --before names does the same work."""
    if 'before' in sides:
        row.other, row.other_name = samples['before'], 'the release before'
        row.aim_times('at most a tenth of the release before', row.ours, row.other, 0.1)
    return row


def far_row(ground, name, entries, status, runs, clean=True):
    site = Site(ground, entries)
    with relay(ground, '--round-trip', str(ROUND_TRIP)) as port:
        root = site.machine('far', port)
        sides = {'ours': site.run(ground.programs, root, clean, status), 'curl': site.curl(port, not clean)}
        if ground.before:
            sides['before'] = (site.run(ground.before, site.machine('before', port), clean, status), 1)
        if not clean:
            run_once(site.run(ground.programs, root, True, status))
        samples = interleaved(sides, runs, warm_up=False)
    row = Row(name, f'{thousands(len(entries))} requests, {ROUND_TRIP} ms round trip', 's', samples['ours'],
              limit=samples['curl'], limit_name='curl --parallel, the same files')
    row.aim_times('at most 3 times curl --parallel', row.ours, row.limit, 3)
    return beside_before(ground, row, sides, samples) if clean else row


def far(ground):
    runs = 1 if ground.smoke else 3
    count = 5 if ground.smoke else 200
    return [far_row(ground, 'scripts, far away, cold', scripts(ground, count), 0, runs),
            far_row(ground, 'content, far away, cold', contents(ground, 5 * count), 3, runs),
            far_row(ground, 'nothing changed, far away', scripts(ground, count), 0, runs, clean=False)]


def overlap(ground):
    """Downloads while installers run."""
    ground.require_space(4)
    count, size = (2, PIECE) if ground.smoke else (40, 16 * PIECE)
    site = Site(ground, packages(ground, count, size))
    with relay(ground, '--rate', str(LINE)) as port:
        root = site.machine('line', port)
        samples = interleaved({'ours': site.run(ground.programs, root), 'curl': site.curl(port)}, 1, warm_up=False)
    downloads, installs = samples['curl'].median, float(count)
    limit = max(downloads, installs) * 1.05 + downloads / count
    row = Row('downloads beside installers', f'{count} x {size // PIECE} MiB at {LINE // 1_000_000} MB/s, 1 s each', 's',
              samples['ours'], Sample([downloads + installs]), 'curl --parallel, then install all',
              Sample([max(downloads, installs)]), 'the larger of the two')
    return [row.aim('at most 1.05 times the larger, and one download', row.ours.median, limit)]


def outage(ground):
    count = 5 if ground.smoke else 200
    site = Site(ground, scripts(ground, count))
    rows = []
    for kind in ('refused', '503', 'mute'):
        with relay(ground, '--outage', kind) as port:
            took, _ = run_once(site.run(ground.programs, site.machine(kind, port), status=3))
        row = Row('repository gone', f'{count} requests, content kept; {kind}', 's', Sample([took]))
        rows.append(row.aim('at most 30 s', took, 30))
    return rows


def server_seconds(ground):
    """Processor time of nginx and its worker."""
    listed = subprocess.run([tool('ps'), '-o', 'pid=', '--ppid', str(ground.server.pid)], capture_output=True, text=True)
    ticks = 0
    for pid in [str(ground.server.pid), *listed.stdout.split()]:
        fields = Path(f'/proc/{pid}/stat').read_text().rsplit(')', 1)[1].split()
        ticks += int(fields[11]) + int(fields[12])
    return max(1, ticks) / os.sysconf('SC_CLK_TCK')


def crowd(ground):
    """What a server needs for many agents, and for as many loops of curl that fetch the same."""
    agents, requests, at_once = (4, 2, 2) if ground.smoke else (1000, 20, 32)
    site = Site(ground, scripts(ground, requests))
    figures = {}
    for name in ('curl', 'ours'):
        if name == 'curl':
            sides = [site.curl(ground.port)] * agents
        else:
            sides = [site.run(ground.programs, site.machine(f'agent-{number}', ground.port)) for number in range(agents)]
        before = server_seconds(ground)
        with ThreadPoolExecutor(at_once) as pool:
            list(pool.map(run_once, sides))
        figures[name] = Sample([max(0.01, server_seconds(ground) - before) * 1000 / agents])
    row = Row('server, many agents', f'{thousands(agents)} agents, {requests} requests each', 'ms of server CPU per agent',
              figures['ours'], figures['curl'], 'curl --parallel')
    return [row.aim_times("not above curl's", row.ours, row.other, 1)]


def publish(ground):
    """New entries, each with content, archive and signatures, beside a copy of what comes of it."""
    count = 20 if ground.smoke else 2000
    site = Site(ground, scripts(ground, count))
    out, copy = site.directory / 'published', site.directory / 'copy'
    sides = {'ours': Side([ground.program('zelor-content'), 'publish', str(site.directory / 'manifest.json'), '--key',
                           str(ground.key), '--out', str(out)], lambda: ground.empty(out)),
             'copy': Side(['bash', '-c', f'cp -r {ground.web}/. {copy} && sync -f {copy}'], lambda: ground.empty(copy))}
    samples = interleaved(sides, 1 if ground.smoke else 5)
    row = Row('publish', f'{thousands(count)} new entries', 's', samples['ours'], samples['copy'],
              'cp -r and sync of the same files')
    return [row.aim_times('within 3 times of writing the same bytes', row.ours, row.other, 3)]


FAR_ROWS = {'publish': publish, 'far': far, 'overlap': overlap, 'outage': outage, 'crowd': crowd}
