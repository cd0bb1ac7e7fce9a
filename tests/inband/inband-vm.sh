#!/bin/sh
# Starts or stops the machine of the in-band pass: a BMC (partmode-sim serve
# with a system interface for a virtual machine) and a QEMU guest that boots
# Debian's kernel with an initramfs of busybox, partmode, the libraries it
# loads, the kernel's IPMI modules and the guest agent. The kernel and the
# packages come from Debian's archive through apt-get download, unpacked with
# dpkg-deb -x into CACHE, and are fetched only once; nothing is installed on
# the host.
#   inband-vm.sh start FOLDER CACHE PARTMODE_SIM PARTMODE AGENT EXTRA...
#   inband-vm.sh stop FOLDER
#   inband-vm.sh bmc-stop FOLDER / bmc-start FOLDER PARTMODE_SIM
# (the last two take the BMC away from the running machine and bring it back).
# EXTRA are folders the guest gets at the same path (message catalogues).
# FOLDER receives firmware.json (the board's firmware object in the guest),
# state.json (the state file the BMC serves), agent.sock (a link to the guest
# agent's serial port), console.log (the guest's console), serve.log and the
# pids.
# PARTMODE_INBAND_BOOT_LIMIT (seconds, default 300) bounds the whole boot.
set -eu

action=$1
folder=$2

. "$(dirname "$0")/../stop-pid-file.sh"

stopPid() {
    stopPidFile "$folder/$1.pid"
}

stopAll() {
    stopPid qemu
    stopPid serve
    if [ -f "$folder/socket.dir" ]; then
        rm -rf "$(cat "$folder/socket.dir")"
        rm -f "$folder/socket.dir" "$folder/agent.sock"
    fi
}

# The Debian package that holds a library, by the path the loader found.
packageOf() {
    for candidate in "$1" "$(readlink -f "$1")" "/usr$1" "/usr$(readlink -f "$1")"; do
        if owner=$(dpkg -S "$candidate" 2>/dev/null); then
            echo "${owner%%:*}"
            return 0
        fi
    done
    echo "no Debian package holds $1" >&2
    return 1
}

librariesOf() {
    ldd "$1" | awk '/=> \// {print $3} /^\t\/lib/ {print $1}'
}

# Fetches and unpacks, once, the kernel, busybox and the libraries partmode,
# libfreeipmi (which partmode loads at run time) and ipmi-raw (the benchmark's
# reference) need.
prepareBase() {
    cache=$1
    partmode=$2
    kernel=$(apt-cache depends linux-image-amd64 | awk '/Depends: linux-image-[0-9]/ {print $2; exit}')
    [ -n "$kernel" ] || { echo "apt-cache knows no kernel behind linux-image-amd64; run apt-get update" >&2; exit 1; }
    ipmiraw=$(command -v ipmi-raw || echo /usr/sbin/ipmi-raw)
    freeipmi=$("$(command -v ldconfig || echo /sbin/ldconfig)" -p | awk '/libfreeipmi\.so\.17 / {print $NF; exit}')
    # libc-bin brings the C.UTF-8 locale, in which the tool looks up its
    # catalogue when LANG names it.
    packages="$kernel busybox-static freeipmi-tools libc-bin"
    for library in $(librariesOf "$partmode"; librariesOf "$freeipmi"; librariesOf "$ipmiraw"; echo "$freeipmi"); do
        packages="$packages $(packageOf "$library")"
    done
    packages=$(echo "$packages" | tr ' ' '\n' | sort -u | tr '\n' ' ')
    if [ -f "$cache/base.cpio.gz" ] && [ "$(cat "$cache/base.packages" 2>/dev/null)" = "$packages" ]; then
        return 0
    fi
    echo "guest packages: $packages"
    mkdir -p "$cache/debs"
    (cd "$cache/debs" && for package in $packages; do
        ls "$package"_*.deb >/dev/null 2>&1 || apt-get download -q "$package" 2>&1 | grep -v '^W: Download is performed unsandboxed' || true
        ls "$package"_*.deb >/dev/null 2>&1 || { echo "apt-get download $package failed" >&2; exit 1; }
    done)
    rm -rf "$cache/unpacked" "$cache/root"
    mkdir -p "$cache/unpacked" "$cache/root/usr/bin" "$cache/root/usr/sbin" "$cache/root/usr/lib" \
        "$cache/root/usr/lib64"
    for link in bin sbin lib lib64; do ln -s "usr/$link" "$cache/root/$link"; done
    for package in $packages; do
        dpkg-deb -x "$cache/debs/$package"_*.deb "$cache/unpacked/$package"
    done
    # The guest has the merged /usr of Debian 12; the packages still ship some
    # files under /lib and /bin.
    for package in $packages; do
        [ "$package" = "$kernel" ] && continue
        for top in bin sbin lib lib64 usr; do
            [ -d "$cache/unpacked/$package/$top" ] || continue
            case $top in usr) target=usr ;; *) target=usr/$top ;; esac
            cp -a "$cache/unpacked/$package/$top/." "$cache/root/$target/"
        done
    done
    release=${kernel#linux-image-}
    cp "$cache/unpacked/$kernel/boot/vmlinuz-$release" "$cache/vmlinuz"
    mkdir -p "$cache/root/usr/lib/modules/$release"
    for module in ipmi_msghandler ipmi_devintf ipmi_si; do
        cp "$cache/unpacked/$kernel/lib/modules/$release/kernel/drivers/char/ipmi/$module.ko" \
            "$cache/root/usr/lib/modules/$release/"
    done
    rm -rf "$cache/unpacked/$kernel" "$cache/root/usr/share/doc" "$cache/root/usr/share/man"
    mkdir -p "$cache/root/proc" "$cache/root/sys" "$cache/root/dev" "$cache/root/tmp" "$cache/root/etc" \
        "$cache/root/root" "$cache/root/run"
    chmod 1777 "$cache/root/tmp"
    echo "$release" >"$cache/root/etc/kernel-release"
    (cd "$cache/root" && find . | cpio -o -H newc --quiet | gzip -1) >"$cache/base.cpio.gz.new"
    mv "$cache/base.cpio.gz.new" "$cache/base.cpio.gz"
    echo "$packages" >"$cache/base.packages"
}

# Starts the BMC with its system interface on PORT (0: any free port).
startBmc() {
    simulator=$1
    setsid "$simulator" serve --vm-port "$2" --state "$folder/state.json" \
        </dev/null >"$folder/serve.out" 2>"$folder/serve.log" &
    echo $! >"$folder/serve.pid"
    for _ in $(seq 300); do
        [ "$(cat "$folder/serve.out" 2>/dev/null | wc -l)" -ge 2 ] && return 0
        kill -0 "$(cat "$folder/serve.pid")" 2>/dev/null || break
        sleep 0.1
    done
    echo "the BMC did not start:" >&2
    cat "$folder/serve.log" >&2
    stopPid serve
    return 1
}

writeInit() {
    cat >"$1" <<'INIT'
#!/bin/busybox sh
/bin/busybox --install -s /bin
mount -t proc proc /proc
mount -t sysfs sysfs /sys
mount -t devtmpfs devtmpfs /dev
mount -t tmpfs -o mode=1777 tmpfs /tmp
release=$(cat /etc/kernel-release)
insmod /lib/modules/$release/ipmi_msghandler.ko
insmod /lib/modules/$release/ipmi_devintf.ko
insmod /lib/modules/$release/ipmi_si.ko type=kcs ports=0xca2
for _ in $(seq 600); do
    [ -c /dev/ipmi0 ] && break
    sleep 0.1
done
if [ -c /dev/ipmi0 ]; then
    echo "partmode-guest: /dev/ipmi0 is there"
else
    echo "partmode-guest: no /dev/ipmi0"
fi
exec /usr/sbin/partmode-guest-agent /dev/ttyS1
INIT
    chmod 755 "$1"
}

case $action in
start)
    cache=$3
    simulator=$4
    partmode=$(readlink -f "$5")
    agent=$6
    shift 6
    stopAll
    rm -rf "$folder"
    mkdir -p "$folder" "$cache"
    prepareBase "$cache" "$partmode"

    # What changes with every build: the tool at the path it has on the host
    # (it finds its catalogue beside its folder), the agent and /init.
    overlay=$folder/overlay
    mkdir -p "$overlay/usr/sbin" "$overlay$(dirname "$partmode")"
    cp "$partmode" "$overlay$partmode"
    share=$(dirname "$(dirname "$partmode")")/share
    if [ -d "$share" ]; then
        mkdir -p "$overlay$share"
        cp -a "$share/." "$overlay$share/"
    fi
    for extra in "$@"; do
        [ -d "$extra" ] || { echo "no folder $extra" >&2; exit 1; }
        extra=$(readlink -f "$extra")
        mkdir -p "$overlay$extra"
        cp -a "$extra/." "$overlay$extra/"
    done
    cp "$agent" "$overlay/usr/sbin/partmode-guest-agent"
    writeInit "$overlay/init"
    (cd "$overlay" && find . | cpio -o -H newc --quiet | gzip -1) >"$folder/overlay.cpio.gz"
    cat "$cache/base.cpio.gz" "$folder/overlay.cpio.gz" >"$folder/initrd"
    rm -rf "$overlay" "$folder/overlay.cpio.gz"

    startBmc "$simulator" 0 || { stopAll; exit 1; }
    qemuArguments=$(sed -n 1p "$folder/serve.out")
    sed -n 2p "$folder/serve.out" >"$folder/firmware.json"

    # A Unix socket's path has at most 107 bytes, and a build tree may lie
    # deeper: the socket lies in a short folder of its own, FOLDER/agent.sock
    # is a link to it.
    socketDir=$(mktemp -d /tmp/partmode-vm-XXXXXX)
    echo "$socketDir" >"$folder/socket.dir"
    ln -s "$socketDir/agent.sock" "$folder/agent.sock"

    # TCG: nested KVM has hung at boot on machines like the CI's.
    # PARTMODE_INBAND_ACCEL=kvm is for machines where /dev/kvm really works.
    # shellcheck disable=SC2086
    setsid qemu-system-x86_64 -accel "${PARTMODE_INBAND_ACCEL:-tcg}" -m 512 -smp 1 -nodefaults -no-reboot -display none \
        -kernel "$cache/vmlinuz" -initrd "$folder/initrd" \
        -append "console=ttyS0 panic=-1 rdinit=/init loglevel=6" \
        -serial "file:$folder/console.log" \
        -chardev "socket,id=agent,path=$socketDir/agent.sock,server=on,wait=off" -serial chardev:agent \
        $qemuArguments </dev/null >"$folder/qemu.log" 2>&1 &
    echo $! >"$folder/qemu.pid"
    limit=${PARTMODE_INBAND_BOOT_LIMIT:-300}
    started=$(date +%s)
    while :; do
        if grep -q "partmode-guest: agent ready" "$folder/console.log" 2>/dev/null; then
            if grep -q "partmode-guest: /dev/ipmi0 is there" "$folder/console.log"; then
                echo "guest up after $(($(date +%s) - started)) s"
                cat "$folder/firmware.json"
                exit 0
            fi
            echo "the guest has no /dev/ipmi0" >&2
            break
        fi
        if ! kill -0 "$(cat "$folder/qemu.pid")" 2>/dev/null; then
            echo "qemu ended:" >&2
            cat "$folder/qemu.log" >&2
            break
        fi
        if [ $(($(date +%s) - started)) -ge "$limit" ]; then
            echo "the guest did not come up within $limit s" >&2
            break
        fi
        sleep 0.5
    done
    echo "--- guest console ---" >&2
    cat "$folder/console.log" >&2 || true
    echo "--- BMC ---" >&2
    cat "$folder/serve.log" >&2 || true
    stopAll
    exit 1
    ;;
stop)
    stopAll
    ;;
bmc-stop)
    stopPid serve
    ;;
bmc-start)
    # The same port again: QEMU reconnects to it by itself, every 10 s. The
    # system interface takes one connection at a time, so when QEMU gets in
    # before serve's own check, that check fails; then start once more.
    port=$(sed -n 's/.*host=127\.0\.0\.1,port=\([0-9]*\),.*/\1/p' "$folder/serve.out")
    for attempt in 1 2 3; do
        startBmc "$3" "$port" && exit 0
        echo "attempt $attempt to start the BMC again failed" >&2
    done
    exit 1
    ;;
*)
    echo "usage: inband-vm.sh start FOLDER CACHE PARTMODE_SIM PARTMODE AGENT [EXTRA...] | stop FOLDER |" >&2
    echo "       bmc-stop FOLDER | bmc-start FOLDER PARTMODE_SIM" >&2
    exit 64
    ;;
esac
