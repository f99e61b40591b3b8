"""One entry of an ASA list from its words."""

import names
from lists import Bad, Clause, Unsupported
from packet import ICMP4, ICMP6, SCTP, TCP, UDP
from sets import ANY, ANY4, ANY6, Addresses, Ranges, Span, ports
from words import (OPERATORS, Words, block, ipv4, netmask, number, port_clause, protocol_number)

PORTED = {TCP, UDP, SCTP}


def one(value, top=255):
    return Ranges([(value, value)], top)


def both(a, b):
    """What two sets of numbers have in common; an absent one holds everything."""
    if a is None or b is None:
        return b if a is None else a
    common = [(max(l, m), min(h, k)) for l, h in a.ranges for m, k in b.ranges if max(l, m) <= min(h, k)]
    return Ranges(common, a.top)


class EntryReader:
    def __init__(self, scan, words):
        self.scan = scan
        self.words = Words(words)

    def read(self):
        """Whether it permits, and its clauses."""
        words = self.words
        standard = words.takes("standard")
        words.takes("extended")
        action = words.take()
        if action not in ("permit", "deny"):
            raise Bad(f"what is {action}?")
        if standard:
            clauses = [self.clause({}, ANY4, self.address(ANY4))]
        else:
            clauses = self.extended()
        self.options()
        clauses = [c for c in clauses if c is not None]
        if not clauses:
            raise Bad("there is no packet of which all that holds")
        return action == "permit", clauses

    def extended(self):
        services = self.protocols()
        src = self.address()
        sport = self.port_set(services)
        dst = self.address()
        dport = self.port_set(services)
        icmp = self.icmp_types(services)
        made = []
        for service in services:
            proto = service.get("proto")
            what = dict(service)
            if proto is None or proto in PORTED:
                for side, given in (("sport", sport), ("dport", dport)):
                    if given is not None:
                        of = given.get(proto) if isinstance(given, dict) else given
                        if of is None:
                            what = None
                            break
                        what[side] = both(what.get(side), of)
            if what is None:
                continue
            if proto in (ICMP4, ICMP6) and icmp is not None:
                what["icmp"] = icmp
            made.append(self.clause(what, src, dst))
        return made

    @staticmethod
    def clause(what, src, dst):
        """None where no family is left."""
        families = src.families() & dst.families()
        proto = what.get("proto")
        if proto == ICMP4:
            families &= {4}
        if proto == ICMP6:
            families &= {6}
        if not families:
            return None
        return Clause(families=frozenset(families), src=src, dst=dst,
                      proto=None if proto is None else one(proto), sport=what.get("sport"),
                      dport=what.get("dport"), icmp=what.get("icmp"))

    # Protocols and services

    @staticmethod
    def protocol_number(word):
        if word == "ip":
            return None
        if word in names.PROTOCOLS:
            return names.PROTOCOLS[word]
        return protocol_number(word)

    def protocols(self):
        words = self.words
        if words.takes("object"):
            return self.service_object(words.take())
        if not words.takes("object-group"):
            return [{"proto": self.protocol_number(words.take())}]
        name = words.take()
        if ("protocol", name) in self.scan.groups:
            return [{"proto": p} for p in self.protocol_members(name, ())]
        return self.service_members(name, ())

    def members(self, kind, name, inside):
        if (kind, name) not in self.scan.groups or name in inside:
            raise Bad(f"no group, or a cycle: {name}")
        members = self.scan.groups[kind, name][1]
        if not members:
            raise Bad(f"the group {name} is empty")
        return members

    def protocol_members(self, name, inside):
        found = []
        for member in self.members("protocol", name, inside):
            if member[0] == "group-object":
                found += self.protocol_members(member[1], inside + (name,))
            else:
                found.append(self.protocol_number(member[1]))
        return found

    def service_object(self, name):
        if ("service", name) not in self.scan.objects:
            raise Bad(f"no object {name}")
        return [s for member in self.scan.objects["service", name]
                for s in self.service(Words(member[1:]))]

    def service_members(self, name, inside):
        found = []
        for member in self.members("service", name, inside):
            if member[0] == "group-object":
                found += self.service_members(member[1], inside + (name,))
            elif member[:2] == ["service-object", "object"]:
                found += self.service_object(member[2])
            else:
                found += self.service(Words(member[1:]))
        return found

    def service(self, words):
        name = words.take()
        protos = [TCP, UDP] if name == "tcp-udp" else [self.protocol_number(name)]
        found = []
        start = words.at
        for proto in protos:
            words.at = start
            made = {"proto": proto}
            if proto in (ICMP4, ICMP6) and words.peek():
                made["icmp"] = self.icmp(words, proto)
            elif proto in PORTED:
                if words.takes("source"):
                    made["sport"] = port_clause(words, self.port_names({proto}))
                words.takes("destination")
                if words.peek():
                    made["dport"] = port_clause(words, self.port_names({proto}))
            if words.peek():
                raise Bad(f"what is {words.peek()}?")
            found.append(made)
        return found

    @staticmethod
    def port_names(protos):
        table = {}
        if protos & {TCP, SCTP, None}:
            table |= names.ASA_TCP
        if protos & {UDP, None}:
            table |= names.ASA_UDP
        return table

    def port_set(self, services):
        """Ports, or ports by protocol, or None."""
        words = self.words
        if words.peek() in OPERATORS:
            return port_clause(words, self.port_names({s["proto"] for s in services}))
        if words.peek() == "object-group" and ("service", words.peek(1)) in self.scan.groups:
            words.take()
            return self.port_members(words.take(), ())
        return None

    def port_members(self, name, inside):
        protocol = self.scan.groups["service", name][0] if ("service", name) in self.scan.groups else None
        protos = {"tcp": {TCP}, "udp": {UDP}, "tcp-udp": {TCP, UDP}}.get(protocol)
        if protos is None:
            raise Bad(f"the group {name} is of no protocol")
        found = {p: [] for p in protos}
        for member in self.members("service", name, inside):
            if member[0] == "group-object":
                for proto, of in self.port_members(member[1], inside + (name,)).items():
                    found.setdefault(proto, []).extend(of.ranges)
                continue
            for proto in protos:
                found[proto] += port_clause(Words(member[1:]), self.port_names(protos)).ranges
        return {p: ports(*ranges) for p, ranges in found.items()}

    # ICMP

    @staticmethod
    def icmp(words, proto):
        table = names.ICMP4_TYPES if proto == ICMP4 else names.ASA_ICMP6_TYPES
        word = words.take()
        value = table[word] if word in table else number(word, 255)
        if words.peek().isdigit():
            raise Unsupported("an ICMP code")
        return one(value)

    def icmp_types(self, services):
        words = self.words
        protos = {s["proto"] for s in services}
        if not protos & {ICMP4, ICMP6} or not words.peek() or words.peek() in ("log", "inactive",
                                                                               "time-range"):
            return None
        proto = ICMP4 if ICMP4 in protos else ICMP6
        if words.takes("object-group"):
            return Ranges(self.icmp_members(words.take(), proto, ()), 255)
        return self.icmp(words, proto)

    def icmp_members(self, name, proto, inside):
        found = []
        for member in self.members("icmp-type", name, inside):
            if member[0] == "group-object":
                found += self.icmp_members(member[1], proto, inside + (name,))
            else:
                found += self.icmp(Words(member[1:]), proto).ranges
        return found

    # Addresses

    def alias(self, word):
        return self.scan.aliases.get(word, word)

    def address(self, any_is=None):
        words = self.words
        word = words.take()
        if word == "any":
            return any_is or (ANY if self.scan.any_is_both else ANY4)
        if word == "any4":
            return ANY4
        if word == "any6":
            return ANY6
        if word == "host":
            return Addresses([self.host(words.take())])
        if word == "object":
            return Addresses(self.network_object(words.take()))
        if word == "object-group":
            return Addresses(self.network_members(words.take(), ()))
        if word in ("interface", "user", "security-group", "object-group-user", "object-group-security",
                    "user-group"):
            raise Unsupported(word)
        return Addresses([self.subnet(word, words)])

    def host(self, word):
        word = self.alias(word)
        return block(word.split("/")[0], 6 if ":" in word else 4)

    def subnet(self, word, words):
        word = self.alias(word)
        if ":" in word:
            return block(word, 6)
        if "/" in word:
            return block(word, 4)
        return netmask(ipv4(word), ipv4(words.take()))

    def network_object(self, name):
        if not self.scan.objects.get(("network", name)):
            raise Bad(f"no object {name}, or an empty one")
        found = []
        for member in self.scan.objects["network", name]:
            if member[0] == "nat":
                continue
            words = Words(member)
            kind = words.take()
            if kind == "host":
                found.append(self.host(words.take()))
            elif kind == "subnet":
                found.append(self.subnet(words.take(), words))
            elif kind == "range":
                low, high = self.host(words.take()), self.host(words.take())
                found.append(Span(low.family, low.value, high.value))
            else:
                raise Unsupported(kind)
        return found

    def network_members(self, name, inside):
        found = []
        for member in self.members("network", name, inside):
            words = Words(member)
            if words.takes("group-object"):
                found += self.network_members(words.take(), inside + (name,))
                continue
            words.take()
            if words.takes("object"):
                found += self.network_object(words.take())
            elif words.takes("host"):
                found.append(self.host(words.take()))
            else:
                found.append(self.subnet(words.take(), words))
        return found

    # What stands behind

    def options(self):
        words = self.words
        while words.peek():
            word = words.take()
            if word == "log":
                while words.peek() and words.peek() not in ("inactive", "time-range"):
                    words.take()
            elif word in ("inactive", "time-range"):
                raise Unsupported(word)
            else:
                raise Bad(f"what is {word}?")
