#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Proves that the tests run all lines and nearly all branches of veklib/.

Builds the preset "coverage" in build/prove/coverage/, runs the suite there, and counts with gcovr.
Nothing is optimised: each part of a condition is a branch of its own, and each instance of a
template has its own. A branch of a public inline function counts as taken if any program takes it.
Branches for exceptions are left out: the library is compiled without exceptions, but the test
programs, which compile those inline functions as well, are not.

prove/coverage.txt lists what the tests cannot reach, each place with its reason:

    veklib/file.cpp: MISSED: the text of the line
        the reason

MISSED is "line", or the number of branches that are never taken. Lines are found by their text, so
that the list outlives edits elsewhere; a long text may be cut, with " ..." at its end. The proof
fails if something is neither run nor listed, and if something listed is run after all.
"""
import json
import os
import re
from typing import Any, NamedTuple

import common

LIST = os.path.join(common.ROOT, 'prove', 'coverage.txt')
BRANCHES_GOAL = 98.0


class Place(NamedTuple):
    """A line that is not run, or some of whose branches are not."""
    file: str
    missed: str
    text: str

    def is_in(self, listed: 'Place') -> bool:
        """Whether this is a place of the list, whose text may be cut."""
        whole = listed.text.removesuffix(' ...')
        same = self.text == whole or whole != listed.text and self.text.startswith(whole)
        return same and (self.file, self.missed) == (listed.file, listed.missed)

    def __str__(self) -> str:
        return f'{self.file}: {self.missed}: {self.text}'


class Counts(NamedTuple):
    """What a file has, and what of it was run."""
    lines: int
    run: int
    branches: int
    taken: int


def count(quick: bool) -> dict[str, Any]:
    """Builds and runs the tests; returns gcovr's report."""
    for place, _, names in os.walk(os.path.join(common.FOLDER, 'coverage')):
        for name in names:
            if name.endswith('.gcda'):  # counts of an earlier run
                os.remove(os.path.join(place, name))
    folder = common.build('coverage', 'coverage')
    # The tour's programs are compiled by its test, without counters.
    common.run(['ctest', '--test-dir', folder, '--output-on-failure', '-j2', '-E', '^tour$'])
    report = os.path.join(folder, 'gcovr.json')
    common.run(['gcovr', '--root', '.', '--filter', 'veklib/', '--exclude-throw-branches', '-j2',
                '--json', report, f'{folder}/CMakeFiles/veklib.dir', f'{folder}/fuzz',
                f'{folder}/tests'])
    if not quick:
        html = os.path.join(folder, 'html')
        os.makedirs(html, exist_ok=True)
        common.run(['gcovr', '--root', '.', '--add-tracefile', report, '--html-title', 'veklib',
                    '--html-details', os.path.join(html, 'index.html')])
    with open(report, encoding='utf-8') as file:
        return json.load(file)


def missed_in(line: dict[str, Any]) -> str:
    """What of a line is not run, in the words of the list; empty if all is."""
    if line['count'] == 0:
        return 'line'
    branches = line['branches']
    missed = sum(branch['count'] == 0 for branch in branches)
    return f'{missed} of {len(branches)} branches' if missed else ''


def read_report(report: dict[str, Any]) -> tuple[dict[str, Counts], list[tuple[Place, int]]]:
    """Returns the counts of each file, and the places that are not run with their line numbers."""
    files: dict[str, Counts] = {}
    places: list[tuple[Place, int]] = []
    for entry in report['files']:
        name = entry['file']
        with open(os.path.join(common.ROOT, name), encoding='utf-8') as file:
            texts = file.read().split('\n')
        lines = [line for line in entry['lines'] if not line['gcovr/noncode']]
        branches = [branch for line in lines for branch in line['branches']]
        files[name] = Counts(len(lines), sum(line['count'] > 0 for line in lines),
                             len(branches), sum(branch['count'] > 0 for branch in branches))
        for line in lines:
            if missed := missed_in(line):
                number = line['line_number']
                places.append((Place(name, missed, texts[number - 1].strip()), number))
    return files, places


def read_list() -> list[tuple[Place, str]]:
    """Returns the listed places with their reasons."""
    listed: list[tuple[Place, str]] = []
    with open(LIST, encoding='utf-8') as file:
        for number, line in enumerate(file, 1):
            entry = re.fullmatch(r'(veklib/\w+\.\w+): (line|\d+ of \d+ branches): (.*)\n', line)
            if entry:
                listed.append((Place(*entry.groups()), ''))
            elif listed and line.startswith('    '):
                place, reason = listed[-1]
                listed[-1] = (place, f'{reason} {line.strip()}'.strip())
            elif line.strip() and not line.startswith('#'):
                common.fail(f'{LIST}:{number}: write "FILE: MISSED: TEXT", and the reason below, '
                            'indented')
    for place, reason in listed:
        if not reason:
            common.fail(f'{LIST}: "{place}" has no reason: add it below, indented')
    return listed


def compare(places: list[tuple[Place, int]]) -> tuple[int, int]:
    """Prints the places; returns how many are not listed, and how many listed ones are run."""
    listed = read_list()
    unlisted: list[str] = []
    for place, number in places:
        reason = next((entry for entry in listed if place.is_in(entry[0])), None)
        if reason is None:
            unlisted.append(f'{place.file}:{number}: {place.missed}: {place.text}')
        else:
            listed.remove(reason)
            print(f'{place.file}:{number}: {place.missed}: {place.text}\n    {reason[1]}')
    if unlisted:
        print('Not run; test it, remove it, or list it in prove/coverage.txt with a reason:')
        print('\n'.join(unlisted))
    if listed:
        print('Run, or gone, and still listed in prove/coverage.txt; remove it there:')
        print('\n'.join(str(place) for place, _ in listed))
    return len(unlisted), len(listed)


def percent(part: int, whole: int) -> str:
    """Rounds down: only what is complete is 100 %."""
    return f'{1000 * part // whole / 10 if whole else 100.0:.1f} %'


def print_table(files: dict[str, Counts]) -> Counts:
    """Prints a line for each file; returns the sum."""
    total = Counts(*(sum(column) for column in zip(*files.values())))
    print(f'\n{"":36}{"lines":>6}{"run":>9}{"branches":>10}{"taken":>9}')
    for name, counts in [*sorted(files.items()), ('all', total)]:
        print(f'{name:36}{counts.lines:6}{percent(counts.run, counts.lines):>9}'
              f'{counts.branches:10}{percent(counts.taken, counts.branches):>9}')
    print()
    return total


def main() -> None:
    """Counts, compares with the list, and reports."""
    options = common.parser(__doc__).parse_args()
    files, places = read_report(count(options.quick))
    unlisted, stale = compare(places)
    total = print_table(files)
    branches = 100 * total.taken / total.branches
    common.finish('coverage', [
        common.row('lines of veklib/', f'{percent(total.run, total.lines)} ({total.run:,} of '
                   f'{total.lines:,})', '100 %', total.run == total.lines),
        common.row('branches of veklib/', f'{percent(total.taken, total.branches)} ('
                   f'{total.taken:,} of {total.branches:,})', f'{BRANCHES_GOAL:g} %',
                   branches >= BRANCHES_GOAL),
        common.row('places left without a reason', f'{unlisted} of {len(places)}', '0',
                   unlisted == 0 and stale == 0,
                   f'{stale} listed in vain' if stale else 'reasons: prove/coverage.txt'),
    ], options.rows)


if __name__ == '__main__':
    main()
