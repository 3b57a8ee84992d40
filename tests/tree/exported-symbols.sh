#!/bin/sh
# Only the public classes leave the library.
set -eu
symbols=$(nm -D --defined-only -C "$1" | sed 's/^[0-9a-f]* [A-Za-z] //')
others=$(echo "$symbols" | grep -vE '^((non-virtual thunk to|typeinfo (name )?for|vtable for|VTT for) )?tivra::([A-Z]|version\(\)$)' |
    grep -vE '^(_init|_fini|_edata|_end|__bss_start|__asan|__ubsan|__tsan|__lsan|__sanitizer|std::)' || true)
if [ -n "$others" ]; then
    echo "symbols that no user should see:"
    echo "$others" | head -n 40
    exit 1
fi
