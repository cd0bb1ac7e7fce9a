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

# partmode-sim's completion, options anywhere.

sim_keys="power_on system_status extended_partitioning reserved_sb dynamic_reconfiguration tpm pci_express_mode"
sim_keys+=" pci_address_mode memory_mode node_ids"
sim_set="partition exclusive_features defined_partitions extended_partition_parents lan_device_modes"

expect_equal "registration of partmode-sim" "complete -F _partmode_sim partmode-sim" \
    "$(bash -c 'source "$1"; complete -p partmode-sim' completion "$source_dir/completion/partmode-sim")"
expect_completion "init show power fault set serve" partmode-sim ""
expect_completion "init show power fault set serve" partmode-sim --state firmware.json ""
expect_completion "set serve show" partmode-sim s
expect_completion "on off" partmode-sim power ""
expect_completion "on off" partmode-sim --state=firmware.json power ""
expect_completion "on off" partmode-sim --state = firmware.json power ""
expect_completion "" partmode-sim power on ""
expect_completion "add list clear" partmode-sim fault ""
expect_completion "$sim_set" partmode-sim set ""
expect_completion "$sim_keys" partmode-sim set partition 0 ""
expect_completion "$sim_keys" partmode-sim set --state f partition 0 ""
expect_completion "true false" partmode-sim set partition 0 reserved_sb ""
expect_completion "" partmode-sim set partition 0 tpm ""
expect_completion "true false" partmode-sim set exclusive_features ""
expect_completion "none" partmode-sim set extended_partition_parents 4 ""
expect_completion "--state --help --version" partmode-sim power on 0 --
expect_completion "--state --help --version --partition" partmode-sim fault add 0x30 0xB2 0x80 --
expect_completion "--state --help --version --port --vm-port --address --user --password-file --k-g-file --board" \
    partmode-sim serve --
expect_completion "--port --password-file" partmode-sim serve --p
expect_completion "" partmode-sim serve --port ""
expect_completion "" partmode-sim serve --vm-port ""
mkdir -p "$tmp/files"
touch "$tmp/files/board.json"
expect_completion "$tmp/files/board.json" partmode-sim serve --board "$tmp/files/b"
expect_completion "$tmp/files/board.json" partmode-sim serve --board = "$tmp/files/b"
expect_completion "$tmp/files/board.json" partmode-sim serve --k-g-file "$tmp/files/b"

# Every word completion offers for set is one the built partmode-sim takes.
run=$tmp/sim
write_board "$run"
for key in $(complete_words partmode-sim set partition 0 ""); do
    value=1
    [[ $(complete_words partmode-sim set partition 0 "$key" "") == *true* ]] && value=true
    (cd "$run" && env -i PATH=/usr/bin:/bin LANG=C HOME="$run" PARTMODE_BOARD="$run/board.json" \
        "$build_dir/bin/partmode-sim" set partition 0 "$key" "$value") || fail "partmode-sim set partition 0 $key $value refused"
done
for command in "set exclusive_features true" "set defined_partitions 0" "set extended_partition_parents 4 none" \
    "set lan_device_modes 0 1" "fault list" "fault clear" "power on 0" "show" "init"; do
    first=${command%% *}
    [[ $(complete_words partmode-sim "") == *"$first"* ]] || fail "completion does not offer $first"
done
printf '{"partitions": 4, "extended_partitions": 2, "firmware": {"transport": "simulator", "state": "firmware.json"}}\n' \
    > "$run/board.json"
for key in $(complete_words partmode-sim set ""); do
    case $key in
    partition) words=(partition 0 reserved_sb true) ;;
    exclusive_features) words=(exclusive_features false) ;;
    defined_partitions) words=(defined_partitions 0 1) ;;
    extended_partition_parents) words=(extended_partition_parents 4 none) ;;
    lan_device_modes) words=(lan_device_modes 0 1) ;;
    *) fail "completion offers set $key, which this check does not know" ; continue ;;
    esac
    (cd "$run" && env -i PATH=/usr/bin:/bin LANG=C HOME="$run" PARTMODE_BOARD="$run/board.json" \
        "$build_dir/bin/partmode-sim" set "${words[@]}") || fail "partmode-sim set ${words[*]} refused"
done

finish
