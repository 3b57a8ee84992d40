#!/bin/sh
# The examples do what they say against a hub, and end by themselves.
set -eu
root=$1
build=$2
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

cat >"$work/hub.json" <<END
{"symbols": [{"source": 100, "symbol": "IBM", "fields": {"101": "184.25", "103": "184.5", "105": "N"}},
             {"source": 100, "symbol": "AIG", "fields": {"101": "49.05", "103": "49.1", "105": "N"}}]}
END

# start PORT: a hub with quotes, whose address is then in $host. It plays the day to whoever subscribes.
start() {
    : >"$work/listening"
    "$build/tools/tivra-hub/tivra-hub" --config "$work/hub.json" --port "$1" --repeat 1000 --factor 1 \
        --playback "$root/data/sample-20131007.csv.gz" >"$work/listening" 2>&1 &
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
"$build/examples/example_depth" "$host" demo demo 100 IBM 2 >depth
expect depth "^best 1[0-9][0-9]"
if "$build/examples/example_depth" "$host" demo demo 100 NOPE 2 2>depth; then
    echo "an order book that is refused must be a failure"
    exit 1
fi
expect depth "^Refused: "
if [ -x "$build/examples/example_coroutine" ]; then
    "$build/examples/example_coroutine" "$host" demo demo 100 IBM AIG >coroutine
    expect coroutine "^AIG [1-9]"
fi
"$build/examples/example_feeds" demo demo 100 IBM "$host" "$host" >feeds
[ "$(grep -c "^$host [1-9]" feeds)" = 2 ] || { cat feeds; exit 1; }
if "$build/examples/example_feeds" demo demo 100 NOPE "$host" >feeds; then
    echo "a symbol that doesn't exist must be a failure"
    exit 1
fi
if "$build/examples/example_board" "$host" demo wrong 100 1 IBM 2>board; then
    echo "a wrong password must be a failure"
    exit 1
fi
expect board "^Refused: .*the hub has refused the login"

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
