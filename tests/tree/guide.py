#!/usr/bin/env python3
"""The C++ in docs/guide.md compiles, and its whole programs run against a hub.

Pieces are compiled at once, each as a function of its own; one that begins with a type stands outside of
functions. Usage: guide.py ROOT BUILD
"""
import os
import re
import signal
import subprocess
import sys
import tempfile

root, build = sys.argv[1:]
flags = ["-std=c++20", "-Wall", "-Wextra", "-Wpedantic", "-Werror", "-I", f"{root}/include", "-I", "."]
FRAME = """\
#include <atomic>
#include <chrono>
#include <cstdint>
#include <coroutine>
#include <exception>
#include <optional>
#include <string>
#include <string_view>
#include <vector>
#include <sys/epoll.h>
#include <unistd.h>
#include <tivra/feed.h>
void show(std::string_view symbol, double price);
void log(std::string_view text);
"""
ARGUMENTS = "tivra::Feed& feed, const tivra::Field& bid, const tivra::Field& ask, const std::atomic<bool>& stop"


def blocks(text):
    """Of each piece of C++ the line that it begins in, and its text."""
    for found in re.finditer(r"^```cpp\n(.*?)^```$", text, re.M | re.S):
        yield text.count("\n", 0, found.start(1)) + 1, found.group(1)


def compile_pieces(pieces):
    with open("pieces.cpp", "w") as file:
        file.write(FRAME)
        for line, piece in pieces:
            is_type = piece.startswith("struct ")
            opening = f"namespace piece{line} {{" if is_type else f"void piece{line}({ARGUMENTS}) {{ {{"
            closing = "}" if is_type else "} static_cast<void>(feed), static_cast<void>(bid), " \
                "static_cast<void>(ask), static_cast<void>(stop); }"
            file.write(f'{opening}\n#line {line} "docs/guide.md"\n{piece}{closing}\n')
    subprocess.run(["g++", *flags, "-Wno-unused", "-fsyntax-only", "pieces.cpp"], check=True)


def run_program(number, program, host):
    """It is started as the guide says, and has to show a price and to end well."""
    name = f"program{number}"
    with open(name + ".cpp", "w") as file:
        file.write(program.replace("127.0.0.1:9100", host))
    library = f"{build}/src"
    subprocess.run(["g++", *flags, name + ".cpp", "-o", name, "-L", library, "-ltivra", f"-Wl,-rpath,{library}"],
                   check=True)
    with open("client.toml", "w") as file:
        file.write(f'hosts = ["{host}"]\nuser = "demo"\n')
    process = subprocess.Popen(["./" + name, "client.toml", "100", "IBM", "AIG"], stdin=subprocess.PIPE,
                               stdout=subprocess.PIPE, text=True, env={**os.environ, "TIVRA_PASSWORD": "demo"})
    while not re.match(r"AIG.* \d", line := process.stdout.readline()):
        if line == "":
            sys.exit(f"{name} shows no price of AIG, and ends with {process.wait()}")
    process.send_signal(signal.SIGTERM) if "SIGTERM" in program else process.stdin.close()
    process.stdout.read()
    if (code := process.wait(timeout=20)) != 0:
        sys.exit(f"{name} ends with {code}")


def main():
    with open(f"{root}/docs/guide.md") as file:
        found = list(blocks(file.read()))
    programs = [text for _, text in found if "int main(" in text]
    with tempfile.TemporaryDirectory() as work:
        os.chdir(work)
        os.symlink(f"{root}/include", "tivra")
        compile_pieces([entry for entry in found if "int main(" not in entry[1]])
        with open("hub.json", "w") as file:
            file.write('{"symbols": [{"source": 100, "symbol": "IBM", "fields": {"101": "184.25"}}, '
                       '{"source": 100, "symbol": "AIG", "fields": {"101": "49.05", "103": "49.1"}}]}')
        hub = subprocess.Popen([f"{build}/tools/tivra-hub/tivra-hub", "--config", "hub.json"],
                               stdout=subprocess.PIPE, text=True)
        try:
            host = hub.stdout.readline().split()[-1]
            for number, program in enumerate(programs):
                run_program(number, program, host)
        finally:
            hub.terminate()
            hub.wait()


main()
