#!/usr/bin/env python3
"""Each text that the library logs as critical or as a warning stands in docs/troubleshooting.md.

Looked for are the constant pieces of a text, together in the first cell of a table's row whose second cell names
the level. Usage: log-lines-documented.py ROOT
"""
import pathlib
import re
import sys

LITERAL = re.compile(r'"((?:[^"\\\n]|\\.)*)"')
# A literal with what follows it, up to the next, when only white space or a macro such as PRId64 lies between.
ADJACENT = re.compile(LITERAL.pattern + r'(?:\s*(?:PRI\w+\s*)?' + LITERAL.pattern + r')*')
CONVERSION = re.compile(r'%[-+ #0]*(?:\d+|\*)?(?:\.(?:\d+|\*))?(?:hh|h|ll|l|z|j|t)?[a-zA-Z%]')
SITE = re.compile(r'EPF_(?:ALWAYS_)?(CRIT|WARN)\b')
LOGGER = {'shared/tp_lib_tp/include/tp/eprintf.h', 'shared/tp_lib_tp/src/eprintf.cpp'}  # they define the levels


def without_comments(code):
    keep = re.compile(LITERAL.pattern + r'|//[^\n]*|/\*.*?\*/', re.S)
    return keep.sub(lambda m: m.group(0) if m.group(0).startswith('"') else re.sub(r'[^\n]', ' ', m.group(0)), code)


def call_end(code, start):
    """The position behind the call whose opening parenthesis is at `start`."""
    depth, position = 0, start
    for token in re.compile(LITERAL.pattern + r"|'(?:[^'\\]|\\.)'|[()]").finditer(code, start):
        position = token.end()
        depth += {'(': 1, ')': -1}.get(token.group(0), 0)
        if depth == 0:
            break
    return position


def texts_of(code):
    return [''.join(LITERAL.findall(m.group(0))) for m in ADJACENT.finditer(code)]


def pieces_of(text):
    """The constant pieces that have a word, or at least the longest one."""
    pieces = [piece.strip() for piece in CONVERSION.split(text.replace(r'\n', ' ').replace(r'\"', '"'))]
    return [piece for piece in pieces if re.search(r'[A-Za-z]{4}', piece)] or [max(pieces, key=len)]


def is_sentence(text):
    return re.search(r'[A-Za-z]', text) and any(' ' in piece for piece in pieces_of(text))


def logged(code):
    """Yields (position, level or None, text); the level of a text that another place logs isn't known."""
    rest, relays = code, False
    for call in re.finditer(r'\b(?:eprintf|eperror)\s*\(', code):
        end = call_end(code, call.end() - 1)
        arguments = code[call.start():end]
        rest = rest[:call.start()] + re.sub(r'[^\n]', ' ', arguments) + rest[end:]
        levels = set(SITE.findall(arguments))
        if not levels:
            continue
        # The format, and the sentences that it may be given.
        head, *given = texts_of(arguments)
        relays = relays or not max(pieces_of(head))
        for level in levels:
            yield from ((call.start(), level, text) for text in [head, *filter(is_sentence, given)])
    if SITE.search(rest):
        yield SITE.search(rest).start(), None, '(a level outside a call of eprintf)'
    # Where a line is nothing but "%s", its texts are the other sentences of the file; further ones are the reasons
    # for which a hub is given up, and named texts.
    others = re.finditer(ADJACENT if relays else
                         r'(?:suspendClient\(|severe_error\(|abortStart\(|const char\* k\w+\s*=)\s*' + ADJACENT.pattern,
                         re.sub(r'#include[^\n]*', '', rest) if not relays else rest)
    for other in others:
        text = ''.join(LITERAL.findall(other.group(0)))
        if is_sentence(text):
            yield other.start(), None, text


def main(root):
    page = (root / 'docs/troubleshooting.md').read_text()
    rows = [re.split(r'(?<!\\)\|', line)[1:3] for line in page.splitlines() if line.startswith('|')]
    missing, count = [], 0
    for room in ('src', 'shared/tp_lib_tp/src', 'shared/tp_lib_tp/include'):
        for path in sorted((root / room).rglob('*')):
            name = str(path.relative_to(root))
            if path.suffix not in ('.cpp', '.h') or name in LOGGER:
                continue
            code = without_comments(path.read_text())
            for position, level, text in logged(code):
                pieces = pieces_of(text)
                count += 1
                if not any(all(piece in cell for piece in pieces) and (level or '') in levels
                           for cell, levels in rows):
                    line = code.count('\n', 0, position) + 1
                    missing.append(f'{name}:{line}: {level or "reason"}: {" ... ".join(pieces)}')
    print(f'{count} texts, {len(missing)} of them not in docs/troubleshooting.md')
    print('\n'.join(missing))
    return 1 if missing or count < 200 else 0  # so few mean that the search itself is broken


sys.exit(main(pathlib.Path(sys.argv[1])))
