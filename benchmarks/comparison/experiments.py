"""The experiments: each starts its servers, measures them in turns, and hands over its numbers and its table.

An experiment's result is a Finding. Facts are named numbers for the table of goals.
"""

import contextlib
import dataclasses
import shutil
import signal
import sys
import time

import measure
import report
import servers
import site_tree

HELD = 9000            # connections that hold half a request
HELD_SERVERS = ("tessel", "nginx", "lighttpd", "microhttpd")
SETTLE_SECONDS = 0.5   # until a server has seen that they came or went
START_STOPS = 21
MEMORY_ROUNDS = 3      # memory hardly differs from round to round


@dataclasses.dataclass
class Context:
    """What all experiments of a run share."""

    setting: servers.Setting
    client: measure.Client
    names: list                   # the servers wanted
    rounds: int
    seconds: float                # how long one measurement is
    requests: int                 # or how many requests, None to go by `seconds`
    quick: bool

    def amount(self, workload):
        """Arguments of the generator: how long one measurement of a workload is."""
        if self.requests:
            return ["--requests", str(self.requests)]
        return ["--milliseconds", str(int(self.seconds * 1000 * workload.longer))]

    def variants(self, workload, quiet=True):
        """The variants that take part; those without a log only where `quiet`."""
        return [v for v in servers.VARIANTS
                if v.name in workload.servers and v.name in self.names and (quiet or v.log or v.name == "floor")]

    @contextlib.contextmanager
    def running(self, variant, features=(), arguments=(), site="site"):
        setting = dataclasses.replace(self.setting, root=self.setting.root.parent / site)
        server = servers.Server(setting, variant, features, arguments)
        try:
            yield server
        finally:
            server.stop()
            shutil.rmtree(server.folder)

    def say(self, text):
        print(text, file=sys.stderr, flush=True)


@dataclasses.dataclass
class Finding:
    title: str
    table: str
    note: str = ""
    facts: dict = dataclasses.field(default_factory=dict)


TESSEL = servers.Variant("tessel", True)


def workload_named(name):
    return next(w for w in site_tree.WORKLOADS if w.name == name)


def in_turns(context, running, step):
    """Calls step(server) for every server in every round; each round begins with another one."""
    for turn in range(context.rounds):
        order = running[turn % len(running):] + running[:turn % len(running)]
        for server in order:
            step(server)


# ---- One workload, all servers.

def load(context, workload):
    """Processor time, requests a second and system calls of every server for one workload."""
    variants = context.variants(workload)
    results = {v: [] for v in variants}
    calls, bodies = {}, {}
    with contextlib.ExitStack() as stack:
        running = [stack.enter_context(context.running(v, workload.features)) for v in variants]
        arguments = {}
        for server in running:
            learnt, bodies[server.variant] = context.client.learn(server, workload)
            arguments[server] = learnt + ["--at-once", str(workload.at_once), "--compare-every",
                                          str(workload.compare_every)]

        def step(server):
            context.client.run(*arguments[server], "--requests", str(workload.warm_requests))
            found = measure.loaded(context.client, server, arguments[server], context.amount(workload))
            results[server.variant].append(found)
            context.say("  %s: %.1f us" % (server.variant.label, found["cpu_us"]))

        in_turns(context, running, step)
        for server in running:
            if not context.quick:
                calls[server.variant] = measure.system_calls(context.client, server, arguments[server],
                                                             workload.calls_requests)
    return _load_finding(workload, variants, results, calls, bodies)


# ---- Files that are asked for once.

def cold(context, workload):
    """As `load`, with a fresh server for each measurement, whose files were not asked for before."""
    variants = context.variants(workload, quiet=False)
    results = {v: [] for v in variants}
    calls, bodies = {}, {}
    requests = min(workload.numbers, context.requests or workload.numbers)
    for turn in range(context.rounds):
        for variant in variants[turn % len(variants):] + variants[:turn % len(variants)]:
            with _cold_server(context, workload, variant) as (server, arguments, body):
                bodies[variant] = body
                found = measure.loaded(context.client, server, arguments, ["--requests", str(requests)])
                results[variant].append(found)
                context.say("  %s: %.1f us" % (variant.label, found["cpu_us"]))
    for variant in variants if not context.quick else ():
        with _cold_server(context, workload, variant) as (server, arguments, _):
            calls[variant] = measure.system_calls(context.client, server, arguments, workload.calls_requests)
    return _load_finding(workload, variants, results, calls, bodies)


@contextlib.contextmanager
def _cold_server(context, workload, variant):
    """A fresh server, warmed with another file; the arguments of the generator, and how long an answer's body is."""
    with context.running(variant, workload.features, site=workload.site) as server:
        warm, _ = context.client.learn(server, workload_named("1k"))
        context.client.run(*warm, "--at-once", str(workload.at_once), "--requests", str(workload.warm_requests))
        learnt, body = context.client.learn(server, workload)
        arguments = learnt + ["--at-once", str(workload.at_once), "--compare-every", str(workload.compare_every)]
        yield server, arguments, body


def _load_finding(workload, variants, results, calls, bodies):
    def column(variant, key):
        return [found[key] for found in results.get(variant, [])]

    references = [v for v in (servers.Variant("floor", False), servers.Variant("nginx", True),
                              servers.Variant("lighttpd", True)) if v in results]
    rows, facts = [], {}
    for variant in variants:
        cpu = column(variant, "cpu_us")
        row = [variant.label, report.spread(cpu)]
        for reference in references:
            times = report.ratio(cpu, column(reference, "cpu_us"))
            facts["%s/%s" % (variant.label, reference.name)] = times
            row.append(report.number(times, 2))
        facts["%s cpu" % variant.label] = report.median(cpu)
        facts["%s mib_s" % variant.label] = report.median(column(variant, "mib_s"))
        facts["%s mib_s list" % variant.label] = column(variant, "mib_s")
        facts["%s calls" % variant.label] = calls.get(variant)
        row += [report.number(calls.get(variant)), report.number(report.median(column(variant, "requests_s")), 0),
                report.number(report.median(column(variant, "mib_s"))), report.number(bodies[variant], 0)]
        rows.append(row)
    head = (["server", "processor time, us a request"] + ["to %s" % r.name for r in references] +
            ["system calls", "requests/s", "MiB/s", "body bytes"])
    return Finding(workload.title, report.table(head, rows), workload.note, facts)


# ---- One request at a time.

def latency(context):
    """The time to the first byte when there is one request at a time."""
    workload = workload_named("1k")
    variants = context.variants(workload)
    medians, tails = {v: [] for v in variants}, {v: [] for v in variants}
    with contextlib.ExitStack() as stack:
        running = [stack.enter_context(context.running(v, workload.features)) for v in variants]
        arguments = {server: context.client.learn(server, workload)[0] for server in running}

        def step(server):
            context.client.run("--mode", "latency", *arguments[server], "--requests", "200")
            found = context.client.run("--mode", "latency", *arguments[server], *context.amount(workload))
            medians[server.variant].append(found["median_us"])
            tails[server.variant].append(found["p99_us"])
            context.say("  %s: %.1f us" % (server.variant.label, found["median_us"]))

        in_turns(context, running, step)
    lighttpd = servers.Variant("lighttpd", True)
    rows = [[v.label, report.spread(medians[v]), report.spread(tails[v]),
             report.number(report.ratio(medians[v], medians.get(lighttpd)), 2)] for v in variants]
    facts = {"tessel/lighttpd": report.ratio(medians.get(TESSEL), medians.get(lighttpd)),
             "tessel": report.median(medians.get(TESSEL))}
    return Finding("The first byte of 1 KiB, one request at a time",
                   report.table(["server", "median, us", "99th percentile, us", "median to lighttpd"], rows),
                   "From the client's wish to connect to the first byte. The client spins, so that only the server's "
                   "waking is in it.", facts)


# ---- While others hold their connections.

def held(context):
    """The cost of 1 KiB while 9,000 other connections hold half a request, and what one of those costs in memory."""
    workload = workload_named("1k")
    variants = [v for v in context.variants(workload, quiet=False) if v.name in HELD_SERVERS]
    results = {v: {"alone": [], "beside": [], "bytes": []} for v in variants}
    for turn in range(context.rounds):
        for variant in variants[turn % len(variants):] + variants[:turn % len(variants)]:
            with context.running(variant) as server:
                _hold_once(context, workload, server, results[variant])
            context.say("  %s: %.1f and %.1f us, %.0f bytes" % ((variant.label,) + tuple(
                results[variant][key][-1] for key in ("alone", "beside", "bytes"))))
    rows, facts = [], {}
    for variant in variants:
        found = results[variant]
        times = report.ratio(found["beside"], found["alone"])
        rows.append([variant.label, report.spread(found["alone"]), report.spread(found["beside"]),
                     report.number(times, 3), report.spread(found["bytes"], 0)])
        facts["%s times" % variant.name] = times
        facts["%s bytes" % variant.name] = report.median(found["bytes"])
    return Finding("1 KiB while %s other connections hold half a request" % format(HELD, ","),
                   report.table(["server", "alone, us a request", "beside them, us a request", "times",
                                 "resident bytes for each held"], rows),
                   "civetweb gives each connection a thread of its pool and does not take part.", facts)


def _hold_once(context, workload, server, results):
    """Alone, beside the held ones, and alone again, so that a drift of the machine falls on both."""
    arguments, _ = context.client.learn(server, workload)
    arguments += ["--at-once", str(workload.at_once)]

    def cost():
        context.client.run(*arguments, "--requests", "2000")
        return measure.loaded(context.client, server, arguments, context.amount(workload))["cpu_us"]

    alone = cost()
    before = measure.memory_kib(server.pid, "VmRSS")
    holder = context.client.hold(server.port, HELD)
    try:
        time.sleep(SETTLE_SECONDS)
        results["bytes"].append((measure.memory_kib(server.pid, "VmRSS") - before) * 1024 / HELD)
        results["beside"].append(cost())
    finally:
        kept = context.client.release(holder)
    if kept != HELD:
        raise RuntimeError("%s let go of %d held connections" % (server.variant.label, HELD - kept))
    time.sleep(SETTLE_SECONDS)
    results["alone"].append((alone + cost()) / 2)


# ---- Memory under large files.

def memory(context):
    """Resident memory while 10 MiB are sent to 2 and to 200 clients at once."""
    workload = workload_named("10m")
    variants = context.variants(workload, quiet=False)
    peaks = {v: {2: [], 200: []} for v in variants}
    for _ in range(min(context.rounds, MEMORY_ROUNDS)):
        for variant in variants:
            for at_once in (2, 200):
                with context.running(variant) as server:
                    arguments, _ = context.client.learn(server, workload)
                    context.client.run(*arguments, "--at-once", str(at_once), "--requests", "400", "--compare-every",
                                       "8")
                    peaks[variant][at_once].append(measure.memory_kib(server.pid, "VmHWM"))
        context.say("  a round")
    rows, facts = [], {}
    for variant in variants:
        few, many = report.median(peaks[variant][2]), report.median(peaks[variant][200])
        rows.append([variant.label, report.number(few, 0), report.number(many, 0), report.number(many - few, 0)])
        facts["%s growth" % variant.name] = many - few
    return Finding("Peak resident memory while 10 MiB are sent, KiB",
                   report.table(["server", "2 at once", "200 at once", "growth"], rows),
                   "A fresh server for each number; 400 answers each.", facts)


# ---- How long the host waits.

def away(context, workloads):
    """The longest time the control kept its host waiting, for each workload; beside it the floor's longest request."""
    rows, facts = [], {}
    for workload in workloads:
        small = workload_named("1k")
        with context.running(TESSEL, workload.features, ["--watch"], workload.site) as server, \
                context.running(servers.Variant("floor", False), small.features, ["--watch"]) as floor:
            arguments = _away_arguments(context, server, workload), _away_arguments(context, floor, small)
            found, least = [], []
            for _ in range(context.rounds):
                found.append(_away_once(context, server, arguments[0], workload))
                least.append(_away_once(context, floor, arguments[1], small))
        longest = report.median([f["turn_cpu_ms"] for f in found])
        context.say("  %s: %.2f ms" % (workload.name, longest))
        facts[workload.name] = longest
        rows.append([workload.title] + [report.spread([f[key] for f in found], 2) for key in (
            "turn_cpu_ms", "turn_wall_ms", "tick_cpu_ms", "tick_wall_ms")] + [
                "%s of %s" % tuple(report.number(sum(f[key] for f in found), 0) for key in ("long_turns", "turns")),
                report.spread([f["request_cpu_ms"] for f in least], 2)])
    return Finding("The longest time that tessel kept its host waiting, ms",
                   report.table(["workload", "turn, processor time", "turn, wall", "timer late, processor time",
                                 "timer late, wall", "turns over 1 ms", "one request of the floor"], rows),
                   "The longest of each measurement; the median of those, least and greatest. A turn is one "
                   "`RunOnce(0)` of a host with a loop of its own. The timer of 1 ms hangs on the same loop, whose "
                   "clock counts whole milliseconds. Wall times have other programs of this machine in them. In the "
                   "last column, measured in turns with the others, is the longest processor time that the floor took "
                   "for a single request for 1 KiB: accept, receive, send and close, where nothing but the kernel and "
                   "the machine can take long.", facts)


def _away_arguments(context, server, workload):
    learnt, _ = context.client.learn(server, workload)
    arguments = learnt + ["--at-once", str(workload.at_once), "--compare-every", str(workload.compare_every)]
    context.client.run(*arguments, "--requests", str(workload.warm_requests))
    return arguments


def _away_once(context, server, arguments, workload):
    """What a watched server says of one measurement."""
    _away_report(server)
    context.client.run(*arguments, *context.amount(workload))
    return _away_report(server)


def _away_report(server):
    server.process.send_signal(signal.SIGUSR1)
    return server.read_line()


# ---- Start and stop.

def start_stop(context):
    """How long StartServer and StopServer take with 10,000 slots."""
    with context.running(TESSEL, (), ["--start-stop", str(START_STOPS)]) as server:
        found = server.first_line
    starts, stops = found["start_ms"], found["stop_ms"]
    rows = [["StartServer", report.spread(starts, 2)], ["StopServer", report.spread(stops, 2)]]
    return Finding("Start and stop with %s slots, ms" % format(servers.CONNECTIONS, ","),
                   report.table(["", "median of %d" % START_STOPS], rows), "",
                   {"start": report.median(starts), "stop": report.median(stops)})
