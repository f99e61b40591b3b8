"""Packets at the corners of what lists say.

Each entry in turn is aimed at: a packet that one of its clauses matches, tried a few times until the entry
is the one that decides; then a neighbour of that packet, one field beside what the entry, or another entry of
the list, says.
"""

import ipaddress
import re

import names
from packet import BITS, ICMP4, ICMP6, SCTP, TCP, UDP, Packet

TRIES = 6
PROTOS = (TCP, TCP, TCP, UDP, UDP, None, None, SCTP, 0, 2, 47, 255)  # None: ICMP of the family
PORTS = (0, 1, 22, 80, 443, 1023, 1024, 65535)
FLAGS = ("syn", "ack", "rst")
LATER = (1, 2, 185, 8191)


class Pool:
    """What the entries of a list speak of."""

    def __init__(self, made, rng):
        self.rng = rng
        clauses = [c for e in made.entries for c in e.clauses if made.family in c.families]
        self.blocks = [b for c in clauses for side in (c.src, c.dst) for b in side.blocks + side.without
                       if b.family == made.family]
        self.values = {name: sorted({v for c in clauses for r in self.of(c, name) for v in r.edges()})
                       for name in ("port", "proto", "icmp", "length", "dscp", "frag")}

    @staticmethod
    def of(clause, name):
        sets = (clause.sport, clause.dport) if name == "port" else (getattr(clause, name),)
        return [s for s in sets if s is not None]

    def address(self, family):
        rng = self.rng
        if not self.blocks or rng.random() < .1:
            return rng.getrandbits(BITS[family])
        block = rng.choice(self.blocks)
        return block.member(rng) if rng.random() < .7 else block.beside(rng)

    def value(self, name, others):
        return self.rng.choice(self.values[name] or others) if self.rng.random() < .6 else (
            self.rng.choice(others))

    def proto(self, family):
        made = self.value("proto", PROTOS)
        return (ICMP4 if family == 4 else ICMP6) if made is None else made


class Drawer:
    def __init__(self, made, rng):
        self.made, self.family, self.rng = made, made.family, rng
        self.pool = Pool(made, rng)

    def aimed(self, entry):
        """A packet for an entry, and whether the entry decides it."""
        packet = None
        for _ in range(TRIES):
            packet = self.matching(self.rng.choice(entry.clauses)) or packet
            if packet is not None and self.made.verdict(packet) is entry:
                return packet, True
        return packet or self.anything(), False

    def matching(self, clause):
        rng, pool, family = self.rng, self.pool, self.family
        if family not in clause.families or (clause.proto is not None and not clause.proto.ranges):
            return None
        src = clause.src.member(family, rng) if rng.random() < .95 else pool.address(family)
        dst = clause.dst.member(family, rng) if rng.random() < .95 else pool.address(family)
        if src is None or dst is None:
            return None
        if rng.random() < .5:  # any is everything that the list speaks of
            if clause.src.has(family, other := pool.address(family)):
                src = other
            if clause.dst.has(family, other := pool.address(family)):
                dst = other
        packet = Packet(family, src, dst, clause.proto.member(rng) if clause.proto else pool.proto(family))
        if clause.initial or clause.established:
            packet.proto = TCP
        for name, wanted in (("sport", clause.sport), ("dport", clause.dport)):
            setattr(packet, name, wanted.member(rng) if wanted and wanted.ranges
                    else pool.value("port", PORTS))
        packet.icmp = clause.icmp.member(rng) if clause.icmp else pool.value("icmp", (0, 3, 8, 128, 255))
        for name in FLAGS:
            setattr(packet, name, rng.random() < .4)
        if clause.initial:
            packet.syn, packet.ack = True, False
        if clause.established and not packet.rst:
            packet.ack = True
        for name, others in (("length", (0, 20, 60, 1500, 65535)), ("dscp", (0, 0, 46, 63))):
            wanted = getattr(clause, name)
            setattr(packet, name, wanted.member(rng) if wanted else pool.value(name, others))
        if clause.frag is not None:
            packet.frag = clause.frag.member(rng) if clause.frag.ranges else 0
        elif rng.random() < .12:
            packet.frag = rng.choice(LATER)
        return packet.settle()

    def anything(self):
        rng, pool, family = self.rng, self.pool, self.family
        packet = Packet(family, pool.address(family), pool.address(family), pool.proto(family))
        return self.near(packet, None)

    def near(self, packet, clause):
        """The packet with a field or two moved."""
        rng, pool = self.rng, self.pool
        for _ in range(rng.choice((1, 1, 2))):
            field = rng.choice(("src", "src", "dst", "dst", "proto", "sport", "dport", "dport", "icmp",
                                "flags", "flags", "length", "dscp", "frag"))
            if field in ("src", "dst"):
                side = getattr(clause, field) if clause else None
                beside = side.beside(self.family, rng) if side and rng.random() < .6 else None
                setattr(packet, field, pool.address(self.family) if beside is None else beside)
            elif field == "proto":
                packet.proto = pool.proto(self.family)
                packet.sport, packet.dport = pool.value("port", PORTS), pool.value("port", PORTS)
            elif field == "flags":
                name = rng.choice(FLAGS)
                setattr(packet, name, not getattr(packet, name))
            elif field == "frag":
                packet.frag = 0 if packet.frag else rng.choice(LATER)
            else:
                name = "port" if field.endswith("port") else field
                others = {"port": PORTS, "icmp": (0, 3, 8, 128, 255), "length": (0, 60, 1500),
                          "dscp": (0, 46, 63)}[name]
                wanted = list(getattr(clause, field).edges()) if clause and getattr(clause, field) else []
                setattr(packet, field, rng.choice(wanted) if wanted and rng.random() < .7
                        else pool.value(name, others))
        return packet.settle()


class Hint:
    """What the text of an entry speaks of that is left out, roughly: packets that it would have met show
    whether the tool leaves it out as well."""

    def __init__(self, text):
        words = re.split(r'[\s",{}\[\]]+', text)
        self.ports = [int(w) for w in re.findall(r"\d+", text) if int(w) <= 65535] + [
            table[w] for table in (names.TCP_PORTS, names.UDP_PORTS, names.ASA_TCP) for w in words
            if w in table]
        self.protos = [names.PROTOCOLS[w] for w in words if w in names.PROTOCOLS] or [TCP, UDP]
        self.addresses = {4: [], 6: []}
        for word in words:
            try:
                found = ipaddress.ip_address(word.split("/")[0])
                self.addresses[found.version].append(int(found))
            except ValueError:
                pass

    def packet(self, drawer):
        rng, packet = drawer.rng, drawer.anything()
        packet.proto = rng.choice(self.protos)
        for side in ("src", "dst"):
            if self.addresses[drawer.family] and rng.random() < .6:
                setattr(packet, side, rng.choice(self.addresses[drawer.family]))
        for side in ("sport", "dport", "icmp"):
            if self.ports and rng.random() < .6:
                setattr(packet, side, rng.choice(self.ports) & (255 if side == "icmp" else 65535))
        packet.frag = 0
        return packet.settle()


def packets(lists, left_out, count, rng):
    """Pairs of a list and a packet, and the entries that decide some packet of theirs. `left_out` are
    the texts of entries that no rule can say."""
    lists = [made for made in lists if made.entries]  # an empty one decides nothing
    drawn, reached = [], set()
    drawers = [(Drawer(made, rng), made) for made in lists]
    targets = [(drawer, entry) for drawer, made in drawers for entry in made.entries]
    if not targets:
        return drawn, reached
    hints = [Hint(text) for text in left_out]
    while len(drawn) < count:
        rng.shuffle(targets)
        for hint in hints:
            drawer, made = rng.choice(drawers)
            drawn.append((made, hint.packet(drawer)))
        for drawer, entry in targets:
            if len(drawn) >= count:
                break
            packet, hit = drawer.aimed(entry)
            drawn.append((drawer.made, packet))
            if hit:
                reached.add(id(entry))
            if len(drawn) < count:
                moved = Packet(**vars(packet))
                drawn.append((drawer.made, drawer.near(moved, rng.choice(entry.clauses))))
    return drawn, reached
