"""Each text that the library logs as critical or as a warning stands in docs/troubleshooting.md.

Looked for are the constant pieces of a text, together in the first cell of a table's row whose second cell names the
level. Usage: python3 log-lines-documented.py ROOT
"""
import pathlib
import re
import sys

LITERAL = re.compile(r'"((?:[^"\\\n]|\\.)*)"')
# Literals that the compiler joins, also across a macro such as PRId64.
JOINED = LITERAL.pattern + r'(?:\s*(?:PRI\w+\s*)?' + LITERAL.pattern + r')*'
CONVERSION = re.compile(r'%[-+ #0]*(?:\d+|\*)?(?:\.(?:\d+|\*))?(?:hh|h|ll|l|z|j|t)?[a-zA-Z%]')
LEVEL = re.compile(r'\bEPF_(?:ALWAYS_)?(CRIT|WARN)\b')
# Where a failed start gets its cause, which is logged elsewhere as "%s".
CAUSE = r'(?:suspendClient\(|severe_error\(|abortStart\(|const char\* k\w+\s*=)\s*'
# They define the levels, or look at them.
LOGGER = {'shared/tp_lib_tp/include/tp/eprintf.h', 'shared/tp_lib_tp/src/eprintf.cpp',
          'shared/tp_lib_tp/src/LogDelivery.cpp', 'shared/tp_lib_tp/src/LogRoute.cpp'}
FEWEST = 200  # fewer texts than that mean that the search has stopped working


def blank(text):
    return re.sub(r'[^\n]', ' ', text)


def without_comments(code):
    return re.sub(LITERAL.pattern + r'|//[^\n]*|(?s:/\*.*?\*/)',
                  lambda m: m.group(0) if m.group(0)[0] == '"' else blank(m.group(0)), code)


def call_end(code, opening):
    depth = 0
    for token in re.compile(LITERAL.pattern + r"|'(?:[^'\\]|\\.)'|[()]").finditer(code, opening):
        depth += {'(': 1, ')': -1}.get(token.group(0), 0)
        if depth == 0:
            return token.end()
    return len(code)


def text_of(literals):
    return ''.join(LITERAL.findall(literals)).replace(r'\n', ' ').replace(r'\"', '"')


def pieces_of(text):
    """The constant pieces that have a word; without any, the longest piece."""
    pieces = [piece.strip() for piece in CONVERSION.split(text)]
    return [piece for piece in pieces if re.search(r'[A-Za-z]{4}', piece)] or [max(pieces, key=len)]


def is_sentence(text):
    return re.search(r'[A-Za-z]', text) and any(' ' in piece for piece in pieces_of(text))


def texts_in(code):
    """Yields (position, level, text); the level is empty where another place logs the text."""
    rest, relays = code, False
    for call in re.finditer(r'\b(?:eprintf|eperror)\s*\(', code):
        end = call_end(code, call.end() - 1)
        arguments = code[call.start():end]
        rest = rest[:call.start()] + blank(arguments) + rest[end:]
        levels = set(LEVEL.findall(arguments))
        if not levels:
            continue
        form, *given = (text_of(found.group(0)) for found in re.finditer(JOINED, arguments))
        relays = relays or pieces_of(form) == ['']
        for level in levels:
            yield from ((call.start(), level, text) for text in [form, *filter(is_sentence, given)])
    if strange := LEVEL.search(rest):
        yield strange.start(), '', '(this level is not in a call of eprintf)'
    # A file with a line that is nothing but "%s" has its texts elsewhere: any other sentence of it may be one.
    for found in re.finditer(JOINED if relays else CAUSE + JOINED, rest):
        if is_sentence(text_of(found.group(0))):
            yield found.start(), '', text_of(found.group(0))


def main(root):
    page = (root / 'docs/troubleshooting.md').read_text()
    rows = [line.split('|')[1:3] for line in page.splitlines() if line.startswith('|')]
    missing, count = [], 0
    for path in sorted([*root.glob('src/**/*'), *root.glob('shared/tp_lib_tp/**/*')]):
        name = path.relative_to(root).as_posix()
        if path.suffix not in ('.cpp', '.h') or name in LOGGER:
            continue
        code = without_comments(path.read_text().replace("'\"'", "' '"))
        for position, level, text in texts_in(code):
            count += 1
            pieces = pieces_of(text)
            if not any(level in levels and all(piece in texts for piece in pieces) for texts, levels in rows):
                line = code.count('\n', 0, position) + 1
                missing.append(f'{name}:{line}: {level or "cause"}: {" ... ".join(pieces)}')
    print(f'{count} texts; {len(missing)} are not in docs/troubleshooting.md', *missing, sep='\n')
    return 1 if missing or count < FEWEST else 0


sys.exit(main(pathlib.Path(sys.argv[1])))
