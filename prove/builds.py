#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""The whole test suite in every build: by each compiler and optimisation, under the sanitizers and
valgrind, and for other processors.

    prove/builds.py                      all builds
    prove/builds.py --only gcc-O2,arm64  two of them; gcc-O2 is what the others are compared with

A build passes if none of its tests fails, and if it has every test of the last run of gcc-O2 but
those that it leaves out for a reason. build/prove/builds/ has each build's folder, its output
(NAME.txt) and its results (NAME.xml). The other processors need the packages that `./dev prove`
unpacks. --quick is gcc-O2 alone: `./dev test`, `check` and `cross` have most of the others.
"""
import collections
import dataclasses
import os
import re
import shutil
import subprocess
import time
from typing import Any

import common

RESULTS = os.path.join(common.FOLDER, 'builds')
JOBS = str(os.cpu_count() or 2)
REFERENCE = 'gcc-O2'

# Why a build has fewer tests than the reference: patterns of names, and the reason.
TOOLS = (r'tools\.', 'gcc-O2 and clang test the tools')
OPTIMISED = (r'abi\.|headers$|package$', 'about optimised code without instrumentation')
WITHOUT_SANITIZER = ('tour$', 'its samples are built without the sanitizer')
THIS_MACHINE = (r'tools\.(?!leaky)|process\.privileged$|package$|tour$',
                "about this machine's programs")


@dataclasses.dataclass(frozen=True)
class Build:
    """A preset with options; `needs` maps programs to the Debian packages that have them."""
    preset: str
    options: tuple[str, ...] = ()
    left_out: tuple[tuple[str, str], ...] = ()
    needs: tuple[tuple[str, str], ...] = ()
    sysroot: str = ''


def native(preset: str, *options: str, left_out: tuple[tuple[str, str], ...] = (),
           needs: tuple[tuple[str, str], ...] = ()) -> Build:
    """A build for this machine, which leaves the tools out."""
    return Build(preset, ('-DVEKLIB_BUILD_TOOLS=OFF', *options), (TOOLS, *left_out), needs)


def foreign(preset: str, compiler: str, sysroot: str, qemu: str, *options: str) -> Build:
    """A build for another processor. The reference's vek-trace reads its recordings."""
    trace = os.path.join(RESULTS, REFERENCE, 'tools', 'trace', 'vek-trace')
    needs = [(f'{compiler}-g++', f'g++-{compiler}')]
    if qemu:
        needs.append((f'qemu-{qemu}-static', 'qemu-user-static'))
    return Build(preset, (f'-DVEKLIB_HOST_TRACE={trace}', *options), (THIS_MACHINE,), tuple(needs),
                 sysroot)


BUILDS = {
    REFERENCE: Build('release', ('-DVEKLIB_BUILD_TOOLS=ON',)),
    'gcc-O0': native('debug', left_out=(OPTIMISED,)),
    'gcc-O3': native('release', *(f'-DCMAKE_{language}_FLAGS_RELEASE=-O3 -DNDEBUG'
                                  for language in ('C', 'CXX'))),
    'gcc-Os': native('release', '-DCMAKE_BUILD_TYPE=MinSizeRel'),
    'gcc-lto': native('release', '-DCMAKE_INTERPROCEDURAL_OPTIMIZATION=ON'),
    'clang': Build('clang', ('-DVEKLIB_BUILD_TOOLS=ON',), (), (('clang++', 'clang'),)),
    'asan': native('asan', left_out=(OPTIMISED, WITHOUT_SANITIZER)),
    'tsan': native('tsan', left_out=(OPTIMISED, WITHOUT_SANITIZER)),
    'valgrind': native('valgrind', left_out=(OPTIMISED,), needs=(('valgrind', 'valgrind'),)),
    'i386': foreign('i386', 'i686-linux-gnu', 'i386', ''),
    'armv5': foreign('armv5', 'arm-linux-gnueabi', 'armel', 'arm', '-DVEKLIB_BUILD_TESTS=ON'),
    'cortex-a53': foreign('arm', 'arm-linux-gnueabi', 'armel', 'arm'),
    'arm64': foreign('arm64', 'aarch64-linux-gnu', 'arm64', 'aarch64'),
    's390x': foreign('s390x', 's390x-linux-gnu', 's390x', 's390x'),
}


def check_needs(names: list[str]) -> None:
    """Ends the program if a compiler, an emulator or a sysroot is missing."""
    missing = {package for name in names for program, package in BUILDS[name].needs
               if shutil.which(program) is None}
    if missing:
        common.fail(f'programs are missing; on Debian: apt-get install {" ".join(sorted(missing))}')
    for sysroot in filter(None, (BUILDS[name].sysroot for name in names)):
        if not os.path.exists(os.path.join(common.ROOT, 'build', f'sysroot-{sysroot}', 'complete')):
            common.fail(f'build/sysroot-{sysroot} has no libunwind; `./dev prove builds` fetches '
                        f'it, or leave out the builds for {sysroot} with --only')


def run_tests(name: str) -> str:
    """Builds and tests one build. Returns what failed before there were results, or nothing."""
    made = BUILDS[name]
    folder = os.path.join(RESULTS, name)
    results = f'{folder}.xml'
    if os.path.exists(results):
        os.remove(results)
    commands = {
        'configuring': ['cmake', '--preset', made.preset, '-B', folder, *made.options],
        'building': ['cmake', '--build', folder, '-j', JOBS],
        'testing': ['ctest', '--test-dir', folder, '-j', JOBS, '--timeout', '900',
                    '--output-on-failure', '--no-tests=error', '--output-junit', results]}
    with open(f'{folder}.txt', 'w', encoding='utf-8') as log:
        for step, command in commands.items():
            status = subprocess.run(command, cwd=common.ROOT, stdout=log, stderr=log,
                                    stdin=subprocess.DEVNULL, check=False).returncode
            failed = [case for case in results_of(name) if case.outcome == 'failed']
            if status != 0 and not failed:
                return f'{step} failed, see {os.path.relpath(folder, common.ROOT)}.txt'
    return '' if results_of(REFERENCE) else f'there is no {REFERENCE} to compare with'


def results_of(name: str) -> list[common.Case]:
    """The test cases of a build's last run; none if there was no such run."""
    path = os.path.join(RESULTS, f'{name}.xml')
    return common.read_junit(path) if os.path.exists(path) else []


def reason_of(case: common.Case) -> str:
    """Why a test was skipped, in its own words: after GoogleTest's "Skipped", or its last line."""
    lines = case.output.strip().splitlines()
    after = [lines[i + 1] for i, line in enumerate(lines[:-1]) if line.endswith(': Skipped')]
    return (after or lines[-1:] or ['no reason given'])[0].removeprefix('skipped: ')


def not_run(name: str, cases: list[common.Case]) -> tuple[list[str], list[str]]:
    """The reference's tests that a build has not: the reasons with their numbers, and the names for
    which there is no reason."""
    missing = {case.name for case in results_of(REFERENCE)} - {case.name for case in cases}
    reasons = []
    for pattern, reason in BUILDS[name].left_out:
        named = {test for test in missing if re.match(pattern, test)}
        missing -= named
        if named:
            reasons.append(f'{len(named)} left out: {reason}')
    return reasons, sorted(missing)


def judge(name: str, failure: str) -> tuple[dict[str, Any], str]:
    """The row of a build, and its line of the printed table."""
    cases = results_of(name)
    count = collections.Counter(case.outcome for case in cases)
    reasons, unexplained = ([], []) if failure else not_run(name, cases)
    remarks = [f'FAILED {case.name}' for case in cases if case.outcome == 'failed']
    remarks += [f'not run without a reason: {test}' for test in unexplained]
    remarks += [f'{case.name} skipped: {reason_of(case)}' for case in cases
                if case.outcome == 'skipped']
    run = count['passed'] + count['failed']
    line = f'{name:12}{run:6}{count["passed"]:8}{count["failed"]:8}{count["skipped"]:9}'
    reached = not failure and not unexplained and run == count['passed'] > 0
    return common.row(name, failure or f'{count["passed"]} of {run} tests', 'every test passes',
                      reached, '; '.join(remarks + reasons)), line


def main() -> None:
    """Runs the builds one after the other and prints the table."""
    parser = common.parser(__doc__)
    parser.add_argument('--only', metavar='NAME[,NAME...]', help=', '.join(BUILDS))
    options = parser.parse_args()
    names = [REFERENCE] if options.quick else list(BUILDS)
    if options.only:
        names = options.only.split(',')
    for name in names:
        if name not in BUILDS:
            common.fail(f'no build {name}: there are {", ".join(BUILDS)}')
    check_needs(names)
    os.makedirs(RESULTS, exist_ok=True)
    os.nice(5)
    rows = []
    print(f'{"build":12}{"run":>6}{"passed":>8}{"failed":>8}{"skipped":>9}{"seconds":>9}')
    for name in names:
        started = time.monotonic()
        made, line = judge(name, run_tests(name))
        print(f'{line}{time.monotonic() - started:9.0f}', flush=True)
        rows.append(made)
    common.finish('builds', rows, options.rows)


if __name__ == '__main__':
    main()
