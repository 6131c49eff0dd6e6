"""How long tessel keeps its host, and how long a small file takes, while something else of its site takes long."""

import contextlib
import dataclasses
import fcntl
import json
import os
import signal
import socket
import struct
import subprocess
import sys
import threading
import time

import goals
import measure
import report
import servers
import site_tree
import waiting_site

BEGIN_MARK = "<!-- tables of benchmarks/compare --waiting -->"
END_MARK = "<!-- end of the tables of --waiting -->"
SECONDS = 3               # how long something that can be repeated goes on
PACE_MILLISECONDS = 10
IDLE_MILLISECONDS = 2000  # before all workloads, and once more after them
MOUNT_SECONDS = 10
SILENCE_SECONDS = 60      # an answer that does not begin or go on for so long has failed
OTHERS = ("lighttpd", "nginx")


# ---- A machine of its own: no network but a loopback, and a name server that keeps silent.

def enter_own_machine():
    """Starts this command anew in a network and a tree of mounts of its own; in there it returns at once."""
    mark = "COMPARE_IN_ITS_OWN_NETWORK"
    if os.environ.get(mark):
        return
    rights = [] if os.geteuid() == 0 else ["--map-root-user"]
    os.environ[mark] = "yes"
    os.execvp("unshare", ["unshare", *rights, "--mount", "--net", "--", sys.executable, "-B", *sys.argv])


def raise_loopback():
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as control:
        up_and_running = 0x1 | 0x40
        fcntl.ioctl(control, 0x8914, struct.pack("16sh14x", b"lo", up_and_running))  # SIOCSIFFLAGS


@contextlib.contextmanager
def silent_name_server(folder):
    """Names of this machine's own file of hosts are known, and for all others there is a server that never answers."""
    for name, text in (("resolv.conf", "nameserver 127.0.0.1\n"), ("nsswitch.conf", "hosts: files dns\n"),
                       ("hosts", "127.0.0.1 localhost\n")):
        (folder / name).write_text(text)
        subprocess.run(["mount", "--bind", folder / name, "/etc/" + name], check=True)
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as silent:
        silent.bind(("127.0.0.1", 53))
        yield


@contextlib.contextmanager
def slow_disk(program, shown, mount_point):
    """A file system that shows the folder `shown` and sleeps in each reading."""
    process = subprocess.Popen([program, shown, mount_point, str(waiting_site.SLOW_MILLISECONDS)])
    try:
        end = time.monotonic() + MOUNT_SECONDS
        while not os.path.ismount(mount_point):
            if process.poll() is not None or time.monotonic() > end:
                raise RuntimeError("no slow disk")
            time.sleep(0.01)
        yield
    finally:
        subprocess.run(["umount", "--lazy", mount_point], check=False, stderr=subprocess.DEVNULL)  # which ends it
        try:
            process.wait(MOUNT_SECONDS)
        except subprocess.TimeoutExpired:
            process.kill()
            process.wait()


# ---- The clients.

def answer_to(port, ask):
    """The body of an answer with status 200."""
    with socket.create_connection(("127.0.0.1", port), SILENCE_SECONDS, (ask.source, 0)) as connection:
        connection.sendall(("GET %s HTTP/1.0\r\nHost: 127.0.0.1\r\n%s\r\n" % (ask.path, ask.fields)).encode())
        answer = b"".join(iter(lambda: connection.recv(1 << 20), b""))
    head, _, body = answer.partition(b"\r\n\r\n")
    if head.split(b" ")[1:2] != [b"200"]:
        raise RuntimeError("%s: %s" % (ask.path, head[:100]))
    return body


def answers_to(port, asks):
    """All at once: the bodies, or what went wrong in place of one."""
    bodies = [None] * len(asks)

    def run(place):
        try:
            bodies[place] = answer_to(port, asks[place])
        except (OSError, RuntimeError) as error:
            bodies[place] = error

    threads = [threading.Thread(target=run, args=(place,)) for place in range(len(asks))]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    return list(zip(asks, bodies))


def make_waves(port, workload, seconds):
    """Asks wave after wave until the time is over or there is none left; the answers, to be checked later."""
    answers, number, end = [], workload.before, time.monotonic() + seconds
    while time.monotonic() < end:
        asks = workload.waves(number)
        if asks is None:
            break
        if not asks:
            time.sleep(PACE_MILLISECONDS / 1000)
        answers += answers_to(port, asks)
        number += 1
    return answers


def check(label, answers):
    for ask, body in answers:
        wrong = str(body) if isinstance(body, Exception) else ask.check(body)
        if wrong:
            raise RuntimeError("%s: %s: %s" % (label, ask.path, wrong))


class PacedClient:
    """The client that asks for the small file every 10 ms."""

    def __init__(self, client, port):
        body = client.folder / "small-body"
        body.write_bytes(site_tree.letters(1024))
        self.process = subprocess.Popen(
            client.command + ["--mode", "paced", "--port", str(port), "--path", waiting_site.SMALL, "--body", str(body),
                              "--every", str(PACE_MILLISECONDS)],
            stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)

    def end(self, label):
        out, complaint = self.process.communicate("", timeout=SILENCE_SECONDS)
        if self.process.returncode != 0:
            raise RuntimeError("%s: %s %s" % (label, out.strip(), complaint.strip()))
        return json.loads(out)


# ---- The measurement.

@dataclasses.dataclass(frozen=True)
class Found:
    """What one server did during one workload, in milliseconds."""

    small: dict    # of the paced client
    turns: dict    # of the host, {} where there is none to be watched


def watched(server):
    server.process.send_signal(signal.SIGUSR1)
    return server.read_line()


def measured(context, name, workload):
    """One workload on a fresh server."""
    label = "%s, %s" % (name, workload.title)
    is_ours = name == "tessel"
    more = ["--watch", "--cgi-timeout", str(workload.timeout)] if is_ours else []
    with context.running(servers.Variant(name, False), workload.features, more) as server:
        small = waiting_site.Ask(waiting_site.SMALL, site_tree.equals(site_tree.letters(1024)))
        for _ in range(3):
            check(label, answers_to(server.port, [small]))
        for number in range(workload.before):
            check(label, answers_to(server.port, workload.waves(number)))
        if is_ours:
            watched(server)
        paced = PacedClient(context.client, server.port)
        try:
            answers = make_waves(server.port, workload, SECONDS)
        finally:
            found = paced.end(label)
        turns = watched(server) if is_ours else {}
    check(label, answers)
    return Found(found, turns)


def idle(context):
    """What the machine itself takes from a program that does nothing, on the server's processor."""
    done = subprocess.run(["taskset", "-c", str(context.setting.cpu), context.client.command[-1], "--mode", "idle",
                           "--milliseconds", str(IDLE_MILLISECONDS)], stdout=subprocess.PIPE, check=True, text=True)
    return json.loads(done.stdout)


def longest(idles):
    return {key: max(found[key] for found in idles) for key in ("wall_ms", "cpu_ms")}


# ---- The tables.

def table(results, idled):
    """One row for each workload, and one for the program that does nothing; results are by workload and server."""
    def time_of(found, key, digits=2):
        return report.number(found.small[key], digits) if found else ""

    rows = [["a program that does nothing", "", report.number(idled["cpu_ms"], 2), report.number(idled["wall_ms"], 2)] +
            [""] * (4 + len(OTHERS))]
    for workload in waiting_site.WORKLOADS:
        by_server = results.get(workload.name, {})
        ours = by_server.get("tessel")
        if ours is None:
            continue
        turns = ours.turns
        rows.append([workload.title, "%s of %s" % (report.number(turns["long_turns"], 0), report.number(turns["turns"], 0))] +
                    [report.number(turns[key], 2) for key in ("turn_cpu_ms", "turn_wall_ms", "turn_kept_ms")] +
                    [report.number(ours.small["requests"], 0), time_of(ours, "p999_ms"), time_of(ours, "longest_ms")] +
                    [time_of(by_server.get(name), "longest_ms") for name in OTHERS])
    return report.table(["meanwhile", "turns over 1 ms", "longest turn, processor time", "wall",
                         "wall, without waiting for a processor", "small files", "99.9th percentile", "slowest"] +
                        ["slowest of %s" % name for name in OTHERS], rows)


def goals_of(results, idled):
    """The table of goals."""
    listed, facts = [], {}
    for workload in waiting_site.WORKLOADS:
        ours = results.get(workload.name, {}).get("tessel")
        if ours is None:
            continue
        facts[workload.name] = {"turn": ours.turns["turn_cpu_ms"], "small": ours.small["p999_ms"],
                                "wall": ours.turns["turn_wall_ms"] - idled["wall_ms"]}
        for key, text, limit in (("turn", "turns of at most 1 ms of processor time", 1),
                                 ("wall", "turns of at most 2 ms more than nothing takes", 2),
                                 ("small", "small file in less than 5 ms", 5)):
            listed.append(goals.Goal("%s: %s" % (workload.title, text), workload.name, lambda f, key=key: f[key],
                                     (lambda v, limit=limit: v < limit) if key == "small" else
                                     (lambda v, limit=limit: v <= limit), 2, "ms"))
    return goals.table_of(listed, facts)


NOTE = """Milliseconds. A host with a loop of its own times each `RunOnce(0)` while one client asks for what the row names and another asks for
a file of 1 KiB every %d ms, on time whether or not earlier answers have come. What can be repeated is repeated for %d s, the rest
is asked for once; each row has a fresh server. Of fewer than 1,000 small files the 99.9th percentile is the slowest. The program that does
nothing only reads the clock, on the server's processor, before and after all others: what it loses is the machine's.""" % (
    PACE_MILLISECONDS, SECONDS)


def run(context, names):
    """Measures the workloads of these names; the text with all tables."""
    folder = context.setting.folder
    slow = folder / "slow"
    slow.mkdir()
    root = context.setting.root
    context.say("the site")
    waiting_site.build(root, slow)
    os.sync()  # what was written is on the disk before anything is measured
    results, idles = {}, [idle(context)]
    with silent_name_server(folder), slow_disk(context.setting.programs / "slow_disk", slow, root / "slow"):
        for workload in waiting_site.WORKLOADS:
            if workload.name not in names:
                continue
            results[workload.name] = {}
            for name in ("tessel", *(other for other in workload.others if other in context.names)):
                found = measured(context, name, workload)
                results[workload.name][name] = found
                context.say("  %s, %s: %s %s" % (workload.name, name, found.small, found.turns))
    idles.append(idle(context))
    idled = longest(idles)
    return "\n\n".join([NOTE, goals_of(results, idled), table(results, idled)])
