# The manual pages render with man without a warning, and partmode(8) names
# every command word, mode word, exit value, console message and catalogue
# message of the tool; partmode-sim(1) every word of its usage.
source "$(dirname "$0")/lib.sh"
require man col perl

# A page as man shows it, on lines too long to wrap, blanks squeezed.
page_text()
{
    LC_ALL=C MANWIDTH=1000 man -l "$1" 2> /dev/null | col -bx | tr -s ' \n' ' '
}

for page in "$source_dir/man/partmode.8" "$source_dir/man/partmode-sim.1"; do
    rendered=$(LC_ALL=C MANWIDTH=80 man --warnings=all -l "$page" 2> "$tmp/warnings") || fail "man -l $page failed"
    [[ -n $rendered ]] || fail "man -l $page printed nothing"
    [[ ! -s $tmp/warnings ]] || fail "man -l $page warns: $(cat "$tmp/warnings")"
done
text=$(page_text "$source_dir/man/partmode.8")

# Every word the completion offers: command words, feature keywords, mode words, quiet.
words=$(complete_words partmode "")$'\n'$(complete_words partmode set "")
for feature in $(complete_words partmode show partition ""); do
    words+=$'\n'$(complete_words partmode set partition "$feature" 0 "")
    words+=$'\n'$(complete_words partmode set partition "$feature" 0 0 "")
done
words+=$'\n'$(complete_words partmode set partition memory_sparing_mode 0 1 "")
for word in $(sort -u <<< "$words"); do
    grep -qE "(^| )$word([ ,.:|]|$)" <<< "$text" || fail "partmode(8) does not name the word $word"
done
[[ $(sort -u <<< "$words" | wc -l) -ge 25 ]] || fail "the completion offered fewer words than the commands have"

# Every exit value of the tool has its entry under EXIT STATUS.
exit_section=$(LC_ALL=C MANWIDTH=1000 man -l "$source_dir/man/partmode.8" 2> /dev/null | col -bx |
    sed -n '/^EXIT STATUS/,/^[A-Z]/p')
for value in 0 1 2 51 52 53 54 59 72 77; do
    grep -qE "^ +$value +[A-Z]" <<< "$exit_section" || fail "partmode(8) has no exit status $value"
done

# Every console message and question in the sources, conversions standing
# for any word, and every catalogue text of the English catalogue.
messages=$(grep -rhv '^\s*//' "$source_dir/src" --include='*.cpp' |
    perl -ne 'while (/"((?:Unable to|Failed to execute|The specified|Partition#|System Configuration|No IOU|DR can|Dynamic Reconfiguration Mode|The setting will|The SB with|%s of Partition)(?:[^"\\]|\\.)*)"/g) { print "$1\n" }')
messages+=$'\n'$(perl -ne 'print "$1\n" if /^\d+ "(.*)"$/' "$source_dir/nls/C.msg")
[[ $(wc -l <<< "$messages") -ge 30 ]] || fail "found only $(wc -l <<< "$messages") messages in the sources"
while IFS= read -r message; do
    pattern=$(perl -e '$_ = shift; s/\\n/ /g; s/\s+$//; s/\s+/ /g; $_ = quotemeta; s/\\%[-\d.]*[sdu]/.+/g; s/\\ / /g; print' "$message")
    perl -e 'exit(($ARGV[1] =~ /$ARGV[0]/) ? 0 : 1)' "$pattern" "$text" ||
        fail "partmode(8) does not show the message: $message"
done <<< "$messages"

# Every exception detail and action code of the platform, in hexadecimal and
# in the trace's decimal, has its row in the tables under DIAGNOSTICS.
diagnostics=$(LC_ALL=C MANWIDTH=1000 man -l "$source_dir/man/partmode.8" 2> /dev/null | col -bx |
    sed -n '/^DIAGNOSTICS/,/^[A-Z]/p')
codes=$(perl -ne 'print "$1 $2\n" if /k(Detail|Action)\w+ = (0x[0-9A-Fa-f]+);/' "$source_dir/src/platform/base/PlatformError.h")
[[ $(wc -l <<< "$codes") -ge 17 ]] || fail "found only $(wc -l <<< "$codes") codes in PlatformError.h"
while read -r kind hex; do
    grep -qE "^ +$hex +$((hex)) +[a-z]" <<< "$diagnostics" || fail "partmode(8) has no row for the $kind code $hex"
done <<< "$codes"

# How an operator makes partmode set-user-ID, and how reasons are asked for.
grep -qF "dpkg-statoverride --update --add root partmode 4750 /usr/sbin/partmode" <<< "$text" ||
    fail "partmode(8) does not show how to make partmode set-user-ID"
grep -qF '"diagnostics": "stderr"' <<< "$text" || fail "partmode(8) does not name the board key diagnostics"

# Every word of partmode-sim's usage text.
sim_text=$(page_text "$source_dir/man/partmode-sim.1")
usage=$(perl -0ne 'print $1 if /kUsage\s*=\s*((?:\s*"[^"]*")+)/' "$source_dir/sim/SimControl.cpp")
[[ -n $usage ]] || fail "no usage text found in SimControl.cpp"
for word in $(grep -oE -- '(--)?[a-z][a-z-]*' <<< "$usage" | sort -u); do
    [[ $word == usage || $word == n ]] && continue
    grep -qF -- "$word" <<< "$sim_text" || fail "partmode-sim(1) does not name $word"
done

finish
