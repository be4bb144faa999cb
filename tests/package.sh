#!/usr/bin/env bash
# Makes the Debian package of a build, really installs it on this machine, runs the lines of its systemd unit on reports,
# and removes it again. Needs root, and a machine that has no kvgateway installed.
# Usage: package.sh BUILD_DIRECTORY
set -euo pipefail

build=$(realpath -e "$1")
work=$(mktemp -d)
unit=/usr/lib/systemd/system/kvgateway.service
state=/var/lib/kvgateway
runtime=/run/kvgateway
gateway=

fail() {
    printf 'WRONG: %s\n' "$*" >&2
    exit 1
}

cleanup() {
    [[ -z $gateway ]] || kill -KILL "$gateway" 2>/dev/null || true
    dpkg -P kvgateway >/dev/null 2>&1 || true
    rm -rf "$runtime" "$work"
}

# directive NAME: the unit's lines of that name
directive() { sed -n "s/^$1=//p" "$unit"; }

# What the service manager does to start the unit
start_unit() {
    local line
    mkdir -p "$state" "$runtime"
    while IFS= read -r line; do
        sh -c "$line" || fail "$line"
    done < <(directive ExecStartPre)
    sh -c "exec $(directive ExecStart)" 2>>"$work/messages" &
    gateway=$!
}

stop_unit() {
    kill -TERM "$gateway"
    wait "$gateway" || fail "the program ends with $? after SIGTERM: $(cat "$work/messages")"
    gateway=
}

# report TEXT: gives one event to the pipe, as a program that comes and goes
report() { timeout 10 sh -c "printf '{\"event\": {\"text\": \"%s\"}}\n' '$1' >$runtime/reports" || fail "reporting $1"; }

# expect_row TEXT: waits until exactly one row of the kernel log has the text
expect_row() {
    local tries
    for tries in {1..100}; do
        [[ $(cat "$state"/logs/*.log 2>/dev/null | tr -d '\0' | grep -c "$1") == 1 ]] && return
        sleep 0.1
    done
    fail "the row '$1' after $tries tries: $(cat "$work/messages")"
}

expect_nothing_left() {
    local left
    left=$(find /etc /usr /var /run -xdev -path '*kvgateway*' 2>/dev/null || true)
    [[ -z $left ]] || fail "left behind: $left"
}

[[ $EUID -eq 0 ]] || fail "installing a package needs root"
! dpkg -s kvgateway >/dev/null 2>&1 && [[ ! -e $state && ! -e /etc/kvgateway ]] ||
    fail "there is a kvgateway on this machine already, which this test would remove"
trap cleanup EXIT

cpack --config "$build/CPackConfig.cmake" -B "$work" >"$work/cpack.log" 2>&1 || fail "cpack: $(cat "$work/cpack.log")"
package=$(echo "$work"/kvgateway_*.deb)
contents=$(dpkg-deb -c "$package" | awk '{ print $6 }')
for file in usr/bin/kvgateway usr/lib/kvgateway/{kvgateway,kvLogFile.so,kvBase39.so} usr/share/man/man1/kvgateway.1 \
    usr/lib/systemd/system/kvgateway.service usr/share/doc/kvgateway/README.md \
    usr/share/doc/kvgateway/examples/this-machine/kvLogFile.json; do
    grep -qx "./$file" <<<"$contents" || fail "no $file in the package"
done
[[ $(dpkg-deb -f "$package" Depends) == *'libstdc++6 (>= '* ]] || fail "no dependency on the runtime libraries"

dpkg -i "$package" >"$work/dpkg.log" 2>&1 || fail "dpkg -i: $(cat "$work/dpkg.log")"
libraries=$(ldd /usr/lib/kvgateway/kvgateway)
[[ $libraries != *'not found'* && $libraries == *'=> /usr/lib/kvgateway/kvBase39.so '* ]] ||
    fail "libraries of the installed program: $libraries"
kvgateway check --config /etc/kvgateway >/dev/null || fail "the configuration that the package makes"

start_unit
report first
expect_row ': first$'
report second
expect_row ': second$'
stop_unit
start_unit # as after a crash or an upgrade: the files are continued
report third
expect_row ': third$'
expect_row ': first$'
stop_unit

echo '// kept' >>/etc/kvgateway/gateway.json
dpkg -i "$package" >"$work/dpkg.log" 2>&1 || fail "installing it once more: $(cat "$work/dpkg.log")"
grep -qx '// kept' /etc/kvgateway/gateway.json || fail "an upgrade overwrites the operator's configuration"

dpkg -r kvgateway >"$work/dpkg.log" 2>&1 || fail "dpkg -r: $(cat "$work/dpkg.log")"
[[ ! -e /usr/bin/kvgateway && ! -L /usr/bin/kvgateway ]] || fail "the program outlives its removal"
grep -qx '// kept' /etc/kvgateway/gateway.json || fail "the configuration does not outlive the removal"
[[ -n $(find "$state/logs" -type f) ]] || fail "the log files do not outlive the removal"
rm -rf "$runtime" # the service manager's to remove
dpkg -P kvgateway >"$work/dpkg.log" 2>&1 || fail "dpkg -P: $(cat "$work/dpkg.log")"
expect_nothing_left
printf 'ok: %s (%d bytes) installs, runs, upgrades and leaves nothing behind\n' "${package##*/}" "$(stat -c %s "$package")"
