#!/bin/sh
# Installs into a prefix of its own, then builds and runs the examples against that prefix alone, with both compilers,
# through the CMake package and through pkg-config.
set -eu
root=$1
build=$2
hub=$3
work=$(mktemp -d)
hub_pid=
cleanup() {
    exec 3>&- || true
    [ -z "$hub_pid" ] || wait "$hub_pid" 2>/dev/null || true
    rm -rf "$work"
}
trap cleanup EXIT

cmake --install "$build" --prefix "$work/prefix" >"$work/install.log" || { cat "$work/install.log"; exit 1; }
# Nothing of the source tree may be needed.
cp -r "$root/examples" "$work/examples"

mkfifo "$work/stdin"
"$hub" <"$work/stdin" >"$work/port" &
hub_pid=$!
exec 3>"$work/stdin"
tries=0
while [ ! -s "$work/port" ]; do
    tries=$((tries + 1))
    [ $tries -lt 200 ] || { echo "the hub did not start"; exit 1; }
    sleep 0.05
done
port=$(cat "$work/port")

run() {
    (cd "$work" && LD_LIBRARY_PATH="$work/prefix/lib:$(dirname "$(find "$work/prefix" -name 'libtivra.so' | head -n 1)")" \
        timeout 60 "$@" >"$work/out" 2>"$work/err") || { cat "$work/out" "$work/err"; echo "failed: $*"; exit 1; }
}

for compiler in g++ clang++; do
    command -v $compiler >/dev/null 2>&1 || { echo "$compiler is not here; skipped"; continue; }
    cmake -S "$work/examples" -B "$work/build-$compiler" -G Ninja -DCMAKE_CXX_COMPILER=$compiler \
        -DCMAKE_PREFIX_PATH="$work/prefix" >"$work/log" 2>&1 || { cat "$work/log"; exit 1; }
    cmake --build "$work/build-$compiler" >"$work/log" 2>&1 || { cat "$work/log"; exit 1; }
    run "$work/build-$compiler/example_snapshot" "127.0.0.1:$port" demo demo 100 IBM
    grep -q '^IBM of source 100' "$work/out" || { cat "$work/out"; echo "no snapshot"; exit 1; }
done

# A test that brings its hub along.
cp -r "$root/tests/tree/consumer-sim" "$work/consumer-sim"
cmake -S "$work/consumer-sim" -B "$work/build-sim" -G Ninja -DCMAKE_CXX_COMPILER=g++ -DCMAKE_PREFIX_PATH="$work/prefix" \
    >"$work/log" 2>&1 || { cat "$work/log"; exit 1; }
cmake --build "$work/build-sim" >"$work/log" 2>&1 || { cat "$work/log"; exit 1; }
run "$work/build-sim/consumer_sim"

pc=$(dirname "$(find "$work/prefix" -name tivra.pc)")
flags=$(PKG_CONFIG_PATH="$pc" pkg-config --cflags --libs tivra)
# shellcheck disable=SC2086
g++ -std=c++17 "$work/examples/snapshot.cpp" $flags -o "$work/by-pkg-config"
run "$work/by-pkg-config" "127.0.0.1:$port" demo demo 100 IBM
