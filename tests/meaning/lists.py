"""Access lists as their formats mean them, and the verdict of a list on one packet.

An entry is walked up to by its place in the list and decided by what its text says. Where a text names a
group of services, the entry has several clauses and matches where any of them does.
"""

from dataclasses import dataclass, field
from typing import Optional

from packet import TCP, UDP, SCTP
from sets import ANY, Addresses, Ranges

BYTE = 255
PORTED = Ranges([(TCP, TCP), (UDP, UDP), (SCTP, SCTP)], BYTE)


class Unsupported(Exception):
    """The entry is right, but the tool's rules cannot say it."""


class Bad(Exception):
    """The entry is wrong; or the text is, at a line."""

    def __init__(self, why, line=0):
        super().__init__(why)
        self.line = line


@dataclass
class Clause:
    families: frozenset = frozenset((4, 6))
    src: Addresses = field(default_factory=lambda: ANY)
    dst: Addresses = field(default_factory=lambda: ANY)
    proto: Optional[Ranges] = None
    sport: Optional[Ranges] = None
    dport: Optional[Ranges] = None
    icmp: Optional[Ranges] = None
    initial: bool = False
    established: bool = False
    length: Optional[Ranges] = None
    dscp: Optional[Ranges] = None
    frag: Optional[Ranges] = None

    def looks_at_layer4(self):
        return (self.sport is not None or self.dport is not None or self.icmp is not None
                or self.initial or self.established)

    def matches(self, p, permit, device_fragments):
        if p.family not in self.families:
            return False
        if not self.src.has(p.family, p.src) or not self.dst.has(p.family, p.dst):
            return False
        if self.proto is not None and p.proto not in self.proto:
            return False
        if self.length is not None and p.length not in self.length:
            return False
        if self.dscp is not None and p.dscp not in self.dscp:
            return False
        if self.frag is not None and p.frag not in self.frag:
            return False
        if p.frag and self.looks_at_layer4():
            # Nothing of layer 4 is in a later fragment: no entry is decided by what is absent.
            return device_fragments and permit
        if self.sport is not None and p.sport not in self.sport:
            return False
        if self.dport is not None and p.dport not in self.dport:
            return False
        if self.icmp is not None and p.icmp not in self.icmp:
            return False
        if self.initial and not (p.proto == TCP and p.syn and not p.ack):
            return False
        if self.established and not (p.proto == TCP and (p.ack or p.rst)):
            return False
        return True


@dataclass
class Entry:
    first: int  # line
    last: int   # line; of an entry that spans several
    permit: bool
    clauses: list
    implied: bool = False


@dataclass
class AccessList:
    name: str
    family: int
    entries: list
    #: A permit that looks at layer 4 takes later fragments of its addresses and protocol.
    device_fragments: bool = False

    def verdict(self, p):
        """The first entry that matches, or None."""
        if p.family != self.family:
            return None
        for entry in self.entries:
            for clause in entry.clauses:
                if clause.matches(p, entry.permit, self.device_fragments):
                    return entry
        return None


@dataclass
class Reading:
    """What became of a file."""
    lists: list = field(default_factory=list)
    left_out: dict = field(default_factory=dict)  # (first line, last line) -> why it cannot be said
    wrong: dict = field(default_factory=dict)     # (first line, last line) -> what is wrong

    def fault(self, first, last, error):
        kept = self.left_out if isinstance(error, Unsupported) else self.wrong
        kept[first, last] = str(error)


def implied(permit, **what):
    return Entry(0, 0, permit, [Clause(**what)], implied=True)
