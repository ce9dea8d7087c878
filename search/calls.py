#!/usr/bin/env python3
"""Fails each file call of each command that changes something, or ends the program there, and looks at what is left.

usage: calls.py PROGRAM LIBRARY [--seconds N] [--seed N] [--every N] [--commands NAMES] [--only COMMAND:FAULT:CALL]

LIBRARY is what counts the calls (FileCalls.cpp). Each case is a run of its own on a folder as it was prepared: ended
before a call, ended after one that changes something, one call or all from one on failing with each error that such a
call can give, or writing half. After it a program that meets no fault finds the list of before or of after, of after
where the command said that it was done, and can edit it; what failed said why. With --seconds the cases are tried in
an order that the seed gives, as far as the time goes; with --every only each so many. --only tries one again: what is
printed for each finding.
"""

import argparse
import collections
import random
import sys
import time
from dataclasses import dataclass

import programs

ERRORS = {"ENOSPC": 1, "EDQUOT": 2, "EIO": 4, "EROFS": 8, "EMFILE": 16, "short": 32}
CHANGING = ERRORS["ENOSPC"] | ERRORS["EROFS"] | ERRORS["short"]


@dataclass
class Case:
    command: programs.Command
    fault: str
    call: str  # its number, with a + where all that follow fail too

    def __str__(self):
        return f"{self.command.name}:{self.fault}:{self.call}"


def watched(home, library, **plan):
    return {"LD_PRELOAD": library, "FILE_CALLS_FOLDER": str(home.folder),
            **{"FILE_CALLS_" + name.upper(): text for name, text in plan.items()}}


def calls_of(home, library, command):
    """What each of the command's calls can be given, in their order. A first list is made without the cards that the disk
    cannot read, as it has to be: the contacts are named that are missing."""
    home.begin(command)
    listed = home.folder.parent / "calls"
    listed.unlink(missing_ok=True)
    home.run(command.arguments, **watched(home, library, list=str(listed)))
    calls = [line.split(maxsplit=3) for line in listed.read_text().splitlines()]
    is_left_out = [command.is_first and path.endswith(".vcf") for _, _, _, path in calls]
    return [int(call[1]) & ~(ERRORS["EIO"] if left_out else 0) for call, left_out in zip(calls, is_left_out)]


def cases_of(command, calls):
    for number, faults in enumerate(calls, 1):
        yield Case(command, "kill-before", str(number))
        if faults & CHANGING:
            yield Case(command, "kill-after", str(number))
        for error, bit in ERRORS.items():
            if faults & bit:
                yield from (Case(command, error, f"{number}{more}") for more in ("", "+"))


def problem_of(case, answer, states, seen):
    if answer.code is None:
        return f"it hung for {programs.LONGEST_RUN} seconds", ""
    is_killed = answer.code == -9 and case.fault.startswith("kill")
    if not is_killed and answer.code not in (0, 1, 2):
        return f"it ended with {answer.code}: {answer.errors}", ""
    if answer.code > 0 and not answer.errors.strip():
        return "it failed and did not say why", ""
    problem, became = programs.judge(case.command, states, answer, seen)
    if "nothing was saved" in answer.errors and became == "done" and states[0] != states[1]:
        return f"it was done, and was said not to be: {answer.errors}", ""
    if is_killed and answer.output.strip() and became == "as before" and case.command.changes_list:
        return "it told what it did, was ended, and it is not done", ""
    kind = "ended" if is_killed else ("succeeded" if answer.code == 0 else "failed")
    return problem, f"{kind}, list {became}"


def try_case(home, library, case, states):
    home.begin(case.command)
    answer = home.run(case.command.arguments, **watched(home, library, fault=f"{case.fault}:{case.call}"))
    if answer.code is None:
        return problem_of(case, answer, states, None)
    return problem_of(case, answer, states, home.look(case.command))


def parsed(usage):
    parser = argparse.ArgumentParser(usage=usage)
    parser.add_argument("program")
    parser.add_argument("library")
    parser.add_argument("--seconds", type=float, default=float("inf"))
    parser.add_argument("--seed", type=int, default=int(time.time()))
    parser.add_argument("--every", type=int, default=1)
    parser.add_argument("--commands", type=lambda text: text.split(","))
    parser.add_argument("--only")
    return parser.parse_args()


def commands_of(options):
    wanted = [options.only.split(":")[0]] if options.only else options.commands
    return [command for command in programs.COMMANDS if not wanted or command.name in wanted]


class Tally:
    """What became of the cases; prints what is found as it comes."""

    def __init__(self, options):
        self._options = options
        self._outcomes = collections.Counter()
        self._findings = 0

    def add(self, problem, outcome, case):
        self._outcomes["FOUND" if problem else outcome] += 1
        if problem:
            self._findings += 1
            again = f"{sys.argv[0]} {self._options.program} {self._options.library} --only {case}"
            print(f"FOUND {problem.strip()}\n  {again}", flush=True)

    def told(self, total, commands):
        """The exit code."""
        print(f"{self._outcomes.total()} of {total} cases of {commands} commands, seed {self._options.seed}: "
              f"{self._findings} found")
        for outcome, count in self._outcomes.most_common():
            print(f"  {count:7} {outcome}")
        return 1 if self._findings else 0


def all_cases(homes, options, commands, states):
    def prepare(home, command):
        return command, programs.known_states(home, command), calls_of(home, options.library, command)
    cases = []
    for command, known, calls in homes.each(prepare, commands):
        states[command.name] = known
        if not calls:
            raise SystemExit(f"{command.name}: none of its calls was seen")
        cases += cases_of(command, calls)
    random.Random(options.seed).shuffle(cases)
    return [Case(commands[0], *options.only.split(":")[1:])] if options.only else cases[::options.every]


def main():
    options = parsed(__doc__)
    end = time.monotonic() + options.seconds
    commands = commands_of(options)
    homes, states = programs.Homes(options.program), {}
    cases = all_cases(homes, options, commands, states)

    def work(home, case):
        return time.monotonic() < end and try_case(home, options.library, case, states[case.command.name])

    tally = Tally(options)
    for case, done in zip(cases, homes.each(work, cases)):
        if done:
            tally.add(*done, case)
    return tally.told(len(cases), len(commands))


if __name__ == "__main__":
    sys.exit(main())
