#!/usr/bin/env python3
"""Changes the library in random places, one at a time, and says which changes no test notices.

usage: mutants.py [--count N] [--seconds N] [--seed N] [--folders FOLDERS] [--only FILE:LINE:CHANGE]

Works on a copy of the sources in build/mutants/, which is built and tested once before: what is under git, as it is now.
A change is one of an operator, a condition or a call (`CHANGES`). It is noticed where the copy does not compile, or a
test fails, ends or takes ten times as long. One that is not noticed is printed with the command that tries it again; it
wants a test, or changes nothing that anybody could see.
"""

import argparse
import os
import pathlib
import random
import re
import shutil
import subprocess
import sys
import time
from dataclasses import dataclass

ROOT = pathlib.Path(__file__).resolve().parent.parent
COPY = ROOT / "build" / "mutants"
TESTS = ["runtime", "pellor", "list"]
# Fewer worlds than usual: most changes are noticed by any.
FEW = {"PELLOR_SEEDS": "200", "PELLOR_TRIPLES": "2000", "PELLOR_LISTS": "20"}

# By name: what is sought in a line, and what stands in its place.
CHANGES = {
    "equal": (r" == ", " != "), "unequal": (r" != ", " == "), "less": (r" < (?=[\w(])", " <= "),
    "at-most": (r" <= ", " < "), "more": (r" > (?=[\w(])", " >= "), "at-least": (r" >= ", " > "), "and": (r" && ", " || "),
    "or": (r" \|\| ", " && "), "plus": (r" \+ ", " - "), "minus": (r" - ", " + "), "increment": (r"\+\+", "--"),
    "true": (r"\btrue\b", "false"), "false": (r"\bfalse\b", "true"), "negate": (r"\bif \((?!const |auto )([^;]*?)\) ",
                                                                               r"if (!(\1)) "),
    "no-negation": (r"(?<=[ (])!(?=[\w(])", ""), "no-call": (r"^( +)[\w.>:\[\]*-]+\([^{}]*\);$", r"\1;"),
}
# What nobody can see from outside, or ends the program on purpose.
PASSED_OVER = re.compile(r"^ *(//|#|using |static_assert|template|require\(|_PLGetLogSystem|\.as\(|log\()|prefetch|reserve\(|"
                         r"\bfatal\(|operator|constexpr|std::move_only|areSkipsChecked|_checkInvariants\(|redactable\(")


@dataclass
class Mutant:
    file: str
    line: int  # from 1 on
    change: str

    def __str__(self):
        return f"{self.file}:{self.line}:{self.change}"


def changed(text, change):
    sought, instead = CHANGES[change]
    return re.sub(sought, instead, text, count=1)


def mutants_of(folders):
    for folder in folders:
        for path in sorted((ROOT / folder).rglob("*.cpp")):
            for number, text in enumerate(path.read_text().splitlines(), 1):
                if PASSED_OVER.search(text):
                    continue
                code = text.split("  //")[0]
                for change in CHANGES:
                    if changed(code, change) != code:
                        yield Mutant(str(path.relative_to(ROOT)), number, change)


def copy_sources():
    """As they are, also where they are not committed; files that are the same keep their times."""
    COPY.mkdir(parents=True, exist_ok=True)
    names = subprocess.run(["git", "ls-files"], cwd=ROOT, capture_output=True, text=True, check=True).stdout.splitlines()
    for name in names:
        source, copy = ROOT / name, COPY / name
        if not source.is_file() or (copy.is_file() and copy.read_bytes() == source.read_bytes()):
            continue
        copy.parent.mkdir(parents=True, exist_ok=True)
        shutil.copy2(source, copy)
        copy.touch()


def quiet(command, seconds=None, **variables):
    """The exit code; absent when it took too long."""
    try:
        return subprocess.run(command, cwd=COPY, env=os.environ | variables, stdin=subprocess.DEVNULL,
                              stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, timeout=seconds, check=False).returncode
    except subprocess.TimeoutExpired:
        return None


def build():
    return quiet(["cmake", "--build", "build/dev", "--target", *(f"{name}_tests" for name in TESTS)]) == 0


def prepare():
    copy_sources()
    caches = {"CCACHE_BASEDIR": str(COPY), "CCACHE_NOHASHDIR": "1"}
    os.environ |= caches
    if quiet(["cmake", "--preset", "dev"]) != 0 or not build():
        raise SystemExit("the sources do not compile as they are")
    begin = time.monotonic()
    if not passes(None):
        raise SystemExit("the tests do not pass as they are")
    return 10 * (time.monotonic() - begin)


def passes(seconds):
    return all(quiet([f"build/dev/tests/{name}/{name}_tests", "--gtest_brief=1", "--gtest_fail_fast"], seconds, **FEW) == 0
               for name in TESTS)


def outcome_of(mutant, seconds):
    path = COPY / mutant.file
    whole = path.read_text()
    lines = whole.splitlines()
    before = lines[mutant.line - 1]
    lines[mutant.line - 1] = after = changed(before, mutant.change)
    path.write_text("\n".join(lines) + "\n")
    try:
        if not build():
            return "does not compile", before, after
        return "not noticed" if passes(seconds) else "noticed", before, after
    finally:
        path.write_text(whole)


def parsed():
    parser = argparse.ArgumentParser(usage=__doc__)
    parser.add_argument("--count", type=int, default=100)
    parser.add_argument("--seconds", type=float, default=float("inf"))
    parser.add_argument("--seed", type=int, default=int(time.time()))
    parser.add_argument("--folders", type=lambda text: text.split(","), default=["pellor/friends", "pellor/list"])
    parser.add_argument("--only")
    return parser.parse_args()


def chosen(options):
    if options.only:
        file, line, change = options.only.split(":")
        return [Mutant(file, int(line), change)]
    all_mutants = list(mutants_of(options.folders))
    random.Random(options.seed).shuffle(all_mutants)
    return all_mutants


def main():
    options = parsed()
    end = time.monotonic() + options.seconds
    longest = prepare()
    counts = {"noticed": 0, "not noticed": 0, "does not compile": 0}
    for mutant in chosen(options):
        if counts["noticed"] + counts["not noticed"] >= options.count or time.monotonic() > end:
            break
        outcome, before, after = outcome_of(mutant, longest)
        counts[outcome] += 1
        if outcome == "not noticed":
            print(f"NOT NOTICED {mutant.file}:{mutant.line}\n  {before.strip()}\n  {after.strip()}\n"
                  f"  {sys.argv[0]} --only {mutant}", flush=True)
    print(f"seed {options.seed}: {counts['noticed']} of {counts['noticed'] + counts['not noticed']} changes noticed, "
          f"{counts['does not compile']} more do not compile")
    return 0


if __name__ == "__main__":
    sys.exit(main())
