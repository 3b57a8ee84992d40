#!/bin/sh
# The examples do what they say against a hub, and end by themselves.
set -eu
build=$1
work=$(mktemp -d)
hub=
gaps=
cleanup() {
    for process in $hub $gaps; do
        kill "$process" 2>/dev/null && wait "$process" || true
    done
    rm -rf "$work"
}
trap cleanup EXIT

# start PORT: a hub, whose address is then in $host.
start() {
    : >"$work/listening"
    "$build/tools/tivra-hub/tivra-hub" --port "$1" >"$work/listening" 2>&1 &
    hub=$!
    host=
    while [ -z "$host" ]; do
        kill -0 "$hub" || { cat "$work/listening"; exit 1; }
        host=$(sed -n 's/^listening on //p' "$work/listening")
        sleep 0.05
    done
}

# expect NAME TEXT: the example's output has it.
expect() {
    grep -q -- "$2" "$work/$1" || { echo "$1 doesn't say \"$2\":"; cat "$work/$1"; exit 1; }
}

start 0
cd "$work"
"$build/examples/example_board" "$host" demo demo 100 2 IBM AIG >board
expect board "^IBM"
expect board "^AIG"
"$build/examples/example_epoll_loop" "$host" demo demo 100 2 IBM AIG >epoll_loop
expect epoll_loop "^IBM: the image is complete"
expect epoll_loop "^AIG"
"$build/examples/example_poll" "$host" demo demo 100 IBM AIG >poll
expect poll "^AIG "
if "$build/examples/example_poll" "$host" demo demo 100 IBM NOPE >poll; then
    echo "a symbol that doesn't exist must be a failure"
    exit 1
fi
expect poll "NOPE Refused: "
if "$build/examples/example_board" "$host" demo wrong 100 1 IBM 2>board; then
    echo "a wrong password must be a failure"
    exit 1
fi
expect board "Refused: the hub has refused the login"

# The hub goes and comes back.
"$build/examples/example_gaps" "$host" demo demo 100 IBM >"$work/gaps" &
gaps=$!
while ! grep -q "complete" "$work/gaps"; do
    kill -0 $gaps
    sleep 0.05
done
kill "$hub"
wait "$hub" || true
start "${host##*:}"
wait $gaps
gaps=
expect gaps "the connection to the hub is lost"
expect gaps "ms missed"
