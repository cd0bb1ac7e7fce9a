#!/bin/sh
# Runs ansible-test sanity on a copy of the collection in FOLDER, so that its
# output stays out of the source tree. Only the tests that need nothing from
# the network run: the others install pinned Python packages from PyPI into
# virtual environments of their own. ansible-doc renders the modules' docs in
# a test of its own.
#   sanity.sh SOURCE FOLDER PYTHON
set -eu

source=$1
folder=$2
python=$3

if ! command -v ansible-test >/dev/null; then
    echo "ansible-test is not installed (Debian package ansible-core)"
    exit 77
fi

rm -rf "$folder"
mkdir -p "$folder/ansible_collections/partmode" "$folder/home"
cp -R "$source/ansible/ansible_collections/partmode/fleet" "$folder/ansible_collections/partmode/"
# ansible-test lists the files through git when the collection lies in a work
# tree, and the build folder is ignored by ours; so the copy gets its own.
git -C "$folder" init -q
git -C "$folder" add -A
cd "$folder/ansible_collections/partmode/fleet"
version=$("$python" -c 'import sys; print("%d.%d" % sys.version_info[:2])')

skip=
for test in ansible-doc changelog import pep8 pylint runtime-metadata validate-modules yamllint shellcheck pslint; do
    skip="$skip --skip-test $test"
done
# shellcheck disable=SC2086
status=0
HOME="$folder/home" ANSIBLE_HOME="$folder/home/.ansible" ansible-test sanity --color no --python "$version" \
    --python-interpreter "$python" $skip </dev/null >"$folder/sanity.log" 2>&1 || status=$?
cat "$folder/sanity.log"
if grep -q 'All targets skipped' "$folder/sanity.log"; then
    echo "ansible-test found no file to test"
    exit 1
fi
exit "$status"
