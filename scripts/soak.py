"""Run by the script soak beside it: python3 soak.py MINUTES, in the root of the repository, with an empty small disk in
build/soak/disk and a release build.

Eight feeders write rows with running numbers for ten log files of all kinds into a pipe that kvgateway reads. At random
moments it is killed, stopped or finds its disk full. Deliveries are asked for every second, and the program that takes
them fails one time in three. Whatever row was seen on disk must in the end be where it belongs."""

import collections, email, email.policy, json, os, pathlib, random, re, shutil, signal, subprocess, sys, threading, time

ROOT = pathlib.Path("build/soak").absolute()
DISK = ROOT / "disk"                                 # what may run full
CONFIG, OUT = DISK / "config", ROOT / "out"          # what is delivered leaves the disk
GATEWAY = pathlib.Path("build/release/kvgateway").absolute()
FEEDERS, ROWS_PER_SECOND = 8, 100                    # of each feeder
PLAIN, COMMA, HTML = 0, 1, 2
NONE, UPLOAD, MAIL = 1, 2, 3
ROW = re.compile(r"f(\d)-l(\d)-n(\d+)-end")          # feeder, log file, number; a part of one is no row
LINE = re.compile(r"Date.*Value\n|[\d-]{10}[ ,]?[\d:]{8}\.\d{3}[ ,]*"  # a whole one
                  r"f\d-l\d-n\d+-end(: |[ ,]*Not Active,?Not ACKED,?0,?)\n")

Log = collections.namedtuple("Log", "format unicode delivery keep", defaults=(NONE, 0))
LOGS = [Log(PLAIN, 1), Log(PLAIN, 0), Log(COMMA, 0), Log(COMMA, 1), Log(HTML, 0), Log(COMMA, 0, UPLOAD),
        Log(PLAIN, 1, UPLOAD, 1), Log(HTML, 0, UPLOAD), Log(COMMA, 0, MAIL), Log(COMMA, 1, MAIL, 1)]


def name_of(i):
    return "KernelLog" if i == 0 else f"log{i}"


def configure():
    for directory in (CONFIG, OUT):
        directory.mkdir()
    take = 'test $(($(od -An -N1 -tu1 /dev/urandom) % 3)) -gt 0 || { echo "not today" >&2; exit 1; }; '
    upload = take + 'to="$0/$(basename "$(dirname "$1")")-$(basename "$1")"; cp "$1" "$to.part" && mv "$to.part" "$to"'
    mail = take + 'to="$0/$(od -An -N8 -tx8 /dev/urandom | tr -d " ")"; cat >"$to.part" && mv "$to.part" "$to.eml"'
    retry = {"retryMin": "100ms", "retryMax": "2s"}
    json.dump({"upload": {"command": ["/bin/sh", "-c", upload, str(OUT), "{path}"], **retry},
               "mail": {"from": "soak@localhost", "command": ["/bin/sh", "-c", mail, str(OUT)], **retry,
                        "definitions": [{"name": "soak", "to": ["soak@localhost"]}]}},
              open(CONFIG / "gateway.json", "w"))
    specs = [{"type": "EFileSpec", "name": name_of(i), "logPath": f"logs/{i}/",
              "fileName": (f"{i}-%i" if log.delivery == NONE else f"{i}-%Y%m%d%H%M%S%s-%i"),
              "maxFileSize": 30_000, "numFiles": 1000, "fileFormat": log.format, "unicode": log.unicode,
              "deliveryMode": log.delivery, "keepCopy": log.keep, "mailName": "soak"} for i, log in enumerate(LOGS)]
    json.dump({"version": 3, "dateFormat": "YYYY-MM-DD", "timeFormat": "HH:mm:SS.sss", "fileSpecs": specs},
              open(CONFIG / "kvLogFile.json", "w"))


def feed(feeder, pipe, ending):
    number = 0
    while not ending.wait(1 / ROWS_PER_SECOND):
        log = (number + feeder) % len(LOGS)
        row = {"name": f"f{feeder}-l{log}-n{number}-end"}
        report = {"event": row} if log == 0 else {"alarm": row, "log": name_of(log)}
        lines = json.dumps(report) + "\n"
        if feeder == 0 and number % ROWS_PER_SECOND == 0:
            lines += "".join(json.dumps({"action": "DoLogDelivery", "log": name_of(i)}) + "\n"
                             for i, log in enumerate(LOGS) if log.delivery != NONE)
        os.write(pipe, lines.encode())
        number += 1


def text_of(data):
    return data.decode("utf-16") if data.startswith(b"\xff\xfe") else data.decode("latin-1")


def texts_of(path):
    """What a file holds; of a mail, its attachments."""
    data = path.read_bytes()
    if path.suffix != ".eml":
        return [text_of(data)]
    return [text_of(part.get_content()) for part in email.message_from_bytes(data, policy=email.policy.default)
            .iter_attachments()]


def is_torn(text):
    """Whether it holds a line, or a row of an HTML page, that is not whole."""
    if text.startswith("<"):
        return text.count("<TR>") != text.count("</TR>")
    return not all(map(LINE.fullmatch, text.splitlines(True)))


def files_below(*places):
    return [pathlib.Path(directory, name) for place in places
            for directory, _, names in os.walk(place) for name in names]


def look(*places):
    """The rows below the places, each with the files that hold it."""
    found = collections.defaultdict(list)
    for path in files_below(*places):
        try:
            for text in texts_of(path) if path.suffix not in (".part", ".warm", ".damaged") else []:
                for match in ROW.finditer(text):
                    found[tuple(int(part) for part in match.groups())].append(path)
        except (FileNotFoundError, UnicodeDecodeError):  # moved, or written, at this moment
            pass
    return found


def disturb(gateway, counts):
    """One disturbance; returns the gateway's exit status when it has ended."""
    kind = random.choice(("kill", "stop", "full disk", "full disk and kill"))
    counts[kind] += 1
    if kind.startswith("full disk"):
        subprocess.run(["sh", "-c", f"dd if=/dev/zero of={DISK}/ballast bs=64k; dd if=/dev/zero bs=1 >>{DISK}/ballast"],
                       stderr=subprocess.DEVNULL)
        time.sleep(random.uniform(0.1, 1.5))
    if kind != "full disk":
        gateway.send_signal(signal.SIGTERM if kind == "stop" else signal.SIGKILL)
        gateway.wait(30)
    (DISK / "ballast").unlink(missing_ok=True)
    return gateway.poll()


def start(source, errors):
    return subprocess.Popen([GATEWAY, "run", "--config", CONFIG, "--directory", DISK], stdin=source, stderr=errors)


def soak(minutes, errors):
    """The rows that were seen on disk."""
    pipe = os.open(ROOT / "pipe", os.O_RDWR)
    ending = threading.Event()
    feeders = [threading.Thread(target=feed, args=(i, pipe, ending), daemon=True) for i in range(FEEDERS)]
    for feeder in feeders:
        feeder.start()
    seen, counts, end = set(), collections.Counter(), time.time() + 60 * minutes
    gateway = start(pipe, errors)
    while time.time() < end:
        time.sleep(random.uniform(0.2, 4))
        seen |= look(DISK).keys()
        status = disturb(gateway, counts)
        if status not in (None, 0, 1, -signal.SIGKILL):
            sys.exit(f"the gateway ended with {status}; see {errors.name}")
        if status is not None:
            gateway = start(pipe, errors)
    ending.set()
    for feeder in feeders:
        feeder.join()
    gateway.send_signal(signal.SIGTERM)
    gateway.wait(30)
    print(", ".join(f"{count} times {kind}" for kind, count in counts.items()))
    return seen | look(DISK).keys()


def is_home(row, path):
    """Whether a row is safe there: a delivered one is where it was delivered, or still waits for it."""
    delivers = LOGS[row[1]].delivery != NONE
    return not delivers or OUT in path.parents or "Spool" in path.parts


def main():
    configure()
    os.mkfifo(ROOT / "pipe")
    with open(ROOT / "errors", "w") as errors:
        seen = soak(float(sys.argv[1]), errors)
        for _ in range(100):  # until what is still to be sent has gone
            start(subprocess.DEVNULL, errors).wait()
            if not files_below(DISK / "outbox"):
                break
    found = look(DISK, OUT)
    lost = [row for row in seen if not any(is_home(row, path) for path in found[row])]
    strayed = [row for row, paths in found.items() for path in paths
               if path.suffix != ".eml" and not re.search(rf"(^|-){row[1]}-", path.name)]
    twice = [row for row, paths in found.items() if LOGS[row[1]].delivery == NONE and len(paths) > 1]
    torn = [path for path in files_below(DISK / "logs", OUT)
            if path.suffix != ".part" and any(map(is_torn, texts_of(path)))]
    again = sum(len([path for path in paths if OUT in path.parents]) > 1 for paths in found.values())
    print(f"{len(seen)} rows were seen on disk: {len(lost)} lost, {len(strayed)} in a wrong file, {len(twice)} written "
          f"twice, {again} delivered more than once; {len(torn)} files hold torn rows")
    if lost or strayed or twice or torn or not files_below(OUT):
        sys.exit(f"for example {lost[:3]} {strayed[:3]} {twice[:3]} {torn[:3]}")


main()
