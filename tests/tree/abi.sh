#!/bin/sh
# The library keeps the stored binary interface, and a break of it is seen: a function that goes, a member that moves.
set -eu
check=$1/packaging/check-abi
library=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
"$check" "$library"

xz -dc "$1/packaging/abi/libtivra.so.1.abi.xz" |
    sed -e 's/_ZN5tivra4Feed12enumerationsEv/_ZN5tivra4Feed16removedSinceThenEv/g' \
        -e "/layout-offset-in-bits='192'/{N;s/'192'\(.*name='exactTimes'\)/'320'\1/}" | xz -0 >"$work/other.abi.xz"
status=0
"$check" "$library" "$work/other.abi.xz" >"$work/report" || status=$?
for fault in '\[D\].*removedSinceThen' "exactTimes.* offset changed from 320 to 192"; do
    if [ $status -ne 1 ] || ! grep -q "$fault" "$work/report"; then
        cat "$work/report"
        echo "a break was not seen: $fault (status $status)"
        exit 1
    fi
done
