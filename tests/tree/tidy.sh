#!/bin/sh
# scripts/tidy sees a fault in what has changed, in a header too, and only there; it says why when it has nothing to look at.
set -eu
root=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"
mkdir -p scripts src build/debug
cp "$root/scripts/tidy" scripts/
cp "$root/.clang-tidy-faults" .
echo build >.gitignore
echo 'int length(const char* text) { return text[0] == 0 ? 0 : 1; }' >src/Sound.cpp
# An old fault: what it divides by may be 0.
echo 'int share(int whole) { int parts = 0; return whole / parts; }' >src/Old.cpp
printf '#pragma once\ninline int first(const int* values) { return values[0]; }\n' >src/Head.h
printf '#include "Head.h"\nint second(const int* values) { return first(values + 1); }\n' >src/Head.cpp
for name in Sound Old Head; do
    echo "{\"directory\": \"$work\", \"file\": \"src/$name.cpp\", \"command\": \"c++ -std=c++20 -c src/$name.cpp\"},"
done | sed -e '1s/^/[/' -e '$s/,$/]/' >build/debug/compile_commands.json

# Expects a status and a pattern of the output.
expect() {
    wanted=$1 pattern=$2 status=0
    shift 2
    scripts/tidy "$@" >out 2>&1 || status=$?
    if [ $status -ne "$wanted" ] || ! grep -q "$pattern" out; then
        cat out
        echo "scripts/tidy $*: expected status $wanted and \"$pattern\", got status $status"
        exit 1
    fi
    rm out
}
commit() { git add -A && git -c user.name=tests -c user.email=tests@localhost commit -qm "$1"; }

git init -q -b main
commit first
expect 77 'skipped: no release tag'
git tag v1
echo '// A comment.' >>src/Sound.cpp
expect 2 'is no commit' no-such-commit
commit second
expect 0 '1 sources changed'
echo 'int* gone() { int* value = new int(1); delete value; return value; }' >>src/Sound.cpp
expect 1 'Sound.cpp.*NewDelete' HEAD
git checkout -q src/Sound.cpp
sed -i 's/return values/const int* none = nullptr; return values == none ? *none : values/' src/Head.h
expect 1 'Head.h.*NullDereference' HEAD
git checkout -q src/Head.h
expect 1 'Old.cpp.*DivideZero' --all
