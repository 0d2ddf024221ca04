# SPDX-License-Identifier: LGPL-2.1-or-later

"""The table of what attacks and outages cost, on both buses.

The figures come from the tests of tests/stress/siege at their full size, which print them as

    [  FIGURE  ] Suite.Test: name: number unit

A row is a figure of one test, or the maximum, minimum or sum of several. Failed assertions are ignored.
"""

import os
import re
import subprocess

FIGURE = re.compile(r"^\[  FIGURE  \] (\S+): ([^:]*): (\S+) ?(.*)$", re.MULTILINE)
BUSES = ("daemon", "broker")
P99 = "another user's calls, p99"
LONGEST = "another user's calls, longest"
OF_BUS = "calls to the bus itself, p99"
REFUSED = "another user's calls refused"
MEMORY = "memory of the switch, most"
ALIVE = "switch alive"

WAITING = {
    "Shapes.*EmptyAlternativesBesideManyDeclarations": "52,000 empty alternatives, 4,000 declarations",
    "Shapes.*ALargeBucketAgainstLargeBuckets": "bucket of 8,500 against 70 of 8,500",
    "Shapes.*ManyKeyWildcardsAgainstLargeBuckets": "7,900 key wildcards against 60 buckets of 7,900",
    "Shapes.*Stored*": "records stored whose shape costs",
    "CallFlood.*OfLargeMalformed*": "malformed 220 KB Declare calls without an answer",
    "CallFlood.*OfEvents": "Event calls",
    "CallFlood.*OfQueries": "queries",
    "CallFlood.*OfQuestions": "questions for a state",
    "CallFlood.*OfDeclarationsAndSubscriptions": "declarations and subscriptions",
    "CallFlood.*OfDisconnects": "Disconnect calls",
    "CallFlood.*OfIntrospection": "Introspect calls",
    "CallFlood.*OfMonitoring": "ListProducers calls",
    "Deaf.*AConnectionThatIsTold*": "a connection that does not read 360 MB",
    "Deaf.*WhoReadsLate*": "a connection that does not read 300 MB, told in one call",
    "DeafMany.*TheDeathOfAProducer*": "death of a producer, 1,000 declarations x 2,000 subscriptions",
    "DeafMany.*NobodyWaits*": "lists of 2,000 subscriptions, each matched by 1,000 declarations",
    "Questions.*SilentProperties*": "70 properties that keep silent",
    "Questions.*AddingTypes*": "100 types added",
}


def rows():
    """(what, filter of the tests, figure, how several are put together, what it is to be)."""
    one_call = "Shapes.*ASubscriptionOfEmptyAlternatives*"
    yield "one Subscribe of 52,000 empty alternatives: memory", one_call, MEMORY, max, "64 MiB"
    yield "  the longest wait of another user", one_call, LONGEST, max, "50 ms"
    yield "most memory of one user's records, any shape", "Shapes.*Stored*", MEMORY, max, "96 MiB"
    for pattern, what in WAITING.items():
        yield f"p99 of another user: {what}", pattern, P99, max, "50 ms"
        yield "  the same of a call to the bus itself", pattern, OF_BUS, max, ""
        yield "  refused calls of that user", pattern, REFUSED, sum, "0"
    yield "switch alive after a list of types beyond 32 MiB", "Questions.*Types*", ALIVE, min, "1"
    yield "states told beside 70 silent properties", "Questions.*Silent*", "states told", sum, ""
    forgeries = "Forgery*"
    yield "events flow after forged signals", forgeries, "events flow", min, "1"
    yield "peers forgotten after a forged signal", forgeries, "peers forgotten", max, "0"
    for hung in (1, 12, 30):
        yield (f"{hung} consumers hung: a healthy one is served for", f"*HungConsumers.*/{hung}",
               "served for", min, "150 s")
    yield ("secure consumer, producers send 20 and leave: rounds", "Deliveries.*Secure*",
           "rounds survived", min, "1000")
    for pattern, what, must in (("Outages.*TheBus*", "bus restarted 20 times", "1000 ms"),
                                ("Outages.*TheSwitch*", "switch killed 1,000 times", "100 ms")):
        yield f"{what}: times back", pattern, "times back", min, "all"
        for share in ("p50", "p99", "longest"):
            yield (f"  back after, {share}", pattern, f"back after, {share}", max,
                   must if share == "p99" else "")
        yield "  accepted, neither delivered nor told", pattern, "lost untold", sum, "0"
    for handles in (10, 20, 40):
        yield (f"{handles} handles x 60 declarations before a slow switch: lost",
               f"*SlowStart.*/{handles}", "declarations lost", sum, "0")
    for pattern, what in (("Deliveries.*AThread*", "1,000,000 events from a thread"),
                          ("Deliveries.*StandsStill*", "3,000 x 60 KB to a stopped consumer"),
                          ("Deliveries.*BusRefuses*", "40 x 100 x 60 KB to a stopped consumer"),
                          ("Deliveries.*AHundred*", "1,000 events to 100 consumers")):
        for figure in ("accepted", "delivered", "told as dropped"):
            yield f"{what}: {figure}", pattern, figure, sum, ""
        yield "  accepted, neither delivered nor told", pattern, "lost untold", sum, "0"


def run(program, pattern, bus):
    """The figures of the tests: {name: [(number, unit), ...]}."""
    result = subprocess.run(
        [program, f"--gtest_filter={pattern}", "--gtest_also_run_disabled_tests"], check=False,
        env={**os.environ, "QANDOR_SIEGE": "full", "QANDOR_TEST_BUS": bus}, text=True,
        stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
    figures = {}
    for _, name, number, unit in FIGURE.findall(result.stdout):
        figures.setdefault(name, []).append((float(number), unit))
    return figures


def text_of(figures, name, together):
    if name not in figures:
        return "-"
    numbers = [number for number, _ in figures[name]]
    return f"{together(numbers):,.10g} {figures[name][0][1]}".strip()


def table(program, only=""):
    """Prints a row as soon as its tests have run; their figures are kept for the next rows. With a text,
    only the rows of the tests whose names have it."""
    kept = {}
    print(f"{'':<66}{'dbus-daemon':>18}{'dbus-broker':>18}  must")
    for what, pattern, name, together, must in rows():
        if only not in pattern:
            continue
        cells = []
        for bus in BUSES:
            if (pattern, bus) not in kept:
                kept[pattern, bus] = run(program, pattern, bus)
            cells.append(text_of(kept[pattern, bus], name, together))
        print(f"{what:<66}{cells[0]:>18}{cells[1]:>18}  {must}", flush=True)
