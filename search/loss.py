#!/usr/bin/env python3
"""Takes the power away while a command that changes something writes, and looks at what is left.

usage: loss.py PROGRAM LIBRARY [--seconds N] [--seed N] [--every N] [--commands NAMES] [--only COMMAND:MOMENT:LOST]

LIBRARY is what records the changes (FileCalls.cpp): of bytes, lengths and names, and what was forced to the disk. After
each of them the disk may hold all changes so far, all but any one that was not forced to it, or those alone that were.
Each of these folders is opened by the program: the list is that of before or that of after, that of after once the
command had ended and said that it was done, and one more edit works. A change of bytes is forced to the disk by a sync
of its file, a change of names by one of each folder. The index of SQLite's log is made anew after such a loss, and the
counters, which lie in memory, are gone: neither is recorded.
"""

import os
import random
import sys
import time
from dataclasses import dataclass, field

import calls
import programs

FOLDER = object()  # stands for a folder where a name leads to one


@dataclass
class Change:
    """One of bytes (`edit`, of a file) or of names (of what each leads to, None for nothing)."""

    what: str
    file: object = None
    edit: object = None
    names: dict = field(default_factory=dict)
    forced: float = float("inf")  # before which change


def write(content, place, added):
    content.extend(bytes(max(0, place - len(content))))
    content[place:place + len(added)] = added


def resize(content, length):
    del content[length:]
    content.extend(bytes(length - len(content)))


def reserve(content, length):
    content.extend(bytes(max(0, length - len(content))))


def recorded(path):
    """Operation, number, bytes and paths of each change."""
    with open(path, "rb") as changes:
        while line := changes.readline():
            operation, number, length, name, other = line.rstrip(b"\n").decode().split("\t")
            yield operation, int(number), changes.read(int(length)), name, other


class Recording:
    """The changes that a command made to what it found."""

    def __init__(self, found, root, path):
        self._found = found
        self._first = {name: FOLDER if file is None else name for name, file in found.items()}
        self._now = dict(self._first)
        self.changes = []
        for operation, number, added, *paths in recorded(path):
            names = [name.removeprefix(root).removeprefix("/") for name in paths]
            if not names[0].startswith("run/") and not names[0].endswith("-shm"):
                self._add(operation, number, added, *names)

    def _add(self, operation, number, added, name, other):
        file = self._now.get(name)
        edit = {"write": lambda content: write(content, number, added), "resize": lambda content: resize(content, number),
                "reserve": lambda content: reserve(content, number)}.get(operation)
        named = {"create": {name: f"change {len(self.changes)}"}, "mkdir": {name: FOLDER}, "unlink": {name: None},
                 "rename": {name: None, other: file}, "link": {other: file}}.get(operation, {})
        what = f"{operation} {name}" + (f" to {other}" if other else "") + (f" at {number}" if added else "")
        self._now |= named
        if operation == "sync":
            self._force(name, file)
        elif named or (edit and file):
            self.changes.append(Change(what, file, edit, named))

    def _force(self, name, file):
        for change in self.changes:
            is_named = change.names and all(os.path.dirname(each) == name for each in change.names)
            if is_named or (change.edit and change.file == file):
                change.forced = min(change.forced, len(self.changes))

    def moments(self):
        """After how many changes, and which is lost: its number, "none", or "all" that were not forced. The last moment
        is that after the end of the command."""
        for moment in range(len(self.changes) + 2):
            lost = [str(number) for number, change in enumerate(self.changes[:moment]) if change.forced >= moment]
            yield from ((moment, each) for each in ("none", *lost, *(["all"] if len(lost) > 1 else [])))

    def is_end(self, moment):
        return moment > len(self.changes)

    def what(self, moment, lost):
        after = "its end" if self.is_end(moment) else self.changes[moment - 1].what if moment else "nothing"
        return f"after {after}, lost: {self.changes[int(lost)].what if lost.isdigit() else lost}"

    def tree(self, moment, lost):
        names = dict(self._first)
        contents = {name: bytearray(file.content) for name, file in self._found.items() if file}
        for number, change in enumerate(self.changes[:moment]):
            if lost == str(number) or (lost == "all" and change.forced >= moment):
                continue
            names |= change.names
            if change.edit:
                change.edit(contents.setdefault(change.file, bytearray()))
        return {name: None if file is FOLDER else self._file(file, bytes(contents.get(file, b"")))
                for name, file in names.items() if is_there(names, name)}

    def _file(self, file, content):
        found = self._found.get(file)
        is_whole = found and found.content == content
        return programs.File(content, found.time if is_whole else 0, bool(found and found.is_prepared))


def is_there(names, name):
    """Whether all folders above are, too; the counters are not on the disk."""
    folder = os.path.dirname(name)
    above = not folder or (names.get(folder) is FOLDER and is_there(names, folder))
    return above and names[name] is not None and not name.startswith("run/")


def problem_of(command, recording, moment, states, answer, seen):
    problem, outcome = programs.judge(command, states, answer if recording.is_end(moment) else UNTOLD, seen)
    return problem, ("after the end: " if recording.is_end(moment) else "on the way: ") + outcome


UNTOLD = programs.Answer(-9, "", "")


def tried(home, command, options, end):
    """What is wrong, where, in each case that there was time for, and how many there are."""
    states = programs.known_states(home, command)
    path = home.folder.parent / "changes"
    path.unlink(missing_ok=True)
    found = home.begin(command)
    answer = home.run(command.arguments, **calls.watched(home, options.library, changes=str(path)))
    recording = Recording(found, str(home.folder), path)
    cases = list(recording.moments())
    random.Random(options.seed).shuffle(cases)
    # All of those after the end: they are few, and tell whether what was said to be done is.
    cases = [case for case in cases if recording.is_end(case[0])] + [
        case for case in cases if not recording.is_end(case[0])][::options.every]
    if options.only:
        cases = [(int(options.only.split(":")[1]), options.only.split(":")[2])]
    results = []
    for moment, lost in cases:
        if time.monotonic() > end:
            break
        home.put(recording.tree(moment, lost))
        problem, outcome = problem_of(command, recording, moment, states, answer, home.look(command))
        case = f"{command.name}:{moment}:{lost}"
        results.append((problem and f"{problem} ({recording.what(moment, lost)})", outcome, case))
    return command, results, len(cases)


def main():
    options = calls.parsed(__doc__)
    commands = calls.commands_of(options)
    homes = programs.Homes(options.program)
    seconds = options.seconds * homes.count / len(commands)

    def work(home, command):
        begin = time.monotonic()
        return tried(home, command, options, begin + seconds)

    tally, total = calls.Tally(options), 0
    for command, results, count in homes.each(work, commands):
        total += count
        for result in results:
            tally.add(*result)
    return tally.told(total, len(commands))


if __name__ == "__main__":
    sys.exit(main())
