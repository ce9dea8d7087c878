#!/usr/bin/env python3
"""Runs the benchmark programs and prints what was measured beside its yardstick and its bar.

usage: table.py FOLDER [--markdown FILE] [--rows TEXT] [--load FILE]

FOLDER holds the programs. --rows runs and prints only the rows whose title has TEXT in it. --markdown also writes the
table into FILE, between its two marks. --load prints the results of an earlier run, which each run leaves in
FOLDER/results.json. BENCH_QUICK=1: three rounds in place of seven, and no list of 240,000. BENCH_ROUNDS: another number
of rounds. BENCH_IDLE_SECONDS: how long the idle process is watched. The exit code says whether the programs ran, never how fast.
"""

import argparse
import datetime
import json
import math
import os
import re
import shutil
import statistics
import subprocess
import sys
from dataclasses import dataclass, field
from pathlib import Path

QUICK = os.environ.get("BENCH_QUICK") == "1"
ROUNDS = int(os.environ.get("BENCH_ROUNDS", 3 if QUICK else 7))
SIZES = (240, 24_000) if QUICK else (240, 24_000, 240_000)
ALL_SIZES = (240, 24_000, 240_000)
LONG = (24_000, 240_000)
TEXT_SIZES = (62_500, 250_000, 1_000_000)
REQUEST_SIZES = (3_750, 15_000, 60_000)


def ratio(limit):
    return ("ratio", limit)


def absolute(limit):
    return ("value", limit)


@dataclass
class Row:
    """One row of the table for each size, mostly how many friends there are; a size of None is a row without one.

    `yardstick` adds up benchmarks, each with a factor; `{}` stands for the size. `bars` has a limit for each size, a
    ratio to the yardstick or a value; where there is none the row is for information. Times are in nanoseconds, and
    with `counter` that counter of the benchmark is taken in their place.
    """

    title: str
    program: str
    measured: str
    bars: dict
    yardstick: list = field(default_factory=list)
    counter: str = ""
    unit: str = "time"
    exponent: float = 0
    sizes: tuple = ALL_SIZES


def every(bar):
    return {size: bar for size in ALL_SIZES}


def growing(title, measured, sizes):
    """A row whose cost must grow in proportion to its size, whatever it is."""
    return Row(title, "bench_growth", f"{measured}/{{}}", {}, exponent=1.1, sizes=sizes)


def once(bar):
    return {None: bar}


LOAD = [(1, "load/{}")]
MAP_HIT = [(1, "mapHit/{}")]
MS = 1e6

ROWS = [
    Row("load a stored list", "bench_list", "load/{}", every(ratio(3)), [(1, "plainDecode/{}")], exponent=1.25),
    Row("load: numbers parsed", "bench_list", "load/{}", every(absolute(0)), counter="parses", unit="count"),
    Row("load: calls for the phone library", "bench_list", "load/{}", every(absolute(0)), counter="starts",
        unit="count"),
    Row("reload, nothing changed: to the query", "bench_list", "reloadUnchanged/{}", {240: ratio(10)},
        [(1, "dataVersion/{}")]),
    Row("reload, nothing changed: to the load", "bench_list", "reloadUnchanged/{}", {240_000: ratio(0.02)}, LOAD),
    Row("reload, nothing changed: notifications", "bench_list", "reloadUnchanged/{}", every(absolute(0)),
        counter="notifications", unit="count"),
    Row("reload, nothing changed: writes", "bench_list", "reloadUnchanged/{}", every(absolute(0)),
        counter="writes", unit="count"),
    Row("reload, one friend changed elsewhere", "bench_list", "reloadOneChanged/{}",
        {24_000: ratio(0.1), 240_000: ratio(0.1)}, LOAD),
    Row("reload, list reversed", "bench_list", "reloadReversed/{}", every(ratio(1)), LOAD, exponent=1.2),
    Row("reload, list reversed: notifications", "bench_list", "reloadReversed/{}", every(absolute(1)),
        counter="notifications", unit="count"),
    Row("reload, shuffled, 10 % dropped, 10 % new", "bench_list", "reloadShuffled/{}", every(ratio(1.5)), LOAD),
    Row("reload, one changed elsewhere, one here", "bench_list", "mergeOneChanged/{}", {240_000: ratio(2)},
        [(1, "reloadOneChanged/{}")], sizes=LONG),
    Row("reload, first page gone elsewhere, one changed here", "bench_list", "mergePageRemoved/{}",
        {240_000: ratio(3)}, LOAD, sizes=LONG, exponent=1.2),
    Row("reload, one changed elsewhere, first page gone here", "bench_list", "mergePageRemovedHere/{}",
        {240_000: ratio(3)}, LOAD, sizes=LONG, exponent=1.2),
    Row("one edit, to the disk", "bench_edit", "editToDisk/{}", {240: ratio(1.5), 240_000: absolute(10 * MS)},
        [(1, "commitOneRow")]),
    Row("one edit, to the disk, shown by an app", "bench_edit", "editToDiskFollowed/{}", {240: ratio(1.2), 24_000: ratio(1.2)},
        [(1, "editToDisk/{}")]),
    Row("one edit, to the disk, as a step of the face with its history", "bench_edit", "editToDiskAsStep/{}",
        {240: ratio(1.2), 24_000: ratio(1.2)}, [(1, "editToDisk/{}")]),
    Row("one edit, to the notification elsewhere", "bench_edit", "editToNotification/{}",
        {240: ratio(2), 240_000: absolute(20 * MS)}, [(1, "commitOneRow"), (0.5, "busRoundTrip")]),
    Row("`personWithDestinations:`, known", "bench_lookup", "personWithDestinations/{}", every(ratio(3)),
        [(1, "mapHit/{}"), (1, "memoHit")]),
    *(Row(f"`{operation}:`", "bench_lookup", f"{operation}/{{}}", every(ratio(1)), MAP_HIT)
      for operation in ("positionOfFriendInGroup", "groupIndexContainingFriend", "isPersonFriend",
                        "containsFriendWithABRecordGUID")),
    Row("post to the main queue and back", "bench_queues", "postAndBack", once(ratio(1.15)),
        [(1, "plainPostAndBack")], sizes=(None,)),
    Row("a post in a burst", "bench_queues", "postInBurst", once(ratio(2)), [(1, "plainPostInBurst")], sizes=(None,)),
    Row("read on an idle concurrent queue", "bench_queues", "readOnIdleQueue", once(ratio(5)),
        [(1, "readUnderSharedMutex")], sizes=(None,)),
    Row("read on an idle queue: thread switches", "bench_queues", "readOnIdleQueue", once(absolute(0)),
        counter="switches", unit="count", sizes=(None,)),
    Row("canonical form of a number, first time", "bench_canonical", "canonicalFirstTime", once(ratio(1.05)),
        [(1, "parseAndFormat")], sizes=(None,)),
    Row("canonical form of a number, again", "bench_canonical", "canonicalAgain", once(ratio(2)), [(1, "memoHit")],
        sizes=(None,)),
    Row("refresh against 100,000 contacts", "bench_refresh", "refresh/{}", {240: ratio(2), 24_000: ratio(2)},
        [(1, "readInBulk/{}")], sizes=(240, 24_000)),
    *(Row(f"find 20 of 100,000 contacts: {what}", "bench_search", measured, once(ratio(20)), [(1, "contactByGUID")],
          sizes=(None,))
      for what, measured in (("a surname", "findSurname"), ("two letters", "findBeginning"),
                             ("a word of everybody", "findEverybodysWord"), ("a rare word", "findRareWord"),
                             ("a whole name", "findTwoWords"), ("beginnings of a name", "findTwoBeginnings"),
                             ("a number's beginning", "findNumber"), ("a number's ending", "findEnding"))),
    Row("find a mistyped name of 100,000 contacts", "bench_search", "findSimilar", {}, [(1, "contactByGUID")],
        sizes=(None,)),
    Row("keeping a copy of the store", "bench_copies", "keepCopy/{}", {}, [(1, "replaceFile/{}")],
        sizes=(240, 24_000)),
    Row("reading the newest copy of the store", "bench_copies", "readNewestCopy/{}", {}, [(1, "readFile/{}")],
        sizes=(240, 24_000)),
    Row("memory per friend, steady", "bench_memory", "memory/{}", {24_000: absolute(800), 240_000: absolute(800)},
        counter="steady", unit="bytes"),
    Row("memory per friend, peak to steady", "bench_memory", "memory/{}", every(ratio(1.5)),
        [(1, "memory/{}:steady")], counter="peak", unit="bytes"),
    Row("`pellor list`, 240 friends", "bench_program", "pellorList", once(ratio(2)), [(1, "startAndExit")],
        sizes=(None,)),
    Row("`pellor list`, 240 friends: CPU", "bench_program", "pellorList", once(absolute(10)), counter="cpu",
        unit="milliseconds", sizes=(None,)),
    *(growing(f"a card with a long {what}", measured, TEXT_SIZES)
      for what, measured in (("name", "cardName"), ("name of marks", "cardMarks"), ("folded name", "cardFolds"),
                             ("quoted-printable name", "cardSoftBreaks"), ("list of parts", "cardParts"),
                             ("list of labels", "cardLabels"), ("list of numbers", "cardNumbers"))),
    growing("a line to the terminal", "terminalLine", TEXT_SIZES),
    growing("canonical form of a long number", "canonicalForm", TEXT_SIZES),
    *(growing(f"`pellor add` of many {what}", measured, REQUEST_SIZES)
      for what, measured in (("names", "addNames"), ("beginnings of names", "addBeginnings"),
                             ("numbers", "addNumbers"))),
    Row("idle process with a list: wake-ups", "bench_program", "idle", once(absolute(0)), counter="wakeups",
        unit="count", sizes=(None,)),
]

# What is the same each time it is looked at needs one look.
ONE_ROUND = ("bench_memory",)
# The rest of the programs runs while this one waits.
WAITS = ("bench_program", "idle")


# --- Running ---------------------------------------------------------------------------------------------------------

def names_of(row):
    """The benchmarks that a row needs, with their sizes."""
    parts = [row.measured] + [name.split(":")[0] for _, name in row.yardstick]
    return {part.format(size) for part in parts for size in row.sizes
            if size in SIZES or size not in ALL_SIZES}


def start(folder, program, names):
    """Starts the benchmarks of a program, each of them in turns with the others."""
    rounds = 1 if program in ONE_ROUND or names == {"idle"} else ROUNDS
    pattern = "^(" + "|".join(sorted(names)) + ")(/.*)?$"
    command = [str(folder / program), f"--benchmark_filter={pattern}", f"--benchmark_repetitions={rounds}",
               "--benchmark_format=json", "--benchmark_enable_random_interleaving=true"]
    print(f"{program}: {len(names)} benchmarks, {rounds} rounds", file=sys.stderr)
    return subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)


def results_of(process, program, failed):
    output, errors = process.communicate()
    if process.returncode == 0:
        return json.loads(output)["benchmarks"]
    print(f"{program} failed ({process.returncode}):\n{errors}", file=sys.stderr)
    failed.append(program)
    return []


def collect(entries, values):
    """Adds each round's time, and each of its counters, to the values under the name of the benchmark."""
    scale = {"ns": 1, "us": 1e3, "ms": 1e6, "s": 1e9}
    for entry in entries:
        if entry["run_type"] != "iteration":
            continue
        name = re.sub(r"/(iterations|min_time|repeats|manual_time|real_time|process_time).*", "", entry["run_name"])
        values.setdefault(name, []).append(entry["real_time"] * scale[entry["time_unit"]])
        for counter in ("parses", "starts", "notifications", "writes", "switches", "steady", "peak", "cpu", "wakeups"):
            if counter in entry:
                values.setdefault(f"{name}:{counter}", []).append(entry[counter])


def run(folder, rows):
    wanted = {}
    for row in rows:
        wanted.setdefault(row.program, set()).update(names_of(row))
    shutil.rmtree(folder / "work", ignore_errors=True)
    values, failed = {}, []
    waiting_program, waiting_name = WAITS
    waiting = None
    if waiting_name in wanted.get(waiting_program, ()):
        wanted[waiting_program].remove(waiting_name)
        waiting = start(folder, waiting_program, {waiting_name})
    for program, names in wanted.items():
        if names:
            collect(results_of(start(folder, program, names), program, failed), values)
    if waiting:
        collect(results_of(waiting, waiting_program, failed), values)
    return values, failed


# --- The table -------------------------------------------------------------------------------------------------------

def amount(value, unit):
    if unit == "time":
        for size, name in ((1e9, "s"), (1e6, "ms"), (1e3, "us")):
            if value >= size:
                return f"{value / size:.3g} {name}"
        return f"{value:.3g} ns"
    suffix = {"count": "", "bytes": " B", "milliseconds": " ms"}[unit]
    return f"{value:.0f}{suffix}" if value >= 100 or value == int(value) else f"{value:.3g}{suffix}"


def median(values, name):
    return statistics.median(values[name]) if name in values else None


def yardstick_of(row, size, values):
    parts = [(factor, median(values, name.format(size))) for factor, name in row.yardstick]
    if not parts or any(value is None for _, value in parts):
        return None
    return sum(factor * value for factor, value in parts)


def shown_bar(row, kind, limit):
    return {"": "-", "ratio": f"{limit} x", "value": amount(limit or 0, row.unit)}[kind]


def verdict(kind, limit, value, quotient):
    """Whether the bar holds; absent without one, and when its yardstick was not measured."""
    measured = {"": None, "ratio": quotient, "value": value}[kind]
    if measured is None:
        return "-"
    return "yes" if measured <= limit else "NO"


def growth(row, size, value, before):
    """The exponent from the size before to this one."""
    if not before or row.unit == "count" or value <= 0 or before[1] <= 0:
        return "-"
    exponent = math.log(value / before[1]) / math.log(size / before[0])
    if not row.exponent:
        return f"{exponent:.2f}"
    return f"{exponent:.2f} (bar {row.exponent}{'' if exponent <= row.exponent else ': NO'})"


def lines_of(row, values):
    before = None
    for size in row.sizes:
        name = row.measured.format(size) + (f":{row.counter}" if row.counter else "")
        value = median(values, name)
        if value is None:
            continue
        yardstick = yardstick_of(row, size, values)
        quotient = value / yardstick if yardstick else None
        kind, limit = row.bars.get(size, ("", None))
        yield [row.title, f"{size:,}" if size else "-", amount(value, row.unit),
               amount(yardstick, row.unit) if yardstick else "-", f"{quotient:.3g}" if quotient else "-",
               shown_bar(row, kind, limit), verdict(kind, limit, value, quotient), growth(row, size, value, before)]
        before = (size, value)


HEADINGS = ["what", "size", "median", "yardstick", "ratio", "bar", "holds", "growth"]


def plain(lines):
    table = [HEADINGS, *lines]
    widths = [max(len(line[column]) for line in table) for column in range(len(HEADINGS))]
    return "\n".join("  ".join(cell.ljust(width) for cell, width in zip(line, widths)).rstrip() for line in table)


def markdown(lines):
    return "\n".join("| " + " | ".join(cells) + " |" for cells in [HEADINGS, ["---"] * len(HEADINGS), *lines])


def circumstances():
    commit = subprocess.run(["git", "describe", "--always", "--dirty", "--abbrev=10"], capture_output=True, text=True,
                            cwd=Path(__file__).parent).stdout.strip()
    with open("/proc/cpuinfo", encoding="utf-8") as file:
        models = re.findall(r"model name\s*: (.*)", file.read())
    return (f"{datetime.date.today()}, commit {commit or 'unknown'}, {os.cpu_count()} cores, "
            f"{models[0] if models else 'unknown processor'}; load {os.getloadavg()[0]:.1f} at the end; "
            f"{ROUNDS} rounds; made by `make bench`")


def write_markdown(file, lines):
    text = file.read_text(encoding="utf-8")
    begin, end = "<!-- measured -->", "<!-- end -->"
    before, _, rest = text.partition(begin)
    _, _, after = rest.partition(end)
    file.write_text(f"{before}{begin}\n{circumstances()}.\n\n{markdown(lines)}\n{end}{after}", encoding="utf-8")


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("folder", type=Path)
    parser.add_argument("--markdown", type=Path)
    parser.add_argument("--rows", default="")
    parser.add_argument("--load", type=Path)
    options = parser.parse_args()
    rows = [row for row in ROWS if options.rows in row.title]
    failed = []
    if options.load:
        values = json.loads(options.load.read_text(encoding="utf-8"))
    else:
        values, failed = run(options.folder, rows)
        (options.folder / "results.json").write_text(json.dumps(values), encoding="utf-8")
    lines = [line for row in rows for line in lines_of(row, values)]
    print(plain(lines))
    print(circumstances())
    if options.markdown:
        write_markdown(options.markdown, lines)
    return 1 if failed else 0


sys.exit(main())
