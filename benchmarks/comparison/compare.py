"""Runs this server beside others on this machine, in turns, and prints what each costs as tables in Markdown."""

import argparse
import contextlib
import os
import pathlib
import platform
import re
import signal
import subprocess
import sys
import tempfile

import experiments
import goals
import measure
import servers
import site_tree
import waiting
import waiting_site

EXTRAS = {
    "latency": "the first byte, one request at a time",
    "held": "1 KiB while 9,000 other connections hold half a request",
    "memory": "memory while 10 MiB are sent to many",
    "away": "how long tessel keeps its host waiting",
    "start": "start and stop with 10,000 slots",
}
BEGIN_MARK = "<!-- tables of benchmarks/compare -->"
END_MARK = "<!-- end of the tables -->"
NAMES = [w.name for w in site_tree.WORKLOADS] + list(EXTRAS)


def options():
    listed = "\n".join("  %-10s %s" % (w.name, w.title[0].lower() + w.title[1:]) for w in site_tree.WORKLOADS)
    listed += "\n" + "\n".join("  %-10s %s" % item for item in EXTRAS.items())
    listed += "\n\nworkloads with --waiting:\n"
    listed += "\n".join("  %-12s  %s" % (w.name, w.title) for w in waiting_site.WORKLOADS)
    parser = argparse.ArgumentParser(
        prog="benchmarks/compare", description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter,
        epilog="workloads:\n%s\n\nservers: %s\n\nFor the front of the command: --build-dir FOLDER uses another build "
               "folder than build/release." % (listed, ", ".join(servers.NAMES)))
    parser.add_argument("--rounds", type=int, help="how often every server is measured (default 11)")
    parser.add_argument("--seconds", type=float, help="how long one measurement is (default 0.4)")
    parser.add_argument("--requests", type=int, help="how many requests one measurement is, in place of --seconds")
    parser.add_argument("--workload", action="append", choices=NAMES + waiting_site.NAMES, metavar="NAME",
                        help="only this one; repeatable")
    parser.add_argument("--server", action="append", choices=servers.NAMES, metavar="NAME",
                        help="only this one; repeatable. Ratios need floor, nginx and lighttpd")
    parser.add_argument("--quick", action="store_true",
                        help="one round of 0.3 seconds, no count of system calls: for people who are changing the code")
    parser.add_argument("--waiting", action="store_true",
                        help="measures instead how long the host and a small file wait while something else takes long, in "
                             "two minutes; as root, or where users may have namespaces of their own")
    parser.add_argument("--output", type=pathlib.Path,
                        help="writes the tables to a file as well; into docs/performance.md at their place")
    parser.add_argument("--programs", type=pathlib.Path, required=True, help=argparse.SUPPRESS)
    chosen = parser.parse_args()
    names = waiting_site.NAMES if chosen.waiting else NAMES
    for name in chosen.workload or []:
        if name not in names:
            parser.error("%s is a workload %s --waiting" % (name, "without" if chosen.waiting else "with"))
    chosen.rounds = max(chosen.rounds or (1 if chosen.quick else 11), 1)
    chosen.seconds = chosen.seconds or (0.3 if chosen.quick else 0.4)
    return chosen


def processors():
    """Two processors, one for the server and one for its client; the same one twice where there is no other."""
    allowed = sorted(os.sched_getaffinity(0))
    return allowed[0], allowed[1 % len(allowed)]


def machine():
    """The processor, the kernel and the memory, in one line."""
    with open("/proc/cpuinfo") as file:
        model = re.search(r"^model name\s*: (.*)$", file.read(), re.MULTILINE)
    with open("/proc/meminfo") as file:
        gib = int(re.search(r"MemTotal:\s+(\d+)", file.read()).group(1)) / (1 << 20)
    return "%s, %d processors, %.0f GiB, Linux %s" % (model.group(1) if model else platform.machine(), os.cpu_count(),
                                                     gib, platform.release())


def wanted_servers(setting, chosen):
    wanted = chosen or servers.NAMES
    missing = [name for name in wanted if not servers.available(setting, name)]
    for name in missing:
        print("not on this machine: %s" % name, file=sys.stderr)
    return [name for name in wanted if name not in missing]


def workloads_watched(chosen):
    """The workloads under which the host's waiting is measured: those chosen, or all."""
    every = [w for w in site_tree.WORKLOADS if w.at_once > 1]  # alone, a turn has one request at most
    return [w for w in site_tree.WORKLOADS if w.name in (chosen or [])] or every


def run(name, context, watched):
    """One experiment by name."""
    context.say(name)
    if name == "latency":
        return experiments.latency(context)
    if name == "held":
        return experiments.held(context)
    if name == "memory":
        return experiments.memory(context)
    if name == "start":
        return experiments.start_stop(context)
    if name == "away":
        return experiments.away(context, watched)
    workload = experiments.workload_named(name)
    return experiments.cold(context, workload) if workload.numbers > 1 else experiments.load(context, workload)


def setting_of(chosen, load):
    """How and on what it was measured, a line each."""
    amount = "%d requests for each measurement" % chosen.requests if chosen.requests else (
        "%g s for each measurement (three times as much for 10 MiB and the listing of 10,000)" % chosen.seconds)
    return machine_and_versions(load) + [
            "- %d rounds, %s. Medians; in brackets the least and the greatest." % (chosen.rounds, amount)]


def machine_and_versions(load):
    return ["- Machine: %s; load average at the beginning: %.1f." % (machine(), load),
            "- Beside it: %s." % ", ".join(versions())]


def versions():
    """The packages of the other servers, as far as Debian's tool knows them."""
    with contextlib.suppress(OSError):
        done = subprocess.run(["dpkg-query", "-W", "-f", "${source:Package} ${Version}\n", "nginx", "lighttpd",
                               "libmicrohttpd-dev", "libcivetweb-dev"], stdout=subprocess.PIPE,
                              stderr=subprocess.DEVNULL, text=True, check=False)
        return done.stdout.split("\n")[:-1] or ["packages unknown"]
    return ["packages unknown"]


def tables(findings, setting):
    """All tables as one text."""
    parts = ["\n".join(setting)]
    met = goals.table(findings)
    if met:
        parts += ["## Goals", met]
    for finding in findings.values():
        parts += ["## " + finding.title] + ([finding.note] if finding.note else []) + [finding.table]
    return "\n\n".join(parts) + "\n"


def put(text, path, begin, end):
    """Writes the tables; in a file that has the marks `begin` and `end`, in place of what stands between them."""
    old = path.read_text() if path.exists() else ""
    before, found, rest = old.partition(begin)
    _, ended, after = rest.partition(end)
    path.write_text("%s%s\n%s\n%s%s" % (before, begin, text, end, after) if found and ended else text)


def run_waiting(chosen):
    """All of --waiting."""
    waiting.enter_own_machine()
    waiting.raise_loopback()
    server_cpu, client_cpu = processors()
    os.sched_setaffinity(0, {client_cpu})  # the clients of what takes long are threads of this process
    load = os.getloadavg()[0]
    with tempfile.TemporaryDirectory(prefix="comparison-") as folder:
        folder = pathlib.Path(folder)
        folder.chmod(0o755)
        (folder / "site").mkdir()
        setting = servers.Setting(chosen.programs, folder / "site", folder, server_cpu)
        client = measure.Client(chosen.programs / "comparison_load", client_cpu, folder)
        context = experiments.Context(setting, client, wanted_servers(setting, chosen.server), 1, waiting.SECONDS, None,
                                      chosen.quick)
        found = waiting.run(context, chosen.workload or waiting_site.NAMES)
    text = "\n".join(machine_and_versions(load)) + "\n\n" + found + "\n"
    print(text)
    if chosen.output:
        put(text, chosen.output, waiting.BEGIN_MARK, waiting.END_MARK)


def main():
    chosen = options()
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(1))  # so that servers are stopped
    if chosen.waiting:
        run_waiting(chosen)
        return
    server_cpu, client_cpu = processors()
    load = os.getloadavg()[0]
    with tempfile.TemporaryDirectory(prefix="comparison-") as folder:
        folder = pathlib.Path(folder)
        folder.chmod(0o755)
        root = folder / "site"
        root.mkdir()
        names = chosen.workload or NAMES
        watched = workloads_watched(chosen.workload) if "away" in names else []
        if any(experiments.workload_named(name).site == "cold" for name in {*names} - EXTRAS.keys()) or any(
                w.site == "cold" for w in watched):
            (folder / "cold").mkdir()
            site_tree.build_cold(folder / "cold")
        site_tree.build(root, chosen.programs, site_tree.LISTED.keys() & {*names, *(w.name for w in watched)})
        setting = servers.Setting(chosen.programs, root, folder, server_cpu)
        context = experiments.Context(setting, measure.Client(chosen.programs / "comparison_load", client_cpu, folder),
                                      wanted_servers(setting, chosen.server), chosen.rounds, chosen.seconds,
                                      chosen.requests, chosen.quick)
        findings, failed = {}, []
        for name in names:
            try:
                findings[name] = run(name, context, watched)
            except RuntimeError as error:  # the others took long enough to be worth having
                print("compare: %s" % error, file=sys.stderr)
                failed.append(name)
    text = tables(findings, setting_of(chosen, load))
    print(text)
    if failed:
        sys.exit("compare: failed: %s. No file was written." % ", ".join(failed))
    if chosen.output:
        put(text, chosen.output, BEGIN_MARK, END_MARK)


if __name__ == "__main__":
    try:
        main()
    except KeyboardInterrupt:
        sys.exit(130)
    except (RuntimeError, OSError) as error:
        sys.exit("compare: %s" % error)
