#!/bin/sh
# Installs and links in the ways that users do, and runs what comes of it without LD_LIBRARY_PATH.
set -eu
root=$1
build=$2
work=$(mktemp -d)
hub=
cleanup() {
    [ -z "$hub" ] || { kill "$hub" && wait "$hub"; } || true
    rm -rf "$work"
}
trap cleanup EXIT
unset LD_LIBRARY_PATH
# The same sources are compiled in three builds, and the places of this run are others than those of the last.
export CCACHE_BASEDIR="$work" CCACHE_NOHASHDIR=1 CMAKE_GENERATOR=Ninja
command -v ccache >/dev/null && export CMAKE_CXX_COMPILER_LAUNCHER=ccache

# quietly COMMAND...: what it prints is shown when it fails.
quietly() {
    "$@" >"$work/log" 2>&1 || { cat "$work/log"; echo "failed: $*"; exit 1; }
}

# by_cmake NAME CMAKE-ARGUMENT...: a consumer for each standard.
by_cmake() {
    name=$1
    shift
    quietly cmake -S "$work/consumer" -B "$work/$name" "$@"
    quietly cmake --build "$work/$name"
    quietly "$work/$name/consumer_17" "$host"
    quietly "$work/$name/consumer_20" "$host"
}

# by_pkg_config PREFIX COMPILER STANDARD [--static]
by_pkg_config() {
    pc=$(find "$1" -name tivra.pc)
    flags=$(PKG_CONFIG_PATH=${pc%/*} pkg-config --cflags --libs ${4:-} tivra)
    # shellcheck disable=SC2086
    quietly "$2" -std="$3" "$work/consumer/main.cpp" $flags -Wl,-rpath,"${pc%/pkgconfig/*}" -o "$work/by-pkg-config"
    quietly "$work/by-pkg-config" "$host"
}

# Nothing of the source tree or the build tree may be needed. Our presets have a libdir of two parts.
cp -r "$root/tests/tree/consumer" "$work/consumer"
deep=$work/opt/of/some/depth
usr=$work/stage/usr
quietly cmake --install "$build" --prefix "$deep"
quietly env DESTDIR="$work/stage" cmake --install "$build" --prefix /usr
cd "$work"

: >"$work/listening"
"$usr/bin/tivra-hub" --port 0 >"$work/listening" 2>&1 &
hub=$!
host=
while [ -z "$host" ]; do
    kill -0 "$hub" || { cat "$work/listening"; exit 1; }
    host=$(sed -n 's/^listening on //p' "$work/listening")
    sleep 0.05
done
for prefix in "$deep" "$usr"; do
    quietly "$prefix/bin/tivra-hub" --version
    quietly "$prefix/bin/tivra-wire" --version
    quietly env TIVRA_PASSWORD=demo "$prefix/bin/tivra-cat" -H "$host" -u demo --log-file "$work/cat.log" snapshot 100:IBM
done

cp -r "$root/examples" "$work/examples"
quietly cmake -S "$work/examples" -B "$work/build-examples" -DCMAKE_PREFIX_PATH="$deep"
quietly cmake --build "$work/build-examples"
quietly "$work/build-examples/example_snapshot" "$host" demo demo 100 IBM
grep -q '^IBM of source 100' "$work/log" || { cat "$work/log"; echo "no snapshot"; exit 1; }

# What embeds the library brings its own copy of it; the last of these is the source of the other two builds.
mkdir "$work/repository"
(cd "$root" && cp -r CMakeLists.txt cmake include shared src "$work/repository")
(cd "$work/repository" && git init -q -b main && git add . &&
    git -c user.name=consumer -c user.email=consumer@localhost commit -q -m all)
fetched=$work/fetched/tivra-src
by_cmake build-fetched -DTIVRA_REPOSITORY="$work/repository" -DFETCHCONTENT_BASE_DIR="$work/fetched"
by_cmake build-embedded -DTIVRA_SOURCE="$fetched" -DBUILD_SHARED_LIBS=OFF
static=$work/static
quietly cmake -S "$fetched" -B "$work/build-static" -DBUILD_SHARED_LIBS=OFF -DTIVRA_BUILD_SIM=OFF -DTIVRA_BUILD_TOOLS=OFF \
    -DTIVRA_BUILD_EXAMPLES=OFF -DTIVRA_BUILD_TESTS=OFF -DCMAKE_INSTALL_LIBDIR="$static/lib" -DCMAKE_INSTALL_PREFIX="$static"
quietly cmake --build "$work/build-static"
quietly cmake --install "$work/build-static"

for compiler in g++ clang++; do
    for prefix in "$deep" "$usr" "$static"; do
        by_cmake "build-$compiler-${prefix##*/}" -DCMAKE_CXX_COMPILER=$compiler -DCMAKE_PREFIX_PATH="$prefix"
    done
    for standard in c++17 c++20; do
        by_pkg_config "$deep" $compiler $standard
        by_pkg_config "$static" $compiler $standard --static
    done
    by_pkg_config "$usr" $compiler c++17
done
