# The bash completion: driven through its completion function as bash would
# call it, and its feature keywords checked against the built partmode.
source "$(dirname "$0")/lib.sh"


expect_completion()
{
    local expected=$1
    shift
    expect_equal "completing [$*]" "$(tr ' ' '\n' <<< "$expected" | sort)" "$(complete_words "$@")"
}

features="pci_express_mode lan_device_mode pci_address_mode memory_mirror_ras_mode memory_operation_mode"
features+=" dynamic_reconfiguration memory_sparing_mode"

expect_equal "registration" "complete -F _partmode partmode" \
    "$(bash -c 'source "$1"; complete -p partmode' completion "$source_dir/completion/partmode")"
expect_completion "set show" partmode ""
expect_completion "set" partmode se
expect_completion "partition $features" partmode set ""
expect_completion "$features" partmode show partition ""
expect_completion "memory_mirror_ras_mode memory_operation_mode memory_sparing_mode" partmode set partition memory_
expect_completion "" partmode show partition pci_express_mode ""
expect_completion "" partmode frobnicate ""

expect_completion "fixed flexible" partmode set partition pci_express_mode 0 ""
expect_completion "" partmode set partition pci_express_mode 0 fixed ""
expect_completion "bus segment" partmode set pci_address_mode 3 ""
expect_completion "quiet" partmode set pci_address_mode 3 segment ""
expect_completion "quiet" partmode set partition pci_address_mode 3 segment q
expect_completion "" partmode set partition lan_device_mode 0 ""
expect_completion "wol_enable wol_disable device_disable" partmode set partition lan_device_mode 0 1 ""
expect_completion "wol_enable wol_disable device_disable" partmode set lan_device_mode 1 ""
expect_completion "quiet" partmode set partition lan_device_mode 0 1 wol_enable ""
expect_completion "mirror_keep capacity_keep" partmode set memory_mirror_ras_mode ""
expect_completion "" partmode set partition memory_mirror_ras_mode ""
expect_completion "mirror_keep capacity_keep" partmode set partition memory_mirror_ras_mode 2 ""
expect_completion "performance normal partial_mirror full_mirror spare" \
    partmode set partition memory_operation_mode 2 ""
expect_completion "partial_mirror" partmode set partition memory_operation_mode 2 pa
expect_completion "1 2 auto quiet" partmode set memory_sparing_mode 1 ""
expect_completion "1 2 auto" partmode set partition memory_sparing_mode 1 ""
expect_completion "enable disable" partmode set partition dynamic_reconfiguration 1 ""
expect_completion "quiet" partmode set partition dynamic_reconfiguration 1 enable ""

# Every keyword completion offers is one the built partmode takes: its own
# argument check answers, not the front end's "Failed to execute".
run=$tmp/run
write_board "$run"
for feature in $features; do
    refusal=$(cd "$run" && env -i PATH=/usr/bin:/bin LANG=C HOME="$run" PARTMODE_BOARD="$run/board.json" \
        "$build_dir/bin/partmode" show partition "$feature" 2>&1) && fail "show partition $feature without a number succeeded"
    expect_equal "show partition $feature without a number" "The specified parameter is invalid." "$refusal"
done

finish
