#!/usr/bin/env python3
"""Changes the library in random places, one at a time, and says which changes no test notices.

usage: mutants.py [--count N] [--seconds N] [--seed N] [--folders FOLDERS] [--only FILE:LINE:CHANGE]

A change is one of a condition, an operator, an answer or a call (`CHANGES`). A copy of the sources in build/mutants/,
as they are under git now, has all of them at once, each behind a number; it is built once, and PELLOR_MUTANT in the
environment of a test program says which change it runs with, 0 being none. A change is noticed where a test fails, ends
or takes ten times as long. One that is not noticed is printed with the command that tries it again; it wants a test, or
changes nothing that anybody could see.
"""

import argparse
import os
import pathlib
import random
import re
import subprocess
import sys
import time
from concurrent.futures import ThreadPoolExecutor
from dataclasses import dataclass

ROOT = pathlib.Path(__file__).resolve().parent.parent
COPY = ROOT / "build" / "mutants"
HEADER = "build/mutant.h"
PROGRAMS = ["runtime", "pellor", "list"]
# What is quick first, then worlds: fewer than usual, since most changes are noticed by any.
RUNS = [(name, "-Seeds*") for name in PROGRAMS] + [("pellor", "Seeds*"), ("list", "Seeds*")]
FEW = {"PELLOR_SEEDS": "200", "PELLOR_TRIPLES": "1000", "PELLOR_LISTS": "20"}

# By name: what is sought in a line, and what stands there. `isMutant(N)` is true in a run with that change.
CHANGES = {
    "call": (r"^( +)((?!return\b)[\w.>:\[\]*-]+\([^{}]*\);)$", r"\1if (!isMutant(%d)) \2"),
    "condition": (r"\bif \((?!const |auto |!isMutant)([^;]*?)\) (?=\{$|\w.*;$)", r"if (isMutant(%d) != bool(\1)) "),
    "comparison": (r"\breturn ([^?;{}]+ (?:==|!=|<|<=|>|>=) [^?;{}]+);$", r"return isMutant(%d) != bool(\1);"),
    "and": (r" && (?!!isMutant)", r" && !isMutant(%d) && "),
    "or": (r" \|\| (?!isMutant)", r" || isMutant(%d) || "),
    "answer": (r"\breturn (true|false);", r"return \1 != isMutant(%d);"),
    "one": (r" ([+-]) 1\b(?![.'\w])", r" \1 (isMutant(%d) ? 0 : 1)"),
}
# What nobody can see from outside, or ends the program on purpose.
PASSED_OVER = re.compile(r"^ *(#|using |static_assert|template|require\(|_PLGetLogSystem|\.as\(|log\(|else )|//|"
                         r"prefetch|reserve\(|\bfatal\(|operator|constexpr|areSkipsChecked|_checkInvariants\(|"
                         r"redactable\(|checkMainQueue|checkSkip|require\w+\(")


@dataclass(frozen=True)
class Mutant:
    file: str
    line: int  # from 1 on
    change: str
    text: str

    def __str__(self):
        return f"{self.file}:{self.line}:{self.change}"


def begins_statement(before):
    return not before or before.startswith("//") or before[-1] in ";{}:"


def mutants_of(file, lines):
    for index, text in enumerate(lines):
        if PASSED_OVER.search(text):
            continue
        for change, (sought, _) in CHANGES.items():
            if change == "call" and not begins_statement(lines[index - 1].strip()):
                continue
            match = re.search(sought, text)
            if match and match[0].count("(") == match[0].count(")"):
                yield Mutant(file, index + 1, change, text.strip())


class Sources:
    """All changes of some folders, and the copy that has them."""

    def __init__(self, folders):
        self.paths = [path for folder in folders for path in sorted((ROOT / folder).rglob("*.cpp"))]
        self.lines = {str(path.relative_to(ROOT)): path.read_text().splitlines() for path in self.paths}
        self.mutants = [mutant for file, lines in self.lines.items() for mutant in mutants_of(file, lines)]
        self.numbers = {mutant: number for number, mutant in enumerate(self.mutants, 1)}
        self.broken = set()  # lines where a change does not compile

    def changed_text(self, file):
        lines = list(self.lines[file])
        for mutant in self.by_file.get(file, []):
            sought, instead = CHANGES[mutant.change]
            # Of two changes in one place the first has it: the other one no longer fits, and is none.
            lines[mutant.line - 1] = re.sub(sought, instead % self.numbers[mutant], lines[mutant.line - 1], count=1)
        return f'#include "{COPY / HEADER}"\n#line 1\n' + "\n".join(lines) + "\n"

    def write(self):
        """Files that are the same keep their times."""
        self.by_file = {}
        for mutant in self.mutants:
            if (mutant.file, mutant.line) not in self.broken:
                self.by_file.setdefault(mutant.file, []).append(mutant)
        names = subprocess.run(["git", "ls-files"], cwd=ROOT, capture_output=True, text=True, check=True).stdout
        for name in names.splitlines():
            if not (ROOT / name).is_file():
                continue
            content = self.changed_text(name).encode() if name in self.lines else (ROOT / name).read_bytes()
            replace(COPY / name, content, (ROOT / name).stat().st_mode)
        replace(COPY / HEADER, b"#pragma once\n#include <cstdlib>\n"
                               b"inline const int chosenMutant = std::getenv(\"PELLOR_MUTANT\") ? "
                               b"std::atoi(std::getenv(\"PELLOR_MUTANT\")) : 0;\n"
                               b"inline bool isMutant(int number) { return number == chosenMutant; }\n", 0o644)

    def present(self):
        """Those that the copy has."""
        return [mutant for file in self.by_file for mutant in self.by_file[file]
                if f"isMutant({self.numbers[mutant]})" in (COPY / file).read_text()]


def replace(path, content, mode):
    if path.is_file() and path.read_bytes() == content:
        return
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_bytes(content)
    path.chmod(mode)


def run(command, seconds=None, **variables):
    """The exit code and what was printed; absent when it took too long."""
    try:
        done = subprocess.run(command, cwd=COPY, env=os.environ | variables, stdin=subprocess.DEVNULL, timeout=seconds,
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT, check=False)
        return done.returncode, done.stdout.decode(errors="replace")
    except subprocess.TimeoutExpired:
        return None, ""


def build(sources):
    """Until all compiles: a line with a change that does not is left as it is."""
    os.environ |= {"CCACHE_BASEDIR": str(COPY), "CCACHE_NOHASHDIR": "1"}
    sources.write()
    code, said = run(["cmake", "--preset", "dev", "-DCMAKE_CXX_FLAGS=-w"])
    programs = [f"{name}_tests" for name in PROGRAMS]
    while code == 0:
        code, said = run(["cmake", "--build", "build/dev", "--target", *programs, "--", "-k", "0"])
        if code == 0:
            return
        found = {(file, int(line)) for file, line in re.findall(r"\b(pellor/[\w/]+\.cpp):(\d+):\d+: error", said)}
        found -= sources.broken
        if not found & {(mutant.file, mutant.line) for mutant in sources.mutants}:
            break
        sources.broken |= found
        sources.write()
        code = 0
    raise SystemExit(said[-4000:] + "\nthe sources do not compile")


def passes(tests, number, seconds=None):
    name, chosen = tests
    code, _ = run([f"build/dev/tests/{name}/{name}_tests", "--gtest_brief=1", "--gtest_fail_fast",
                   f"--gtest_filter={chosen}"], seconds, PELLOR_MUTANT=str(number), **FEW)
    return code == 0


def limits():
    """Ten times what each run takes without a change."""
    seconds = []
    for tests in RUNS:
        begin = time.monotonic()
        if not passes(tests, 0):
            raise SystemExit("the tests do not pass as they are")
        seconds.append(10 * (time.monotonic() - begin))
    return seconds


def parsed():
    parser = argparse.ArgumentParser(usage=__doc__)
    parser.add_argument("--count", type=int, default=100)
    parser.add_argument("--seconds", type=float, default=float("inf"))
    parser.add_argument("--seed", type=int, default=int(time.time()))
    parser.add_argument("--folders", type=lambda text: text.split(","), default=["pellor/friends", "pellor/list"])
    parser.add_argument("--only")
    return parser.parse_args()


def main():
    options = parsed()
    end = time.monotonic() + options.seconds
    sources = Sources(options.folders)
    build(sources)
    seconds = limits()
    mutants = sources.present()
    if options.only:
        mutants = [mutant for mutant in mutants if str(mutant) == options.only]
        if not mutants:
            raise SystemExit(f"{options.only} is no change that compiles")
    else:
        random.Random(options.seed).shuffle(mutants)
        mutants = mutants[:options.count]

    def outcome_of(mutant):
        if time.monotonic() > end:
            return None
        number = sources.numbers[mutant]
        is_noticed = not all(passes(tests, number, limit) for tests, limit in zip(RUNS, seconds))
        if not is_noticed:
            print(f"NOT NOTICED {mutant}\n  {mutant.text}\n  {sys.argv[0]} --only {mutant}", flush=True)
        return is_noticed

    with ThreadPoolExecutor(os.cpu_count()) as pool:
        outcomes = [outcome for outcome in pool.map(outcome_of, mutants) if outcome is not None]
    print(f"seed {options.seed}: {sum(outcomes)} of {len(outcomes)} changes noticed; "
          f"there are {len(sources.present())}")


if __name__ == "__main__":
    main()
