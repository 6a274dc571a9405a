#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Puts the rows of the proofs into one table.

  prove/table.py PROOF...

Reads build/prove/rows/PROOF.json, which each proof has written, prints the table and
writes it to build/prove/table.md. The exit status is 1 if a goal is missed."""
import json
import os
import sys

import common

HEADINGS = ('Proof', 'What', 'Figure', 'Goal', 'Reached')


def cells_of(proof: str) -> list[tuple[str, ...]]:
    """The lines of the table for a proof; a remark stands in its figure's cell."""
    path = os.path.join(common.FOLDER, 'rows', f'{proof}.json')
    if not os.path.exists(path):
        return [(proof, 'all of it', 'could not be run', '', 'NO')]
    with open(path, encoding='utf-8') as file:
        done = json.load(file)
    lines = []
    for row in done['rows']:
        remark = f' ({row["remark"]})' if row['remark'] else ''
        lines.append((proof, row['what'], row['figure'] + remark, row['goal'],
                      'yes' if row['reached'] else 'NO'))
    return lines


def markdown(lines: list[tuple[str, ...]]) -> str:
    rows = [HEADINGS, tuple('---' for _ in HEADINGS), *lines]
    return ''.join('| ' + ' | '.join(row) + ' |\n' for row in rows)


def text(lines: list[tuple[str, ...]]) -> str:
    """The table for a terminal: aligned columns, each proof named once."""
    shown, before = [HEADINGS], None
    for line in lines:
        shown.append(line if line[0] != before else ('', *line[1:]))
        before = line[0]
    widths = [max(len(row[i]) for row in shown) for i in range(len(HEADINGS))]
    return ''.join('  '.join(cell.ljust(width) for cell, width in zip(row, widths)).rstrip() + '\n'
                   for row in shown)


def main() -> None:
    if len(sys.argv) < 2 or sys.argv[1].startswith('-'):
        print(__doc__, file=sys.stderr)
        sys.exit(2)
    lines = [line for proof in sys.argv[1:] for line in cells_of(proof)]
    print(text(lines), end='')
    path = os.path.join(common.FOLDER, 'table.md')
    with open(path, 'w', encoding='utf-8') as file:
        file.write(markdown(lines))
    sys.exit(1 if any(line[-1] != 'yes' for line in lines) else 0)


if __name__ == '__main__':
    main()
