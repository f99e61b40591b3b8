"""OpenConfig ACLs in JSON: the standard's lists, and the older dialect with maps keyed by name."""

import re

import places
from lists import PORTED, AccessList, Bad, Clause, Entry, Reading, Unsupported, implied
from packet import ICMP4, ICMP6
from sets import ANY4, ANY6, Addresses, Ranges, ports
from words import block

PROTOCOLS = {"IP_TCP": 6, "IP_UDP": 17, "IP_ICMP": 1, "IP_IGMP": 2, "IP_IN_IP": 4, "IP_GRE": 47,
             "IP_AUTH": 51, "IP_PIM": 103, "IP_RSVP": 46, "IP_L2TP": 115}
ICMP4_TYPES = {"ECHO_REPLY": 0, "DST_UNREACHABLE": 3, "REDIRECT": 5, "ECHO": 8, "TIME_EXCEEDED": 11,
               "PARAM_PROBLEM": 12, "TIMESTAMP": 13, "TIMESTAMP_REPLY": 14, "PHOTURIS": 40,
               "EXT_ECHO_REQUEST": 42, "EXT_ECHO_REPLY": 43}
ICMP6_TYPES = {"DESTINATION_UNREACHABLE": 1, "PACKET_TOO_BIG": 2, "TIME_EXCEEDED": 3, "PARAM_PROBLEM": 4,
               "ECHO_REQUEST": 128, "ECHO_REPLY": 129, "ROUTER_SOLICITATION": 133,
               "ROUTER_ADVERTISEMENT": 134, "NEIGHBOR_SOLICITATION": 135, "NEIGHBOR_ADVERTISEMENT": 136,
               "REDIRECT": 137}
V6_HEADER = 40  # the format counts the payload there, a packet its whole length


def plain(name):
    """A name or identity without its module."""
    return name.rsplit(":", 1)[-1] if isinstance(name, str) else name


def get(node, *path):
    """What stands at a path of names, with or without modules; None if nothing does."""
    for step in path:
        if not isinstance(node, dict):
            return None
        node = next((v for k, v in node.items() if plain(k) == step), None)
    return node


def whole(value, top):
    if isinstance(value, str) and re.fullmatch(r"\d+", value):
        value = int(value)
    if isinstance(value, bool) or not isinstance(value, int) or not 0 <= value <= top:
        raise Bad(f"no number up to {top}: {value}")
    return value


def one(value, top):
    return Ranges([(value, value)], top)


def port_range(value):
    """Of one value; None where it is any."""
    if value == "ANY" or plain(value) == "ANY":
        return None
    if isinstance(value, str) and ".." in value:
        low, high = (whole(part, 65535) for part in value.split("..", 1))
        if low > high:
            raise Bad(f"{value} ends before it begins")
        return (low, high)
    value = whole(value, 65535)
    return (value, value)


def minus(wanted, unwanted):
    left = sorted(wanted)
    for low, high in unwanted:
        left = [piece for l, h in left
                for piece in ((l, min(h, low - 1)), (max(l, high + 1), h)) if piece[0] <= piece[1]]
    return left


class Sets:
    """The defined sets of a file."""

    def __init__(self, root):
        self.root = get(root, "defined-sets")

    def find(self, kinds, kind, name):
        for made in get(self.root, kinds, kind) or []:
            if get(made, "name") == name or get(made, "config", "name") == name:
                return get(made, "config") or {}
        raise Bad(f"no set {name}")

    def addresses(self, family, name):
        found = self.find(f"ipv{family}-prefix-sets", f"ipv{family}-prefix-set", name)
        return Addresses([block(p, family) for p in get(found, "prefix") or []],
                         [block(p, family) for p in get(found, "exclude-prefix") or []])

    def ports(self, name):
        found = self.find("port-sets", "port-set", name)
        wanted = [port_range(p) or (0, 65535) for p in get(found, "port") or []]
        left = minus(wanted, [port_range(p) or (0, 65535) for p in get(found, "exclude-port") or []])
        return ports(*left)


class EntryReader:
    def __init__(self, entry, sets, families, older):
        self.entry, self.sets, self.families, self.older = entry, sets, families, older

    def read(self):
        action = plain(get(self.entry, "actions", "config", "forwarding-action"))
        if action is None:
            raise Unsupported("no verdict")
        if action not in ("ACCEPT", "DROP", "REJECT"):
            raise Bad(f"what is {action}?")
        made = []
        for family in self.families:
            clause = self.clause(family)
            if clause is not None:
                made.append(clause)
        if not made:
            raise Bad("an entry of another family")
        return action == "ACCEPT", made

    def clause(self, family):
        """None where the entry is of the other family."""
        name, other = (("ipv4", "ipv6") if family == 4 else ("ipv6", "ipv4"))
        if get(self.entry, other) and not get(self.entry, name):
            return None
        clause = Clause(families=frozenset((family,)), src=ANY4 if family == 4 else ANY6,
                        dst=ANY4 if family == 4 else ANY6)
        if self.older and not self.older_l3(clause, family):
            return None
        self.l3(clause, get(self.entry, name, "config") or {}, family)
        self.icmp(clause, family)
        self.transport(clause, get(self.entry, "transport", "config") or {})
        if clause.proto is None and (clause.sport is not None or clause.dport is not None):
            clause.proto = PORTED
        return clause

    def protocol(self, value):
        value = plain(value)
        if value in PROTOCOLS:
            return PROTOCOLS[value]
        return whole(value, 254 if not self.older else 255)

    def l3(self, clause, config, family):
        for key, value in config.items():
            key = plain(key)
            if key in ("source-address", "destination-address"):
                setattr(clause, "src" if key[0] == "s" else "dst", Addresses([block(value, family)]))
            elif key in ("source-address-prefix-set", "destination-address-prefix-set"):
                setattr(clause, "src" if key[0] == "s" else "dst", self.sets.addresses(family, value))
            elif key == "dscp":
                clause.dscp = one(whole(value, 63), 63)
            elif key == "dscp-set":
                clause.dscp = Ranges([(whole(v, 63),) * 2 for v in value], 63)
            elif key == "length":
                clause.length = one(whole(value, 65535) + (V6_HEADER if family == 6 else 0), 65535)
            elif key == "protocol":
                clause.proto = one(self.protocol(value), 255)
            elif key == "fragment-offsets" and family == 4:
                clause.frag = Ranges([(whole(v, 8191),) * 2 for v in value], 8191)
            else:
                raise Unsupported(key)

    def icmp(self, clause, family):
        name, table, proto = (("icmpv4", ICMP4_TYPES, ICMP4) if family == 4
                              else ("icmpv6", ICMP6_TYPES, ICMP6))
        config = (get(self.entry, name, "config") or get(self.entry, f"ipv{family}", name, "config")
                  or (get(self.entry, "icmp", "config") if self.older else None) or {})
        for key, value in config.items():
            if plain(key) != "type":
                raise Unsupported(plain(key))
            value = plain(value)
            if value == "ANY":
                continue
            number = table[value] if value in table else whole(value, 255)
            clause.icmp = one(number, 255)
            if clause.proto is None:
                clause.proto = one(proto, 255)

    def transport(self, clause, config):
        mode = plain(get(config, "detail-mode"))
        for key, value in config.items():
            key = plain(key)
            if key in ("source-port", "destination-port"):
                if self.older and str(value) == "0":
                    continue
                found = port_range(value)
                if found is not None:
                    setattr(clause, "sport" if key[0] == "s" else "dport", ports(found))
            elif key in ("source-port-set", "destination-port-set"):
                setattr(clause, "sport" if key[0] == "s" else "dport", self.sets.ports(value))
            elif key == "builtin-detail":
                if mode == "BUILTIN":
                    self.builtin(clause, plain(value))
            elif key == "explicit-tcp-flags":
                if mode != "BUILTIN":
                    self.explicit(clause, plain(get(config, "explicit-detail-match-mode")),
                                  {plain(v) for v in value})
            elif key == "tcp-flags" and self.older:
                if value and set(value) != {"TCP_SYN", "TCP_NOT_ACK"}:
                    raise Unsupported("flags")
                clause.initial = bool(value)
            elif key not in ("detail-mode", "explicit-detail-match-mode"):
                raise Unsupported(key)

    @staticmethod
    def builtin(clause, value):
        if value == "FRAGMENT":
            clause.frag = Ranges([(1, 8191)], 8191)
        elif value == "TCP_INITIAL":
            clause.initial = True
        elif value == "TCP_ESTABLISHED":
            clause.established = True
        else:
            raise Bad(f"what is {value}?")

    @staticmethod
    def explicit(clause, mode, flags):
        flags = {f.replace("TCP_", "") for f in flags}
        if mode == "ANY" and flags == {"ACK", "RST"}:
            clause.established = True
        elif flags:
            raise Unsupported("flags")

    # The older dialect

    def older_l3(self, clause, family):
        """Whether the entry is of the family."""
        ethernet = plain(get(self.entry, "l2", "config", "ethertype"))
        if get(self.entry, "l2", "config", "vlan-id") is not None:
            raise Unsupported("vlan-id")
        if get(self.entry, "input_interface") is not None:
            raise Unsupported("input_interface")
        wanted = {"ETHERTYPE_IPV4": 4, "ETHERTYPE_IPV6": 6, None: family}
        if ethernet not in wanted:
            clause.proto = Ranges([], 255)  # no IP packet is that
        elif wanted[ethernet] != family:
            return False
        for key, value in (get(self.entry, "ip", "config") or {}).items():
            key = plain(key)
            if key in ("source-ip-address", "destination-ip-address"):
                if (":" in value) != (family == 6):
                    return False
                setattr(clause, "src" if key[0] == "s" else "dst", Addresses([block(value, family)]))
            elif key == "protocol":
                proto = self.protocol(value)
                if plain(value) == "IP_ICMP" and (self.families == (6,) or named(self.entry) == {6}):
                    proto = ICMP6  # the older dialect has one name for both
                if proto:
                    clause.proto = one(proto, 255)
            elif key == "dscp":
                clause.dscp = one(whole(value, 63), 63)
            else:
                raise Unsupported(key)
        return True


def sets_of(root, before):
    """The ACL sets with their names, in the order of the file, and whether they are maps."""
    if isinstance(root, list):
        return [(get(s, "name"), s) for s in root], False
    path = re.search(r"acl-set\[name=([^\]]*)\]", before)
    if path or get(root, "acl-entries") is not None:
        return [(get(root, "name") or path[1], root)], False
    inner = get(root, "acl", "acl-sets", "acl-set")
    if inner is None:
        inner = get(root, "acl-sets", "acl-set")
    if inner is None:
        inner = get(root, "acl-set")
    if isinstance(inner, dict):
        return [(k, v) for k, v in inner.items() if isinstance(v, dict)], True
    return [(get(s, "name"), s) for s in inner or []], False


def named(entry):
    """The families that an entry names."""
    found = {6 if ":" in value else 4 for side in ("source", "destination")
             if (value := get(entry, "ip", "config", f"{side}-ip-address"))}
    ethernet = plain(get(entry, "l2", "config", "ethertype"))
    found |= {"ETHERTYPE_IPV4": {4}, "ETHERTYPE_IPV6": {6}}.get(ethernet, set())
    return found | {f for f in (4, 6) if get(entry, f"ipv{f}") is not None}


def families_of(made, entries):
    kind = plain(get(made, "type") or get(made, "config", "type"))
    known = {"ACL_IPV4": (4,), "ACL_IPV6": (6,), "ACL_MIXED": (4, 6), "ACL_L2": (), "ACL_MPLS": ()}
    if kind in known:
        return known[kind]
    return tuple(sorted(set().union(*map(named, entries)))) or (4,)


def read(text, options):
    reading = Reading()
    root, before = places.parse(text)
    sets = Sets(root)
    made, older_maps = sets_of(root, before)
    for name, source in made:
        found = get(source, "acl-entries", "acl-entry") or []
        entries = list(found.values()) if isinstance(found, dict) else found
        entries.sort(key=lambda e: int(get(e, "sequence-id") or get(e, "config", "sequence-id")))
        families = families_of(source, entries)
        if not families:
            reading.fault(source.first, source.last, Unsupported("a list of another layer"))
            continue
        older = older_maps or any(get(e, "ip") is not None for e in entries)
        of = {f: [] for f in families}
        for entry in entries:
            try:
                permit, clauses = EntryReader(entry, sets, families, older).read()
                for clause in clauses:
                    family, = clause.families
                    of[family].append(Entry(entry.first, entry.last, permit, [clause]))
            except (Unsupported, Bad) as error:
                reading.fault(entry.first, entry.last, error)
        for family in families:
            if older and options.implicit:
                of[family].append(implied(False))
            suffix = "-v6" if family == 6 and len(families) == 2 else ""
            reading.lists.append(AccessList(name + suffix, family, of[family]))
    return reading
