"""One entry of the IOS family from its words."""

import names
from lists import Bad, Clause, Unsupported
from packet import ICMP4, ICMP6, SCTP, TCP, UDP
from sets import ANY4, ANY6, Addresses, Ranges, Span, Wild, ports
from words import (OPERATORS, Words, block, ipv4, ipv6, is_ipv4, netmask, number, port_clause,
                   protocol_number, wildcard)

FLAGS = ("ack", "fin", "psh", "rst", "syn", "urg")
NOT_NARROWING = {"capture": 0, "icmp-off": 0, "reflect": 1, "log": 0, "log-input": 0}


def one(value, top=255):
    return Ranges([(value, value)], top)


class EntryReader:
    def __init__(self, scan, source, words):
        self.groups = scan.groups
        self.dialect = scan.dialect
        self.family = source.family
        self.standard = source.standard
        self.words = Words(words)

    def read(self):
        """Whether it permits, and its clauses."""
        action = self.words.take()
        if action not in ("permit", "deny"):
            raise Unsupported(action)
        if self.words.peek() in ("response", "vlan"):
            raise Unsupported(self.words.peek())
        if self.standard:
            clauses = [self.clause(src=self.address())]
        else:
            clauses = self.extended()
        for clause in clauses:
            self.words.at = self.options_at = getattr(self, "options_at", self.words.at)
            self.options(clause)
        return action == "permit", clauses

    def clause(self, **what):
        return Clause(families=frozenset((self.family,)), **what)

    def extended(self):
        services = self.protocol()
        src = self.address()
        protos = {s["proto"] for s in services}
        sport = self.port_set(protos)
        dst = self.address()
        dport = self.port_set(protos)
        clauses = []
        for service in services:
            proto = service["proto"]
            clause = self.clause(src=src, dst=dst, proto=None if proto is None else one(proto),
                                 sport=service.get("sport"), dport=service.get("dport"),
                                 icmp=service.get("icmp"))
            if sport is not None:
                clause.sport = sport
            if dport is not None:
                clause.dport = dport
            clauses.append(clause)
        return clauses

    # Protocols and groups of services

    def protocol_number(self, word):
        if word in ("ip", "ipv4", "ipv6"):
            return None
        if word == "icmp" and self.family == 6:
            return ICMP6
        if word in names.PROTOCOLS:
            return names.PROTOCOLS[word]
        return protocol_number(word)

    def protocol(self):
        word = self.words.take()
        if word == "object-group":
            return self.service_members(self.words.take(), ())
        return [{"proto": self.protocol_number(word)}]

    def group(self, kind, name, inside):
        if (kind, name) not in self.groups or name in inside:
            raise Bad(f"no group, or a cycle: {name}")
        members = self.groups[kind, name]
        if not members:
            raise Bad(f"the group {name} is empty")
        return members

    def service_members(self, name, inside):
        found = []
        for _, words in self.group("service", name, inside):
            if words[0] == "group-object":
                found += self.service_members(words[1], inside + (name,))
            else:
                found += self.service_member(Words(words))
        return found

    def service_member(self, words):
        name = words.take()
        protos = [TCP, UDP] if name == "tcp-udp" else [self.protocol_number(name)]
        found = []
        start = words.at
        for proto in protos:
            words.at = start
            member = {"proto": proto}
            if proto in (ICMP4, ICMP6) and words.peek():
                member["icmp"] = self.icmp(words)
            elif proto in (TCP, UDP, SCTP):
                if words.takes("source"):
                    member["sport"] = self.member_ports(words, proto)
                words.takes("destination")
                if words.peek():
                    member["dport"] = self.member_ports(words, proto)
            if words.peek():
                raise Bad(f"what is {words.peek()}?")
            found.append(member)
        return found

    def member_ports(self, words, proto):
        table = self.port_names({proto})
        if words.peek() not in OPERATORS:
            word = words.take()
            value = table[word] if word in table else number(word, 65535)
            return ports((value, value))
        if words.peek() == "eq":  # one port each in groups
            words.take()
            word = words.take()
            value = table[word] if word in table else number(word, 65535)
            return ports((value, value))
        return port_clause(words, table)

    # Addresses

    def address(self):
        word = self.words.take()
        if word == "any":
            return ANY4 if self.family == 4 else ANY6
        if word in ("object-group", "addrgroup", "net-group"):
            return Addresses(self.network_members(self.words.take(), ()))
        if word == "host":
            return Addresses([block(self.words.take(), self.family)])
        if self.family == 6 or "/" in word:
            return Addresses([block(word, self.family)])
        if word.endswith(","):
            if self.words.take() != "wildcard" or self.words.take() != "bits":
                raise Bad("what follows the comma?")
            return Addresses([wildcard(ipv4(word[:-1]), ipv4(self.words.take().rstrip(",")))])
        if is_ipv4(self.words.peek()):
            return Addresses([wildcard(ipv4(word), ipv4(self.words.take()))])
        return Addresses([block(word, 4)])

    def network_members(self, name, inside):
        found = []
        for _, words in self.group("network", name, inside):
            if words[0] in ("group-object", "object-group"):
                found += self.network_members(words[1], inside + (name,))
            else:
                found.append(self.network_member(Words(words)))
        return found

    def network_member(self, words):
        word = words.take()
        if word == "any":
            made = Wild(self.family, 0, (1 << (32 if self.family == 4 else 128)) - 1)
        elif word == "host":
            made = block(words.take(), self.family)
        elif word == "range":
            parse = ipv4 if self.family == 4 else ipv6
            low, high = parse(words.take()), parse(words.take())
            if low > high:
                raise Bad("a range that ends before it begins")
            made = Span(self.family, low, high)
        elif "/" in word or not words.peek():
            made = block(word, self.family)
        elif self.dialect == "nxos":
            made = wildcard(ipv4(word), ipv4(words.take()))
        else:
            made = netmask(ipv4(word), ipv4(words.take()))
        if words.peek():
            raise Bad(f"what is {words.peek()}?")
        return made

    # Ports

    def port_names(self, protos):
        table = {}
        if protos & {TCP, SCTP}:
            table |= names.TCP_PORTS
        if UDP in protos:
            table |= names.UDP_PORTS
        if self.dialect == "eos":
            table |= names.EOS_PORTS
        return table

    def port_set(self, protos):
        word = self.words.peek()
        if word in OPERATORS:
            if not protos <= {TCP, UDP, SCTP}:
                raise Bad("ports of a protocol without ports")
            return port_clause(self.words, self.port_names(protos))
        if word in ("portgroup", "port-group"):
            self.words.take()
            ranges = []
            for _, words in self.group("port", self.words.take(), ()):
                ranges += port_clause(Words(words), names.TCP_PORTS | names.UDP_PORTS).ranges
            return ports(*ranges)
        return None

    def icmp(self, words):
        table, codes = ((names.ICMP4_TYPES, names.ICMP4_CODES) if self.family == 4
                        else (names.ICMP6_TYPES, names.ICMP6_CODES))
        word = words.take()
        if word in codes:
            raise Unsupported(f"the ICMP code of {word}")
        value = table[word] if word in table else number(word, 255)
        if words.peek().isdigit():
            raise Unsupported("an ICMP code")
        return one(value)

    # What stands behind

    def options(self, clause):
        words = self.words
        icmp = clause.proto is not None and clause.proto.ranges == [
            (ICMP4 if self.family == 4 else ICMP6,) * 2]
        while words.peek():
            word = words.take()
            if word in NOT_NARROWING:
                for _ in range(NOT_NARROWING[word]):
                    words.take()
                if word == "reflect" and words.takes("timeout"):
                    words.take()
            elif word == "established":
                clause.established = True
            elif word == "match-all":
                self.match_all(clause)
            elif word == "fragments":
                clause.frag = Ranges([(1, 8191)], 8191)
            elif word == "dscp":
                value = words.take()
                clause.dscp = one(names.DSCP[value] if value in names.DSCP else number(value, 63), 63)
            elif word == "precedence":
                value = words.take()
                level = (names.PRECEDENCE.index(value) if value in names.PRECEDENCE
                         else number(value, 7))
                clause.dscp = Ranges([(8 * level, 8 * level + 7)], 63)
            elif word == "packet-length":
                clause.length = port_clause(words, {})
            elif icmp and (word[0].isdigit() or word in names.ICMP4_TYPES | names.ICMP6_TYPES
                           or word in names.ICMP4_CODES | names.ICMP6_CODES):
                words.at -= 1
                clause.icmp = self.icmp(words)
            else:
                self.refuse(word)
        if clause.established and clause.initial:
            raise Unsupported("flags beside established")

    def match_all(self, clause):
        chosen = []
        while self.words.peek()[:1] in ("+", "-") and self.words.peek():
            chosen.append(self.words.take())
        if sorted(chosen) != ["+syn", "-ack"]:
            raise Unsupported(f"the flags {chosen}")
        clause.initial = True

    @staticmethod
    def refuse(word):
        known = FLAGS + ("match-any", "tos", "ttl", "option", "hop-limit", "flow-label", "time-range",
                         "routing", "auth", "tracked", "vlan", "nexthop-group", "http-method",
                         "tcp-option-length", "tcp-flags-mask", "undetermined-transport", "mobility",
                         "host-query", "host-report", "dvmrp", "pim", "trace", "nve", "dest-option")
        if word in known or word.isdigit():
            raise Unsupported(word)
        raise Bad(f"what is {word}?")
