"""CONFIG_DB: tables of ACLs and rules of priorities in JSON."""

import re

import places
from lists import PORTED, AccessList, Bad, Clause, Entry, Reading, Unsupported
from packet import ICMP4, ICMP6, TCP
from sets import ANY4, ANY6, Addresses, Ranges, ports
from words import block

TABLE_FAMILIES = {"L3": (4,), "L3V6": (6,), "L3V4V6": (4, 6)}
NO_TABLES = ("MIRROR", "MIRRORV6", "MIRROR_DSCP", "CTRLPLANE")
NOTHING = Ranges([], 255)
IP_TYPES = {"ANY": {4, 6}, "IP": {4, 6}, "IPV4": {4}, "IPV4ANY": {4}, "IPV6": {6}, "IPV6ANY": {6},
            "NON_IPV4": {6}, "NON_IPV6": {4}, "NON_IP": set(), "ARP": set(), "ARP_REQUEST": set(),
            "ARP_REPLY": set()}
ONLY_4 = {"SRC_IP", "DST_IP", "ICMP_TYPE", "ICMP_CODE"}
ONLY_6 = {"SRC_IPV6", "DST_IPV6", "ICMPV6_TYPE", "ICMPV6_CODE", "NEXT_HEADER"}


def whole(value, top):
    text = str(value).strip()
    if re.fullmatch(r"0[xX][0-9a-fA-F]+", text):
        number = int(text, 16)
    elif re.fullmatch(r"\d+", text):
        number = int(text)
    else:
        raise Bad(f"no number: {value}")
    if number > top:
        raise Bad(f"{value} is beyond {top}")
    return number


def one(value, top=255):
    return Ranges([(value, value)], top)


class Rule:
    def __init__(self, table, name, fields):
        self.table, self.name = table, name
        self.first, self.last = fields.first, fields.last
        self.fields = {k.upper(): v for k, v in fields.items()}

    def families(self):
        """Those that its fields leave."""
        left = {4, 6}
        for key, value in self.fields.items():
            narrow = None
            if key in ONLY_4:
                narrow = {4}
            elif key in ONLY_6:
                narrow = {6}
            elif key == "IP_TYPE":
                narrow = IP_TYPES.get(str(value).upper())
                if narrow is None:
                    raise Bad(f"what is {value}?")
            elif key == "ETHER_TYPE":
                narrow = {2048: {4}, 34525: {6}}.get(whole(value, 65535), set())
            if narrow is not None:
                left = left & narrow
        return left

    def read(self, family):
        """Whether it permits, and the clause for a family."""
        clause = Clause(families=frozenset((family,)), src=ANY4 if family == 4 else ANY6,
                        dst=ANY4 if family == 4 else ANY6)
        for key, value in self.fields.items():
            self.field(clause, family, key, value)
        if clause.initial and clause.proto is None:
            clause.proto = one(TCP)
        if clause.icmp is not None and clause.proto is None:
            clause.proto = one(ICMP4 if family == 4 else ICMP6)
        if (clause.sport is not None or clause.dport is not None) and clause.proto is None:
            clause.proto = PORTED
        if family not in self.families():
            clause.proto = NOTHING
        return clause

    def permits(self):
        action = str(self.fields.get("PACKET_ACTION", "")).upper()
        if action in ("FORWARD", "ACCEPT"):
            return True
        if action == "DROP":
            return False
        if action and not action.startswith("REDIRECT:"):
            raise Bad(f"what is {action}?")
        raise Unsupported("no verdict")

    def field(self, clause, family, key, value):
        if key in ("PRIORITY", "PACKET_ACTION", "IP_TYPE", "ETHER_TYPE"):
            return
        if key in ("SRC_IP", "DST_IP", "SRC_IPV6", "DST_IPV6"):
            of = 6 if key.endswith("V6") else 4
            found = Addresses([block(value, of)])
            setattr(clause, "src" if key[0] == "S" else "dst", found)
        elif key in ("IP_PROTOCOL", "NEXT_HEADER"):
            clause.proto = one(whole(value, 255))
        elif key in ("L4_SRC_PORT", "L4_DST_PORT"):
            port = whole(value, 65535)
            setattr(clause, "sport" if key[3] == "S" else "dport", ports((port, port)))
        elif key in ("L4_SRC_PORT_RANGE", "L4_DST_PORT_RANGE"):
            low, dash, high = str(value).partition("-")
            if not dash:
                raise Bad(f"no range: {value}")
            low, high = whole(low, 65535), whole(high, 65535)
            if low > high:
                raise Bad(f"{value} ends before it begins")
            setattr(clause, "sport" if key[3] == "S" else "dport", ports((low, high)))
        elif key in ("ICMP_TYPE", "ICMPV6_TYPE"):
            clause.icmp = one(whole(value, 255))
        elif key == "DSCP":
            number, _, mask = str(value).partition("/")
            number, mask = whole(number, 63), whole(mask, 63) if mask else 63
            clause.dscp = Ranges([(d, d) for d in range(64) if d & mask == number & mask], 63)
        elif key == "TCP_FLAGS":
            flags, _, mask = str(value).partition("/")
            if (whole(flags, 255), whole(mask, 255)) != (0x02, 0x12):
                raise Unsupported("flags")
            clause.initial = True
        else:
            raise Unsupported(key)


def collect(root, reading):
    """All rules by table and name, and the types of the tables."""
    rules, types = {}, {}

    def rule_key(key):
        found = re.match(r"(?:ACL_RULE(?:_TABLE)?[|:])?([^|:]+)[|:](.+)$", key)
        return (found[1], found[2]) if found else None

    def walk(node):
        if isinstance(node, list):
            for item in node:
                operation = item.get("OP", "SET")
                for key, value in item.items():
                    if key == "OP" or not isinstance(value, dict):
                        continue
                    if re.match(r"ACL_RULE(_TABLE)?[|:]", key):
                        rules.pop(rule_key(key), None)
                        if operation == "SET":
                            rules[rule_key(key)] = value
                    elif re.match(r"ACL_TABLE(_TABLE)?[|:]", key):
                        table = re.split(r"[|:]", key, maxsplit=1)[1]
                        types[table] = {k.lower(): v for k, v in value.items()}.get("type")
            return
        for key, value in node.items():
            if key == "ACL_RULE":
                for name, fields in value.items():
                    rules[rule_key(name)] = fields
                for fields in value.repeated:
                    reading.fault(fields.first, fields.last, Unsupported("a rule that stands again"))
            elif key == "ACL_TABLE":
                for name, fields in value.items():
                    types[name] = {k.lower(): v for k, v in fields.items()}.get("type")
            elif re.match(r"ACL_RULE\|", key):
                rules[rule_key(key)] = value
            elif re.match(r"ACL_TABLE\|", key):
                types[key.split("|", 1)[1]] = {k.lower(): v for k, v in value.items()}.get("type")
            elif isinstance(value, dict):
                walk(value)

    walk(root)
    return rules, types


def read(text, options):
    reading = Reading()
    root, _ = places.parse(text)
    rules, types = collect(root, reading)
    tables = {}
    for (table, name), fields in rules.items():
        tables.setdefault(table, []).append(Rule(table, name, fields))
    for table, members in tables.items():
        if str(types.get(table)).upper() in NO_TABLES:
            continue
        reading.lists += table_lists(reading, table, members, str(types.get(table)).upper())
    return reading


def told_families(members, typed):
    """By all rules of a table whose type does not say; those of unknown types may hold both."""
    told = set()
    for rule in members:
        try:
            left = rule.families()
        except Bad:
            continue
        if len(left) == 1 or typed:
            told |= left
    return tuple(sorted(told)) or (4,)


def table_lists(reading, table, members, kind):
    usable = []
    for rule in members:
        try:
            permit = rule.permits()
            priority = whole(rule.fields.get("PRIORITY", ""), 0xFFFFFFFF)
            for family in rule.families() or (4,):
                rule.read(family)
            usable.append((-priority, rule.name, rule, permit))
        except (Unsupported, Bad) as error:
            reading.fault(rule.first, rule.last, error)
    usable.sort(key=lambda u: u[:2])
    families = TABLE_FAMILIES.get(kind)
    if families is None:
        families = told_families(members, kind != "NONE")
    made = []
    for family in families:
        entries = [Entry(rule.first, rule.last, permit, [rule.read(family)])
                   for _, _, rule, permit in usable if family in rule.families()]
        suffix = "-v6" if family == 6 and len(families) == 2 else ""
        made.append(AccessList(table + suffix, family, entries))
    return made
