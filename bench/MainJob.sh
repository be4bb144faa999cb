#!/usr/bin/env bash
# The gateway's main job, JSON lines from a file into a set of CSV files of 10 MB each, beside loggers of the distribution:
# bench/MainJob.sh BUILD. Then rows per second with few and many log files, and each format. Prints rows of a table.
#
# The others are unpacked below BUILD, not installed: they conflict with each other and with what the machine runs. They
# keep their files open and gather what they write. Each program is run by turns; what is printed are medians.
set -euo pipefail

build=$(realpath "$1")
lines=${MAIN_JOB_LINES:-300000}
rounds=${MAIN_JOB_ROUNDS:-5}
peers=$build/peers
work=$(mktemp -d "$build/main-job-XXXXXX")
daemon=
trap '[[ -z $daemon ]] || kill "$daemon" 2>/dev/null; rm -rf "$work"' EXIT

packages=(rsyslog libestr0 libfastjson4 liblognorm5 syslog-ng-core libivykis0 libjson-c5 libnet1 libwrap0 libnsl2 libtirpc3
    libglib2.0-0 libpcre3 libcap2)
if [[ ! -d $peers ]]; then
    mkdir "$work/packages"
    (cd "$work/packages" && apt-get -q -o APT::Sandbox::User=root download "${packages[@]}" >&2)
    for package in "$work"/packages/*.deb; do dpkg -x "$package" "$work/peers"; done
    mv "$work/peers" "$peers"
fi
libraries=$(find "$peers" -name '*.so*' -printf '%h:' | tr ':' '\n' | sort -u | paste -sd:)

# make_lines COUNT LOGS: reports for so many log files by turns; the last one has the number COUNT
make_lines() {
    awk -v count="$1" -v logs="$2" 'BEGIN { for (i = 1; i <= count; ++i) printf "{\"log\": \"Log%d\", \"alarm\": {" \
        "\"name\": \"Boiler %d feed pump\", \"text\": \"Pressure above the upper limit\", " \
        "\"source\": \"Controller %d\", \"detail\": \"Hall 3, line B, checked every 250 ms\", " \
        "\"state\": {\"active\": %s, \"acked\": %s}, \"alarmNumber\": %d, \"value\": %.2f, " \
        "\"time\": \"2024-01-31T%02d:%02d:%02d.%03dZ\"}}\n", i % logs, i % 40, i % 17, i % 2 ? "true" : "false",
        i % 3 ? "true" : "false", i, i % 1000 / 8, i / 36000 % 24, i / 600 % 60, i / 10 % 60, i * 100 % 1000 }'
}

# make_configuration LOGS FORMAT
make_configuration() {
    local i comma=
    mkdir -p "$work/configuration"
    echo '{}' >"$work/configuration/gateway.json"
    {
        echo '{"version": 3, "dateFormat": "MM-DD-YYYY", "timeFormat": "HH:mm:SS.sss", "fileSpecs": ['
        for ((i = 0; i < $1; ++i)); do
            echo "$comma{\"type\": \"EFileSpec\", \"name\": \"Log$i\", \"logPath\": \"out\", \"fileName\": \"log$i-%i.txt\",
                \"maxFileSize\": 10000000, \"numFiles\": 10, \"fileFormat\": $2, \"unicode\": 0, \"deliveryMode\": 1,
                \"keepCopy\": 0, \"mailName\": \"\"}"
            comma=,
        done
        echo ']}'
    } >"$work/configuration/kvLogFile.json"
}

# check_rows COUNT
check_rows() {
    local found
    found=$(cat "$work"/run/out/* | grep -c 'Boiler')
    [[ $found -eq $1 ]] || {
        echo "found $found rows, expected $1" >&2
        exit 1
    }
}

# run_gateway COUNT: leaves "WALL CPU", in milliseconds, in $result
run_gateway() {
    local real user system TIMEFORMAT='%R %U %S'
    rm -rf "$work/run"
    mkdir -p "$work/run"
    read -r real user system < <({ time "$build/kvgateway" run --config "$work/configuration" --directory "$work/run" \
        --input "$work/lines" 2>"$work/gateway.log"; } 2>&1)
    check_rows "$1"
    result=$(awk -v r="$real" -v u="$user" -v s="$system" 'BEGIN { print r * 1000, (u + s) * 1000 }')
}

# run_daemon COMMAND...: the same; ends it when the last row is there
run_daemon() {
    local begin end ticks
    rm -rf "$work/run"
    mkdir -p "$work/run/out"
    begin=${EPOCHREALTIME/./}
    LD_LIBRARY_PATH=$libraries "$@" >>"$work/daemon.log" 2>&1 &
    daemon=$!
    until tail -qn 1 "$work"/run/out/* 2>/dev/null | grep -q ",$lines,"; do
        kill -0 "$daemon" || exit 1
        sleep 0.02
    done
    end=${EPOCHREALTIME/./}
    ticks=$(awk '{ print $14 + $15 }' "/proc/$daemon/stat")
    kill "$daemon"
    wait "$daemon" || true
    daemon=
    check_rows "$lines"
    result="$(((end - begin) / 1000)) $((ticks * 1000 / $(getconf CLK_TCK)))"
}

run_rsyslog() {
    cat >"$work/rotate" <<END
#!/bin/sh
mv $work/run/out/rows.csv $work/run/out/rows-\$(ls $work/run/out | wc -l).csv
END
    chmod +x "$work/rotate"
    cat >"$work/rsyslog.conf" <<END
global(workDirectory="$work/run" maxMessageSize="64k")
main_queue(queue.type="LinkedList" queue.size="20000" queue.dequeueBatchSize="1024")
module(load="imfile" mode="inotify")
module(load="mmjsonparse")
template(name="row" type="string" string="%\$!alarm!time%,%\$!alarm!name%,%\$!alarm!text%,%\$!alarm!source%,%\$!alarm!detail%,%\$!alarm!state!active%,%\$!alarm!state!acked%,%\$!alarm!alarmNumber%,%\$!alarm!value%\n")
\$outchannel rotated,$work/run/out/rows.csv,10000000,$work/rotate
input(type="imfile" file="$work/lines" tag="t" ruleset="r")
ruleset(name="r") {
  action(type="mmjsonparse" cookie="")
  :omfile:\$rotated;row
}
END
    run_daemon "$peers/usr/sbin/rsyslogd" -n -f "$work/rsyslog.conf" -i "$work/run/pid" \
        -M "$(dirname "$(find "$peers" -name imfile.so)")"
}

run_syslog_ng() {
    cat >"$work/syslog-ng.conf" <<END
@version: 3.38
options { threaded(yes); log-fifo-size(100000); stats-freq(0); keep-hostname(yes); chain-hostnames(no); use-dns(no); };
source s { file("$work/lines" flags(no-parse) log-fetch-limit(1000) log-iw-size(100000)); };
parser j { json-parser(prefix("j.")); };
destination d { file("$work/run/out/rows-\$(/ \${j.alarm.alarmNumber} 68000).csv" flush-lines(1000)
    template("\${j.alarm.time},\${j.alarm.name},\${j.alarm.text},\${j.alarm.source},\${j.alarm.detail},\${j.alarm.state.active},\${j.alarm.state.acked},\${j.alarm.alarmNumber},\${j.alarm.value}\n")); };
log { source(s); parser(j); destination(d); };
END
    run_daemon "$peers/usr/sbin/syslog-ng" -F --no-caps -f "$work/syslog-ng.conf" -R "$work/run/persist" \
        -p "$work/run/pid" -c "$work/run/control" --module-path="$(dirname "$(find "$peers" -name libaffile.so)")"
}

# median FIELD FILE
median() { sort -n -k "$1,$1" "$2" | awk -v field="$1" '{ values[NR] = $field } END { print values[int((NR + 1) / 2)] }'; }

# print_ratio WHAT FIELD GOAL PEER
print_ratio() {
    awk -v ours="$(median "$2" "$work/gateway")" -v theirs="$(median "$2" "$work/$4")" -v what="$1" -v goal="$3" \
        -v peer="$4" 'BEGIN { printf "| main job, %s | %s | %.3g | %s | %d / %d ms |\n", what, peer, ours / theirs, goal, ours, theirs }'
}

make_lines "$lines" 1 >"$work/lines"
make_configuration 1 1
for ((round = 0; round < rounds; ++round)); do
    run_gateway "$lines" && echo "$result" >>"$work/gateway"
    run_rsyslog && echo "$result" >>"$work/rsyslog"
    run_syslog_ng && echo "$result" >>"$work/syslog-ng"
done
for peer in rsyslog syslog-ng; do
    print_ratio "$lines lines" 1 0.7 "$peer"
    print_ratio "CPU" 2 1.0 "$peer"
done
formats=('plain text' comma-separated HTML)
for logs in 1 10 1000; do
    make_lines 100000 "$logs" >"$work/lines"
    for format in 0 1 2; do
        make_configuration "$logs" "$format"
        : >"$work/gateway"
        for ((round = 0; round < 3; ++round)); do
            run_gateway 100000 && echo "$result" >>"$work/gateway"
        done
        printf '| rows per second, log files: %d, %s | | | | %.0f |\n' "$logs" "${formats[format]}" \
            "$(awk -v ms="$(median 1 "$work/gateway")" 'BEGIN { print 1e8 / ms }')"
    done
done
