#!/bin/sh
# The first program of the README compiles as it stands.
set -eu
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
sed -n '/^```cpp$/,/^```$/p' "$1/README.md" | sed '/^```/d' >"$work/first.cpp"
[ -s "$work/first.cpp" ] || { echo "no example in the README"; exit 1; }
ln -s "$1/include" "$work/tivra"
for compiler in g++ clang++; do
    command -v $compiler >/dev/null 2>&1 || continue
    $compiler -std=c++20 -fsyntax-only -Wall -Wextra -Wpedantic -Werror -I "$1/include" -I "$work" "$work/first.cpp"
done
# So does the test that the simulator's guide shows.
kit=$(sed -n '/^#include <tivra_testkit/,/^```$/p' "$1/sim/README.md" | sed '/^```/d')
[ -n "$kit" ] || { echo "no test in the simulator's guide"; exit 1; }
printf '#include <gtest/gtest.h>\n%s\n' "$kit" | sed '2a TEST(Guide, Test) {' >"$work/kit.cpp"
echo '}' >>"$work/kit.cpp"
g++ -std=c++17 -fsyntax-only -Wall -Wextra -Wpedantic -Werror -I "$1/include" -I "$1/sim/include" -I "$1/sim/testkit/include" \
    "$work/kit.cpp"
