#!/bin/sh
# Includes point downward only: each room may include itself, the rooms before it and the public headers.
set -eu
cd "$1"
rooms="kvnparse dictionary config request receive tls hub session api feed"
status=0
below=
for room in $rooms; do
    below="$below $room"
    for file in $(find src/"$room" -name '*.h' -o -name '*.cpp'); do
        for target in $(sed -n 's/^#[[:space:]]*include "\([a-z]*\)\/.*/\1/p' "$file" | sort -u); do
            case " $rooms " in *" $target "*) ;; *) continue ;; esac
            case "$below " in *" $target "*) ;; *)
                echo "$file: the room $room must not include the room $target"
                status=1
                ;;
            esac
        done
    done
done
# The runtime knows nobody, the simulator only itself; public headers are compiled with nothing else around.
if grep -nE '^#[[:space:]]*include "(kvnparse|dictionary|config|request|receive|tls|hub|session|api|feed)/' -r shared/tp_lib_tp; then
    echo "the runtime includes a room"
    status=1
fi
if grep -nE '^#[[:space:]]*include [<"](tp/|kvnparse/|dictionary/|config/|request/|receive/|tls/|hub/|session/|api/|feed/|tivra\.h)' -r sim/include sim/src sim/lnkapi; then
    echo "the simulator judges the library, so it must not use it"
    status=1
fi
# The test kit is a user of both.
if grep -nE '^#[[:space:]]*include [<"](tp|kvnparse|dictionary|config|request|receive|tls|hub|session|api|feed)/' -r sim/testkit; then
    echo "the test kit knows the public headers alone"
    status=1
fi
# What writes and reads captures serves programs of both sides.
if grep -nE '^#[[:space:]]*include [<"](tivra|tp/|kvnparse/|event/|session/)' -r tools/capture; then
    echo "the capture format knows neither the library nor the simulator"
    status=1
fi
exit $status
