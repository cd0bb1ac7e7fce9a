# CPack's Debian package of the build tree: its files, its conffile and a
# Depends that names the package of every library the programs link.
source "$(dirname "$0")/lib.sh"
require cpack dpkg-deb dpkg-shlibdeps dpkg-query file readelf ldd

cpack -G DEB --config "$build_dir/CPackConfig.cmake" -B "$tmp/package" > "$tmp/cpack.log" 2>&1 || {
    cat "$tmp/cpack.log" >&2
    fail "cpack failed"
    finish
}
packages=("$tmp"/package/*.deb)
[[ ${#packages[@]} == 1 && -f ${packages[0]} ]] || fail "expected one package, found: ${packages[*]}"
deb=${packages[0]}

expect_equal "Package" partmode "$(dpkg-deb -f "$deb" Package)"
expect_equal "Section" admin "$(dpkg-deb -f "$deb" Section)"

contents=$(dpkg-deb -c "$deb" | awk '{print $NF}')
for path in ./usr/sbin/partmode ./usr/bin/partmode-sim ./usr/share/locale/C/LC_MESSAGES/partmode \
    ./usr/share/man/man8/partmode.8 ./usr/share/man/man1/partmode-sim.1 \
    ./usr/share/bash-completion/completions/partmode ./etc/partmode/board.json.example; do
    grep -qxF "$path" <<< "$contents" || fail "the package lacks $path"
done
# The firmware simulator's module, when the build has one.
for module in "$build_dir"/lib/partmode/*.so; do
    [[ -e $module ]] || continue
    grep -qxF "./usr/lib/partmode/${module##*/}" <<< "$contents" || fail "the package lacks the module ${module##*/}"
done
expect_equal "conffiles" /etc/partmode/board.json.example "$(dpkg-deb -I "$deb" conffiles)"

# Every library a packaged program needs must come from a package in Depends.
depends=$(dpkg-deb -f "$deb" Depends)
[[ -n $depends ]] || fail "the package has no Depends"
depended=$(sed 's/ *([^)]*)//g; s/ *[|,] */\n/g' <<< "$depends")
dpkg-deb -x "$deb" "$tmp/root"
for program in "$tmp/root/usr/sbin/partmode" "$tmp/root/usr/bin/partmode-sim"; do
    for library in $(readelf -d "$program" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p'); do
        # ldd names the dynamic loader by its path alone: "/lib64/ld-linux-x86-64.so.2 (0x...)".
        path=$(ldd "$program" | awk -v lib="$library" '$1 == lib {print $3} $1 ~ ("/" lib "$") {print $1}')
        owner=$(dpkg-query -S "$path" 2> /dev/null || dpkg-query -S "$(readlink -f "$path")" 2> /dev/null ||
            dpkg-query -S "/usr$path" 2> /dev/null || true)
        owner=${owner%%:*}
        if [[ -z $owner ]]; then
            fail "no package owns $library ($path), needed by ${program##*/}"
        elif ! grep -qxF "$owner" <<< "$depended"; then
            fail "Depends [$depends] lacks $owner, whose $library ${program##*/} needs"
        fi
    done
done

finish
