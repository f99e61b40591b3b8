"""Text of the IOS family: configurations of IOS, NX-OS, EOS and XR, and what `show access-lists` prints."""

import re

import names
from ios_entry import EntryReader
from lists import AccessList, Bad, Entry, Reading, Unsupported, implied
from sets import Ranges

NOISE = re.compile(r"\s*(\(\s*\d[^()]*match[^()]*\)|\[match[^\]]*\]|\((in)?active\)|\(tag = [^)]*\))"
                   r"(?=\s*$|\s+sequence \d+\s*$)")
SHOWN = re.compile(r"^(?:(Extended|Standard) )?(IP|IPv4|IPv6) access list (\S+)", re.IGNORECASE)
NO_LIST = ("extended", "standard", "resequence", "log-update", "logging", "match-local-traffic",
           "persistent", "helper", "role-based")


class Item:
    def __init__(self, sequence, line, words, remark):
        self.sequence, self.line, self.words, self.remark = sequence, line, words, remark


class ListText:
    """A list as its lines make it."""

    def __init__(self, name, family, standard):
        self.name, self.family, self.standard = name, family, standard
        self.items = []
        self.fragments = None  # what becomes of later fragments that meet no entry

    def add(self, item, replaces):
        if item.sequence is None:
            item.sequence = 10 + max((i.sequence for i in self.items), default=0)
        same = [i for i in self.items if i.sequence == item.sequence]
        if same and not replaces:
            raise Bad(f"the number {item.sequence} is taken")
        self.items = sorted([i for i in self.items if i not in same] + [item], key=lambda i: i.sequence)


def dialect_of(text):
    lines = text.split("\n")

    def any_line(pattern):
        return any(re.search(pattern, line) for line in lines)

    if any_line(r"cisco-xr|^!! IOS XR|^(no )?ipv4 access-list |^object-group (network ipv[46]|port) "):
        return "xr"
    if any_line(r"cisco-nx|^object-group (ip|ipv6) (address|port) |\baddrgroup\b|^\s*statistics per-entry"
                r"|^feature |^\s*fragments (permit|deny)-all|^IP access list |^!Command: show"):
        return "nxos"
    if any_line(r"EOS-\d|^\s*counters per-entry|response traffic|^(Standard )?IP Access List "):
        return "eos"
    if any_line(r"^ip access-list (?!extended |standard )\S+\s*$"):
        return "nxos"
    return "ios"


class Scanner:
    """Finds lists and groups among all other lines of a configuration."""

    def __init__(self, text, reading):
        self.dialect = dialect_of(text)
        self.reading = reading
        self.lists = {}
        self.groups = {}
        self.here = None  # the list, or the members of the group, that the line may belong to
        self.numbers_remarks = self.dialect in ("nxos", "eos")
        end = None  # of a banner
        for number, line in enumerate(text.split("\n"), 1):
            if end is not None:
                if end in line:
                    end = None
                continue
            words = NOISE.sub("", NOISE.sub("", line)).split()
            if not words or words[0].startswith("!"):
                continue
            if words[0] == "banner":
                end = self.banner_end(words)
                self.here = None
                continue
            try:
                self.line(number, line, words)
            except Bad as error:
                reading.fault(number, number, error)

    @staticmethod
    def banner_end(words):
        rest = " ".join(words[2:])
        if not rest:
            return "EOF"
        mark = rest[:2] if rest[0] == "^" else rest[0]
        return None if mark in rest[len(mark):] else mark

    def line(self, number, line, words):
        if self.head(number, line, words):
            return
        if isinstance(self.here, ListText):
            if self.list_line(number, words):
                return
        elif self.here is not None and line[:1] in " \t":
            self.group_line(number, words)
            return
        if line[:1] not in " \t":
            self.here = None

    def the_list(self, name, family, standard=False):
        found = self.lists.setdefault((family, name), ListText(name, family, standard))
        self.here = found
        return found

    def head(self, number, line, words):
        shown = SHOWN.match(line.strip())
        if shown:
            kind, family, name = shown.groups()
            self.the_list(name, 6 if family.lower() == "ipv6" else 4, (kind or "").lower() == "standard")
            return True
        if re.match(r"\s*(MAC|ARP|ethernet\S*|mac) access[- ]list", line, re.IGNORECASE):
            self.here = None
            return True
        text = " ".join(words)
        found = re.match(r"(no )?(ip|ipv4|ipv6) access-list (?:(extended|standard) )?(\S+)$", text)
        if found and found[4] not in NO_LIST:
            family = 6 if found[2] == "ipv6" else 4
            if found[1]:
                self.lists.pop((family, found[4]), None)
                self.here = None
            else:
                self.the_list(found[4], family, found[3] == "standard")
            return True
        found = re.match(r"(no )?access-list (\d+)\b ?(.*)$", text)
        if found:
            self.numbered(number, found)
            return True
        found = re.match(r"object-group (ip address|ipv6 address|ip port|network ipv4|network ipv6|network"
                         r"|v4-network|v6-network|service|port) (\S+)$", text)
        if found:
            kind = {"service": "service", "port": "port", "ip port": "port"}.get(found[1], "network")
            self.here = self.groups.setdefault((kind, found[2]), [])
            return True
        return False

    def numbered(self, number, found):
        key = int(found[2])
        standard = 1 <= key <= 99 or 1300 <= key <= 1999
        self.here = None
        if not standard and not (100 <= key <= 199 or 2000 <= key <= 2699):
            return
        if found[1]:
            self.lists.pop((4, found[2]), None)
            return
        into = self.the_list(found[2], 4, standard)
        self.here = None
        self.entry(into, number, found[3].split())

    def list_line(self, number, words):
        if words[0] == "fragments" and words[1:2] in (["permit-all"], ["deny-all"]):
            self.here.fragments = words[1]
            return True
        if words[0] == "no":
            return self.removed(words[1:])
        first = next((w for w in words if not w.isdigit() and w != "sequence"), "")
        if first in ("permit", "deny", "remark", "dynamic", "evaluate"):
            self.entry(self.here, number, words)
            return True
        return False

    def removed(self, words):
        if words[:1] == ["sequence"]:
            words = words[1:]
        if len(words) == 1 and words[0].isdigit():
            self.here.items = [i for i in self.here.items if i.sequence != int(words[0])]
            return True
        if words and words[0] in ("permit", "deny", "remark"):
            self.here.items = [i for i in self.here.items if i.words != words]
            return True
        return False

    def entry(self, into, number, words):
        sequence = None
        if words and words[0] == "sequence":
            words = words[1:]
        if words and words[0].isdigit():
            sequence, words = int(words[0]), words[1:]
        remark = words[:1] == ["remark"]
        if len(words) > 2 and words[-2] == "sequence" and not remark:
            sequence, words = int(words[-1]), words[:-2]
        if remark and sequence is None and not self.numbers_remarks:
            return
        into.add(Item(sequence, number, words, remark), self.dialect in ("nxos", "eos"))

    def group_line(self, number, words):
        if words[0] == "no":
            self.here[:] = [m for m in self.here if m[1] != words[1:]]
            return
        if words[0] in ("description", "exit"):
            return
        if len(words) > 1 and words[0].isdigit() and self.dialect == "nxos":
            words = words[1:]
        self.here.append((number, words))


def read(text, options):
    reading = Reading()
    scan = Scanner(text, reading)
    for (family, name), source in scan.lists.items():
        if not any(not i.remark for i in source.items):
            continue
        entries = []
        for item in source.items:
            if item.remark:
                continue
            try:
                permit, clauses = EntryReader(scan, source, item.words).read()
                entries.append(Entry(item.line, item.line, permit, clauses))
            except (Unsupported, Bad) as error:
                reading.fault(item.line, item.line, error)
        families = frozenset((family,))
        if source.fragments:
            entries.append(implied(source.fragments == "permit-all", frag=Ranges([(1, 8191)], 8191)))
        discovery = scan.dialect in ("ios", "xr") if options.nd_permits is None else options.nd_permits
        if options.implicit and family == 6 and discovery:
            for kind in ("nd-na", "nd-ns"):
                type_ = names.ICMP6_TYPES[kind]
                entries.append(implied(True, proto=Ranges([(58, 58)], 255), families=families,
                                       icmp=Ranges([(type_, type_)], 255)))
        if options.implicit:
            entries.append(implied(False))
        if family == 6 and (4, name) in scan.lists:
            name += "-v6"
        device = family == 4 and scan.dialect != "eos" and not options.plain
        reading.lists.append(AccessList(name, family, entries, device))
    return reading
