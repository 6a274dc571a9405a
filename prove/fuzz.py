#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Fuzzes the library with libFuzzer, the address and the undefined-behaviour sanitizer.

  prove/fuzz.py                          each target of the library for an hour
  prove/fuzz.py --seconds 600 convert    one of them for ten minutes

The targets are in fuzz/, what they start from is in fuzz/corpus/. What they find on the way stays
in build/prove/fuzz/corpus/, so that the next run goes on from there."""
import concurrent.futures
import os
import re
import subprocess
import time

import common

TARGETS = ('debug_config', 'convert', 'edits', 'containers')
FOLDER = os.path.join(common.FOLDER, 'fuzz')


def fuzz(target: str, seconds: int) -> dict[str, object]:
    """Runs a target for so many seconds and returns its row."""
    corpus = os.path.join(FOLDER, 'corpus', target)
    os.makedirs(corpus, exist_ok=True)
    log = os.path.join(FOLDER, f'{target}.log')
    command = [os.path.join(FOLDER, 'fuzz', f'fuzz_{target}'), '-close_fd_mask=3', '-timeout=25',
               '-max_len=4096', '-print_final_stats=1', f'-max_total_time={seconds}',
               f'-artifact_prefix={FOLDER}/{target}-', corpus, f'fuzz/corpus/{target}']
    started = time.monotonic()
    with open(log, 'w', encoding='utf-8') as file:
        process = subprocess.Popen(command, cwd=common.ROOT, stdout=file, stderr=file)
        _, status, usage = os.wait4(process.pid, 0)
        process.returncode = os.waitstatus_to_exitcode(status)
    took = time.monotonic() - started
    with open(log, encoding='utf-8', errors='replace') as file:
        text = file.read()
    executed = re.search(r'number_of_executed_units: (\d+)', text)
    count = int(executed.group(1)) if executed else 0
    if count == 0:
        common.fail(f'{target} did not run; see {log}')
    processor = usage.ru_utime + usage.ru_stime
    figure = f'{count:,} executions in {took:,.0f} s ({processor:,.0f} s of processor time)'
    reached = process.returncode == 0 and took >= seconds
    print(f'{target}: {figure}' if reached else explained(command[0], log, text), flush=True)
    return common.row(f'target {target}', figure if reached else f'{figure}, a finding',
                      f'{seconds:,} s without a finding', reached)


def explained(program: str, log: str, text: str) -> str:
    """What was found, and how to see it again."""
    found = re.search(r'Test unit written to (\S+)', text)
    again = f'; again: {program} {found.group(1)}' if found else ''
    return '\n'.join(text.splitlines()[-30:]) + f'\nThe whole log is {log}{again}'


def main() -> None:
    parser = common.parser(__doc__)
    parser.add_argument('--seconds', type=int, metavar='N',
                        help='how long each target runs (3600; with --quick 20)')
    parser.add_argument('--workers', type=int, metavar='N', default=os.cpu_count(),
                        help='how many targets run at once (one for each core)')
    parser.add_argument('targets', nargs='*', metavar='TARGET',
                        help=f'the targets ({" ".join(TARGETS)}); there is also trace')
    options = parser.parse_args()
    targets = options.targets or list(TARGETS)
    for target in targets:
        if not os.path.exists(os.path.join(common.ROOT, 'fuzz', f'fuzz_{target}.cpp')):
            parser.error(f'no target {target}: there are {" ".join(TARGETS)} and trace')
    tools = 'ON' if 'trace' in targets else 'OFF'
    common.build('fuzz', 'fuzz', f'-DVEKLIB_BUILD_TOOLS={tools}',
                 targets=tuple(f'fuzz_{target}' for target in targets))
    seconds = options.seconds or (20 if options.quick else 3600)
    with concurrent.futures.ThreadPoolExecutor(options.workers) as pool:
        rows = list(pool.map(lambda target: fuzz(target, seconds), targets))
    common.finish('fuzz', rows, options.rows)


if __name__ == '__main__':
    main()
