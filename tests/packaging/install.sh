# cmake --install of the build tree: into a staging DESTDIR, under the prefix
# /usr, and into a prefix of its own, from which partmode runs and reads its
# installed message catalogue and man renders the installed page.
source "$(dirname "$0")/lib.sh"
require cmake man

check_tree()
{
    local root=$1 board_folder=$2
    [[ -x $root/sbin/partmode ]] || fail "$root/sbin/partmode is missing or not executable"
    [[ -x $root/bin/partmode-sim ]] || fail "$root/bin/partmode-sim is missing or not executable"
    expect_file "$root/share/locale/C/LC_MESSAGES/partmode"
    expect_file "$root/share/man/man8/partmode.8"
    expect_file "$root/share/man/man1/partmode-sim.1"
    expect_file "$root/share/bash-completion/completions/partmode"
    expect_file "$root/share/bash-completion/completions/partmode-sim"
    expect_file "$board_folder/board.json.example"
    local module
    for module in "$build_dir"/lib/partmode/*.so; do
        [[ -e $module ]] && expect_file "$root/lib/partmode/${module##*/}"
    done
}

# Every file of a staged installation lies below the prefix or, for the
# prefix /usr only, in /etc/partmode.
check_confined()
{
    local stage=$1 prefix=$2 file path
    while IFS= read -r file; do
        path=${file#"$stage"}
        if [[ $path != "$prefix"/* && ! ($prefix == /usr && $path == /etc/partmode/*) ]]; then
            fail "installed outside the prefix $prefix: $path"
        fi
    done < <(find "$stage" -type f)
}

prefix=$(configured_prefix)
DESTDIR=$tmp/stage cmake --install "$build_dir" > "$tmp/install.log" || fail "cmake --install with DESTDIR failed"
check_tree "$tmp/stage$prefix" "$tmp/stage$prefix/etc/partmode"
check_confined "$tmp/stage" "$prefix"

# Under /usr the example board goes to /etc, beside the board it explains.
DESTDIR=$tmp/usr cmake --install "$build_dir" --prefix /usr > "$tmp/install-usr.log" ||
    fail "cmake --install --prefix /usr failed"
check_tree "$tmp/usr/usr" "$tmp/usr/etc/partmode"
check_confined "$tmp/usr" /usr

relocated=$tmp/relocated/partmode
cmake --install "$build_dir" --prefix "$relocated" > "$tmp/install-relocated.log" ||
    fail "cmake --install --prefix $relocated failed"
check_tree "$relocated" "$relocated/etc/partmode"

# The installed partmode runs from its prefix and reads the catalogue
# installed beside it: a translation put in its place shows in the trace.
run=$tmp/run
write_board "$run"
output=$(cd "$run" && env -i PATH=/usr/bin:/bin LANG=C HOME="$run" PARTMODE_BOARD="$run/board.json" \
    "$relocated/sbin/partmode" show partition pci_express_mode 0 2>&1) || fail "installed partmode failed: $output"
expect_equal "output of the installed partmode" "pci_express_mode: flexible" "$output"
cp "$build_dir/tests/catalogues/translated/partmode" "$relocated/share/locale/C/LC_MESSAGES/partmode"
(cd "$run" && env -i PATH=/usr/bin:/bin LANG=C HOME="$run" PARTMODE_BOARD="$run/board.json" \
    "$relocated/sbin/partmode" show partition pci_express_mode 1 > /dev/null 2>&1) || fail "installed partmode failed"
traced=$(sed 's/^[^ ]* partmode\[[0-9]*\]: //' "$run/trace.log")
expect_equal "trace of the installed partmode" \
    "10046: Command completed: show partition pci_express_mode 0
10046: Befehl ausgeführt: show partition pci_express_mode 1" "$traced"

# The installed manual pages render.
for page in "$relocated/share/man/man8/partmode.8" "$relocated/share/man/man1/partmode-sim.1"; do
    rendered=$(LC_ALL=C MANWIDTH=80 man -l "$page" 2> "$tmp/man.err") || fail "man -l $page failed"
    [[ -n $rendered && ! -s $tmp/man.err ]] || fail "man -l $page: $(cat "$tmp/man.err")"
done

finish
