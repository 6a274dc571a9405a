# SPDX-License-Identifier: MIT
"""Changes of one place of a source, made from its tokens alone: swapped operators, negated
conditions, dropped statements and checks, altered constants and texts. Many do not compile or
change nothing; mutation.py finds out."""
import collections
import json
import os
import random
import re
from dataclasses import dataclass
from typing import Iterable

TOKEN = re.compile(r'''
    (?P<comment>/\*.*?\*/|//[^\n]*)
  | (?P<directive>^[ \t]*\#(?:\\\n|[^\n])*)
  | (?P<attribute>\[\[.*?\]\])
  | (?P<string>"(?:\\.|[^"\\\n])*")
  | (?P<char>'(?:\\.|[^'\\\n])*')
  | (?P<number>(?<![\w.])(?:0[xX][0-9a-fA-F]+|\d+\.\d+|\d+)[uUlL]*)
  | (?P<word>[A-Za-z_]\w*)
  | (?P<op><<=|>>=|->\*|\.\.\.|->|\+\+|--|<<|>>|<=|>=|==|!=|&&|\|\||\+=|-=|\*=|/=|&=|\|=|\^=|::
      |[-+*/%&|^~!<>=?:;,.(){}\[\]])
''', re.X | re.S | re.M)
# A macro with parameters: its body is code unless it makes an attribute or passes its caller on.
MACRO = re.compile(r'\s*#define (\w+)\([^)]*\)(?!.*(?:__attribute__|__FILE__|__func__))', re.S)

OPENING = {'(': ')', '[': ']', '{': '}'}
CLOSING = set(OPENING.values())
SWAPS = {'<': '<=', '<=': '<', '>': '>=', '>=': '>', '==': '!=', '!=': '==', '+': '-', '-': '+',
         '/': '*', '*': '/', '%': '/', '<<': '>>', '>>': '<<', '&': '|', '|': '&', '^': '|',
         '&&': '||', '||': '&&', '+=': '-=', '-=': '+=', '|=': '&=', '&=': '|='}
NAMES = {'true': 'false', 'min': 'max', 'toupper': 'tolower', 'stdout': 'stderr', 'SIZE_MAX': '0',
         'INT32_MAX': 'INT32_MIN', 'INT_MAX': 'INT_MIN', 'UINT32_MAX': '0',
         'status_done': 'status_failed_check', 'status_no_memory': 'status_failed_check',
         'VEK_VALUE_INT': 'VEK_VALUE_DOUBLE', 'VEK_VALUE_STRING': 'VEK_VALUE_VEKSTR',
         'VEK_VALUE_NAME': 'VEK_VALUE_POINTER', 'VEK_VALUE_INVALID': 'VEK_VALUE_INT',
         'VEK_VALUE_SLIST_OF_INT': 'VEK_VALUE_SLIST_OF_POINTER',
         'VEK_VALUE_SLIST_OF_STRING': 'VEK_VALUE_SLIST_OF_VALUE',
         'VEK_CALLER': 'nullptr', 'return_address': 'nullptr'}
ONE_WAY = {'0', 'nullptr'}
NAMES |= {new: old for old, new in NAMES.items() if new not in ONE_WAY | set(NAMES)}
CASTS = {'unsigned char', 'uint32_t', 'size_t', 'int64_t', 'int', 'uint64_t', 'int32_t'}
CHECKS = {'VEK_RETURN_IF_FAIL', 'VEK_RETURN_VAL_IF_FAIL'}
# What a mutation of an argument would only break: attributes, and checks at compile time.
UNTOUCHED = {'VEK_PRINTF', 'VEK_SIZED_BY', 'VEK_RELEASED_WITH', 'static_assert', '__asm__',
             '__attribute__', 'sizeof', 'decltype', 'alignas'}
STOPS = {';', ',', '=', 'return', '?', ':', '{', '}', '+=', '-=', '|=', '&='}
KEYWORDS = {'if', 'for', 'while', 'switch', 'sizeof', 'decltype', 'offsetof', 'return'}


@dataclass(frozen=True)
class Token:
    kind: str  # a group of TOKEN, or "macro": where a macro's body begins and ends
    text: str
    start: int
    end: int


@dataclass(frozen=True)
class Mutant:
    """Replaces the bytes from `start` to `end` of the file. `old` and `new` are the lines before
    and after in one line each: with file and function they identify the change in any version."""
    file: str
    function: str
    operator: str
    start: int
    end: int
    text: str
    line: int
    old: str
    new: str


def tokenize(text: str, offset: int = 0) -> list[Token]:
    tokens = []
    for match in TOKEN.finditer(text):
        kind, start, end = match.lastgroup or '', offset + match.start(), offset + match.end()
        if kind == 'directive':
            if macro := MACRO.match(match.group()):
                body = macro.end()
                tokens.append(Token('macro', macro[1], start, start))
                tokens += tokenize(match.group()[body:], start + body)
                tokens.append(Token('macro', '', end, end))
        elif kind not in ('comment', 'attribute'):
            tokens.append(Token(kind, match.group(), start, end))
    return tokens


class Source:
    """A file, its tokens, and the mutants found in it."""

    def __init__(self, name: str, text: str):
        self.name = name
        self.text = text
        self.tokens = tokenize(text)
        self.partner: dict[int, int] = {}  # of each bracket the other one
        self.function: list[str] = []      # of each token; empty outside functions and macros
        self.last: set[int] = set()        # where a body ends
        self.skipped: set[int] = set()
        self.found: dict[tuple[int, int, str], Mutant] = {}
        self.match_brackets()
        self.find_functions()
        for i, token in enumerate(self.tokens):
            if token.text in UNTOUCHED and self.at(i + 1) == '(':
                self.skipped.update(range(i, self.partner[i + 1] + 1))

    def mutants(self) -> list[Mutant]:
        for i in range(len(self.tokens)):
            if i not in self.skipped:
                self.mutate(i)
        return list(self.found.values())

    def lines_of_code(self) -> int:
        """Lines with code that could be mutated."""
        return len({self.line(token.start) for i, token in enumerate(self.tokens)
                    if self.function[i] and token.kind != 'macro'})

    # ---- Tokens ----

    def at(self, i: int) -> str:
        return self.tokens[i].text if 0 <= i < len(self.tokens) else ''

    def opens(self, i: int) -> bool:
        return self.tokens[i].kind == 'op' and self.tokens[i].text in OPENING

    def closes(self, i: int) -> bool:
        return self.tokens[i].kind == 'op' and self.tokens[i].text in CLOSING

    def line(self, offset: int) -> int:
        return self.text.count('\n', 0, offset) + 1

    def slice(self, first: int, last: int) -> str:
        return self.text[self.tokens[first].start:self.tokens[last].end]

    def match_brackets(self) -> None:
        stack: list[int] = []
        for i in range(len(self.tokens)):
            if self.opens(i):
                stack.append(i)
            elif self.closes(i) and stack:
                self.partner[i] = stack.pop()
                self.partner[self.partner[i]] = i

    def find_functions(self) -> None:
        """A block after a parenthesis (and const or noexcept) is the body of a function."""
        name, end = '', -1
        for i, token in enumerate(self.tokens):
            if token.kind == 'macro':
                name, end = token.text, len(self.tokens) if token.text else i
            elif end < i and token.text == '{':
                j = i - 1
                while self.at(j) in ('const', 'noexcept', 'override'):
                    j -= 1
                if self.at(j) == ')':
                    name, end = self.at(self.partner[j] - 1), self.partner.get(i, i)
                    self.last.add(end)
            self.function.append(name if i <= end and token.kind != 'macro' else '')

    def operand_before(self, i: int, stops: set[str]) -> int:
        """The first token of the expression in front of token i."""
        j = i - 1
        while j >= 0 and self.at(j) not in stops and not self.opens(j):
            j = self.partner[j] - 1 if self.closes(j) else j - 1
        return j + 1

    def operand_after(self, i: int, stops: set[str]) -> int:
        """The last token of the expression after token i."""
        j = i + 1
        while j < len(self.tokens) and self.at(j) not in stops and not self.closes(j):
            j = self.partner[j] + 1 if self.opens(j) else j + 1
        return j - 1

    def arguments(self, i: int) -> list[tuple[int, int]]:
        """Of the call whose parenthesis is token i: first and last token of each argument."""
        found, first, close = [], i + 1, self.partner[i]
        while first < close:
            last = self.operand_after(first - 1, {','})
            found.append((first, last))
            first = last + 2
        return found

    # ---- Mutation ----

    def add(self, operator: str, first: int, last: int, text: str) -> None:
        """Replaces the tokens `first` to `last`."""
        start, end = self.tokens[first].start, self.tokens[last].end
        old = self.text[start:end]
        if text == old:
            return
        missing = old.count('\n') - text.count('\n')  # later checks stay on their lines
        text += ('\\\n' if '\\\n' in old else '\n') * max(missing, 0)
        begin = self.text.rfind('\n', 0, start) + 1
        stop = self.text.find('\n', end)
        lines = (self.text[begin:stop], self.text[begin:start] + text + self.text[end:stop])
        before, after = (re.sub(r'[\s\\]*\s', ' ', line).strip(' \\') for line in lines)
        mutant = Mutant(self.name, self.function[first], operator, start, end, text,
                        self.line(start), before, after)
        self.found.setdefault((start, end, text), mutant)

    def mutate(self, i: int) -> None:
        token = self.tokens[i]
        inside = bool(self.function[i])
        if token.kind == 'op' and inside:
            self.mutate_operator(i)
        elif token.kind in ('number', 'char', 'string') and (
                inside or not self.name.endswith('.h') or self.name.endswith('_internal.h')):
            self.mutate_constant(i)
        elif token.kind == 'word' and inside:
            self.mutate_word(i)
        elif token.kind == 'word' and self.is_table_entry(i):
            self.add('table', i, i, 'nullptr')
        if inside and token.kind != 'macro' and (
                self.at(i - 1) in (';', '{', '}') or self.tokens[i - 1].kind == 'macro' or
                (self.at(i - 1) == ')' and self.at(self.partner[i - 1] - 1) in ('if', 'for'))):
            self.drop_statement(i)

    def is_table_entry(self, i: int) -> bool:
        """Whether token i stands alone in the initialiser of a table of functions."""
        return (self.at(i - 1) in ('{', ',') and self.at(i + 1) in ('}', ',') and
                self.name.endswith('.cpp') and self.at(i).islower() and
                self.at(i) not in ('nullptr', 'true', 'false'))

    def mutate_operator(self, i: int) -> None:
        text = self.at(i)
        token = self.tokens[i]
        spaced = self.text[token.start - 1].isspace() and self.text[token.end].isspace()
        if text in SWAPS and spaced:
            self.add('swapped operator', i, i, SWAPS[text])
        if text in ('&&', '||'):
            first = self.operand_before(i, STOPS | {'&&', '||'})
            last = self.operand_after(i, STOPS | {'&&', '||'})
            left, right = self.slice(first, i - 1), self.slice(i + 1, last)
            self.add('dropped operand', first, last, left)
            self.add('dropped operand', first, last, right)
            self.add('swapped operands', first, last, f'{right} {text} {left}')
        elif text in ('++', '--'):
            self.add('swapped operator', i, i, '--' if text == '++' else '++')
        elif text == '!' and self.at(i + 1) != '(':
            self.add('negated condition', i, i, '')
        elif text == '?':
            self.decide(self.operand_before(i, STOPS), i - 1)
        elif text == '(' and self.at(i - 1) not in CHECKS | KEYWORDS:
            arguments = self.arguments(i) if self.tokens[i - 1].kind == 'word' else []
            for (a, b), (c, d) in zip(arguments, arguments[1:]):
                self.add('swapped arguments', a, d, f'{self.slice(c, d)}, {self.slice(a, b)}')

    def decide(self, first: int, last: int) -> None:
        """Makes a condition always true or always false."""
        condition = self.slice(first, last)
        self.add('decided condition', first, last, f'true || ({condition})')
        self.add('decided condition', first, last, f'false && ({condition})')

    def mutate_constant(self, i: int) -> None:
        kind, text = self.tokens[i].kind, self.at(i)
        if kind == 'number' and '.' in text:
            self.add('altered constant', i, i, str(float(text) + 1.0))
        elif kind == 'number':
            digits = re.match(r'0[xX][0-9a-fA-F]+|\d+', text)[0]
            value = int(digits, 16 if digits[:2] in ('0x', '0X') else 10)
            for other in {value + 1, max(value - 1, 0)}:
                self.add('altered constant', i, i, str(other) + text[len(digits):])
        elif kind == 'char':
            other = {'\\0': 'x', '\\n': ' ', '\\r': ' ', '\\\\': '/'}.get(
                text[1:-1], chr(ord(text[-2]) ^ 1))
            self.add('altered constant', i, i, f"'{other}'")
        elif self.at(i - 1) != 'extern':
            self.alter_text(i)

    def alter_text(self, i: int) -> None:
        """Alters one character of a string, none of an escape or a conversion."""
        text = self.at(i)
        hidden = re.sub(r'\\.|%[-.*\d]*[a-z]+', lambda match: '\0' * len(match[0]), text)
        if places := [match.start() for match in re.finditer(r'[A-Za-z_:,(]', hidden)]:
            place = places[len(text) % len(places)]
            other = chr(ord(text[place]) ^ 1) if text[place].isalpha() else '.'
            self.add('altered text', i, i, text[:place] + other + text[place + 1:])

    def mutate_word(self, i: int) -> None:
        text = self.at(i)
        if text in ('if', 'while') and self.at(i + 1) == '(':
            first, last = i + 2, self.partner[i + 1] - 1
            if ';' not in self.slice(first, last):
                if text == 'if':
                    self.decide(first, last)
                self.add('negated condition', first, last, f'!({self.slice(first, last)})')
        elif text in CHECKS and self.at(i + 1) == '(':
            self.mutate_check(i)
        elif text == 'static_cast' and self.at(i + 1) == '<':
            close = next(j for j in range(i, len(self.tokens)) if self.at(j) == '>')
            if self.slice(i + 2, close - 1) in CASTS:
                self.add('dropped cast', i, close, '')
        elif text in NAMES and self.at(i - 1) != 'case':
            self.add('altered constant', i, i, NAMES[text])

    def mutate_check(self, i: int) -> None:
        """Drops a check, or alters its condition but not the text that it prints."""
        close = self.partner[i + 1]
        arguments = self.arguments(i + 1)
        self.skipped.update(range(arguments[0][0], arguments[0][1] + 1))
        self.add('dropped check', i, close, '((void)0)')
        condition = self.slice(*arguments[0])
        value = ' ' + self.slice(arguments[1][0], close - 1) if len(arguments) > 1 else ''
        public = self.name.endswith('.h') and not self.name.endswith('_internal.h')
        said = json.dumps(condition)
        report = (f'vek_warn_failed_assertion(__FILE__, __LINE__, __func__, {said})' if public
                  else f'vek_failed_check({said}, __LINE__, __func__)')
        inner = Source('', f'#define F(x) {condition}')
        for mutant in inner.mutants():
            if mutant.operator != 'swapped operands':
                changed = (inner.text[:mutant.start] + mutant.text + inner.text[mutant.end:])[13:]
                self.add('altered check', i, close,
                         f'do {{ if (!({changed})) {{ {report}; return{value}; }} }} while (0)')

    def drop_statement(self, i: int) -> None:
        """Drops a statement that begins at token i and has no block."""
        text = self.at(i)
        if self.tokens[i].kind == 'op' or text in CHECKS | {'if', 'for', 'while', 'do', 'else'}:
            return
        end = self.operand_after(i - 1, {';'}) + 1
        declares = self.tokens[i + 1].kind == 'word' and text != 'return'
        needed = text == 'return' and end + 1 in self.last  # a function must not run off its end
        if self.at(end) == ';' and not declares and not needed:
            self.add('dropped statement', i, end, ';')


def load(folder: str) -> dict[str, Source]:
    """The sources and headers of a folder."""
    sources = {}
    for name in sorted(os.listdir(folder)):
        if name.endswith(('.cpp', '.h')):
            with open(os.path.join(folder, name), encoding='utf-8') as file:
                sources[name] = Source(name, file.read())
    return sources


def sample(sources: Iterable[Source], total: int, seed: int) -> list[Mutant]:
    """Mutants of all sources, in proportion to their lines of code. A line is chosen before one of
    its mutants, so that lines with many do not crowd out the others. A part from the beginning
    keeps the proportions."""
    choice = random.Random(seed)
    mutants = {source: found for source in sources if (found := source.mutants())}
    whole = sum(source.lines_of_code() for source in mutants)
    picked: list[tuple[float, Mutant]] = []
    for source, found in mutants.items():
        lines = collections.defaultdict(list)
        for mutant in found:
            lines[mutant.line].append(mutant)
        rounds: list[tuple[int, float, Mutant]] = []
        for of_line in lines.values():
            choice.shuffle(of_line)
            rounds += [(turn, choice.random(), mutant) for turn, mutant in enumerate(of_line)]
        rounds.sort(key=lambda entry: entry[:2])
        quota = round(total * source.lines_of_code() / whole)
        picked += [((k + choice.random()) / quota, entry[2])
                   for k, entry in enumerate(rounds[:quota])]
    return [mutant for _, mutant in sorted(picked, key=lambda entry: entry[0])]
