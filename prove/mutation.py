#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Mutation: do the tests notice when the library is changed?

Changes one place of one file of veklib/ at a time (mutants.py has the changes), compiles what sees
it, and runs the tests: the family's program first, then those that include the header, then the
others, the slowest last. A change that leaves the compiled code the same, byte by byte,
at -O1 or -O2, counts as equal. prove/mutation.txt lists the other changes that no test notices
with the reason; whatever else survives is printed.

    prove/mutation.py                          500 changes
    prove/mutation.py --total 2000 --seed 7    others, and more of them
    prove/mutation.py --survivors              again what survived, after tests have been added
    prove/mutation.py --only vekhash.cpp:120   every change of one line, or of one file
    prove/mutation.py --all-kills --total 200  which test cases notice what no other does

Results are kept in build/prove/mutation/results.jsonl: a run that was stopped goes on where it was,
as long as neither veklib/ nor tests/ have changed."""
import argparse
import collections
import glob
import hashlib
import json
import os
import queue
import re
import resource
import shlex
import shutil
import signal
import subprocess
import sys
import threading
import time
from dataclasses import dataclass, field
from typing import Any

import common
import mutants
from common import ROOT, fail
from mutants import Mutant

FOLDER = os.path.join(common.FOLDER, 'mutation')
RESULTS = os.path.join(FOLDER, 'results.jsonl')
CASES = os.path.join(common.FOLDER, 'mutation-cases.txt')
KNOWN = os.path.join(ROOT, 'prove', 'mutation.txt')
GOAL = 95.0
# Tests that are not about what the library does: they look at its sources, its installation, or the
# code that an optimised build has.
OTHER_SUBJECTS = re.compile(r'headers|package|abi\.')
Result = dict[str, Any]


# ---- The build ----

@dataclass
class Object:
    """A compiled source: its command, and the files of veklib/ that it includes."""
    command: list[str]
    output: str
    headers: set[str] = field(default_factory=set)


@dataclass
class Program:
    """A program with tests, or another test of the project."""
    name: str
    command: list[str]
    has_cases: bool = False  # a GoogleTest program; the others are replays of fuzz targets
    expected: str = ''  # a pattern that the output must match
    skipped: int = -1   # the exit status of a test that cannot run here
    object: Object | None = None
    link: list[str] = field(default_factory=list)
    limit: float = 60.0

    def is_of_family(self, name: str) -> bool:
        """Whether the program tests the family of a file: test_vekdebug for vekdebug_config.cpp,
        test_vekstr for vekstr_inline.h."""
        return f'test_{name}'.replace('.', '_').startswith(self.name + '_')

    def compiles(self, mutant: Mutant) -> bool:
        """Whether a change of a public header can be in the program: it includes the family's
        header itself, or names the function."""
        if self.object is None or mutant.file not in self.object.headers:
            return False
        with open(self.object.command[-1], encoding='utf-8') as file:
            text = file.read()
        return f'/{header_of(mutant.file)}>' in text or mutant.function in text


class Build:
    """What the build knows of the library and its tests."""

    def __init__(self) -> None:
        self.path = common.build('release', 'mutation/build',
                                 '-DCMAKE_CXX_FLAGS_RELEASE=-O1 -DNDEBUG',
                                 '-DVEKLIB_BUILD_EXAMPLES=ON', '-DVEKLIB_BUILD_TOOLS=OFF')
        objects = self.read_objects()
        self.link = self.read_link('libveklib.so')
        self.objects = {name: objects[name] for name in self.link if name in objects}
        self.library = self.link[self.link.index('-o') + 1]
        self.programs: list[Program] = []
        self.others: list[Program] = []
        self.read_tests(objects)

    def ninja(self, *arguments: str) -> str:
        return common.run(['ninja', '-C', self.path, '--quiet', '-t', *arguments])

    def read_objects(self) -> dict[str, Object]:
        with open(os.path.join(self.path, 'compile_commands.json'), encoding='utf-8') as file:
            commands = [shlex.split(entry['command']) for entry in json.load(file)]
        objects = {}
        for command in commands:
            output = command[command.index('-o') + 1]
            objects[output] = Object(command, output)
        current = Object([], '')
        for line in self.ninja('deps').splitlines():
            if line.startswith(' '):
                folder, name = os.path.split(os.path.abspath(os.path.join(self.path, line.strip())))
                if folder == os.path.join(ROOT, 'veklib'):
                    current.headers.add(name)
            elif line:
                current = objects.get(line.split(':')[0], current)
        return objects

    def read_link(self, target: str) -> list[str]:
        """The command that links a target: the last one that names its output and has objects."""
        for line in reversed(self.ninja('commands', target).splitlines()):
            for part in line.split(' && '):
                words = shlex.split(part)
                if '-o' in words and '-c' not in words:
                    return words
        fail(f'no command of the build links {target}; read_link() in prove/mutation.py looks for '
             'one')

    def read_tests(self, objects: dict[str, Object]) -> None:
        listed = json.loads(common.run(['ctest', '--test-dir', self.path, '--show-only=json-v1']))
        programs: dict[str, Program] = {}
        for test in listed['tests']:
            values = {entry['name']: entry['value'] for entry in test['properties']}
            if 'unit' in values.get('LABELS', []):
                path, *arguments = test['command']
                name = os.path.basename(path)
                has_cases = any(word.startswith('--gtest_filter') for word in arguments)
                if name not in programs:
                    link = self.read_link(os.path.relpath(path, self.path))
                    own = next(objects[word] for word in link if word in objects)
                    command = [path] if has_cases else test['command']
                    programs[name] = Program(name, command, has_cases, object=own, link=link)
            elif not OTHER_SUBJECTS.match(test['name']):
                self.others.append(Program(
                    test['name'], test['command'], False,
                    ''.join(values.get('PASS_REGULAR_EXPRESSION', '')),
                    int(values.get('SKIP_RETURN_CODE', -1))))
        self.programs = list(programs.values())
        if not self.programs:
            fail('ctest knows no program of the label "unit"; read_tests() in prove/mutation.py '
                 'looks for it')


# ---- One mutant after the other ----

class Bench:
    """A copy of veklib/ in which one place is changed at a time, and the library made of it."""

    def __init__(self, build: Build, number: int):
        self.build = build
        self.folder = os.path.join(FOLDER, f'bench{number}')
        self.scratch = os.path.join(self.folder, 'tmp')
        shutil.rmtree(self.folder, ignore_errors=True)
        shutil.copytree(os.path.join(ROOT, 'veklib'), os.path.join(self.folder, 'veklib'))
        self.library = os.path.join(self.folder, 'libveklib.so.1')
        self.originals: dict[tuple[str, str], str] = {}

    # ---- Compiling ----

    def compile(self, command: list[str], output: str, *more: str) -> bool:
        """Compiles with the bench's veklib/ in place of the project's."""
        changed = [re.sub(rf'^(-I)?{re.escape(ROOT)}(?=$|/veklib/)', rf'\1{self.folder}', word)
                   for word in command]
        changed[changed.index('-o') + 1] = os.path.join(self.folder, output)
        changed += ['-w', f'-ffile-prefix-map={self.folder}/=', *more]
        return self.succeeds(changed)

    def link(self, command: list[str], output: str, replaced: dict[str, str]) -> bool:
        words = [replaced.get(word, word) for word in command]
        words[words.index('-o') + 1] = output
        return self.succeeds(words)

    def succeeds(self, command: list[str]) -> bool:
        try:
            return subprocess.run(command, cwd=self.build.path, stdout=subprocess.DEVNULL,
                                  stderr=subprocess.DEVNULL, timeout=600,
                                  check=False).returncode == 0
        except subprocess.TimeoutExpired:
            return False

    def users(self, name: str) -> list[Object]:
        """The library's objects that see a file, and for a public header one with all its inline
        functions."""
        users = [entry for entry in self.build.objects.values() if name in entry.headers]
        if is_public(name):
            probe = os.path.join(self.folder, 'probe.cpp')
            with open(probe, 'w', encoding='utf-8') as file:
                file.write(f'#include "veklib/{name}"\n')
            model = next(iter(self.build.objects.values())).command
            keep = ['-fkeep-inline-functions', '-fkeep-static-functions']
            users.append(Object([*model[:-1], probe, *keep], f'probe-{name}.o'))
        return users

    def make(self, users: list[Object], level: str) -> tuple[bool, bool]:
        """Compiles; returns whether that succeeded and whether all objects are as without the
        change."""
        same = True
        for user in users:
            output = os.path.basename(user.output)
            if not self.compile(user.command, output, level):
                return False, False
            same = same and self.sum(output) == self.originals[user.output, level]
        return True, same

    def sum(self, output: str) -> str:
        with open(os.path.join(self.folder, output), 'rb') as file:
            return hashlib.sha256(file.read()).hexdigest()

    def compile_originals(self, users: list[Object], level: str) -> None:
        for user in users:
            if (user.output, level) not in self.originals:
                output = os.path.basename(user.output)
                if not self.compile(user.command, output, level):
                    fail(f'the unchanged source of {output} does not compile; '
                         f'compile() in prove/mutation.py adapts the command of the build')
                self.originals[user.output, level] = self.sum(output)

    # ---- Running ----

    def run(self, command: list[str], limit: float) -> tuple[int | None, str]:
        """Exit status (None: out of time) and output."""
        shutil.rmtree(self.scratch, ignore_errors=True)
        os.makedirs(self.scratch)
        environment = {name: value for name, value in os.environ.items()
                       if not name.startswith('VEK_')}
        environment.update(LD_LIBRARY_PATH=self.folder, TMPDIR=self.scratch)
        with open(os.path.join(self.folder, 'output'), 'wb+') as out:
            with subprocess.Popen(command, stdout=out, stderr=subprocess.STDOUT, cwd=self.scratch,
                                  stdin=subprocess.DEVNULL, env=environment,
                                  start_new_session=True) as process:
                code: int | None = None
                try:
                    code = process.wait(limit)
                except subprocess.TimeoutExpired:
                    pass
                try:
                    os.killpg(process.pid, signal.SIGKILL)  # with what a case has left running
                except ProcessLookupError:
                    pass
            out.seek(0)
            return code, out.read(4 << 20).decode('utf-8', 'replace')

    def run_cases(self, program: Program, every: bool) -> tuple[dict[str, str], set[str]]:
        """The cases that fail, and the places of the expectations that do. The first failure ends
        the program, unless `every` is set: then it is started again after a crash, for the rest."""
        failed: dict[str, str] = {}
        places: set[str] = set()
        seen: list[str] = []
        if not program.has_cases:
            code, _ = self.run(program.command, program.limit)
            return ({} if code == 0 else
                    {program.name: 'timeout' if code is None else 'failed'}), places
        while True:
            mode = '--gtest_filter=-' + ':'.join(seen) if every else '--gtest_fail_fast'
            code, text = self.run([*program.command, mode], program.limit)
            begun = re.findall(r'^\[ RUN      \] (\S+)', text, re.M)
            ended = re.findall(r'^\[  (?:     OK|FAILED ) \] (\S+?)(?: \(|,|$)', text, re.M)
            places.update(re.findall(r'(tests/\S+\.(?:cpp|h):\d+)(?:: Failure|: \n|$)', text, re.M))
            failed |= {name: 'failed'
                       for name in re.findall(r'^\[  FAILED  \] (\w+\.\w+) \(', text, re.M)}
            if code == 0 or (code == 1 and failed):
                return failed, places
            how = 'timeout' if code is None else 'crash'
            open_case = next((name for name in reversed(begun) if name not in ended), None)
            failed[open_case or program.name] = how
            seen += begun
            if not every or code is None or not begun:
                return failed, places

    def run_other(self, test: Program) -> bool:
        """Whether a test that is not a program of cases passes."""
        library = os.path.join(self.build.path, self.build.library)
        command = [self.library if word == library else word for word in test.command]
        code, text = self.run(command, test.limit)
        if test.expected:
            return re.search(test.expected, text, re.S) is not None
        return code in (0, test.skipped)

    # ---- Judging ----

    def judge(self, mutant: Mutant, text: str, every: bool) -> Result:
        """Applies a mutant to the file's text, and returns what becomes of it."""
        changed = text[:mutant.start] + mutant.text + text[mutant.end:]
        users = self.users(mutant.file)
        self.compile_originals(users, '-O1')
        self.write(mutant.file, changed)
        result = self.test(mutant, users, every)
        if result['status'] == 'unnoticed' and not in_public_macro(mutant):
            self.write(mutant.file, text)
            self.compile_originals(users, '-O2')
            self.write(mutant.file, changed)
            if self.make(users, '-O2') == (True, True):
                result = {'status': 'equal'}
        self.write(mutant.file, text)
        return result

    def write(self, name: str, text: str) -> None:
        with open(os.path.join(self.folder, 'veklib', name), 'w', encoding='utf-8') as file:
            file.write(text)

    def test(self, mutant: Mutant, users: list[Object], every: bool) -> Result:
        compiled, same = self.make(users, '-O1')
        if not compiled:
            return {'status': 'uncompiled'}
        if same and not in_public_macro(mutant):
            return {'status': 'equal'}
        if not self.link(self.build.link, self.library,
                         {user.output: os.path.join(self.folder, os.path.basename(user.output))
                          for user in users}):
            return {'status': 'uncompiled'}
        failed, places = {}, set()
        for program in in_order(self.build.programs, mutant.file):
            if is_public(mutant.file) and program.compiles(mutant):
                if not (program := self.rebuilt(program)):
                    return {'status': 'uncompiled'}
            elif len(users) == 1 and is_public(mutant.file):
                continue  # the change is neither in the library nor in this program
            failed, places = self.run_cases(program, every)
            if failed:
                break
        if not failed:
            failed = {test.name: 'failed' for test in self.build.others if not self.run_other(test)}
        return {'status': 'noticed' if failed else 'unnoticed', 'by': failed,
                'places': sorted(places)}

    def rebuilt(self, program: Program) -> Program | None:
        """The program with the changed header; None if it does not compile."""
        if program.object is None:
            return program
        path = os.path.join(self.folder, program.name)
        if not self.compile(program.object.command, program.name + '.o'):
            return None
        if not self.link(program.link, path, {program.object.output: path + '.o'}):
            return None
        return Program(program.name, [path, *program.command[1:]], program.has_cases,
                       limit=program.limit)


def header_of(name: str) -> str:
    """The header that applications include for a file: vekstr.h for vekstr_inline.h."""
    return re.sub(r'(_inline|_internal)?\.\w+$', '.h', name)


def is_public(name: str) -> bool:
    return name.endswith('.h') and not name.endswith('_internal.h')


def in_public_macro(mutant: Mutant) -> bool:
    """Whether only programs that use the macro see the change."""
    return is_public(mutant.file) and mutant.function.isupper()


def in_order(programs: list[Program], name: str) -> list[Program]:
    """The programs in the order in which they probably notice a change of a file."""
    def rank(program: Program) -> tuple[bool, bool, float]:
        includes = program.object is not None and header_of(name) in program.object.headers
        return not program.is_of_family(name), not includes, program.limit
    return sorted(programs, key=rank)


# ---- The run ----

class Run:
    """The workers and what they share."""

    def __init__(self, build: Build, todo: list[Mutant], options: argparse.Namespace, state: str):
        self.build = build
        self.sources = {mutant.file: '' for mutant in todo}
        for name in self.sources:
            with open(os.path.join(ROOT, 'veklib', name), encoding='utf-8') as file:
                self.sources[name] = file.read()
        self.todo: queue.SimpleQueue[Mutant] = queue.SimpleQueue()
        for mutant in todo:
            self.todo.put(mutant)
        self.every = options.all_kills
        self.state = state
        self.until = time.monotonic() + 60 * options.minutes
        self.counts: collections.Counter[str] = collections.Counter()
        self.total = len(todo)
        self.lock = threading.Lock()
        self.threads = [threading.Thread(target=self.work, args=(number,), daemon=True)
                        for number in range(options.workers)]

    def go(self) -> None:
        for thread in self.threads:
            thread.start()
        for thread in self.threads:
            thread.join()
        if sys.stdout.isatty():
            print('\r\033[K', end='')

    def work(self, number: int) -> None:
        bench = Bench(self.build, number)
        while time.monotonic() < self.until:
            try:
                mutant = self.todo.get_nowait()
            except queue.Empty:
                return
            begun = time.monotonic()
            result = bench.judge(mutant, self.sources[mutant.file], self.every)
            self.record(mutant, result | {'seconds': round(time.monotonic() - begun, 2)})

    def record(self, mutant: Mutant, result: Result) -> None:
        line = {'state': self.state, 'every': self.every, **vars(mutant), **result}
        with self.lock:
            with open(RESULTS, 'a', encoding='utf-8') as file:
                file.write(json.dumps(line) + '\n')
            self.counts[result['status']] += 1
            done = self.counts.total()
            shown = ', '.join(f'{count} {status}' for status, count in self.counts.most_common())
            if sys.stdout.isatty():
                print(f'\r{done} of {self.total} changes: {shown}\033[K', end='', flush=True)
            elif done % 50 == 0:
                print(f'{done} of {self.total} changes: {shown}', flush=True)


def measure(build: Build) -> None:
    """Runs the tests without a change. They must pass; the time limits follow from the times."""
    bench = Bench(build, 0)
    if not bench.link(build.link, bench.library, {}):
        fail('the library does not link; Bench.link() in prove/mutation.py adapts the command')
    for program in [*build.programs, *build.others]:
        begun = time.monotonic()
        if bench.run_cases(program, False)[0] if program.object else not bench.run_other(program):
            fail(f'{program.name} fails without a change; its output is in {bench.folder}/output')
        program.limit = 5 + 10 * (time.monotonic() - begun)


def digest() -> str:
    """Identifies the state of library and tests."""
    whole = hashlib.sha256()
    files = [path for folder in ('veklib', 'tests', 'fuzz')
             for path in glob.glob(f'{ROOT}/{folder}/**', recursive=True)]
    for path in sorted(files):
        if os.path.isfile(path):
            with open(path, 'rb') as file:
                whole.update(path.encode() + file.read())
    return whole.hexdigest()[:16]


def key_of(entry: Result) -> tuple[str, int, str]:
    return entry['file'], entry['start'], entry['text']


def identity_of(entry: Result) -> tuple[str, str, str, str]:
    return entry['file'], entry['function'], entry['old'], entry['new']


def read_results(state: str, options: argparse.Namespace) -> dict[tuple[str, int, str], Result]:
    """The results that still hold: of this state, or, if only survivors are to be tried again, of
    any state if the tests noticed the change or the list explains why not."""
    results = {}
    known = read_known()
    if os.path.exists(RESULTS):
        with open(RESULTS, encoding='utf-8') as file:
            for entry in map(json.loads, file):
                holds = entry['state'] == state or (
                    options.survivors and
                    (entry['status'] != 'unnoticed' or identity_of(entry) in known))
                if holds and entry['every'] >= options.all_kills:
                    results[key_of(entry)] = entry
    return results


def choose(options: argparse.Namespace) -> list[Mutant]:
    sources = mutants.load(os.path.join(ROOT, 'veklib'))
    if options.only is None:
        return mutants.sample(sources.values(), options.total, options.seed)
    name, _, line = options.only.partition(':')
    if name not in sources:
        fail(f'veklib/{name} does not exist; --only takes FILE or FILE:LINE')
    return [mutant for mutant in sources[name].mutants() if line in ('', str(mutant.line))]


# ---- The known survivors ----

def read_known() -> dict[tuple[str, str, str, str], str]:
    """Maps each listed change to its kind, "equal" or "accepted"."""
    known: dict[tuple[str, str, str, str], str] = {}
    file_name = function = kind = old = ''
    with open(KNOWN, encoding='utf-8') as file:
        for number, line in enumerate(file, 1):
            text = line.strip()
            if match := re.match(r'(equal|accepted) (\S+) (\S*): \S', line):
                kind, file_name, function = match.groups()
            elif text.startswith('- '):
                old = text[2:]
            elif text.startswith('+ '):
                known[file_name, function, old, text[2:]] = kind
            elif text and not text.startswith('#') and not line.startswith(' '):
                fail(f'{KNOWN}:{number}: neither a change nor "equal FILE FUNCTION: reason"')
    return known


# ---- The report ----

def judge_results(results: list[Result]) -> dict[str, list[Result]]:
    """The results by status; "unnoticed" is what the list does not explain."""
    known = read_known()
    sorted_results = collections.defaultdict(list)
    for result in results:
        status = result['status']
        if status == 'unnoticed':
            status = known.get(identity_of(result), status)
        sorted_results[status].append(result)
    return sorted_results


def show_survivors(survivors: list[Result]) -> None:
    for result in sorted(survivors, key=lambda entry: (entry['file'], entry['start'])):
        print(f'veklib/{result["file"]}:{result["line"]}: {result["operator"]} in '
              f'{result["function"] or "no function"}\n  - {result["old"]}\n  + {result["new"]}')


def write_cases(results: list[Result]) -> None:
    """Which cases notice something, and what no other case of their program notices."""
    noticed = [result for result in results if result['status'] == 'noticed']
    every: collections.Counter[str] = collections.Counter()
    alone = collections.defaultdict(list)
    places: collections.Counter[str] = collections.Counter()
    for result in noticed:
        every.update(list(result['by']))
        places.update(result['places'])
        if len(result['by']) == 1:
            alone[next(iter(result['by']))].append(result)
    with open(CASES, 'w', encoding='utf-8') as file:
        print(f'{len(noticed)} changes noticed\n\n notices   alone  case', file=file)
        cases = sorted(all_cases() | set(every))
        for case in sorted(cases, key=lambda name: (len(alone[name]), every[name])):
            print(f'{every[case]:8}{len(alone[case]):8}  {case}', file=file)
        print('\nWhat one case alone notices', file=file)
        for case in sorted(alone):
            for result in alone[case]:
                print(f'{case}: {result["file"]}:{result["line"]} {result["function"]}\n'
                      f'  - {result["old"]}\n  + {result["new"]}', file=file)
        print('\nExpectations that failed, with the number of changes', file=file)
        for place in sorted(places, key=lambda text: (text.split(':')[0], int(text.split(':')[1]))):
            print(f'{places[place]:8}  {place}', file=file)
    print(f'{os.path.relpath(CASES, ROOT)} shows which cases notice what.')


def all_cases() -> set[str]:
    """The cases of all programs, as the sources name them."""
    cases = set()
    for path in glob.glob(os.path.join(ROOT, 'tests', 'test_*.cpp')):
        with open(path, encoding='utf-8') as file:
            cases.update(f'{suite}.{name}' for suite, name in re.findall(
                r'^(?:[A-Z]+_)?TEST\((\w+), (\w+)\)', file.read(), re.M))
    return cases


def row_of(results: list[Result], chosen: int) -> dict[str, Any]:
    count = {status: len(found) for status, found in judge_results(results).items()}
    noticed, equal = count.get('noticed', 0), count.get('equal', 0)
    differ = noticed + count.get('unnoticed', 0) + count.get('accepted', 0)
    share = 100 * noticed / max(differ, 1)
    remark = (f'of {len(results)} changes {count.get("uncompiled", 0)} do not compile and {equal} '
              'change nothing')
    if len(results) < chosen:
        remark += f'; {chosen - len(results)} have not been tried yet'
    return common.row('changes of one place of veklib/ that the tests notice',
                      f'{share:.1f} % ({noticed:,} of {differ:,} that differ)', f'{GOAL:.0f} %',
                      share >= GOAL and len(results) == chosen, remark)


def parse_options() -> argparse.Namespace:
    parser = common.parser(__doc__)
    parser.add_argument('--total', type=int, default=500, help='size of the sample (500)')
    parser.add_argument('--seed', type=int, default=1, help='choice of the sample (1)')
    parser.add_argument('--only', metavar='FILE[:LINE]', help='all changes of a file, or of a line')
    parser.add_argument('--survivors', action='store_true',
                        help='keep earlier results of what was noticed, although tests changed')
    parser.add_argument('--all-kills', action='store_true',
                        help='run all cases of the program that notices')
    parser.add_argument('--workers', type=int, default=os.cpu_count() or 1, help='(one per core)')
    parser.add_argument('--minutes', type=float, default=600.0, help='stop then; go on next time')
    options = parser.parse_args()
    if options.quick:
        options.total = 40
    return options


def main() -> None:
    options = parse_options()
    # What a change may break: endless allocation and output.
    resource.setrlimit(resource.RLIMIT_AS, (3 << 30, 3 << 30))
    resource.setrlimit(resource.RLIMIT_FSIZE, (64 << 20, 64 << 20))
    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
    chosen = choose(options)
    build = Build()
    measure(build)
    state = digest()
    done = read_results(state, options)
    todo = [mutant for mutant in chosen if key_of(vars(mutant)) not in done]
    Run(build, todo, options, state).go()
    done = read_results(state, options)
    results = [done[key] for mutant in chosen if (key := key_of(vars(mutant))) in done]
    show_survivors(judge_results(results)['unnoticed'])
    if options.all_kills:
        write_cases(results)
    common.finish('mutation', [row_of(results, len(chosen))], options.rows)


if __name__ == '__main__':
    try:
        main()
    except KeyboardInterrupt:
        fail('stopped; the same command goes on from here')
