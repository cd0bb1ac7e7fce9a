#!/bin/sh
# Starts or stops the simulated BMCs of the fleet tests: COUNT times
# partmode-sim serve on free loopback ports, each with a state file of its own,
# in FOLDER/bmc-NN (see scenario-bmc.sh for what each folder holds).
#   bmcs.sh start FOLDER PARTMODE_SIM COUNT
#   bmcs.sh stop FOLDER
set -eu

here=$(dirname "$0")
action=$1
folder=$2

stop() {
    for bmc in "$folder"/bmc-*; do
        [ -d "$bmc" ] || continue
        sh "$here/../scenario-bmc.sh" stop "$bmc" &
    done
    wait
}

case $action in
start)
    simulator=$3
    count=$4
    stop
    rm -rf "$folder"
    mkdir -p "$folder"
    # Started together: each waits for its own session to open.
    pids=
    i=0
    while [ "$i" -lt "$count" ]; do
        bmc=$(printf '%s/bmc-%02d' "$folder" "$i")
        sh "$here/../scenario-bmc.sh" start "$bmc" "$simulator" >/dev/null &
        pids="$pids $!"
        i=$((i + 1))
    done
    failed=0
    for pid in $pids; do
        wait "$pid" || failed=1
    done
    if [ "$failed" -ne 0 ]; then
        stop
        exit 1
    fi
    echo "$count BMCs in $folder"
    ;;
stop)
    stop
    ;;
*)
    echo "usage: bmcs.sh start FOLDER PARTMODE_SIM COUNT | stop FOLDER" >&2
    exit 64
    ;;
esac
