"""Runs this server beside others on this machine, in turns, and prints what each costs as tables in Markdown."""

import argparse
import os
import pathlib
import platform
import re
import signal
import sys
import tempfile

import experiments
import goals
import measure
import servers
import site_tree

EXTRAS = {
    "latency": "the first byte, one request at a time",
    "held": "1 KiB while 9,000 other connections hold half a request",
    "memory": "memory while 10 MiB are sent to many",
    "away": "how long tessel keeps its host waiting",
    "start": "start and stop with 10,000 slots",
}
NAMES = [w.name for w in site_tree.WORKLOADS] + list(EXTRAS)


def options():
    listed = "\n".join("  %-10s %s" % (w.name, w.title[0].lower() + w.title[1:]) for w in site_tree.WORKLOADS)
    listed += "\n" + "\n".join("  %-10s %s" % item for item in EXTRAS.items())
    parser = argparse.ArgumentParser(
        prog="benchmarks/compare", description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter,
        epilog="workloads:\n%s\n\nservers: %s\n\nFor the front of the command: --build-dir FOLDER uses another build "
               "folder than build/release." % (listed, ", ".join(servers.NAMES)))
    parser.add_argument("--rounds", type=int, help="how often every server is measured (default 5)")
    parser.add_argument("--seconds", type=float, help="how long one measurement is (default 1)")
    parser.add_argument("--requests", type=int, help="how many requests one measurement is, in place of --seconds")
    parser.add_argument("--workload", action="append", choices=NAMES, metavar="NAME", help="only this one; repeatable")
    parser.add_argument("--server", action="append", choices=servers.NAMES, metavar="NAME",
                        help="only this one; repeatable. Ratios need floor, nginx and lighttpd")
    parser.add_argument("--quick", action="store_true",
                        help="one round of 0.3 seconds, no count of system calls: for people who are changing the code")
    parser.add_argument("--output", type=pathlib.Path, help="writes the tables to a file as well")
    parser.add_argument("--programs", type=pathlib.Path, required=True, help=argparse.SUPPRESS)
    chosen = parser.parse_args()
    chosen.rounds = max(chosen.rounds or (1 if chosen.quick else 5), 1)
    chosen.seconds = chosen.seconds or (0.3 if chosen.quick else 1.0)
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


def run(name, context, chosen):
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
        asked = [w for w in site_tree.WORKLOADS if not chosen or w.name in chosen] or site_tree.WORKLOADS
        return experiments.away(context, asked)
    return experiments.load(context, experiments.workload_named(name))


def write(findings, chosen, output):
    """All tables as one text."""
    amount = "%d requests" % chosen.requests if chosen.requests else "%g s" % chosen.seconds
    parts = ["Machine: %s." % machine(),
             "%d rounds, %s each. Medians; in brackets the least and the greatest; ratios are medians of the ratios "
             "round by round." % (chosen.rounds, amount)]
    met = goals.table(findings)
    if met:
        parts += ["## Goals", met]
    for finding in findings.values():
        parts += ["## " + finding.title] + ([finding.note] if finding.note else []) + [finding.table]
    text = "\n\n".join(parts) + "\n"
    print(text)
    if output:
        output.write_text(text)


def main():
    chosen = options()
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(1))  # so that servers are stopped
    server_cpu, client_cpu = processors()
    with tempfile.TemporaryDirectory(prefix="comparison-") as folder:
        folder = pathlib.Path(folder)
        folder.chmod(0o755)
        root = folder / "site"
        root.mkdir()
        site_tree.build(root)
        setting = servers.Setting(chosen.programs, root, folder, server_cpu)
        amount = (["--requests", str(chosen.requests)] if chosen.requests else
                  ["--milliseconds", str(int(chosen.seconds * 1000))])
        context = experiments.Context(setting, measure.Client(chosen.programs / "comparison_load", client_cpu, folder),
                                      wanted_servers(setting, chosen.server), chosen.rounds, amount, chosen.quick)
        findings = {name: run(name, context, chosen.workload) for name in chosen.workload or NAMES}
    write(findings, chosen, chosen.output)


if __name__ == "__main__":
    try:
        main()
    except KeyboardInterrupt:
        sys.exit(130)
    except (RuntimeError, OSError) as error:
        sys.exit("compare: %s" % error)
