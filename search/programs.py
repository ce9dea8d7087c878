"""The program in a home folder of the search's own: the commands that change something, and what a list is afterwards."""

import json
import os
import pathlib
import queue
import shutil
import subprocess
import tempfile
from concurrent.futures import ThreadPoolExecutor
from dataclasses import dataclass

LONGEST_RUN = 90  # in seconds, far above what any of them takes

CONTACTS = [("ann", "Ann", "1234567", "X-FOLKS-FAVOURITE:true\n"), ("ben", "Ben", "2234567", "X-FOLKS-FAVOURITE:true\n"),
            ("cid", "Cid", "3234567", "TEL:+49 30 3234568\n"), ("dora", "Dora", "4234567", ""),
            ("emil", "Emil", "5234567", ""), ("fay", "Fay", "6234567", "")]

# Leaves a list with pages of which one is empty, all that a friend may carry, and steps to take back and to do again.
PREPARATION = [["--region", "DE", "list"], ["favorites", "add", "emil"], ["add", "cid", "dora", "+49 30 7777777"],
               ["title", "1", "Family"], ["meta", "ben", "birthday", "05-17"], ["reply-as", "ben", "me@example.org"],
               ["number", "cid", "+49 30 3234568"], ["move", "dora", "2:3"], ["move", "+49 30 7777777", "3:1"], ["move", "dora", "3:2"],
               ["export", "{home}/exported.json"], ["remove", "dora"], ["add", "emil"], ["undo"]]


@dataclass
class Command:
    """A command, and which questions beside the list and its history tell what it did."""

    name: str
    arguments: list
    questions: tuple = ()
    changes_list: bool = True  # False: what it does any program does that finds the contacts so
    is_first: bool = False     # there is no data folder yet
    makes_store: bool = False  # anew: while it does, there is none, which is told


COMMANDS = [
    Command("first-list", ["--region", "DE", "list"], is_first=True),
    Command("first-add", ["--region", "DE", "add", "fay"], is_first=True),
    Command("add", ["add", "fay"]),
    Command("add-three", ["add", "fay", "emil", "+49 30 8888888"]),
    Command("remove", ["remove", "ben"]),
    Command("remove-two", ["remove", "ann", "cid"]),
    Command("move", ["move", "ann", "2:5"]),
    Command("swap", ["move", "ann", "1:2"]),
    Command("title", ["title", "2", "Work"]),
    Command("title-away", ["title", "1", ""]),
    Command("purge", ["purge"]),
    Command("number", ["number", "cid", "+49 30 3234567"]),
    Command("number-away", ["number", "cid", "--clear"]),
    Command("reply-as", ["reply-as", "ann", "ann@example.net"]),
    Command("reply-as-away", ["reply-as", "ben", "--clear"]),
    Command("meta", ["meta", "ann", "birthday", "01-02"]),
    Command("meta-away", ["meta", "ben", "--clear"]),
    Command("undo", ["undo"]),
    Command("redo", ["redo"]),
    Command("history-clear", ["history", "--clear"]),
    Command("forget", ["forget", "ben", "--yes"]),
    Command("import", ["import", "{home}/exported.json"]),
    Command("import-replace", ["import", "--replace", "{home}/exported.json"]),
    Command("favorites-add", ["favorites", "add", "fay"], ("favorites",)),
    Command("favorites-remove", ["favorites", "remove", "ann"], ("favorites",)),
    Command("favorites-move", ["favorites", "move", "2", "1"], ("favorites",)),
    Command("favorites-import", ["favorites", "import"], ("favorites",)),
    Command("contacts-import", ["contacts", "import", "{home}/more.vcf"], ("contacts",)),
    Command("refresh", ["refresh"], ("contacts",), changes_list=False),
    Command("settings", ["settings", "max-pages", "9"], ("settings",)),
    Command("settings-region", ["settings", "region", "AT"], ("settings",)),
    Command("settings-names", ["settings", "short-names", "on"], ("settings",)),
    Command("restore", ["backup", "restore", "{copy}"]),
    Command("restore-empty", ["backup", "restore", "--empty"], makes_store=True),
    Command("export", ["export", "{home}/exported.json"], ("exported",)),
]


def card(guid, name, number, more=""):
    return (f"BEGIN:VCARD\nVERSION:3.0\nUID:{guid}\nFN:{name} Lee\nN:Lee;{name};;;\nTEL:+49 30 {number}\n"
            f"EMAIL:{guid}@example.org\n{more}END:VCARD\n")


@dataclass
class File:
    content: bytes
    time: int = 0              # of the last change, in nanoseconds; 0: any
    is_prepared: bool = False  # the very file of the preparation, by which the store knows itself


@dataclass
class Answer:
    code: int  # below zero: the signal that ended it; None: it hung
    output: str
    errors: str


class Home:
    """A user's folders, which a command finds as they were prepared."""

    def __init__(self, program):
        self.program = program
        self._temporary = tempfile.TemporaryDirectory(prefix="pellor-search-", dir=memory_folder())
        self.folder = pathlib.Path(os.path.realpath(self._temporary.name)) / "home"
        self._kept = self.folder.parent / "store"
        self._make_first()
        self.first = self.tree()
        for arguments in PREPARATION:
            answer = self.run(arguments)
            if answer.code != 0:
                raise SystemExit(f"{arguments}: {answer.errors}")
        os.link(self.folder / STORE, self._kept)
        self.prepared = self.tree()
        self.prepared[STORE].is_prepared = True
        self.judged = {}

    def _make_first(self):
        for name in ("data/contacts", "config/pellor", "state", "run"):
            (self.folder / name).mkdir(parents=True, mode=0o700)
        (self.folder / "config/pellor/config.toml").write_text(f'contacts = "{self.folder}/data/contacts"\n')
        for contact in CONTACTS:
            (self.folder / f"data/contacts/{contact[0]}.vcf").write_text(card(*contact))
        (self.folder / "more.vcf").write_text(card("gus", "Gus", "9234567"))
        (self.folder / "exported.json").write_text("{}")

    def tree(self):
        """All files by their paths; folders with None."""
        found = {}
        for path in sorted(self.folder.rglob("*")):
            status = path.lstat()
            name = str(path.relative_to(self.folder))
            found[name] = None if path.is_dir() else File(path.read_bytes(), status.st_mtime_ns)
        return found

    def put(self, tree):
        shutil.rmtree(self.folder)
        self.folder.mkdir(mode=0o700)
        for name, file in sorted(tree.items()):
            path = self.folder / name
            if file is None:
                path.mkdir(mode=0o700)
                continue
            if file.is_prepared:
                os.link(self._kept, path)
            with open(os.open(path, os.O_WRONLY | os.O_CREAT | os.O_TRUNC, 0o600), "wb") as opened:
                opened.write(file.content)
            if file.time:
                os.utime(path, ns=(file.time, file.time))

    def begin(self, command):
        """What the command finds."""
        tree = dict(self.first if command.is_first else self.prepared)
        if not command.changes_list:
            tree["data/contacts/ann.vcf"] = File(card("ann", "Anne", "1234567").encode())
        self.put(tree)
        return tree

    def run(self, arguments, **variables):
        places = {"home": self.folder, "copy": next((path.stem for path in self.folder.glob(
            "data/pellor/copies/day-*")), "")}
        folders = {"HOME": "", "XDG_DATA_HOME": "data", "XDG_CONFIG_HOME": "config", "XDG_STATE_HOME": "state",
                   "XDG_RUNTIME_DIR": "run"}
        environment = {name: str(self.folder / folder) for name, folder in folders.items()}
        environment |= {"PATH": "/usr/bin:/bin", "LC_ALL": "de_DE.UTF-8", "LANGUAGE": "en"} | variables
        try:
            done = subprocess.run([self.program, *(part.format(**places) for part in arguments)], env=environment,
                                  stdin=subprocess.DEVNULL, capture_output=True, timeout=LONGEST_RUN, check=False)
        except subprocess.TimeoutExpired:
            return Answer(None, "", "")
        return Answer(done.returncode, done.stdout.decode(errors="replace"), done.stderr.decode(errors="replace"))

    def state(self, command):
        """What a program that meets no fault says of everything that the command may change, and its words of errors."""
        answers = [self.run(["export"]), self.run(["--json", "history"])]
        answers += [self.run([question]) for question in command.questions if question != "exported"]
        said = "".join(answer.errors or (f"exit code {answer.code}" if answer.code != 0 else "") for answer in answers)
        if said and any(answer.code != 0 for answer in answers):
            return None, said
        steps = json.loads(answers[1].output)["steps"]
        history = [{key: step[key] for key in step if key not in ("id", "time")} for step in steps]
        exported = (self.folder / "exported.json").read_bytes() if "exported" in command.questions else b""
        return (answers[0].output, json.dumps(history), *(answer.output for answer in answers[2:]), exported), said

    def look(self, command):
        """The state, the words, and why one more edit fails, if it does. Equal folders are looked at once."""
        tree = self.tree()
        key = hash((command.name, *((name, file and file.content) for name, file in tree.items())))
        if key not in self.judged:
            state, said = self.state(command)
            edit = self.run(["add", "+49 30 4711471"])
            self.judged[key] = state, said, "" if edit.code == 0 else f"exit code {edit.code} {edit.errors}"
        return self.judged[key]


STORE = "data/pellor/preferences.sqlite"


def memory_folder():
    return "/dev/shm" if os.access("/dev/shm", os.W_OK) else None


class Homes:
    """One home for each task that runs; more of them than cores, since programs wait most of the time."""

    def __init__(self, program):
        self.count = 2 * os.cpu_count()
        self._free = queue.Queue()
        self._tasks = ThreadPoolExecutor(self.count)
        for home in self._tasks.map(lambda _: Home(program), range(self.count)):
            self._free.put(home)

    def each(self, work, things):
        """`work(home, thing)` for each, in any order; the answers in theirs."""
        def use(thing):
            home = self._free.get()
            try:
                return work(home, thing)
            finally:
                self._free.put(home)
        return self._tasks.map(use, things)


def known_states(home, command):
    """The states before and after the command where it meets no fault."""
    home.begin(command)
    before, said = home.state(command)
    home.begin(command)
    answer = home.run(command.arguments)
    after, said_after = home.state(command)
    if answer.code != 0 or said or said_after:
        raise SystemExit(f"{command.name} fails without a fault: {answer.errors}{said}{said_after}")
    if command.changes_list and before == after and not command.is_first:
        raise SystemExit(f"{command.name} changes nothing that is looked at")
    return before, after


def judge(command, states, answer, seen):
    """What is wrong after a command, and in a word what became of it."""
    before, after = states
    state, said, edit = seen
    if state is None:
        return f"the list cannot be opened: {said}", ""
    if state not in states:
        return "the list is neither that of before nor that of after", ""
    if answer.code == 0 and state != after:
        return "said to be done, and is not", ""
    if edit:
        return f"one more edit fails: {edit}", ""
    if said and not command.makes_store:
        return f"the store is not whole: {said}", ""
    return "", ("done" if state == after else "as before") + (", and told" if said else "")
