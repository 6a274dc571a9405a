#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Proves that every request which the library makes is refused in some test, without harm.

A site is a call in the library's machine code whose callee asks for memory, itself or through
others, or a call of a file function in debug output, tracing or the memory queries. The build is
one without inlining, so that each call in the source is one call in the code, with a return address
of its own. The tests and the replays of the fuzz targets refuse requests there: the n-th alone, and
the n-th with all later ones. They note the callers of each refused request. A site counts as
refused if it is among them, up to the first that is not the library's; "from then on" counts only
what was refused in that mode. The tests themselves fail if a refusal leaks, crashes or has an
effect that is not documented.

All sites are listed in build/prove/refusals.txt, with how often each was refused.
"""
import collections
import concurrent.futures
import glob
import os
import re
import subprocess
from typing import Any, Callable, Iterator, NamedTuple

import common

FLAGS = '-g -O0 -fno-inline'
FOLDER = os.path.join(common.FOLDER, 'refusals')
REPORT = os.path.join(common.FOLDER, 'refusals.txt')
# How many changed copies of its corpus the replay of each fuzz target runs here.
COPIES = {'containers': 200, 'convert': 20, 'debug_config': 100, 'edits': 6000}
MODES = {'once': 'once', 'onward': 'from then on'}

# What asks for memory, and what asks for a file: the platform's functions and the library's own.
MEMORY = re.compile(r'vek_(malloc|calloc|realloc)(_if_possible|_if_available)?(_with_return)?')
FILE = re.compile(r'fopen|fclose|fread|fgets|fstat|stat|fwrite|fflush|setvbuf|vfprintf|vprintf|'
                  r'fputs|open|read|write|vek_open_file')
FILE_SOURCES = re.compile(r'veklib/vek(debug|memory)')
# The allocator's own calls are no sites: its entry points call the table that refuses.
ALLOCATOR = re.compile(r'veklib/vekmemory\w*\.cpp')
# Functions that call what they are given. What one callback asks for, another does not.
WALKS = re.compile(r'vek_hash_foreach|vek_slist_dup')
# Calls that never ask, although the callee does elsewhere: (function, callee), and the reason.
NEVER = {('release_everything', 'vek_debug_set_config'): 'without names, nothing is copied'}
# Sites that only ask after another request was refused, so none of theirs is refused once.
# The number is that of the call among those alike in the function that is made without a refusal.
SECOND_TRIES = {
    ('_vek_str_builder_grow', 'vek_realloc'): (0, 'asks for less after it was refused'),
    ('_vek_debug_file_to_string', 'fclose'): (-1, 'also closes after another refusal'),
}
# Calls of the platform that no test can refuse, or not with any effect.
EXEMPT = (
    (re.compile(r'malloc|calloc|realloc'), 'the default table: one that refuses takes its place'),
    (re.compile(r'setlinebuf|perror|fprintf'), 'its failure has no effect'),
    (re.compile(r'fcntl'), 'it marks a descriptor that was just opened, which cannot fail'),
)


class Call(NamedTuple):
    """A call in machine code. An indirect call has no name."""
    caller: int  # the function's address
    returns_to: int
    callee: int  # 0 if it lies in another object
    name: str


class Site(NamedTuple):
    """A call that may be refused. Instances of a template have the place in common, and have a
    function or an address each; sites in headers have no address."""
    request: str  # "memory" or "file"
    place: str  # "file:line"
    function: str
    callee: str
    address: int


class Refusal(NamedTuple):
    """Requests that were refused alike, with the callers as the recorder wrote them."""
    mode: str
    request: str  # as in Site
    callers: list[str]
    times: int


def output_of(*command: str, text: str | None = None) -> str:
    """The output of a command that reads `text`."""
    return subprocess.run(command, input=text, capture_output=True, text=True, check=True).stdout


def short(function: str) -> str:
    """A function's name without its namespace, result and parameters."""
    depth, kept = 0, ''
    for c in function.replace('(anonymous namespace)::', '').removesuffix('.localalias'):
        if c == '(' and depth == 0:
            break
        depth += {'<': 1, '>': -1}.get(c, 0)
        kept = '' if c in ' *' and depth == 0 else kept + c
    return re.sub(r'\{lambda.*', '', kept)


class Code:
    """The calls in an object, and the places of its addresses."""

    def __init__(self, path: str) -> None:
        self.path = path
        self.calls = list(self._read_calls())
        self._places: dict[int, tuple[str, str]] = {}

    def _read_calls(self) -> Iterator[Call]:
        slots = dict(re.findall(r'^0*([0-9a-f]+) R_\S+ +(\w+)',
                                output_of('objdump', '-R', self.path), re.MULTILINE))
        caller, pending = 0, None
        for line in output_of('objdump', '-dC', '--no-show-raw-insn', self.path).splitlines():
            if found := re.match(r'([0-9a-f]+) <', line):
                caller = int(found[1], 16)
            elif found := re.match(r' *([0-9a-f]+):\t(.*)', line):
                if pending is not None:
                    yield Call(pending[0], int(found[1], 16), *pending[1:])
                    pending = None
                if target := re.match(r'(?:addr32 )?call +(?:([0-9a-f]+) <(.*)>)?', found[2]):
                    slot = re.search(r'# ([0-9a-f]+)', found[2])
                    name = target[2] or (slots.get(slot[1], '') if slot else '')
                    address = int(target[1], 16) if target[1] and '@plt' not in name else 0
                    pending = caller, address, short(re.sub(r'@.*', '', name))

    def find_places(self, addresses: set[int]) -> None:
        """Looks up what place() is asked for."""
        wanted = sorted(addresses - self._places.keys())
        lines = output_of('addr2line', '-Cfe', self.path,
                          text=''.join(f'{address - 1:x}\n' for address in wanted)).splitlines()
        for address, function, place in zip(wanted, lines[::2], lines[1::2]):
            place = re.sub(r' \(discriminator.*|^.*?(?=veklib/\w+\.)', '', place)
            self._places[address] = short(function), place

    def place(self, address: int) -> tuple[str, str]:
        """The function and the "file:line" of the call that returns to an address."""
        return self._places[address]


def asking(code: Code, asks: Callable[[str], Any], through: set[int]) -> list[Call]:
    """The calls whose callee asks, itself or through others, for what `asks(name)` accepts.
    `through` are the addresses that requests came through: they tell which indirect calls ask."""
    callers: dict[int, list[Call]] = collections.defaultdict(list)
    for call in code.calls:
        callers[call.callee].append(call)
    left = [call for call in code.calls
            if asks(call.name) or (not call.name and call.returns_to in through)]
    found: dict[int, Call] = {}
    while left:
        call = left.pop()
        function, place = code.place(call.returns_to)
        if (call.returns_to in found or (function, call.name) in NEVER or ALLOCATOR.match(place)):
            continue
        found[call.returns_to] = call
        if call.name or not WALKS.match(function):
            left += callers[call.caller]
    return list(found.values())


class Proof:
    """The sites of a build, and how often each was refused, by mode."""

    def __init__(self, folder: str) -> None:
        self.library = Code(os.path.join(folder, 'libveklib.so'))
        self.programs = [Code(path) for path in sorted(glob.glob(f'{folder}/tests/test_*') +
                                                       glob.glob(f'{folder}/fuzz/replay_*'))
                         if os.access(path, os.X_OK)]
        self.failed: list[str] = []  # what programs that failed printed
        self.refused: dict[Site, collections.Counter[str]] = {}
        with concurrent.futures.ThreadPoolExecutor(2) as pool:
            self.refusals = list(pool.map(self._run, self.programs))
        self._find_places()
        self._find_sites()
        for program, refusals in zip(self.programs, self.refusals):
            for refusal in refusals:
                self._count(program, refusal)

    def _run(self, program: Code) -> list[Refusal]:
        log = f'{program.path}.refusals'
        target = program.path.partition('/replay_')[2]
        arguments = ['--gtest_brief=1'] if not target else [
            f'fuzz/corpus/{target}', str(COPIES[target])]
        result = subprocess.run([program.path, *arguments], check=False, text=True, cwd=common.ROOT,
                                stdout=subprocess.PIPE, stderr=subprocess.STDOUT, errors='replace',
                                env={**os.environ, 'REFUSALS_LOG': log})
        if result.returncode != 0:
            self.failed.append(f'{program.path} failed:\n{result.stdout}')
        with open(log, encoding='ascii') as file:
            lines = collections.Counter(file)
        return [Refusal(mode, 'memory' if request == 'memory' else 'file', callers, times)
                for line, times in lines.items()
                for mode, request, *callers in [line.split()]]

    def _find_places(self) -> None:
        self.library.find_places({call.returns_to for call in self.library.calls})
        for program, refusals in zip(self.programs, self.refusals):
            met = {int(caller[1:], 16) for refusal in refusals for caller in refusal.callers
                   if caller[0] == 'X'}
            program.find_places(met | {call.returns_to for call in program.calls})

    def _find_sites(self) -> None:
        through = {int(caller[1:], 16) for refusals in self.refusals for refusal in refusals
                   for caller in refusal.callers
                   if refusal.request == 'memory' and caller[0] == 'L'}
        calls = asking(self.library, MEMORY.fullmatch, through)
        exported = {self.library.place(call.returns_to)[0] for call in calls}
        for call in calls:
            self._add('memory', self.library, call, call.returns_to)
        for call in self.library.calls:
            place = self.library.place(call.returns_to)[1]
            if FILE.fullmatch(call.name) and FILE_SOURCES.match(place):
                self._add('file', self.library, call, call.returns_to)
        for program in self.programs:
            for call in asking(program, lambda name: MEMORY.fullmatch(name) or name in exported,
                               set()):
                if program.place(call.returns_to)[1].startswith('veklib/'):
                    self._add('memory', program, call, 0)

    def _add(self, request: str, code: Code, call: Call, address: int) -> None:
        function, place = code.place(call.returns_to)
        site = Site(request, place, function, call.name or '(pointer)', address)
        self.refused.setdefault(site, collections.Counter())

    def _count(self, program: Code, refusal: Refusal) -> None:
        """Counts a refusal at all sites among its callers. The first ones are the recorder's and
        the table's; the first after them that does not lie in the library's files ends the list."""
        inside = False
        met = set()
        for caller in refusal.callers:
            code = self.library if caller[0] == 'L' else program
            address = int(caller[1:], 16)
            function, place = code.place(address) if caller[0] in 'LX' else ('', '')
            if place.startswith('veklib/'):
                inside = True
                met.add((place, function, address if caller[0] == 'L' else 0))
            elif inside:
                break
        for site in self.refused:
            if site.request == refusal.request and (site.place, site.function, site.address) in met:
                self.refused[site][refusal.mode] += refusal.times

    def exempt(self) -> list[str]:
        """A line for each call that is no site, with the reason."""
        lines = []
        for call in self.library.calls:
            function, place = self.library.place(call.returns_to)
            reasons = [reason for pattern, reason in EXEMPT if pattern.fullmatch(call.name)]
            if reasons and FILE_SOURCES.match(place):
                lines.append(f'{place} {function}: {call.name}: {reasons[0]}')
        lines += [f'{" ".join(call)}: {reason}' for call, reason in NEVER.items()]
        return lines + [f'{" ".join(call)}: once, only when made without another refusal: {reason}'
                        for call, (_, reason) in SECOND_TRIES.items()]

    def sites(self, request: str, mode: str) -> list[Site]:
        """The sites where a request of this kind can be refused in this mode."""
        sites = sorted(site for site in self.refused if site.request == request)
        if mode == 'once':
            for call, (number, _) in SECOND_TRIES.items():
                alike = [site for site in sites if (site.function, site.callee) == call]
                sites = [site for site in sites if site not in alike or site is alike[number]]
        return sites

    def row(self, request: str, mode: str) -> dict[str, Any]:
        """The row for one kind of request and one mode. Prints the sites that were not refused."""
        sites = self.sites(request, mode)
        missed = [site for site in sites if self.refused[site][mode] == 0]
        for site in missed:
            print(f'not refused {MODES[mode]}: {line_of(site)}')
        met = len(sites) - len(missed)
        what = {'memory': 'sites that ask for memory', 'file': 'calls of file functions'}[request]
        return common.row(f'{what}, refused {MODES[mode]}',
                          f'{100 * met / max(1, len(sites)):.1f} % ({met} of {len(sites)})',
                          '100 %', met == len(sites) > 0)

    def write_report(self) -> None:
        """Writes all sites to the report, and how often each was refused."""
        with open(REPORT, 'w', encoding='utf-8') as report:
            print(*MODES.values(), file=report)
            for site, count in sorted(self.refused.items()):
                print(f'{count["once"]:4} {count["onward"]:12} {line_of(site)}', file=report)
            print('\nNot counted:', *self.exempt(), sep='\n', file=report)


def line_of(site: Site) -> str:
    """How a site is shown."""
    return f'{site.place} {site.function}: {site.callee}'


def build() -> str:
    """Builds library and tests, with the recorder in each test program."""
    os.makedirs(FOLDER, exist_ok=True)
    recorder = os.path.join(FOLDER, 'recorder.o')
    common.run(['cc', '-g', '-O1', '-Wall', '-Wextra', '-c', 'prove/refusals.c', '-o', recorder])
    return common.build('debug', 'refusals', '-DVEKLIB_BUILD_EXAMPLES=OFF',
                        '-DVEKLIB_BUILD_TOOLS=OFF', f'-DCMAKE_C_FLAGS_DEBUG={FLAGS}',
                        f'-DCMAKE_CXX_FLAGS_DEBUG={FLAGS}',
                        f'-DCMAKE_EXE_LINKER_FLAGS={recorder}')


def main() -> None:
    """Builds, runs the tests, and prints and writes the rows."""
    options = common.parser(__doc__).parse_args()
    proof = Proof(build())
    proof.write_report()
    print(*proof.failed, sep='\n', end='')
    passed = len(proof.programs) - len(proof.failed)
    total = sum(refusal.times for refusals in proof.refusals for refusal in refusals)
    rows = [proof.row(request, mode) for request in ('memory', 'file') for mode in MODES]
    rows.append(common.row('test programs that stand all refusals',
                           f'{passed} of {len(proof.programs)}', 'all', not proof.failed,
                           f'{total:,} requests refused'))
    common.finish('refusals', rows, options.rows)


if __name__ == '__main__':
    main()
