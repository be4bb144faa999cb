#!/usr/bin/env bash
# Puts a build for this machine and one for 32-bit ARM, which is emulated, beside each other: requests that either has
# saved come back in the other, and both make the same log files of the same reports.
# Usage: run.sh NATIVE_BUILD_DIRECTORY ARM_BUILD_DIRECTORY
set -euo pipefail

native=$(realpath -e "$1")
arm=$(realpath -e "$2")
example=$(realpath -e "$(dirname "${BASH_SOURCE[0]}")/../../examples/this-machine")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export TZ=UTC

fail() {
    printf 'WRONG: %s\n' "$*" >&2
    exit 1
}

# in_native NAME ARGUMENT..., in_arm NAME ARGUMENT...: runs a program of that build
in_native() { "$native/$1" "${@:2}"; }
in_arm() { qemu-arm -L /usr/arm-linux-gnueabihf "$arm/$1" "${@:2}"; }

# half BUILD save|restore DIRECTORY
half() {
    mkdir -p "$work/$3"
    cd "$work/$3"
    "in_$1" kvPending "$2" || fail "$2 by the $1 build"
}

expected='H956,H957,H958,H959,H960,H961,H962,H963,H964,H965
01-19-2038,03:14:08.999,Pump 1,too hot: 80 °C,S,D,Active,ACKED,-2147483648,-9223372036854775808
02-07-2106,06:28:15.000,Pump 1,too hot: 80 °C,S,D,Active,ACKED,-2147483648,-5e-324
<TR>
<TD>01-31-2024</TD>
<TD>13:05:09.042</TD>
<TD>🔥 €</TD>
<TD>true</TD>
<TD>0.1</TD>
<TD>????</TD>
</TR>
[-1,  0,  1,   2] 02-29-2000 00:00:00.001 S Pump 1: too hot: 80 °C'

half native save from-native
half arm save from-arm
cmp "$work/from-native/kvLogFile.warm" "$work/from-arm/kvLogFile.warm" || fail "the builds save different bytes"
for halves in 'native arm' 'arm native'; do
    half "${halves% *}" restore "from-${halves#* }"
    iconv -f LATIN1 -t UTF-8 logs/alarms.csv >rows
    sed -n '/^<TBODY>/,$p' logs/trend.html | sed 1d >>rows
    iconv -f UTF-16 -t UTF-8 logs/wide.txt >>rows
    diff -u <(printf '%s\n' "$expected") rows || fail "rows restored by the ${halves/ / build, saved by the } one"
done
printf 'ok: %d bytes of pending requests, the same from both builds, restored by each other\n' \
    "$(stat -c %s "$work/from-native/kvLogFile.warm")"

# The example at one moment after 2038, without deliveries, which the ARM build is made without, and without the time of
# day in names.
"$example/feed" 3 | grep -v '"action"' | sed -E 's/\{"(name|source)"/{"time": 2200000000.25, "\1"/g' >"$work/reports"
for build in native arm; do
    mkdir -p "$work/$build/config"
    sed -E 's/"deliveryMode": [23]/"deliveryMode": 1/; s/%H%M%S-//' "$example/kvLogFile.json" \
        >"$work/$build/config/kvLogFile.json"
    "in_$build" kvgateway run --config "$work/$build/config" --directory "$work/$build" --input "$work/reports" \
        2>"$work/$build-messages" || fail "the example in the $build build: $(cat "$work/$build-messages")"
done
cd "$work"
[[ $(cat arm/logs/uploaded/*.csv | grep -c '^2039-09-18,23:06:40.250,') -gt 10 && -s arm/logs/kernel-0.log ]] ||
    fail "the example's files: $(find arm)"
diff -r native arm || fail "the builds make different files of the same reports"
printf 'ok: %d reports of the example, the same files from both builds\n' "$(wc -l <reports)"
