#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Threads: eight threads trace into one file, print debug messages to a file and a function, and
use tables, lists, strings and names of their own; nothing is torn, lost or doubled.

The case Thread.LinesAndMessagesStayWhole of the suite does this and checks every line and message.
Here it does so for minutes: natively, and under the thread sanitizer, which must have nothing to
report. Their outputs go to build/prove/threads-*.txt.

    prove/threads.py [--operations 200000] [--quick] [--rows FILE]
"""
import json
import os
import re
import subprocess
from typing import Any

import common

CASE = 'Thread.LinesAndMessagesStayWhole'
THREADS = 8
STEP = 50  # after so many operations a thread's records are empty
# The sanitizer makes the case ten times as slow.
WAYS = (('release', 'native', 1), ('tsan', 'thread sanitizer', 10))


def run_case(folder: str, preset: str, operations: int) -> tuple[bool, int, str]:
    """Runs the case and returns whether it passed, the number of reports of the sanitizer, and the
    numbers of lines and messages in words."""
    results = os.path.join(folder, 'threads.json')
    environment = {**os.environ, 'VEKTEST_OPERATIONS': str(operations)}
    ended = subprocess.run([os.path.join(folder, 'tests', 'test_vekthread'),
                            f'--gtest_filter={CASE}', f'--gtest_output=json:{results}'],
                           env=environment, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                           text=True, errors='replace', check=False)
    log = os.path.join(common.FOLDER, f'threads-{preset}.txt')
    with open(log, 'w', encoding='utf-8') as file:
        file.write(ended.stdout)
    reports = len(re.findall('WARNING: ThreadSanitizer', ended.stdout))
    if ended.returncode != 0:
        print(f'{ended.stdout[:5000]}\nThe whole output is in {log}.')
        return False, reports, f'the case failed with status {ended.returncode}'
    with open(results, encoding='utf-8') as file:
        case = json.load(file)['testsuites'][0]['testsuite'][0]
    return True, reports, (f'{int(case["lines"]):,} lines of trace and '
                           f'{int(case["messages"]):,} messages, all whole and counted')


def rows_of(preset: str, name: str, operations: int) -> list[dict[str, Any]]:
    folder = common.build(preset, f'threads-{preset}', '-DVEKLIB_BUILD_TESTS=ON',
                          '-DVEKLIB_BUILD_EXAMPLES=OFF', '-DVEKLIB_BUILD_TOOLS=OFF',
                          targets=('test_vekthread',))
    passed, reports, words = run_case(folder, preset, operations)
    rows = [common.row(f'{THREADS} threads, {operations:,} operations each, {name}', words,
                       'all whole, none lost, none doubled', passed)]
    if preset == 'tsan':
        rows.append(common.row('reports of the thread sanitizer', str(reports), '0',
                               passed and reports == 0))
    return rows


def main() -> None:
    options = common.parser(__doc__)
    options.add_argument('--operations', type=int,
                         help='of each thread (200,000; 10,000 if quick; a tenth when sanitized)')
    arguments = options.parse_args()
    operations = arguments.operations or (10_000 if arguments.quick else 200_000)
    rows: list[dict[str, Any]] = []
    for preset, name, slowness in WAYS:
        count = max(operations // slowness // STEP, 1) * STEP
        rows += rows_of(preset, name, count)
    common.finish('threads', rows, arguments.rows)


if __name__ == '__main__':
    main()
