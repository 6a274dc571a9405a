# SPDX-License-Identifier: MIT
"""What the proofs share: rows of the table, commands, and the build folders."""
import argparse
import json
import os
import subprocess
import sys
import time
from typing import Any, NamedTuple, NoReturn
from xml.etree import ElementTree

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
STARTED = time.monotonic()
FOLDER = os.path.join(ROOT, 'build', 'prove')


def fail(message: str) -> NoReturn:
    """Ends the program because the proof could not be run."""
    program = os.path.basename(sys.argv[0])
    print(f'{program}: {message}', file=sys.stderr)
    sys.exit(2)


def run(command: list[str], log: str | None = None, **options: Any) -> str:
    """Runs a command in the project's root and returns its output; fails if the command does.
    `log` names a file that gets the output as well."""
    try:
        result = subprocess.run(command, cwd=ROOT, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                                text=True, errors='replace', check=False, **options)
    except FileNotFoundError:
        fail(f'there is no {command[0]}; `./dev prove` installs what is missing')
    if log is not None:
        with open(log, 'w', encoding='utf-8') as file:
            file.write(result.stdout)
    if result.returncode != 0:
        end = '\n'.join(result.stdout.splitlines()[-20:])
        fail(f'"{" ".join(command)}" failed:\n{end}')
    return result.stdout


def build(preset: str, folder: str, *options: str, targets: tuple[str, ...] = ()) -> str:
    """Configures and builds a preset in build/prove/`folder`; returns the folder's path."""
    path = os.path.join(FOLDER, folder)
    run(['cmake', '--preset', preset, '-B', path, *options])
    run(['cmake', '--build', path, *(['--target', *targets] if targets else [])])
    return path


class Case(NamedTuple):
    """What ctest says of a test."""
    name: str
    outcome: str  # "passed", "failed", or "skipped" by the test itself
    output: str


def read_junit(path: str) -> list[Case]:
    """The tests of a run of ctest. One that could not be started, or is disabled, has failed."""
    cases = []
    for test in ElementTree.parse(path).iter('testcase'):
        skipped = test.find('skipped')
        by_itself = skipped is not None and skipped.get('message', '').startswith('SKIP_')
        outcome = 'passed' if test.get('status') == 'run' else 'skipped' if by_itself else 'failed'
        cases.append(Case(test.get('name', ''), outcome, test.findtext('system-out') or ''))
    return cases


def row(what: str, figure: str, goal: str, reached: bool, remark: str = '') -> dict[str, Any]:
    """A row of the table."""
    return {'what': what, 'figure': figure, 'goal': goal, 'reached': reached, 'remark': remark}


def parser(description: str | None) -> argparse.ArgumentParser:
    """The options that all proofs have."""
    made = argparse.ArgumentParser(description=description,
                                   formatter_class=argparse.RawDescriptionHelpFormatter)
    made.add_argument('--rows', metavar='FILE', help='write the rows of the table to FILE (JSON)')
    made.add_argument('--quick', action='store_true', help='the short form for every change')
    return made


def finish(proof: str, rows: list[dict[str, Any]], path: str | None) -> NoReturn:
    """Prints the rows, writes them to `path` if it is not None, and ends the program."""
    if not rows:
        fail('nothing was measured')
    for entry in rows:
        mark = 'ok    ' if entry['reached'] else 'MISSED'
        remark = f' ({entry["remark"]})' if entry['remark'] else ''
        print(f'{mark} {entry["what"]}: {entry["figure"]}, goal {entry["goal"]}{remark}')
    if path is not None:
        commit = subprocess.run(['git', 'describe', '--always', '--dirty'], cwd=ROOT, text=True,
                                capture_output=True, check=False).stdout.strip() or 'unknown'
        done = {'proof': proof, 'commit': commit, 'date': time.strftime('%Y-%m-%d'),
                'seconds': round(time.monotonic() - STARTED), 'rows': rows}
        os.makedirs(os.path.dirname(os.path.abspath(path)), exist_ok=True)
        with open(path, 'w', encoding='utf-8') as file:
            json.dump(done, file, indent=1)
    sys.exit(0 if all(entry['reached'] for entry in rows) else 1)
