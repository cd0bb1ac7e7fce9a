# Shared by the packaging checks, which CTest runs as
#   bash CHECK.sh SOURCE_DIR BUILD_DIR
# A check counts its failures with fail and ends with finish; one that lacks
# a tool ends with exit status 77, which CTest reports as skipped.
set -euo pipefail

source_dir=$1
build_dir=$2
tmp=$(mktemp -d "${TMPDIR:-/tmp}/partmode-packaging.XXXXXX")
trap 'rm -rf "$tmp"' EXIT
failures=0

fail()
{
    echo "FAIL: $*" >&2
    failures=$((failures + 1))
}

require()
{
    local tool
    for tool; do
        if ! command -v "$tool" > /dev/null; then
            echo "skipped: $tool is not installed" >&2
            exit 77
        fi
    done
}

expect_file()
{
    [[ -f $1 ]] || fail "missing $1"
}

expect_equal()
{
    [[ $2 == "$3" ]] || fail "$1: expected [$2], got [$3]"
}

finish()
{
    if ((failures > 0)); then
        echo "$failures check(s) failed" >&2
        exit 1
    fi
    echo "all checks passed"
}

# The prefix the build tree was configured with.
configured_prefix()
{
    sed -n 's/^CMAKE_INSTALL_PREFIX:PATH=//p' "$build_dir/CMakeCache.txt"
}

# A board in $1 whose firmware state and trace lie beside it.
write_board()
{
    mkdir -p "$1"
    printf '{"firmware": {"transport": "simulator", "state": "firmware.json"}, "trace": "trace.log", "audit": "audit.log"}\n' \
        > "$1/board.json"
}

# What the bash completion offers for the last word of "$@", one word a line,
# sorted.
complete_words()
{
    # The first word names the program, its completion file and its function
    # (_partmode, _partmode_sim).
    bash -c 'source "$1"; shift; COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1)); "_${1//-/_}"
        printf "%s\n" "${COMPREPLY[@]}" | sort' completion "$source_dir/completion/$1" "$@"
}
