#!/bin/sh
# Every public header stands on its own and is clean as C++17 in both compilers.
set -eu
cd "$1/include"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
# The reader of the bus is installed beside them, and its one header includes the others.
for header in $(find . -name '*.h' | sort) reader/BusReader.h; do
    echo "#include <${header#./}>" >"$work/one.cpp"
    for compiler in g++ clang++; do
        command -v $compiler >/dev/null 2>&1 || continue
        $compiler -std=c++17 -fsyntax-only -Wall -Wextra -Wpedantic -Wconversion -Wsign-conversion -Wshadow \
            -Wold-style-cast -Wnon-virtual-dtor -Werror -I . -I ../bridge "$work/one.cpp"
    done
done

# Misuse that must not compile.
refuse() {
    printf '#include <tivra.h>\n%s\n' "$1" >"$work/misuse.cpp"
    if g++ -std=c++17 -fsyntax-only -I . "$work/misuse.cpp" 2>/dev/null; then
        echo "this must not compile: $1"
        exit 1
    fi
}
for type in Session SessionConfig ConnectionConfig HostConfig UserInfo Request SessionEvent UserEvent StatisticsEvent \
    MessageEvent MessageReader; do
    refuse "tivra::$type copy(tivra::$type& s) { return s; }"
    refuse "void f(tivra::$type& a, tivra::$type& b) { a = b; }"
done
refuse 'void f(tivra::Request& r) { delete &r; }'
refuse 'tivra::ConnectionConfig config;'
refuse 'tivra::APIFactory factory;'
# Neither a text nor a null pointer turns into a bool or a number.
for config in Session Connection Host; do
    parameter=tivra::HostConfig::COMPRESSION_BOOL
    [ $config != Session ] || parameter=tivra::SessionConfig::WATCHLIST_BOOL
    refuse "void f(tivra::${config}Config& c) { c.set($parameter, \"yes\"); }"
    refuse "void f(tivra::${config}Config& c) { c.set($parameter, nullptr); }"
done
refuse 'void f(tivra::SessionConfig& c) { c.set(tivra::HostConfig::QUEUE_SIZE_LONG, 1); }'
refuse 'void f(tivra::Request& r) { r.add(5, nullptr); }'
refuse 'void f(tivra::Request& r) { r.add(tivra::SYMBOL_TICKER, nullptr); }'
