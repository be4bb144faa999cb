#!/usr/bin/env bash
# Installs a build into an empty prefix, builds the example kernel from there alone, as somebody who has only the packages,
# runs it, and compares its log files.
# Usage: embedding.sh BUILD_DIRECTORY COMPILER [EMULATOR...]
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/../scripts/common"

build=$(realpath "$1")
compiler=$2
emulator=("${@:3}")
work=$build/embedding
prefix=$work/prefix

# expect FILE TEXT: the rows of the file, without their date and time
expect() {
    [[ $(sed -E 's/^[0-9]{4}-[0-9]{2}-[0-9]{2}[ ,][0-9:.]{12}//' "$1") == "$2" ]] || fail "$1: $(cat "$1")"
}

rm -rf "$work"
mkdir -p "$work/run"
cmake --install "$build" --prefix "$prefix" >"$work/install.log"
cp -r "$prefix/share/doc/kvgateway/examples/kernel" "$work/example"
cmake -S "$work/example" -B "$work/built" -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_CXX_COMPILER="$compiler"
cmake --build "$work/built"

# Every header finds what it needs, also by pkg-config and in the older language that kernels may be written in.
export PKG_CONFIG_LIBDIR=$prefix/lib/pkgconfig
(cd "$prefix/include/kvLogFile" && printf '#include "%s"\n' base/*.h >"$work/all.cpp")
"$compiler" -std=c++17 -shared -fPIC $(pkg-config --cflags kvLogFile) "$work/all.cpp" -o "$work/all.so" \
    $(pkg-config --libs kvLogFile)

cd "$work/run"
"${emulator[@]}" "$work/built/kernel"
expect kernel-0.log $'  kernel: started\n  kernel: started'
expect alarms-0.csv 'Date,Time,Name,Text,Source,Detail,Active,Acknowledged,Alarm number,Value
,Pump 1,too hot,,,Not Active,Not ACKED,0,81.5
,Pump 1,too hot,,,Not Active,Not ACKED,0,81.5'
expect uploaded-trend-0.csv $'Date,Time,Inlet,Outlet\n,20.5,18.25'
[[ -z $(ls Spool) && ! -e kvLogFile.warm ]] || fail "left behind"
