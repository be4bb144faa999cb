#!/usr/bin/env bash
# Makes the Debian package of an ARM build, unpacks it with all that it depends on into an empty root, and writes a row and
# sends it from there, emulated.
# Usage: package-arm.sh BUILD_DIRECTORY
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/../scripts/common"

build=$(realpath -e "$1")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cpack --config "$build/CPackConfig.cmake" -B "$work" >"$work/cpack.log" 2>&1 || fail "cpack: $(cat "$work/cpack.log")"
file=$(echo "$work"/kvgateway_*_armhf.deb)
unpack_for_arm "$work" "$file"
dpkg-deb -x "$file" "$work/program" # beside the libraries, as its own place does not matter

gateway=(qemu-arm -L "$work/root" "$work/program/usr/bin/kvgateway")
cd "$work"
"${gateway[@]}" init config >init.log
"${gateway[@]}" run --config config <<<'{"event": {"text": "here"}}' || fail "the program ends with $?"
[[ $(grep -c ': here$' logs/kernel-0.log) == 1 ]] || fail "the row: $(cat logs/kernel-0.log)"
printf 'ok: %s runs with what it depends on\n' "${file##*/}"
