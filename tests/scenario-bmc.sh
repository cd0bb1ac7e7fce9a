#!/bin/sh
# Starts or stops the BMC that the LAN pass of the scenario suite talks to:
# partmode-sim serve on a free loopback port, detached from the test that
# starts it. FOLDER receives firmware.json (the board's firmware object that
# reaches the BMC), state.json (the state file it serves), pid and serve.log.
#   scenario-bmc.sh start FOLDER PARTMODE_SIM
#   scenario-bmc.sh stop FOLDER
set -eu

action=$1
folder=$2

. "$(dirname "$0")/stop-pid-file.sh"

stop() {
    stopPidFile "$folder/pid"
}

case $action in
start)
    simulator=$3
    stop
    rm -rf "$folder"
    mkdir -p "$folder"
    setsid "$simulator" serve --port 0 --state "$folder/state.json" \
        </dev/null >"$folder/firmware.json" 2>"$folder/serve.log" &
    echo $! >"$folder/pid"
    for _ in $(seq 200); do
        if [ -s "$folder/firmware.json" ]; then
            cat "$folder/firmware.json"
            exit 0
        fi
        if ! kill -0 "$(cat "$folder/pid")" 2>/dev/null; then
            break
        fi
        sleep 0.1
    done
    echo "the BMC did not start:" >&2
    cat "$folder/serve.log" >&2
    stop
    exit 1
    ;;
stop)
    stop
    ;;
*)
    echo "usage: scenario-bmc.sh start FOLDER PARTMODE_SIM | stop FOLDER" >&2
    exit 64
    ;;
esac
