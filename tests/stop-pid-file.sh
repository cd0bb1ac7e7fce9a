# Sourced by the test scripts that start servers of their own.
# stopPidFile FILE: ends the process whose id FILE holds, first with TERM
# (partmode-sim stops ipmi_sim within 5 s; it gets a little more), then with
# KILL, and removes FILE. Nothing happens when FILE is missing.
stopPidFile() {
    [ -f "$1" ] || return 0
    pid=$(cat "$1")
    rm -f "$1"
    kill -TERM "$pid" 2>/dev/null || return 0
    for _ in $(seq 70); do
        kill -0 "$pid" 2>/dev/null || return 0
        sleep 0.1
    done
    kill -KILL "$pid" 2>/dev/null || true
}
