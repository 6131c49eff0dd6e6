"""What the server is meant to reach, and whether a run reached it; with the access log on."""

import dataclasses
import typing

import report


@dataclasses.dataclass(frozen=True)
class Goal:
    text: str
    experiment: str                        # whose facts it is about
    measured: typing.Callable              # facts -> number, or None when it was not measured
    met: typing.Callable                   # number -> bool
    digits: int = 2
    unit: str = ""


def _fact(name):
    return lambda facts: facts.get(name)


def _at_most(limit):
    return lambda value: value <= limit


def _throughput_to(other):
    """Bytes a second, as a ratio to another server, round by round."""
    return lambda facts: report.ratio(facts.get("tessel mib_s list"), facts.get("%s mib_s list" % other))


GOALS = [
    Goal("1 KiB: at most 1.30 times the floor", "1k", _fact("tessel/floor"), _at_most(1.30)),
    Goal("1 KiB: at most 0.75 of nginx", "1k", _fact("tessel/nginx"), _at_most(0.75)),
    Goal("1 KiB: at most 5 system calls", "1k", _fact("tessel calls"), _at_most(5), 1),
    Goal("1 KiB, the program: at most 1.30 times the floor", "1k", _fact("program/floor"), _at_most(1.30)),
    Goal("1 KiB, the program: at most 0.75 of nginx", "1k", _fact("program/nginx"), _at_most(0.75)),
] + [
    Goal("%s, %s: at most 0.80 of nginx without open_file_cache" % (title, shown), name, _fact("%s/nginx" % server),
         _at_most(0.80))
    for name, title in (("cold", "cold"), ("cold-1", "cold, one client"), ("deep", "cold and deep"),
                        ("deep-1", "cold and deep, one client"))
    for server, shown in (("tessel", "the host"), ("program", "the program"))
] + [
    Goal("missing: at most 1.25 times the floor", "missing", _fact("tessel/floor"), _at_most(1.25)),
    Goal("64 KiB: at most 0.95 of nginx", "64k", _fact("tessel/nginx"), _at_most(0.95)),
    Goal("10 MiB: bytes a second no fewer than nginx", "10m", _throughput_to("nginx"), lambda v: v >= 1),
    Goal("10 MiB: bytes a second no fewer than lighttpd", "10m", _throughput_to("lighttpd"), lambda v: v >= 1),
    Goal("10 MiB: memory flat from 2 to 200 at once, at most 4 KiB a client", "memory", _fact("tessel growth"),
         _at_most(4 * 198), 0, "KiB"),
    Goal("echo and include: at most 0.80 of nginx", "ssi", _fact("tessel/nginx"), _at_most(0.80)),
    Goal("echo and include: at most 0.70 of lighttpd", "ssi", _fact("tessel/lighttpd"), _at_most(0.70)),
    Goal("listing of 100: at most 0.70 of nginx", "list100", _fact("tessel/nginx"), _at_most(0.70)),
    Goal("listing of 10,000: a row costs no more than one of 100", "rows", _fact("times"), _at_most(1.0)),
    Goal("9,000 held: at most 5 % dearer", "held", _fact("tessel times"), _at_most(1.05), 3),
    Goal("9,000 held: at most 4 KiB resident each", "held", _fact("tessel bytes"), _at_most(4096), 0, "bytes"),
    Goal("one at a time: first byte no later than lighttpd", "latency", _fact("tessel/lighttpd"), _at_most(1.0)),
] + [
    Goal("host kept waiting at most 1 ms: %s" % name, "away", _fact(name), _at_most(1.0), 2, "ms")
    for name in ("1k", "cold", "deep", "html", "missing", "64k", "10m", "ssi", "list100")
] + [
    Goal("start in less than 5 ms", "start", _fact("start"), lambda v: v < 5, 2, "ms"),
    Goal("stop in less than 5 ms", "start", _fact("stop"), lambda v: v < 5, 2, "ms"),
]


def rows_fact(findings):
    """What a row of the listing of 10,000 costs beside one of the listing of 100."""
    small = findings.get("list100")
    large = findings.get("list10000")
    if small is None or large is None:
        return {}
    costs = small.facts.get("tessel cpu"), large.facts.get("tessel cpu")
    return {} if None in costs else {"times": (costs[1] / 10000) / (costs[0] / 100)}


def table(findings):
    """The table of goals over findings by name; those that were not measured are left out."""
    facts = {name: finding.facts for name, finding in findings.items()}
    facts["rows"] = rows_fact(findings)
    return table_of(GOALS, facts)


def table_of(goals, facts):
    """The table of some goals over the facts of experiments by name; those that were not measured are left out."""
    rows = []
    for goal in goals:
        value = goal.measured(facts.get(goal.experiment, {}))
        if value is not None:
            shown = ("%s %s" % (report.number(value, goal.digits), goal.unit)).strip()
            rows.append([goal.text, shown, "yes" if goal.met(value) else "**no**"])
    return report.table(["goal", "measured", "met"], rows) if rows else ""
