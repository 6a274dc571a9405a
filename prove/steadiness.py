#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Steadiness: the suite many times, in random order and in parallel, and no case that fails once.

A round runs two things at once. ctest runs every case in a process of its own, in random order,
with three jobs per core. Each GoogleTest program runs all its cases in one process, shuffled by
the round's seed; those of the library twice, because it keeps state. One round in five has busy
loops beside it, so that cases lose the processor in odd places. Cases that only compile, or only
read what was compiled, run once.

    prove/steadiness.py [--rounds 200] [--quick] [--rows FILE]

Failures, with their output, go to build/prove/steadiness.txt as well.
"""
import contextlib
import dataclasses
import json
import os
import random
import re
import resource
import subprocess
import sys
import time
from collections.abc import Iterator
from concurrent import futures
from typing import Any

import common

ONCE = r'^(headers|package|tour|abi\..*)$'
REPORT = os.path.join(common.FOLDER, 'steadiness.txt')
TIMEOUT = 300  # seconds; the slowest case takes a few
CORES = len(os.sched_getaffinity(0))
JOBS = 3 * CORES
# The cases set the library's variables themselves.
ENVIRONMENT = {name: value for name, value in os.environ.items() if not name.startswith('VEK_')}


@dataclasses.dataclass
class Failure:
    case: str
    way: str  # of running it, with the seed if there is one
    replay: str
    output: str


@dataclasses.dataclass
class Outcome:
    """What one way of running cases brought."""
    runs: int = 0
    skipped: set[str] = dataclasses.field(default_factory=set)
    failures: list[Failure] = dataclasses.field(default_factory=list)

    def add(self, other: 'Outcome') -> None:
        self.runs += other.runs
        self.skipped |= other.skipped
        self.failures += other.failures


def programs_of(folder: str) -> list[str]:
    """The GoogleTest programs, found by the commands that ctest runs."""
    tests = json.loads(common.run(['ctest', '--test-dir', folder, '--show-only=json-v1']))['tests']
    return sorted({test['command'][0] for test in tests
                   if any(word.startswith('--gtest_filter=') for word in test.get('command', []))})


def run_ctest(folder: str, *options: str) -> Outcome:
    """Every case in a process of its own, in random order and in parallel."""
    junit = os.path.join(folder, 'junit.xml')
    with contextlib.suppress(FileNotFoundError):
        os.unlink(junit)
    result = subprocess.run(['ctest', '--test-dir', folder, '--schedule-random', f'-j{JOBS}',
                             '--timeout', str(TIMEOUT), '--no-tests=error', '--output-junit',
                             junit, *options],
                            env=ENVIRONMENT, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                            text=True, errors='replace', check=False)
    if not os.path.exists(junit):
        common.fail(f'ctest wrote no {junit}:\n{result.stdout[-2000:]}')
    outcome = Outcome()
    for case in common.read_junit(junit):
        outcome.runs += 1
        if case.outcome == 'skipped':
            outcome.skipped.add(case.name)
        elif case.outcome == 'failed':
            replay = (f"ctest --test-dir {os.path.relpath(folder, common.ROOT)} "
                      f"-R '^{re.escape(case.name)}$' --repeat until-fail:1000 --output-on-failure")
            outcome.failures.append(Failure(case.name, 'a process of its own', replay,
                                            case.output))
    if result.returncode != 0 and not outcome.failures:
        common.fail(f'ctest failed without a failing case:\n{result.stdout[-2000:]}')
    return outcome


def run_shuffled(program: str, seed: int) -> Outcome:
    """All cases of a program in one process, shuffled by the seed, and again by the next one."""
    repeat = 1 if '/tools/' in program else 2
    command = [program, '--gtest_shuffle', f'--gtest_repeat={repeat}',
               f'--gtest_random_seed={seed}']
    try:
        result = subprocess.run(command, env=ENVIRONMENT, cwd=os.path.dirname(program),
                                timeout=TIMEOUT, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                                text=True, errors='replace', check=False)
        text, failed = result.stdout, result.returncode != 0
    except subprocess.TimeoutExpired as expired:
        text, failed = (expired.stdout or b'').decode(errors='replace') + '\ntimed out\n', True
    outcome = Outcome(runs=len(re.findall(r'^\[ RUN      \] ', text, re.M)))
    outcome.skipped = set(re.findall(r'^\[  SKIPPED \] (\S+?),? ', text, re.M))
    if failed:
        names = re.findall(r'^\[  FAILED  \] (\S+) \(', text, re.M)
        names = names or re.findall(r'^\[ RUN      \] (\S+)', text, re.M)[-1:]  # it ended there
        replay = ' '.join([os.path.relpath(program, common.ROOT), *command[1:]])
        for name in dict.fromkeys(names or [os.path.basename(program)]):
            begin = max(text.find(f'[ RUN      ] {name}\n'), 0)
            first = re.search(r'\[  FAILED  \]', text[begin:])
            end = begin + first.end() if first else len(text)
            outcome.failures.append(Failure(name, f'one process, seed {seed}', replay,
                                            text[begin:end][-20000:]))
    return outcome


@contextlib.contextmanager
def busy_loops(count: int) -> Iterator[None]:
    """Keeps processes busy. They end on their own if this one is killed."""
    loop = f'import os\nwhile os.getppid() == {os.getpid()}: pass'
    loops = [subprocess.Popen([sys.executable, '-c', loop]) for _ in range(count)]
    try:
        yield
    finally:
        for process in loops:
            process.kill()
            process.wait()


def run_round(folder: str, programs: list[str], number: int, busy: bool) -> Outcome:
    seed = number * 2  # a second repetition uses the next number
    order = random.Random(seed).sample(programs, len(programs))
    with busy_loops(2 * CORES if busy else 0), futures.ThreadPoolExecutor(CORES) as beside:
        shuffled = beside.map(run_shuffled, order, [seed] * len(order))
        total = run_ctest(folder, '-E', ONCE)
        for outcome in shuffled:
            total.add(outcome)
    return total


def progress(number: int, rounds: int, failures: int, seconds: float) -> None:
    left = seconds / number * (rounds - number) / 60
    text = f'round {number} of {rounds}: {failures} failures, about {left:.0f} minutes left'
    if sys.stdout.isatty():
        print(f'\r{text:70}', end='\n' if number == rounds else '', flush=True)
    elif number in (1, rounds) or number % 10 == 0:
        print(text, flush=True)


def report(failures: list[Failure], number: int) -> None:
    """Adds a round's failures to the file and prints them."""
    with open(REPORT, 'a' if number > 0 else 'w', encoding='utf-8') as file:
        for failure in failures:
            text = (f'\n{failure.case} failed in round {number} ({failure.way}). Replay:\n'
                    f'  {failure.replay}\n{failure.output}')
            print(text, file=file)
            print(text, flush=True)


def processor_seconds() -> float:
    """What the processes took that have ended."""
    usage = resource.getrusage(resource.RUSAGE_CHILDREN)
    return usage.ru_utime + usage.ru_stime


def rows_of(total: Outcome, rounds: int, busy: int, seconds: float,
            processor: float) -> list[dict[str, Any]]:
    cases = sorted({failure.case for failure in total.failures})
    remark = (f'{seconds / 60:.0f} minutes; {processor / rounds:.0f} s of processor time a round, '
              f'{busy} rounds beside busy loops; what only compiles or reads what was compiled '
              f'ran once')
    if total.skipped:
        remark += '; skipped here: ' + ', '.join(sorted(total.skipped))
    if cases:
        remark += '; failed: ' + ', '.join(cases)
    return [common.row(f'{rounds} rounds of the suite, random order, {JOBS} jobs on {CORES} cores',
                       f'{len(total.failures)} failures in {total.runs:,} runs of cases', 'none',
                       not total.failures, remark)]


def main() -> None:
    options = common.parser(__doc__)
    options.add_argument('--rounds', type=int, help='how many rounds (200; 3 if quick)')
    arguments = options.parse_args()
    rounds = arguments.rounds or (3 if arguments.quick else 200)
    folder = common.build('release', 'steadiness', '-DVEKLIB_BUILD_TESTS=ON',
                          '-DVEKLIB_BUILD_EXAMPLES=ON', '-DVEKLIB_BUILD_TOOLS=ON')
    programs = programs_of(folder)
    total = run_ctest(folder, '-R', ONCE)
    report(total.failures, 0)
    start, processor, busy = time.monotonic(), processor_seconds(), 0
    for number in range(1, rounds + 1):
        is_busy = number % 5 == 0
        busy += is_busy
        outcome = run_round(folder, programs, number, is_busy)
        report(outcome.failures, number)
        total.add(outcome)
        progress(number, rounds, len(total.failures), time.monotonic() - start)
    seconds, processor = time.monotonic() - start, processor_seconds() - processor
    common.finish('steadiness', rows_of(total, rounds, busy, seconds, processor), arguments.rows)


if __name__ == '__main__':
    main()
