#!/bin/sh
# Runs the scenarios that run the tool as another user with a tool that lies
# in a folder only root may enter, as the build tree of a clone under /root
# does. They pass only when the runner gives that user a copy it can reach.
#   scenario-private-tree.sh RUNNER PARTMODE LOCALEDIR_FROM_BINDIR
# Exit 77 (skipped) when not root: only root can run the tool as another user.
set -eu

runner=$1
tool=$2
localedir=$3
filter='*_user_not_identified*:*_user_without_passwd_entry*'

if [ "$(id -u)" -ne 0 ]; then
    echo "running the tool as another user needs root" >&2
    exit 77
fi

private=$(mktemp -d) # mode 0700, owned by root
trap 'rm -rf "$private"' EXIT
mkdir -p "$private/tree/bin" "$private/tree/bin/$localedir"
cp "$tool" "$private/tree/bin/partmode"
cp -R "$(dirname "$tool")/$localedir/." "$private/tree/bin/$localedir/"
chmod 0700 "$private"

log=$private/scenarios.log
status=0
PARTMODE_SCENARIO_TOOL=$private/tree/bin/partmode "$runner" --gtest_filter="$filter" >"$log" 2>&1 || status=$?
cat "$log"
if [ "$status" -ne 0 ]; then
    exit "$status"
fi
if grep -q '^\[  SKIPPED \]' "$log"; then
    echo "some scenarios were skipped" >&2
    exit 1
fi
if ! grep -Eq '^\[  PASSED  \] [1-9][0-9]* tests?\.' "$log"; then
    echo "no scenario matched $filter" >&2
    exit 1
fi
