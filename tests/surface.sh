#!/usr/bin/env bash
# Holds a built module against what the gateway relies on: the names it exports, the libraries it needs, where it
# looks for them, that every symbol is bound when it is loaded, and its size.
# Usage: surface.sh MODULE    (NM, READELF and SIZE name the tools to use, for a module of another architecture)
source "$(dirname "${BASH_SOURCE[0]}")/../scripts/common"

module=$1
nm=${NM:-nm}
readelf=${READELF:-readelf}
size=${SIZE:-size}

# expect WHAT EXPECTED FOUND
expect() {
    [[ $2 == "$3" ]] || fail "$1: expected '$2', found '$3'"
}

names=$("$nm" -D --defined-only "$module" | awk '{ print $NF }' | LC_ALL=C sort)
dynamic=$("$readelf" -dW "$module")
# tag NAME: the bracketed values of the dynamic section's entries of that kind
tag() { sed -nE "s/^.*\($1\).*\[(.*)\]\$/\1/p" <<<"$dynamic"; }

expect "exported names" "LOGFILE_VERSION
LOGFILE_WR_FILE_NAME
LOGFILE_XML_NAME
g_pELogFile
kvLogFileInitService" "$names"

expect "search path (DT_RPATH)" '$ORIGIN:$ORIGIN/sysroot/lib:$ORIGIN/sysroot/usr/lib' "$(tag RPATH)"
expect "no DT_RUNPATH, which would make the loader ignore DT_RPATH" "" "$(tag RUNPATH)"

system='libstdc\+\+\.so\.6|libgcc_s\.so\.1|libm\.so\.6|libc\.so\.6|ld-linux.*'
expect "needs the base library, and nothing else but the system's runtime" kvBase39.so "$(tag NEEDED | grep -vxE "$system")"

expect "symbols bound when loaded" "BIND_NOW" "$(grep -owm1 BIND_NOW <<<"$dynamic")"
expect "relocations read-only once done" "GNU_RELRO" "$(grep -ow GNU_RELRO <<<"$("$readelf" -lW "$module")")"
expect "code free of relocations" "" "$(grep -ow TEXTREL <<<"$dynamic")"

# What the loader maps read-only: code, constants and tables, which is what is left of them in a stripped module too.
if [[ $("$readelf" -h "$module") == *ELF32* ]]; then
    text=$("$size" "$module" | awk 'NR == 2 { print $1 }')
    [[ $text -le 65536 ]] || fail "more than 64 KiB of text on the 32-bit target: $text"
fi
