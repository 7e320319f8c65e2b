#!/usr/bin/env python3
"""Runs the benchmarks, prints one table and writes JSON; see docs/performance.md."""
import argparse
import json
import os
import platform
import sys
import time
from pathlib import Path

sys.path.insert(0, str(Path(__file__).parent))
sys.dont_write_bytecode = True

from ground import Ground
from measure import BenchError, MissingTool, Noise
from far import FAR_ROWS
from rows import ROWS, measure

ROWS.update(FAR_ROWS)
SKIPPED = 77  # what ctest takes for a test that cannot run here

HEADINGS = ('row', 'work', 'unit', 'ours', 'other', 'limit', 'ratio', 'aim', 'verdict')


def machine():
    cpu = ''
    if os.path.exists('/proc/cpuinfo'):
        names = [line.split(':')[1].strip() for line in open('/proc/cpuinfo') if line.startswith('model name')]
        cpu = names[0] if names else ''
    memory = os.sysconf('SC_PAGE_SIZE') * os.sysconf('SC_PHYS_PAGES') / 2**30
    kernel = '.'.join(platform.release().split('.')[:2])
    return f'{os.cpu_count()} x {cpu or platform.machine()}, {memory:.0f} GiB, {platform.system()} {kernel}'


def figure(sample, name=''):
    if sample is None:
        return '-'
    spread = f' ±{sample.spread * 100:.0f}%' if len(sample.values) > 1 else ''
    return f'{sample.median:,.4g}{spread}' + (f' ({name})' if name else '')


def cells(row):
    """One line for each aim; the figures stand on the first."""
    for number, aim in enumerate(row.aims):
        figures = (row.name, row.work, row.unit, figure(row.ours), figure(row.other, row.other_name),
                   figure(row.limit, row.limit_name)) if number == 0 else ('',) * 6
        yield (*figures, f'{aim["value"]:,.4g}', aim['aim'], aim['verdict'])


def table(rows):
    lines = [HEADINGS, *(line for row in rows for line in cells(row))]
    widths = [max(len(line[column]) for line in lines) for column in range(len(HEADINGS))]
    lines.insert(1, tuple('-' * width for width in widths))
    return '\n'.join('| ' + ' | '.join(cell.ljust(width) for cell, width in zip(line, widths)) + ' |'
                     for line in lines)


def summary(rows, noise, smoke):
    verdicts = [aim['verdict'] for row in rows for aim in row.aims]
    met = sum(verdict.startswith('met') for verdict in verdicts)
    words = f'{met} of {len(verdicts)} aims met. {machine()}, {time.strftime("%Y-%m-%d", time.gmtime())}.'
    if smoke:
        return words + ' A smoke run: too small for its figures to mean anything.'
    share = f'{noise.share * 100:.0f} %'
    if noise.too_noisy:
        return words + (f'\nThe machine was too noisy to tell: the same arithmetic took {share} more than at best '
                        f'(allowed: {noise.limit * 100:.0f} %). Run this with nothing else going on.')
    return words + f' The same arithmetic took {share} more than at best, which is quiet enough.'


def sample_json(sample, name=''):
    if sample is None:
        return None
    return {'name': name, 'median': sample.median, 'spread': sample.spread, 'values': sample.values, **sample.detail}


def as_json(rows, noise, seconds):
    return {'machine': machine(), 'date': time.strftime('%Y-%m-%d %H:%M UTC', time.gmtime()),
            'seconds': round(seconds), 'noise': round(noise.share, 4), 'too_noisy': noise.too_noisy,
            'rows': [{'row': row.name, 'work': row.work, 'unit': row.unit, 'ours': sample_json(row.ours, 'zelor'),
                      'other': sample_json(row.other, row.other_name), 'limit': sample_json(row.limit, row.limit_name),
                      'aims': row.aims, 'detail': row.detail} for row in rows]}


def keep(page, text):
    """Puts the text between the page's marks."""
    begin, end = '<!-- table -->\n', '<!-- end of table -->\n'
    before, found, rest = page.read_text().partition(begin)
    _, ended, after = rest.partition(end)
    if not found or not ended:
        raise BenchError(f'{page} has no place for the table: it lies between {begin.strip()} and {end.strip()}')
    page.write_text(f'{before}{begin}\n{text}\n{end}{after}')


def arguments():
    parser = argparse.ArgumentParser(prog='scripts/bench', description=__doc__)
    parser.add_argument('rows', nargs='*', metavar='ROW', help=f'one of: {", ".join(ROWS)} (default: all)')
    parser.add_argument('--smoke', action='store_true', help='a small run of each row, to see that it works')
    parser.add_argument('--programs', required=True, help=argparse.SUPPRESS)
    parser.add_argument('--before', metavar='DIR', type=Path,
                        help='programs of an earlier release, for the rows that compare with it')
    parser.add_argument('--keep', metavar='PAGE', type=Path, help='the page whose table this run replaces')
    parser.add_argument('--json', metavar='FILE', help='where the figures go')
    chosen = parser.parse_args()
    unknown = [name for name in chosen.rows if name not in ROWS]
    if unknown:
        parser.error(f'no row {unknown[0]}; the rows are {", ".join(ROWS)}')
    return chosen


def main():
    chosen = arguments()
    began = time.monotonic()
    noise = Noise()
    rows = []
    with Ground(chosen.programs, chosen.smoke, chosen.before) as ground:
        for name in chosen.rows or ROWS:
            rows += measure(ground, name, noise)
    text = f'{table(rows)}\n\n{summary(rows, noise, chosen.smoke)}\n'
    print(text, end='')
    if chosen.keep:
        keep(chosen.keep, text)
    if chosen.json:
        Path(chosen.json).write_text(json.dumps(as_json(rows, noise, time.monotonic() - began), indent=1) + '\n')
        print(f'Figures: {chosen.json}')


if __name__ == '__main__':
    try:
        main()
    except MissingTool as problem:
        print(f'scripts/bench: {problem}', file=sys.stderr)
        sys.exit(SKIPPED)
    except BenchError as problem:
        sys.exit(f'scripts/bench: {problem}')
