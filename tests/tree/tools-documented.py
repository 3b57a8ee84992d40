"""docs/tools.md names each option and exit code that the programs' help names, and no other.

Usage: python3 tools-documented.py ROOT PROGRAM...
"""
import pathlib
import re
import subprocess
import sys

# The commands with options of their own.
COMMANDS = {'tivra-cat': ['snapshot', 'subscribe', 'depth', 'wildcard', 'list'], 'tivra-hub': [],
            'tivra-top': [], 'tivra-wire': ['dump', 'convert', 'map']}


def helps_of(program):
    return [subprocess.run([program, *command, '--help'], check=True, capture_output=True, text=True).stdout
            for command in [[], *([command] for command in COMMANDS[program.name])]]


def options_in(text):
    return set(re.findall(r'(?<!-)--[a-z][a-z-]+', text))


def faults_of(section, helps, every_option):
    documented, known = options_in(section), options_in(''.join(helps))
    yield from (f'{option} is not documented' for option in known - documented)
    # A section may name what goes with other programs.
    yield from (f'{option} is documented, but no program has it' for option in documented - every_option)
    for short, long in re.findall(r'^  (-\w),(--[\w-]+)', ''.join(helps), re.M):
        if short != '-h' and f'`{short}`, `{long}' not in section:
            yield f'{short} is not documented as {long}'
    told = set(re.findall(r'^\| (\d+) \|', section[re.search(r'Exit code \||\| Code \|', section).start():], re.M))
    codes = set(re.findall(r'[,:]\s+(\d+)\s', helps[0][helps[0].index('Exit codes:'):]))
    yield from (f'exit code {code} stands in one place only' for code in told ^ codes)


def main(root, *programs):
    page = (pathlib.Path(root) / 'docs/tools.md').read_text()
    helps = {program.name: helps_of(program) for program in map(pathlib.Path, programs)}
    every_option = options_in(str(helps))
    faults = [f'{name}: {fault}' for name in COMMANDS
              for fault in faults_of(page.split(f'\n## {name}\n')[1].split('\n## ')[0], helps[name], every_option)]
    print(f'{len(every_option)} options; {len(faults)} faults', *faults, sep='\n')
    return 1 if faults else 0


sys.exit(main(*sys.argv[1:]))
