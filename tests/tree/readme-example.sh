#!/bin/sh
# The first program of the README compiles as it stands.
set -eu
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
sed -n '/^```cpp$/,/^```$/p' "$1/README.md" | sed '/^```/d' >"$work/first.cpp"
[ -s "$work/first.cpp" ] || { echo "no example in the README"; exit 1; }
g++ -std=c++17 -fsyntax-only -Wall -Wextra -Wpedantic -Werror -I "$1/include" "$work/first.cpp"
