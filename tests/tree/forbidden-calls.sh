#!/bin/sh
# The library never prints, aborts or ends the host process, but for the few documented places.
set -eu
cd "$1"
status=0

# file:call, one a line, with the reason in the code beside it.
allowed() {
    cat <<'LIST'
shared/tp_lib_tp/
src/kvnparse/
src/receive/UserEventBase.cpp
src/receive/Queue.cpp
src/dictionary/MetaTokenMap.cpp
src/api/ConnectionConfig.cpp
src/session/SessionMaster.cpp
LIST
}

for file in $(find src shared/tp_lib_tp -name '*.cpp' -o -name '*.h' | sort); do
    # Calls only: comments and texts don't count.
    hits=$(sed -e 's://.*$::' -e 's/"[^"]*"//g' "$file" |
        grep -nE '(^|[^A-Za-z0-9_.>])(std::|::)?(abort|_exit|exit|quick_exit|terminate|printf|puts|putchar)[[:space:]]*\(|std::c(out|err)' || true)
    [ -n "$hits" ] || continue
    known=no
    for place in $(allowed); do
        case $file in "$place"*) known=yes ;; esac
    done
    if [ "$known" = no ]; then
        echo "$file:"
        echo "$hits"
        status=1
    fi
done

# Handlers of signals, the locale and the environment are the host's.
if grep -rnE '(^|[^A-Za-z0-9_.>:])(std::|::)?(signal|sigaction|setlocale|setenv|putenv|unsetenv|clearenv)[[:space:]]*\([^)]|locale::global' \
    --include='*.cpp' --include='*.h' --include='*.inl' src shared; then
    echo "that is the host's"
    status=1
fi

# A process of a user may well have more than 1,024 descriptors.
if grep -rnwE 'FD_SET|FD_ISSET|fd_set' src shared; then
    echo "select takes no descriptor from 1,024 on"
    status=1
fi

# A request holds the user's password in one place only, and no log line may see it.
if grep -nE 'eprintf\(.*[pP]assword' -r src; then
    echo "a log line names the password"
    status=1
fi
exit $status
