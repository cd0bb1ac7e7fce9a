# The Debian package, built as Debian builds it (dpkg-buildpackage from a copy
# of the source tree, since it writes the package into the parent folder),
# checked by lintian, then installed into a scratch root and run from there.
source "$(dirname "$0")/lib.sh"
require dpkg-buildpackage dh lintian dpkg-deb dpkg tar

version=$(dpkg-parsechangelog -l "$source_dir/debian/changelog" -S Version)
arch=$(dpkg-architecture -q DEB_HOST_ARCH)

# The tree as it would be committed: tracked files and new ones, without the
# build folders and whatever .gitignore leaves out.
tree=$tmp/src/partmode-$version
mkdir -p "$tree"
if git -C "$source_dir" rev-parse --is-inside-work-tree > /dev/null 2>&1; then
    git -C "$source_dir" ls-files -z --cached --others --exclude-standard |
        (cd "$source_dir" && tar --null -T - -cf -) | tar -xf - -C "$tree"
else
    tar -C "$source_dir" --exclude='./build*' -cf - . | tar -xf - -C "$tree"
fi

# The package's own unit tests ran in the build folder already; parallel=2
# keeps the build to the cores the suite may use.
if ! (cd "$tree" && DEB_BUILD_OPTIONS="nocheck parallel=2" dpkg-buildpackage -b -us -uc) > "$tmp/build.log" 2>&1; then
    tail -n 60 "$tmp/build.log" >&2
    fail "dpkg-buildpackage failed"
    finish
fi
deb=$tmp/src/partmode_${version}_$arch.deb
changes=$tmp/src/partmode_${version}_$arch.changes
[[ -f $deb && -f $changes ]] || {
    fail "dpkg-buildpackage made no $deb and $changes: $(ls "$tmp/src")"
    finish
}

# lintian: no error and no warning; overrides carry their reason in the package.
if ! lintian --fail-on error,warning --display-level '>=warning' "$changes" > "$tmp/lintian.log" 2>&1; then
    fail "lintian: $(cat "$tmp/lintian.log")"
fi
grep -E '^[EW]: ' "$tmp/lintian.log" >&2 && fail "lintian reports errors or warnings"

# What the package says about itself.
field() { dpkg-deb -f "$deb" "$1"; }
expect_equal "Package" partmode "$(field Package)"
expect_equal "Section" admin "$(field Section)"
expect_equal "Suggests" bash-completion "$(field Suggests)"
[[ $(field Maintainer) =~ ^[^\<]+\ \<[^@\>]+@[^@\>]+\.[a-z]+\>$ ]] || fail "Maintainer is not a name and address: $(field Maintainer)"
[[ $(field Maintainer) != *localhost* ]] || fail "Maintainer is on localhost: $(field Maintainer)"
[[ $(field Depends) == *libfreeipmi* ]] || fail "Depends lacks libfreeipmi: $(field Depends)"
expect_equal "conffiles" "/etc/logrotate.d/partmode
/etc/partmode/board.json
/etc/partmode/board.json.example" "$(dpkg-deb -I "$deb" conffiles | sort)"

# Paths and modes as the package holds them: "MODE PATH" lines.
listing=$(dpkg-deb -c "$deb" | awk '{print $1, $NF}')
expect_mode()
{
    grep -qxF -- "$1 ./$2" <<< "$listing" || fail "the package lacks $2 with mode $1: $(grep -F -- "./$2" <<< "$listing")"
}
expect_mode -rwxr-xr-x usr/sbin/partmode
expect_mode -rwxr-xr-x usr/bin/partmode-sim
expect_mode -rw-r--r-- usr/lib/partmode/partmode-bmc.so
expect_mode -rw-r--r-- usr/share/locale/C/LC_MESSAGES/partmode
expect_mode drwxr-x--- var/log/partmode/
expect_mode -rw-r--r-- etc/logrotate.d/partmode
expect_mode -rw-r--r-- usr/share/man/man8/partmode.8.gz
expect_mode -rw-r--r-- usr/share/man/man1/partmode-sim.1.gz
expect_mode -rw-r--r-- usr/share/doc/partmode/copyright
expect_mode -rw-r--r-- usr/share/doc/partmode/changelog.gz
for completion in "$source_dir"/completion/*; do
    expect_mode -rw-r--r-- "usr/share/bash-completion/completions/${completion##*/}"
done
for doc in "$source_dir"/docs/*.md "$source_dir"/README.md; do
    name=${doc##*/}
    grep -qE "^-rw-r--r-- \./usr/share/doc/partmode/$name(\.gz)?$" <<< "$listing" || fail "the package lacks the document $name"
done
# Nothing set-user-ID or set-group-ID unless the operator asks for it.
grep -E '^-..[sS]|^-.....[sS]' <<< "$listing" && fail "the package holds a set-user-ID or set-group-ID file"

if ((EUID != 0)); then
    echo "skipped: installing into a scratch root and running from there needs chroot, which needs root" >&2
    finish
fi
require chroot ldd ldconfig

# A scratch root that holds only the package and the shared objects its
# programs load: the installed programs run from there as on a board.
root=$tmp/root
mkdir -p "$root/var/lib/dpkg/info" "$root/var/lib/dpkg/updates" "$root/tmp" "$root/etc"
touch "$root/var/lib/dpkg/status"
dpkg --root="$root" --force-depends --log=/dev/null -i "$deb" > "$tmp/dpkg.log" 2>&1 || fail "dpkg --root -i: $(cat "$tmp/dpkg.log")"
expect_equal "installed version" "install ok installed $version" \
    "$(dpkg-query --admindir="$root/var/lib/dpkg" -W -f '${Status} ${Version}' partmode)"
for program in "$root/usr/sbin/partmode" "$root/usr/bin/partmode-sim" /usr/lib/*/libfreeipmi.so.*[0-9]; do
    ldd "$program" | awk '$2 == "=>" && $3 ~ /^\// {print $3} $1 ~ /^\// {print $1}'
done | sort -u | while IFS= read -r library; do
    mkdir -p "$root$(dirname "$library")"
    cp -L "$library" "$root$library"
done
ldconfig -r "$root"
# The tool names the user who runs it from the passwd database.
echo 'root:x:0:0:root:/root:/bin/sh' > "$root/etc/passwd"
echo 'root:x:0:' > "$root/etc/group"
[[ $(stat -c %a "$root/var/log/partmode") == 750 ]] || fail "/var/log/partmode has mode $(stat -c %a "$root/var/log/partmode")"
[[ $(stat -c %a "$root/usr/sbin/partmode") == 755 ]] || fail "/usr/sbin/partmode has mode $(stat -c %a "$root/usr/sbin/partmode")"

# run NAME [VARIABLE=VALUE...] PROGRAM [ARGUMENT...]: runs PROGRAM of the
# scratch root there, with only the environment given; its output lands in
# $tmp/NAME.out, .err and .status.
run()
{
    local name=$1 status=0
    shift
    local environment=(PATH=/usr/sbin:/usr/bin HOME=/tmp/home LANG=C)
    while [[ $1 == *=* ]]; do
        environment+=("$1")
        shift
    done
    env -i "${environment[@]}" chroot "$root" "$@" > "$tmp/$name.out" 2> "$tmp/$name.err" < /dev/null || status=$?
    echo "$status" > "$tmp/$name.status"
}
expect_run()
{
    expect_equal "$1: exit status" "$2" "$(cat "$tmp/$1.status")"
    expect_equal "$1: standard output" "$3" "$(cat "$tmp/$1.out")"
    expect_equal "$1: standard error" "$4" "$(cat "$tmp/$1.err")"
}

# The simulator control program, on a state of its own.
mkdir -p "$root/tmp/sim"
run sim-init /usr/bin/partmode-sim --state /tmp/sim/firmware.json init
expect_equal "partmode-sim init: exit status" 0 "$(cat "$tmp/sim-init.status")"
run sim-power /usr/bin/partmode-sim --state /tmp/sim/firmware.json power on 1
expect_equal "partmode-sim power on 1: exit status" 0 "$(cat "$tmp/sim-power.status")"
run sim-show /usr/bin/partmode-sim --state /tmp/sim/firmware.json show
expect_equal "partmode-sim show: exit status" 0 "$(cat "$tmp/sim-show.status")"
grep -q '"power_on"' "$tmp/sim-show.out" || fail "partmode-sim show printed no state: $(cat "$tmp/sim-show.out")"

# The installed partmode on a simulator board: its catalogue and the state
# partmode-sim wrote.
printf '{"firmware": {"transport": "simulator", "state": "firmware.json"}, "trace": "trace.log", "audit": "audit.log"}\n' \
    > "$root/tmp/sim/board.json"
run show-sim PARTMODE_BOARD=/tmp/sim/board.json /usr/sbin/partmode show partition pci_express_mode 0
expect_run show-sim 0 "pci_express_mode: flexible" ""
run set-running PARTMODE_BOARD=/tmp/sim/board.json /usr/sbin/partmode set partition pci_express_mode 1 fixed
expect_run set-running 51 "" "Unable to change the mode while the partition is running. Please try to change the mode after the partition is shutdown."
grep -q '^[^ ]* partmode\[[0-9]*\]: 10046: Command completed: show partition pci_express_mode 0$' "$root/tmp/sim/trace.log" ||
    fail "the installed partmode traced no success: $(cat "$root/tmp/sim/trace.log")"

# The installed partmode with the package's board and no /dev/ipmi0: a clear
# failure through the IPMI device, never the simulator.
[[ ! -e $root/dev/ipmi0 ]] || fail "the scratch root has /dev/ipmi0"
run show-board /usr/sbin/partmode show partition pci_express_mode 0
expect_run show-board 2 "" "Failed to execute show partition pci_express_mode 0 command."
trace=$(sed 's/^[^ ]* partmode\[[0-9]*\]: //' "$root/var/log/partmode/trace.log" 2> /dev/null || true)
grep -q '^20062: IPMI session failed: in-band device /dev/ipmi0: ' <<< "$trace" ||
    fail "the trace does not name the in-band device: $trace"
grep -qxF '10047: Command failed: show partition pci_express_mode 0 (2054, 6)' <<< "$trace" ||
    fail "the trace has no failure of the session: $trace"
[[ ! -e $root/tmp/home/.local/state/partmode ]] || fail "the installed board used the simulator: $(ls -R "$root/tmp/home")"

# Reasons on request: the same failure on a copy of the board that asks.
sed 's/^{$/{\n  "diagnostics": "stderr",/' "$root/etc/partmode/board.json" > "$root/tmp/diagnostics.json"
run show-reason PARTMODE_BOARD=/tmp/diagnostics.json /usr/sbin/partmode show partition pci_express_mode 0
expect_equal "show with reasons: exit status" 2 "$(cat "$tmp/show-reason.status")"
expect_equal "show with reasons: first line" "Failed to execute show partition pci_express_mode 0 command." \
    "$(head -n 1 "$tmp/show-reason.err")"
expect_equal "show with reasons: reason" \
    "partmode: reason: in-band device /dev/ipmi0: device not found; the IPMI session failed: the host or device cannot be reached or opened (2054, 6)" \
    "$(sed -n '2,$p' "$tmp/show-reason.err")"

# logrotate rotates both files the package's board writes.
for log in trace audit; do
    grep -qxF "/var/log/partmode/$log.log {" "$root/etc/logrotate.d/partmode" ||
        fail "/etc/logrotate.d/partmode does not rotate /var/log/partmode/$log.log"
    grep -qxF "  \"$log\": \"/var/log/partmode/$log.log\"," "$root/etc/partmode/board.json" ||
    grep -qxF "  \"$log\": \"/var/log/partmode/$log.log\"" "$root/etc/partmode/board.json" ||
        fail "the package's board does not write $log to /var/log/partmode/$log.log"
done

finish
