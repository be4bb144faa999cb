#!/usr/bin/env bash
# Makes the Debian packages of a build, installs them with this machine's dpkg, builds the example kernel, runs the lines of
# the systemd unit on reports, and removes them again. Needs root.
# Usage: package.sh BUILD_DIRECTORY
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/../scripts/common"

[[ ${2-} == mounted ]] || exec unshare --mount tests/package.sh "$1" mounted # see below

build=$(realpath -e "$1")
work=/run/work
unit=/usr/lib/systemd/system/kvgateway.service
state=/var/lib/kvgateway
runtime=/run/kvgateway
gateway=

# directive NAME: the unit's lines of that name
directive() { sed -n "s/^$1=//p" "$unit"; }

# (as_user COMMAND...): runs it as the unit's user, in that user's environment
as_user() { exec setpriv --reuid="$(directive User)" --regid="$(directive User)" --init-groups --reset-env "$@"; }

# run_unit TEXT...: does what the service manager does to start the unit, gives it events one by one, as programs do that
# come and go, waits until exactly one row of the kernel log has the text of each, and stops it
run_unit() {
    local text tries
    install -d -o "$(directive User)" -g "$(directive User)" "$state" "$state/home" "$runtime"
    (as_user sh -ec "$(directive ExecStartPre)") || fail "the preparation"
    (as_user sh -c "exec $(directive ExecStart)" 2>>"$work/messages") &
    gateway=$!
    for text in "$@"; do
        timeout 10 sh -c "printf '{\"event\": {\"text\": \"%s\"}}\n' '$text' >$runtime/reports" || fail "reporting $text"
        for tries in {1..100}; do
            [[ $(cat "$state"/logs/*.log 2>/dev/null | tr -d '\0' | grep -c ": $text$") == 1 ]] && continue 2
            sleep 0.1
        done
        fail "the row '$text' after $tries tries: $(cat "$work/messages")"
    done
    kill -TERM "$gateway"
    wait "$gateway" || fail "the program ends with $? after SIGTERM: $(cat "$work/messages")"
    gateway=
}

# package ARGUMENT...: calls dpkg
package() { dpkg "$@" >"$work/dpkg.log" 2>&1 || fail "dpkg $*: $(cat "$work/dpkg.log")"; }

trap '[[ -z $gateway ]] || kill -KILL "$gateway"' EXIT
# What changes below these directories changes in memory, for this process alone: the machine stays as it is, also when the
# test is killed. A kvgateway that the machine has is removed for the test only.
mount -t tmpfs tmpfs /run
for place in etc usr var; do
    mkdir -p $work/$place/{written,work}
    mount -t overlay -o lowerdir=/$place,upperdir=$work/$place/written,workdir=$work/$place/work overlay /$place
done
package -P kvgateway-dev kvgateway

cpack --config "$build/CPackConfig.cmake" -B "$work" >"$work/cpack.log" 2>&1 || fail "cpack: $(cat "$work/cpack.log")"
file=$(echo "$work"/kvgateway_*.deb)
for path in man/man1/kvgateway.1 doc/kvgateway/{README.md,examples/this-machine/kvLogFile.json}; do
    dpkg-deb -c "$file" | grep " \./usr/share/$path\$" >/dev/null || fail "no $path in the package"
done

package -i "$file"
kvgateway check --config /etc/kvgateway >/dev/null || fail "the configuration that the package makes"
package -i "$work"/kvgateway-dev_*.deb
cmake -S /usr/share/doc/kvgateway/examples/kernel -B "$work/kernel" >/dev/null && cmake --build "$work/kernel" >/dev/null &&
    (cd "$work" && kernel/kernel && grep -q 'too hot' alarms-0.csv) || fail "a kernel built with the packages"
package -P kvgateway-dev
run_unit first second
run_unit third # as after a crash or an upgrade: the files are continued
[[ $(cat "$state"/logs/*.log | tr -d '\0' | grep -c ': first$') == 1 ]] || fail "the first row does not outlive a restart"

echo '// kept' >>/etc/kvgateway/gateway.json
package -i "$file"
grep -qx '// kept' /etc/kvgateway/gateway.json || fail "an upgrade overwrites the operator's configuration"
package -r kvgateway
grep -qx '// kept' /etc/kvgateway/gateway.json || fail "the configuration does not outlive the removal"
[[ -n $(find "$state/logs" -type f) ]] || fail "the log files do not outlive the removal"
rm -rf "$runtime" # the service manager's to remove
package -P kvgateway
left=$(find /etc /usr /var -xdev -path '*kvgateway*' 2>/dev/null || true)
[[ -z $left ]] || fail "left behind: $left"
! getent passwd kvgateway >/dev/null || fail "the user outlives the package"
printf 'ok: %s (%d bytes) installs, runs, upgrades and leaves nothing behind\n' "${file##*/}" "$(stat -c %s "$file")"
