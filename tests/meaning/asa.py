"""Configurations and `show access-list` output of ASA."""

import re

from asa_entry import EntryReader
from lists import AccessList, Bad, Entry, Reading, Unsupported, implied

BLOCK = re.compile(r"object(?:-group)? (network|service|protocol|icmp-type) (\S+)(?: (tcp|udp|tcp-udp))?$")
COUNTS = re.compile(r"\s*\((hitcnt=\d+|inactive)\)|\s+0x[0-9a-f]+\s*$")
BOTH_FAMILIES = 9


class Line:
    """An entry with the indented lines that show what it expands to."""

    def __init__(self, number, words, place):
        self.number, self.words, self.place = number, words, place
        self.expansions = []


class Scanner:
    def __init__(self, text, reading):
        self.reading = reading
        self.lists = {}    # name -> lines
        self.objects = {}  # (kind, name) -> member lines
        self.groups = {}   # (kind, name) -> (protocol, member lines)
        self.aliases = {}
        self.here = None
        version = re.search(r"^(?:ASA|PIX) Version (\d+)\.", text, re.MULTILINE)
        self.any_is_both = (int(version[1]) >= BOTH_FAMILIES if version
                            else re.search(r"\bany[46]\b", text) is not None)
        for number, line in enumerate(text.split("\n"), 1):
            if line.strip() and not line.lstrip().startswith(("!", ":")):
                self.line(number, line)

    def line(self, number, line):
        text = " ".join(line.split())
        if text.startswith("access-list "):
            self.here = None
            self.access_list(number, line)
            return
        if text == "clear configure access-list":
            self.lists.clear()
            return
        cleared = re.match(r"clear configure access-list (\S+)$", text)
        if cleared:
            self.lists.pop(cleared[1], None)
            return
        if text.startswith("no access-list "):
            self.removed(text.split()[2:])
            return
        found = BLOCK.match(text)
        if found and line[:1] not in " \t":
            if text.startswith("object "):
                self.here = self.objects.setdefault((found[1], found[2]), [])
            else:
                self.here = self.groups.setdefault((found[1], found[2]), (found[3], []))[1]
            return
        alias = re.match(r"name (\S+) (\S+)", text)
        if alias:
            self.aliases[alias[2]] = alias[1]
            return
        if self.here is not None and line[:1] in " \t":
            words = text.split()
            if words[0] != "description":
                self.here.append(words)
        else:
            self.here = None

    def access_list(self, number, line):
        inactive = "(inactive)" in line
        previous = None
        while previous != line:
            previous, line = line, COUNTS.sub("", line)
        words = line.split()[1:]
        if inactive:
            words.append("inactive")
        name, words = words[0], words[1:]
        if name == "cached" or not words or words[0].startswith(";") or name.endswith(";"):
            return
        place = None
        if words[0] == "line":
            place, words = int(words[1]), words[2:]
        if words[:1] in (["ethertype"], ["webtype"]):
            return
        lines = self.lists.setdefault(name, [])
        indented = line[:1] in " \t"
        if indented and place is not None and lines and self.shown == (name, place):
            self.shown_line.expansions.append((number, words))
            return
        made = Line(number, words, place)
        lines.insert(len(lines) if place is None else min(place - 1, len(lines)), made)
        self.shown, self.shown_line = (name, place), made

    shown, shown_line = None, None

    def removed(self, words):
        name, words = words[0], words[1:]
        if words[:1] == ["line"]:
            words = words[2:]
        if name in self.lists and words:
            self.lists[name] = [l for l in self.lists[name] if l.words != words]


def read(text, options):
    reading = Reading()
    scan = Scanner(text, reading)
    for name, lines in scan.lists.items():
        entries = []
        for line in lines:
            if line.words[:1] == ["remark"]:
                continue
            last = line.expansions[-1][0] if line.expansions else line.number
            try:
                entries.append(Entry(line.number, last, *entry(scan, line)))
            except (Unsupported, Bad) as error:
                reading.fault(line.number, last, error)
        families = {f for e in entries for c in e.clauses for f in c.families}
        if not any(line.words[:1] != ["remark"] for line in lines):
            continue
        for family in sorted(families or {4}):
            mine = [e for e in entries if any(family in c.families for c in e.clauses)]
            if options.implicit:
                mine.append(implied(False))
            both = "-v6" if family == 6 and 4 in families else ""
            reading.lists.append(AccessList(name + both, family, mine))
    return reading


def entry(scan, line):
    """Whether it permits, and its clauses."""
    if not line.expansions:
        return EntryReader(scan, line.words).read()
    made = [EntryReader(scan, words).read() for _, words in line.expansions]
    return made[0][0], [c for _, clauses in made for c in clauses]
