"""What the rows work on: a temporary directory, a signed repository behind nginx, scripts, bundles."""
import os
import random
import shutil
import socket
import subprocess
import tempfile
import time
import urllib.request
import zipfile
from pathlib import Path

from measure import BenchError, tool

PIECE = 1 << 20


class Ground:
    def __init__(self, programs, smoke, before=None):
        self.programs = Path(programs)
        self.before = before
        self.smoke = smoke
        self.directory = Path(tempfile.mkdtemp(prefix='zelor-bench-', dir=os.environ.get('TMPDIR')))
        self.directory.chmod(0o755)
        self.web = self.directory / 'www'
        self.root = self.directory / 'root'
        self.key = self.directory / 'key.pem'
        self.public_key = self.directory / 'public.pem'
        self.server = None

    def __enter__(self):
        for directory in (self.web / 'content', self.web / 'patches', self.root / 'content', self.root / 'etc/zelor',
                       self.root / 'opt/zelor', self.root / 'var/zelor/unzip'):
            directory.mkdir(parents=True)
        self.openssl('ecparam', '-name', 'prime256v1', '-genkey', '-noout', '-out', str(self.key))
        self.openssl('ec', '-in', str(self.key), '-pubout', '-out', str(self.public_key))
        self.start_server()
        shutil.copy(self.public_key, self.root / 'etc/zelor/repository.pem')
        (self.root / 'etc/zelor/zelor.ini').write_text(
            f'[Repository]\nUrl = {self.url}\nTrustedKey = /etc/zelor/repository.pem\n')
        (self.root / 'etc/zelor/build').write_text('platform = Mac OS X\n')
        return self

    def __exit__(self, *_):
        if self.server:
            self.server.terminate()
            self.server.wait()
        shutil.rmtree(self.directory, ignore_errors=True)

    def program(self, name):
        return str(self.programs / name)

    def require_space(self, gigabytes):
        free = shutil.disk_usage(self.directory).free / 2**30
        if free < gigabytes:
            raise BenchError(f'{self.directory} has {free:.0f} GiB free, {gigabytes} are needed; set TMPDIR to a '
                             'directory with more')

    def openssl(self, *words):
        subprocess.run([tool('openssl'), *words], check=True, stdin=subprocess.DEVNULL, capture_output=True)

    def sign(self, path, signature):
        self.openssl('dgst', '-sha256', '-sign', str(self.key), '-out', str(signature), str(path))

    def start_server(self):
        with socket.socket() as probe:
            probe.bind(('127.0.0.1', 0))
            self.port = probe.getsockname()[1]
        self.url = f'http://127.0.0.1:{self.port}'
        scratch = self.directory / 'nginx'
        scratch.mkdir()
        temporary = ''.join(f'{kind}_temp_path {scratch}/{kind};'
                            for kind in ('client_body', 'proxy', 'fastcgi', 'uwsgi', 'scgi'))
        configuration = scratch / 'nginx.conf'
        configuration.write_text(
            f'daemon off; worker_processes 1; pid {scratch}/pid; error_log {scratch}/error crit;'
            f'{"user root;" if os.getuid() == 0 else ""} events {{}} http {{ access_log off; {temporary}'
            f'sendfile on; tcp_nopush on; keepalive_requests 1000000; server {{ listen {self.port}; root {self.web}; }} }}')
        self.server = subprocess.Popen([tool('nginx'), '-p', str(scratch), '-c', str(configuration)],
                                       stdin=subprocess.DEVNULL)
        (self.web / 'ready').write_text('ready')
        for _ in range(200):
            try:
                urllib.request.urlopen(f'{self.url}/ready').close()
                return
            except OSError:
                time.sleep(0.025)
        raise BenchError(f'nginx does not answer at {self.url}')

    def random_file(self, path, size):
        generator = random.Random(str(path.name))
        with open(path, 'wb') as out:
            block = generator.randbytes(PIECE)
            for number in range(0, size, PIECE):
                out.write(number.to_bytes(8, 'little'))
                out.write(block[8:min(PIECE, size - number)])

    def add_archive(self, number, size):
        """A signed package in an archive, stored as the author's tool does: packages are compressed inside."""
        name = f'archive-{number}'
        package, signature = self.directory / f'{name}.pkg', self.directory / f'{name}.sig'
        self.random_file(package, size)
        self.sign(package, signature)
        with zipfile.ZipFile(self.web / 'patches' / f'{name}.zip', 'w', zipfile.ZIP_STORED) as archive:
            archive.write(package, package.name)
            archive.write(signature, signature.name)
        package.unlink()
        signature.unlink()

    def empty(self, *directories):
        for directory in directories:
            shutil.rmtree(directory, ignore_errors=True)
            directory.mkdir(parents=True)
