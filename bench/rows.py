"""One function per row of the table; each returns the row's figures."""
import json
import os
import shutil
import subprocess
from dataclasses import dataclass, field

from ground import PIECE
from measure import BenchError, Sample, Side, interleaved, progress, tool


@dataclass
class Row:
    """Figures in `unit`; `ratio` is what the aim is about, in the words of `aim`."""
    name: str
    work: str
    unit: str
    ours: Sample
    other: Sample = None
    other_name: str = ''
    limit: Sample = None
    limit_name: str = ''
    aims: list = field(default_factory=list)
    detail: dict = field(default_factory=dict)

    def aim(self, text, value, bound, at_least=False, low=None, high=None):
        """`low` and `high`: between them `value` lies on a machine this noisy."""
        low, high = (value if low is None else low), (value if high is None else high)
        good, best, worst = ((value >= bound, high >= bound, low >= bound) if at_least else
                             (value <= bound, low <= bound, high <= bound))
        verdict = 'met' if worst else 'not met' if not best else 'met, within noise' if good else 'missed, within noise'
        self.aims.append({'aim': text, 'value': value, 'verdict': verdict})
        return self

    def aim_times(self, text, upper, lower, bound, at_least=False):
        """An aim about the quotient of two samples."""
        return self.aim(text, upper.median / lower.median, bound, at_least, upper.low / lower.high,
                        upper.high / lower.low)


def thousands(number):
    return f'{number:,}'


# Small ones, by Google Benchmark

def google_benchmark(ground, names, sizes, runs, figure='real_time'):
    pattern = f'^({"|".join(names)})/({"|".join(str(size) for size in sizes)})/'
    out = ground.directory / 'benchmark.json'
    subprocess.run([ground.program('zelor_bench_run_control'), f'--benchmark_filter={pattern}',
                    f'--benchmark_repetitions={runs}', '--benchmark_enable_random_interleaving=true',
                    f'--benchmark_out={out}', '--benchmark_out_format=json'],
                   check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    samples = {}
    for entry in json.loads(out.read_text())['benchmarks']:
        if entry['run_type'] == 'iteration':
            name, size = entry['run_name'].split('/')[:2]
            samples.setdefault((name, int(size)), []).append(entry[figure])
    return {key: Sample(values) for key, values in samples.items()}


def heap(ground, work, size):
    out = subprocess.run([ground.program('zelor_bench_run_control'), '--heap', work, str(size)], check=True,
                         capture_output=True, text=True)
    return int(out.stdout)


def growth_rows(ground, works, baseline, least):
    sizes = [1000, 10000] if ground.smoke else [1000, 10000, 100000, 1000000]
    names = [*works, *([baseline] if baseline else [])]
    runs = 1 if ground.smoke else 5
    samples = google_benchmark(ground, names, [size for size in sizes if size < 1000000], runs)
    if not ground.smoke:
        samples.update(google_benchmark(ground, names, [1000000], 3))
    for work, title in works.items():
        for tenth, size in zip(sizes, sizes[1:]):
            if size < least:
                continue
            row = Row(title, f'{thousands(size)} requests', 'ms', samples[work, size], samples[work, tenth].scaled(10),
                      'ten times a tenth')
            yield row, samples.get((baseline, size)), size


def run_control(ground):
    rows = []
    for row, records, size in growth_rows(ground, {'run': 'run control'}, 'records', 10000):
        row.limit, row.limit_name = records, 'the records alone'
        beyond = [(side - records.median) * 1000 / size for side in (row.ours.median, row.ours.low, row.ours.high)]
        row.aim('at most 5 us per request beyond the records', beyond[0], 5, low=beyond[1], high=beyond[2])
        extra = (heap(ground, 'run', size) - heap(ground, 'records', size)) / size
        row.aim('at most 200 bytes per request beyond the records', extra, 200)
        if size == 1000000:
            row.aim_times('at most 1.6 times the records alone', row.ours, records, 1.6)
        rows.append(row)
    return rows


def collective(ground):
    works = {'run_tenth_cancelled': 'run control, a tenth cancelled',
             'collective': 'collective results, mass setters, cancel checks',
             'collective_tenth_cancelled': 'the same, a tenth cancelled'}
    return [row.aim('at most 5 us per request', row.ours.median * 1000 / size, 5, low=row.ours.low * 1000 / size,
                    high=row.ours.high * 1000 / size) for row, _, size in growth_rows(ground, works, None, 10000)]


def applied(ground):
    size = 10000 if ground.smoke else 100000
    runs = 1 if ground.smoke else 9
    ours = google_benchmark(ground, ['applied'], [size], runs)['applied', size]
    record, wanted = ground.directory / 'record.txt', ground.directory / 'wanted.txt'
    lines = ''.join(f'ERI-7001-{number:07d}\n' for number in range(size))
    record.write_text(lines)
    wanted.write_text(lines)
    grep = tool('grep')
    others = interleaved({'all': Side([grep, '-Fxc', '-f', str(wanted), str(record)]),
                          'one': Side([grep, '-Fx', f'ERI-7001-{size - 1:07d}', str(record)])}, runs)
    row = Row('already applied', f'{thousands(size)} requests, as many lines', 'ms', ours,
              others['all'].scaled(1000), 'grep -Fx -f, all at once', others['one'].scaled(1000),
              'grep -Fx of one line')
    row.aim_times('within 3 times of one pass that answers the same', ours, row.other, 3)
    return [row]


def polling(ground):
    size = 10000 if ground.smoke else 100000
    samples = google_benchmark(ground, ['run', 'run_polled'], [size], 1 if ground.smoke else 15, 'cpu_ms')
    row = Row('polling', f'a run of {thousands(size)} requests, 10 polls a second', 'ms of CPU',
              samples['run_polled', size], samples['run', size], 'not polled')
    row.aim_times('processor time within 2 %', row.ours, row.other, 1.02)
    return [row]


def instructions(ground):
    """Callgrind's counts repeat whatever else the machine does."""
    rows = []
    works = ['run', 'records', 'run_tenth_cancelled', 'collective', 'collective_tenth_cancelled', 'applied']
    for work in works[:1] if ground.smoke else works:
        counts = {}
        for size in (100, 1000) if ground.smoke else (1000, 10000, 100000):
            out = subprocess.run([tool('valgrind'), '--tool=callgrind', '--callgrind-out-file=/dev/null',
                                  '--collect-atstart=no', '--toggle-collect=zelor_bench_measured',
                                  ground.program('zelor_bench_run_control'), '--once', work, str(size)],
                                 check=True, capture_output=True, text=True)
            counts[size] = int(out.stderr.split('Collected :')[1].split()[0])
        sizes = sorted(counts)
        most, tenth = sizes[-1], sizes[-2]
        row = Row(f'instructions: {work}', f'{thousands(most)} requests', 'per request', Sample([counts[most] / most]),
                  Sample([counts[tenth] / tenth]), 'at a tenth',
                  detail={'instructions': {str(size): count for size, count in counts.items()}})
        row.aim_times('grows at most 1.1 times as fast', row.ours, row.other, 1.1)
        rows.append(row)
    return rows


# Archives

def fetch_sides(ground, count):
    web, out, empty = ground.url, ground.directory / 'other', lambda *directories: lambda: ground.empty(*directories)
    curl, unzip, openssl = tool('curl'), tool('unzip'), tool('openssl')
    loop = (f'set -e; cd {out}; for i in $(seq 0 {count - 1}); do {curl} -sSf -o archive-$i.zip '
            f'{web}/patches/archive-$i.zip; {unzip} -q -o archive-$i.zip; {openssl} dgst -sha256 -verify '
            f'{ground.public_key} -signature archive-$i.sig archive-$i.pkg; done')
    names = [f'archive-{number}.zip' for number in range(count)]
    bare = (f'set -e; cd {out}; {curl} -sSf --remote-name-all {web}/patches/archive-[0-{count - 1}].zip; '
            f'{openssl} dgst -sha256 {" ".join(names)}')
    return {'ours': Side([ground.program('zelor_bench_agent'), 'fetch', str(ground.root), str(count)],
                         empty(ground.root / 'content', ground.root / 'opt/zelor')),
            'loop': Side(['bash', '-c', loop], empty(out)),
            'bare': Side(['bash', '-c', bare], empty(out))}


def fetch_row(ground, name, count, size, runs):
    for number in range(count):
        ground.add_archive(number, size)
    samples = interleaved(fetch_sides(ground, count), runs)
    ground.empty(ground.web / 'patches', ground.root / 'content', ground.directory / 'other')
    row = Row(name, f'{count} x {size // PIECE} MiB', 's', samples['ours'], samples['loop'],
              'curl, unzip, openssl', samples['bare'], 'curl to files, SHA-256')
    row.aim_times('at least 1.5 times as fast as the loop', row.other, row.ours, 1.5, at_least=True)
    row.aim_times('within 1.15 of the limit', row.ours, row.limit, 1.15)
    return row


def fetch(ground):
    ground.require_space(6)
    count = 4 if ground.smoke else 64
    return [fetch_row(ground, 'fetch', count, (1 if ground.smoke else 16) * PIECE, 1 if ground.smoke else 5)]


def large(ground):
    ground.require_space(12)
    row = fetch_row(ground, 'one large archive', 1, (16 if ground.smoke else 2048) * PIECE, 1 if ground.smoke else 3)
    return [row.aim('peak memory at most 64 MiB', row.ours.detail['peak_mib'], 64)]


# Content

CONTENT = '''<?xml version="1.0" encoding="UTF-8"?>
<remediation identifier="{name}">
  <cre id="CRE-{number}" platform="cpe:/o:apple:mac_os_x" product="cpe:/a:example:editor">
    <eri id="ERI-{number}-1" reboot="false">
      <product>cpe:/a:example:editor</product>
      <impact>The editor must be closed.</impact>
      <instructions>Install the package.</instructions>
      <patch id="editor-{number}.pkg" size="12.5 MB" md5="0123456789abcdef0123456789abcdef"/>
      <silent></silent>
      <mskb></mskb>
    </eri>
  </cre>
</remediation>
'''


def publish_content(ground, count):
    directory = ground.web / 'content'
    for number in range(100000, 100000 + count):
        name = f'CVE-2014-{number}'
        (directory / f'{name}.xml').write_text(CONTENT.format(name=name, number=number))
    sign = f'{tool("openssl")} dgst -sha256 -sign {ground.key} -out "$1.sig" "$1"'
    subprocess.run(f"find {directory} -name '*.xml' -print0 | xargs -0 -n 1 -P {os.cpu_count() or 1} sh -c '{sign}' sign",
                   shell=True, check=True)


def content(ground):
    count = 50 if ground.smoke else 10000
    looped = 20 if ground.smoke else 500
    publish_content(ground, count)
    directory, opt = ground.web / 'content', ground.root / 'opt/zelor'
    last = 100000 + looped - 1
    loop = (f'set -e; cd {directory}; for i in $(seq 100000 {last}); do {tool("xmllint")} --noout CVE-2014-$i.xml; '
            f'{tool("openssl")} dgst -sha256 -verify {ground.public_key} -signature CVE-2014-$i.xml.sig '
            'CVE-2014-$i.xml; done')
    ours = [ground.program('zelor_bench_agent'), 'content', str(ground.root), str(count)]
    sides = {'cold': Side(ours, lambda: ground.empty(opt)), 'warm': Side(ours), 'loop': Side(['bash', '-c', loop])}
    samples = interleaved(sides, 1 if ground.smoke else 3)
    rows = []
    for kind in ('cold', 'warm'):
        row = Row(f'content, {kind}', f'{thousands(count)} files', 'us per file',
                  samples[kind].scaled(1e6 / count), samples['loop'].scaled(1e6 / looped),
                  f'xmllint and openssl ({thousands(looped)} files)')
        rows.append(row.aim_times('at least 20 times as fast', row.other, row.ours, 20, at_least=True))
    ground.empty(directory, opt)
    return rows


# Scripts

def write_scripts(ground, count):
    directory = ground.root / 'scripts'
    directory.mkdir()
    for number in range(count):
        script = directory / f'script-{number}.sh'
        script.write_text('#!/bin/bash\nexit ${XCCDF_RESULT_PASS:-0}\n')
        script.chmod(0o755)
    return directory


def openscap_side(directory, count):
    rules = ''.join(f'<Rule id="xccdf_org.example_rule_{number}" selected="true"><title>{number}</title>'
                    '<check system="http://open-scap.org/page/SCE">'
                    f'<check-content-ref href="script-{number}.sh"/></check></Rule>' for number in range(count))
    benchmark = directory / 'benchmark.xml'
    benchmark.write_text('<?xml version="1.0"?><Benchmark xmlns="http://checklists.nist.gov/xccdf/1.2" '
                         'id="xccdf_org.example_benchmark_scripts" resolved="1"><status>draft</status>'
                         f'<title>Scripts</title><version>1</version>{rules}</Benchmark>')
    results = directory / 'results.xml'

    def check(status, errors):
        if status != 0 or results.read_text().count('<result>pass</result>') != count:
            raise BenchError(f'oscap did not run every script: {errors[-500:]}')
    return Side([tool('oscap'), 'xccdf', 'eval', '--results', str(results), str(benchmark)], check=check)


def ansible_side(directory, count):
    playbook = directory / 'playbook.yml'
    playbook.write_text('- hosts: localhost\n  connection: local\n  gather_facts: false\n  tasks:\n'
                        f'    - script: {directory}/script-{{{{ item }}}}.sh\n'
                        f'      loop: "{{{{ range({count}) | list }}}}"\n')
    return Side(['env', f'HOME={directory}', 'LC_ALL=C.UTF-8', tool('ansible-playbook'), '-i', 'localhost,',
                 str(playbook)])


def scripts(ground):
    count = 10 if ground.smoke else 500
    by_ansible = 2 if ground.smoke else 100
    directory = write_scripts(ground, count)
    loop = f'for i in $(seq 0 {count - 1}); do bash {directory}/script-$i.sh; done'
    sides = {'ours': Side([ground.program('zelor_bench_agent'), 'scripts', str(ground.root), str(count)]),
             'loop': Side(['bash', '-c', loop]),
             'oscap': openscap_side(directory, count),
             'ansible': (ansible_side(directory, by_ansible), 1)}
    samples = interleaved(sides, 1 if ground.smoke else 7)
    ours = samples['ours'].scaled(1000 / count)
    title, unit = f'{count} scripts', 'ms per script'
    beside_loop = Row('hardening scripts', title, unit, ours, samples['loop'].scaled(1000 / count), 'bash loop')
    beside_loop.aim_times('within 1.15 of the loop', ours, beside_loop.other, 1.15)
    beside_oscap = Row('hardening scripts', title, unit, ours, samples['oscap'].scaled(1000 / count),
                       'OpenSCAP (script check)')
    beside_oscap.aim_times('at least 2.3 times as fast', beside_oscap.other, ours, 2.3, at_least=True)
    beside_ansible = Row('hardening scripts', title, unit, ours, samples['ansible'].scaled(1000 / by_ansible),
                         f'Ansible ({by_ansible} scripts)')
    beside_ansible.aim_times('at least 15 times as fast', beside_ansible.other, ours, 15, at_least=True)
    shutil.rmtree(directory)
    return [beside_loop, beside_oscap, beside_ansible]


# Bundles, rates, cancelling, start

def bundle(ground):
    ground.require_space(5)
    directories, each, size = (4, 25, 5000) if ground.smoke else (200, 100, 2**30 // 20000)
    source = ground.directory / 'Example.app'
    block = os.urandom(size)
    for directory in range(directories):
        inside = source / 'Contents/Resources' / str(directory)
        inside.mkdir(parents=True)
        for number in range(each):
            (inside / str(number)).write_bytes(number.to_bytes(4, 'little') + block[4:])
    target = ground.directory / 'Copy.app'
    empty = lambda: ground.empty(target)
    samples = interleaved({'ours': Side([ground.program('zelor_bench_agent'), 'copy', str(source), str(target)], empty),
                           'cp': Side([tool('cp'), '-a', f'{source}/.', str(target)], empty)},
                          1 if ground.smoke else 5)
    shutil.rmtree(source)
    shutil.rmtree(target)
    row = Row('bundle copy', f'{thousands(directories * each)} files, {directories * each * size // PIECE} MiB', 's',
              samples['ours'], samples['cp'], 'cp -a')
    return [row.aim_times('not slower', row.ours, row.other, 1.0)]


def rate(ground):
    seconds = 1 if ground.smoke else 11
    rows = []
    for kilobytes in (1024,) if ground.smoke else (256, 1024, 5120, 20480):
        bytes_per_second = kilobytes * 1024
        ground.random_file(ground.web / 'rate', bytes_per_second * seconds)
        out = subprocess.run([ground.program('zelor_bench_transfers'), 'rate', f'{ground.url}/rate',
                              str(bytes_per_second), str(ground.directory / 'curl.out')],
                             check=True, capture_output=True, text=True).stdout
        ours, our_peak, curl, curl_peak = (float(word) for word in out.split())
        row = Row('buffer rate', f'{kilobytes} KB/s for {seconds} s', '% off', Sample([abs(ours)]),
                  Sample([abs(curl)]), 'curl --limit-rate',
                  detail={'ours': {'mean_off': ours, 'fullest_second_over': our_peak},
                          'curl': {'mean_off': curl, 'fullest_second_over': curl_peak}})
        rows.append(row.aim('closer to the rate than curl (difference below 0)', abs(ours) - abs(curl), 0))
    (ground.web / 'rate').unlink()
    return rows


def cancel(ground):
    times = 3 if ground.smoke else 50
    out = subprocess.run([ground.program('zelor_bench_transfers'), 'cancel', str(times)], check=True,
                         capture_output=True, text=True).stdout
    ours = Sample([float(line) * 1000 for line in out.split()])
    row = Row('cancel', f'download in flight, {times} times', 'ms', ours, detail={'worst': max(ours.values)})
    row.aim('median under 100 ms', ours.median, 100, high=ours.high)
    return [row.aim('worst under 1,000 ms', max(ours.values), 1000)]


def start(ground):
    samples = interleaved({'ours': Side([ground.program('zelor-remediate'), 'status', '--root', str(ground.root)]),
                           'curl': Side([tool('curl'), '--version'])}, 5 if ground.smoke else 101)
    row = Row('start', 'zelor-remediate status', 'ms', samples['ours'].scaled(1000), samples['curl'].scaled(1000),
              'curl --version')
    return [row.aim_times('under 3 times', row.ours, row.other, 3)]


ROWS = {'run-control': run_control, 'collective': collective, 'applied': applied, 'polling': polling,
        'instructions': instructions, 'fetch': fetch, 'large': large, 'content': content, 'scripts': scripts,
        'bundle': bundle, 'rate': rate, 'cancel': cancel, 'start': start}


def measure(ground, name, noise):
    progress(f'{name} ...')
    noise.look()
    rows = ROWS[name](ground)
    noise.look()
    return rows
