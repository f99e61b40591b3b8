"""Made-up text of the IOS family, as configured and as shown, and of ASA."""

import random

from maker import Maker

PORTS = ("0", "22", "53", "80", "1023", "65535")
TCP_NAMES = ("www", "domain", "telnet", "smtp", "echo")
UDP_NAMES = ("domain", "ntp", "syslog", "tftp", "echo")
ICMP = ("echo", "echo-reply", "unreachable", "redirect", "time-exceeded", "traceroute", "0", "8", "40")
ICMP6 = ("echo-request", "echo-reply", "nd-ns", "nd-na", "packet-too-big", "1", "200")
PROTOCOLS = ("gre", "esp", "ospf", "pim", "47", "200")
WILDCARDS = ("0.0.0.0", "0.0.0.3", "0.0.0.255", "0.0.255.255", "0.0.1.254", "0.0.0.5", "255.0.0.1", "0.1.0.7")


class Ios(Maker):
    """IOS, NX-OS, EOS or XR."""

    HEADS = {"ios": "version 15.2", "nxos": "!Command: show running-config\nfeature lacp",
             "eos": "! device: a (DCS-7050, EOS-4.28.3M)", "xr": "!! IOS XR Configuration 7.3.2"}

    def __init__(self, rng):
        super().__init__(rng)
        self.dialect = self.pick("ios", "ios", "nxos", "eos", "xr")
        self.groups = self.dialect != "eos"

    def text(self):
        self.lines.append(self.HEADS[self.dialect])
        if self.groups:
            self.make_groups()
        for number in range(self.pick(1, 2, 3)):
            self.make_list(f"L{number}", self.pick(4, 4, 6))
        if self.some(.3):
            self.make_list("L0", 4)  # is taken up again
        if self.dialect == "ios":
            for _ in range(self.pick(0, 0, 4)):
                self.lines.append(f"access-list {self.pick(101, 102)} {self.entry(4)}")
            for _ in range(self.pick(0, 0, 4)):
                self.lines.append(f"access-list 7 {self.pick('permit', 'deny')} {self.source()}")
        return "\n".join(self.lines) + "\n"

    def make_groups(self):
        head = {"ios": "object-group network", "nxos": "object-group ip address",
                "xr": "object-group network ipv4"}[self.dialect]
        for name in ("N0", "N1", "N2"):
            self.lines.append(f"{head} {name}")
            for _ in range(self.pick(1, 2, 3)):
                self.lines.append("  " + self.member())
            if name != "N0" and self.dialect != "nxos" and self.some(.5):
                inner = "N0" if name == "N1" else self.pick("N0", "N1")
                self.lines.append(f"  {'object-group' if self.dialect == 'xr' else 'group-object'} {inner}")
        if self.dialect == "ios":
            for name in ("S0", "S1"):
                self.lines.append(f"object-group service {name}")
                for _ in range(self.pick(1, 2, 3)):
                    self.lines.append("  " + self.service())
            if self.some(.5):
                self.lines.append("  group-object S0")
        else:
            self.lines.append("object-group ip port P0" if self.dialect == "nxos" else "object-group port P0")
            for _ in range(self.pick(1, 2)):
                self.lines.append("  " + self.ports("tcp", single=True))

    def member(self):
        kinds = {"ios": ("host", "mask", "range"), "nxos": ("host", "wildcard", "prefix"),
                 "xr": ("host", "prefix", "range")}[self.dialect]
        kind = self.pick(*kinds)
        if kind == "mask":
            return f"{self.ipv4()} {self.pick('255.255.255.252', '255.255.0.0', '255.255.255.255')}"
        if kind == "range":
            low, high = sorted(self.rng.randrange(256) for _ in range(2))
            return f"range 10.0.0.{low} 10.0.1.{high}"
        return {"host": f"host {self.ipv4()}", "prefix": self.prefix(4),
                "wildcard": f"{self.ipv4()} {self.pick(*WILDCARDS)}"}[kind]

    def service(self):
        return self.pick("icmp", "icmp echo", "icmp unreachable", "gre", "udp", "tcp-udp eq 53", "tcp eq www",
                         "tcp range 20 80", "udp gt 1023", "tcp source eq 22", "tcp source gt 1023 eq 80",
                         "udp source lt 9 range 5 7", "udp lt 80")

    def make_list(self, name, family):
        kind = "extended " if self.dialect == "ios" and family == 4 else ""
        word = "ipv6" if family == 6 else "ipv4" if self.dialect == "xr" else "ip"
        self.lines.append(f"{word} access-list {kind}{name}{family}")
        numbers = random.Random(self.rng.random()).sample(range(1, 200), 12)
        used = []
        for _ in range(self.rng.randint(1, 9)):
            if self.some(.1):
                self.lines.append(f" remark {self.entry(family)}")
            elif self.some(.07) and used:
                self.lines.append(f" no {used.pop()}")
            elif self.dialect == "xr" or self.some(.3):
                # beyond what entries without a number get
                number = numbers.pop() * 1000 + len(self.lines)
                used.append(number)
                self.lines.append(f" {number} {self.entry(family)}")
            else:
                self.lines.append(" " + self.entry(family))
        if self.dialect == "nxos" and family == 4 and self.some(.2):
            self.lines.append(f" fragments {self.pick('permit-all', 'deny-all')}")

    def source(self):
        return self.pick("any", f"host {self.ipv4()}", self.ipv4(), f"{self.ipv4()} {self.pick(*WILDCARDS)}")

    def address(self, family):
        if family == 6:
            return self.pick("any", "any", f"host {self.ipv6()}", self.prefix(6))
        choices = ["any", "any", f"host {self.ipv4()}", f"{self.ipv4()} {self.pick(*WILDCARDS)}"]
        if self.dialect != "ios":
            choices.append(self.prefix(4))
        if self.groups:
            word = {"ios": "object-group", "nxos": "addrgroup", "xr": "net-group"}[self.dialect]
            choices.append(f"{word} {self.pick('N0', 'N1', 'N2')}")
        return self.pick(*choices)

    def ports(self, proto, single=False):
        word = self.pick(*PORTS, *(TCP_NAMES if proto == "tcp" else UDP_NAMES))
        kind = self.pick("eq", "neq", "lt", "gt", "range")
        if kind == "range":
            low, high = sorted(self.rng.randrange(100) for _ in range(2))
            return f"range {low} {high}"
        if kind == "lt":
            return f"lt {self.pick(*PORTS[1:])}"
        if kind == "gt":
            return f"gt {self.pick(*PORTS[:-1])}"
        more = kind == "eq" and not single and self.dialect in ("ios", "eos") and self.some(.3)
        return f"{kind} {word}" + (f" {self.pick('443', '7')}" if more else "")

    def entry(self, family):
        proto = self.pick("ip", "ip", "tcp", "tcp", "tcp", "udp", "udp", "icmp", "other", "group")
        options = []
        if proto == "other":
            proto = self.pick(*PROTOCOLS)
        if proto == "group":
            proto = f"object-group {self.pick('S0', 'S1')}" if (
                self.dialect == "ios" and family == 4 and self.groups) else "udp"
        if proto == "ip":
            proto = "ipv6" if family == 6 else "ipv4" if self.dialect == "xr" else "ip"
        src, dst = self.address(family), self.address(family)
        layer4 = False
        if proto in ("tcp", "udp"):
            if self.some(.3):
                src, layer4 = f"{src} {self.ports(proto)}", True
            if self.some(.5):
                dst, layer4 = f"{dst} {self.ports(proto)}", True
            word = {"nxos": "portgroup", "xr": "port-group"}.get(self.dialect)
            if family == 4 and self.groups and word and not layer4 and self.some(.3):
                dst, layer4 = f"{dst} {word} P0", True
        if proto == "icmp" and self.some(.6):
            options.append(self.pick(*(ICMP if family == 4 else ICMP6)))
            layer4 = True
        if proto == "tcp" and self.some(.3):
            options.append(self.pick("established", "match-all +syn -ack" if self.dialect == "ios" else
                                     "established"))
            layer4 = True
        if self.some(.12):
            options.append(self.pick("dscp ef", "dscp 8", "dscp cs1"))
        elif family == 4 and self.dialect != "eos" and self.some(.1):
            options.append(f"precedence {self.pick('1', 'critical', '0')}")
        if self.dialect == "nxos" and family == 4 and self.some(.1):
            options.append(f"packet-length {self.pick('lt 100', 'eq 60', 'gt 1000', 'range 20 60')}")
        if not layer4 and not proto.startswith("object") and self.some(.15):
            options.append("fragments")
        if self.some(.05):
            options.append(self.pick("ttl eq 1" if self.dialect == "xr" else "ttl 1"))
        if self.some(.15):
            options.append("log")
        return " ".join([self.pick("permit", "deny"), proto, src, dst] + options)


class Shown(Ios):
    """What a device shows of its lists, with counters."""

    TITLES = {"ios": ("Extended IP access list", "IPv6 access list"),
              "nxos": ("IP access list", "IPv6 access list"), "eos": ("IP Access List", "IPv6 Access List")}

    def __init__(self, rng):
        super().__init__(rng)
        self.dialect, self.groups = self.pick("ios", "nxos", "eos"), False

    def counter(self):
        matches = {"ios": " (12 matches)", "nxos": " [match=7]", "eos": " [match 3 packets, 0:00:10 ago]"}
        return matches[self.dialect] if self.some(.4) else ""

    def text(self):
        self.lines.append(self.TITLES[self.dialect][0] + " FIRST")  # tells the dialect
        self.lines.append("    10 permit ip any host 10.1.1.1")
        for number in range(self.pick(1, 2, 3)):
            family = self.pick(4, 4, 6)
            self.lines.append(f"{self.TITLES[self.dialect][family == 6]} L{number}")
            for place in sorted(self.rng.sample(range(1, 99), self.rng.randint(1, 8))):
                entry = self.entry(family)
                behind = self.dialect == "ios" and family == 6
                self.lines.append(f"    {entry}{self.counter()} sequence {place}" if behind else
                                  f"    {place} {entry}{self.counter()}")
            if self.some(.2):
                self.lines += ["MAC access list M", "    10 permit any any"]
        if self.dialect == "ios":
            self.lines.append("Standard IP access list 7")
            for place in range(10, 10 * self.rng.randint(2, 6), 10):
                source = self.pick("any", self.ipv4(),
                                   f"{self.ipv4()}, wildcard bits {self.pick(*WILDCARDS)}")
                self.lines.append(f"    {place} {self.pick('permit', 'deny  ')} {source}{self.counter()}")
        return "\n".join(self.lines) + "\n"


class Asa(Maker):
    def text(self):
        version = self.pick("8.4(2)", "9.1(7)", "9.12(3)")
        both = version[0] == "9"
        self.any = ("any", "any4", "any6") if both else ("any",)
        self.lines.append(f"ASA Version {version}")
        self.lines += ["object network O0", f" host {self.ipv4()}", "object network O1",
                       f" subnet {self.ipv4()} 255.255.255.252", "object network O2",
                       " range 10.0.0.3 10.0.1.1"]
        self.lines += ["object service V0", " service tcp source gt 1023 destination eq www"]
        for name in ("N0", "N1"):
            self.lines.append(f"object-group network {name}")
            for _ in range(self.pick(1, 2, 3)):
                self.lines.append(" network-object " + self.pick(
                    f"host {self.ipv4()}", f"{self.ipv4()} 255.255.255.248", "object O1", "object O2",
                    *([f"host {self.ipv6()}", f"{self.prefix(6)}"] if both else [])))
        self.lines.append(" group-object N0")
        self.lines += ["object-group service P0 tcp", " port-object eq www", " port-object range 20 25",
                       "object-group service P1 udp", " port-object eq domain", "object-group service S0"]
        for _ in range(self.pick(1, 2, 3)):
            self.lines.append(" service-object " + self.pick(
                "tcp destination eq 22", "udp source eq 53 destination gt 1023", "icmp echo", "gre", "udp",
                "tcp-udp destination eq 53", "object V0"))
        self.lines += ["object-group protocol T0", " protocol-object tcp", " protocol-object udp",
                       "object-group icmp-type I0", " icmp-object echo", " icmp-object 3"]
        for _ in range(self.rng.randint(3, 15)):
            name = self.pick("A", "B")
            place = f" line {self.pick(1, 2, 3)}" if self.some(.1) else ""
            entry = "remark permit ip any any" if self.some(.1) else f"extended {self.entry()}"
            self.lines.append(f"access-list {name}{place} {entry}")
        if self.some(.3):
            self.lines += [f"access-list S standard {self.pick('permit', 'deny')} {a}"
                           for a in (f"host {self.ipv4()}", f"{self.ipv4()} 255.255.255.0")]
        return "\n".join(self.lines) + "\n"

    def address(self):
        return self.pick(*self.any, f"host {self.ipv4()}", f"{self.ipv4()} 255.255.255.0",
                         f"{self.ipv4()} 255.255.255.254", f"object {self.pick('O0', 'O1', 'O2')}",
                         f"object-group {self.pick('N0', 'N1')}")

    def entry(self):
        proto = self.pick("ip", "tcp", "udp", "icmp", "tcp", "gre", "object-group S0",
                          "object-group T0", "object V0")
        src, dst, behind = self.address(), self.address(), ""
        if "any6" in (src, dst):  # of one family
            src, dst = self.pick("any6", f"{self.prefix(6)}"), self.pick("any6", f"host {self.ipv6()}")
            proto = "ip" if proto == "icmp" else proto
        if proto in ("tcp", "udp"):
            if self.some(.3):
                src += " " + self.pick("eq 22", "gt 1023", "lt 5")
            if self.some(.6):
                group, name = ("P0", "https") if proto == "tcp" else ("P1", "radius")
                dst += " " + self.pick("eq domain", "range 20 80", "neq 22", "lt 1024", f"eq {name}",
                                       f"object-group {group}")
        if proto == "icmp" and self.some(.6):
            behind = " " + self.pick("echo", "echo-reply", "5", "object-group I0")
        behind += " log" if self.some(.1) else ""
        behind += " inactive" if self.some(.05) else ""
        return f"{self.pick('permit', 'deny')} {proto} {src} {dst}{behind}"
