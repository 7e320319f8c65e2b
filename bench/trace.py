#!/usr/bin/env python3
"""Times a run of scripts against a far repository, and shows when the server was asked.

usage: trace.py PROGRAMS [--scripts N] [--kib SIZE] [--work SECONDS] [--round-trip MILLISECONDS] [--ahead MIB]... [--trace]

Publishes N signed scripts, each in an archive of SIZE KiB that takes SECONDS to run, behind nginx and bench/relay.py,
and runs them once cold for each value of [Limits] AheadMegabytes: first 0, so that archives come in their turn, then the
default. --trace prints the server's access log: seconds since its first request, and the path.
"""
import argparse
import hashlib
import json
import re
import socket
import subprocess
import sys
import time
import zipfile
from pathlib import Path

from ground import Ground
from measure import BenchError, tool


def digest(attribute, length, data):
    return f'{attribute}="{hashlib.sha256(data).hexdigest()}" {length}="{len(data)}"'


def publish(ground, options):
    requests = {}
    for number in range(options.scripts):
        stem, identifier = f'script-{number:04}', f'CCE-{10000 + number}'
        script = ground.directory / f'{stem}.sh'
        script.write_text(f'sleep {options.work}\n' if options.work else 'exit 0\n')
        ground.sign(script, script.with_suffix('.sig'))
        archive = ground.web / 'patches' / f'{stem}.zip'
        padding = ground.directory / 'padding'
        ground.random_file(padding, options.kib << 10)
        with zipfile.ZipFile(archive, 'w', zipfile.ZIP_STORED) as out:
            for file in (script, script.with_suffix('.sig')):
                out.write(file, file.name)
            if options.kib:
                out.write(padding, f'{stem}.bin')
        content = ground.web / 'content' / f'{identifier}.xml'
        content.write_text(
            f'<remediation identifier="{identifier}"><cre id="CRE-{number}"><eri id="ERI-{number}">'
            f'<product>cpe:/a:example:x</product><patch id="{stem}.sh" size="1 KB" md5="00" '
            f'{digest("sha256", "length", script.read_bytes())} '
            f'{digest("archiveSha256", "archiveLength", archive.read_bytes())}/></eri></cre></remediation>')
        ground.sign(content, f'{content}.sig')
        requests[f'cpe:/a:example:x{number:04}'] = identifier
    path = ground.directory / 'requests.json'
    path.write_text(json.dumps(requests))
    return path


def log_accesses(ground):
    """Has nginx write a line with the time for each answer."""
    configuration = ground.directory / 'nginx/nginx.conf'
    log = ground.directory / 'nginx/access.log'
    text = configuration.read_text().replace(
        'access_log off;', f"log_format times '$msec $request_time $status $request_uri'; access_log {log} times;")
    configuration.write_text(text)
    subprocess.run([tool('nginx'), '-p', str(ground.directory / 'nginx'), '-c', str(configuration), '-s', 'reload'],
                   check=True)
    time.sleep(0.5)
    return log


def wait_for(port):
    for _ in range(200):
        try:
            return socket.create_connection(('127.0.0.1', port)).close()
        except OSError:
            time.sleep(0.05)
    raise BenchError(f'the relay does not answer at port {port}')


def run(ground, options, requests, ahead):
    ground.empty(ground.root / 'content', ground.root / 'opt/zelor', ground.root / 'var/log/zelor')
    settings = ground.root / 'etc/zelor/zelor.ini'
    with socket.socket() as probe:
        probe.bind(('127.0.0.1', 0))
        port = probe.getsockname()[1]
    text = re.sub(r'Url = .*', f'Url = http://127.0.0.1:{port}', settings.read_text().split('[Limits]')[0])
    settings.write_text(text + ('' if ahead is None else f'[Limits]\nAheadMegabytes = {ahead}\n'))
    relay = subprocess.Popen([sys.executable, str(Path(__file__).with_name('relay.py')), str(port), str(ground.port),
                              '--round-trip', str(options.round_trip)], stdout=subprocess.PIPE, text=True)
    try:
        wait_for(port)
        start = time.monotonic()
        subprocess.run([ground.program('zelor-remediate'), 'run', str(requests), '--root', str(ground.root), '--quiet'],
                       check=True)
        return time.monotonic() - start
    finally:
        relay.terminate()
        print(f'AheadMegabytes {"default" if ahead is None else ahead}: {relay.communicate()[0].strip()}')


def trace(log):
    """The accesses as seconds since the first one and paths, in the order of their beginning."""
    rows = [line.split() for line in log.read_text().splitlines()]
    times = sorted((float(end) - float(took), path) for end, took, _, path in rows)
    return [f'{began - times[0][0]:7.3f} {path}' for began, path in times]


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument('programs')
    parser.add_argument('--scripts', type=int, default=200)
    parser.add_argument('--kib', type=int, default=0)
    parser.add_argument('--work', type=float, default=0)
    parser.add_argument('--round-trip', type=float, default=50)
    parser.add_argument('--ahead', type=int, action='append')
    parser.add_argument('--trace', action='store_true')
    options = parser.parse_args()
    with Ground(options.programs, False) as ground:
        requests = publish(ground, options)
        log = log_accesses(ground)
        for ahead in options.ahead or [0, None]:
            seconds = run(ground, options, requests, ahead)
            print(f'{seconds:.2f} s')
            if options.trace:
                print('\n'.join(trace(log)))
            log.write_text('')


if __name__ == '__main__':
    main()
