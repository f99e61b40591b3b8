"""A packet, and the line of text by which the tool is asked about it.

A later fragment carries no ports, flags or ICMP type, and neither does a packet of another protocol.
"""

from dataclasses import dataclass
import ipaddress

TCP, UDP, SCTP, ICMP4, ICMP6 = 6, 17, 132, 1, 58
WITH_PORTS = (TCP, UDP, SCTP)
BITS = {4: 32, 6: 128}
NAMES = {TCP: "tcp", UDP: "udp", SCTP: "sctp"}


@dataclass
class Packet:
    family: int
    src: int
    dst: int
    proto: int
    sport: int = 0
    dport: int = 0
    icmp: int = 0
    syn: bool = False
    ack: bool = False
    rst: bool = False
    length: int = 0
    dscp: int = 0
    frag: int = 0

    def settle(self):
        """Takes away what such a packet cannot carry."""
        if self.frag or self.proto not in WITH_PORTS:
            self.sport = self.dport = 0
        if self.frag or self.proto != TCP:
            self.syn = self.ack = self.rst = False
        if self.frag or self.proto != (ICMP4 if self.family == 4 else ICMP6):
            self.icmp = 0
        return self

    def line(self):
        src, dst = address(self.family, self.src), address(self.family, self.dst)
        if self.frag == 0 and self.proto in WITH_PORTS:
            wrap = "{}:{}" if self.family == 4 else "[{}]:{}"
            src, dst = wrap.format(src, self.sport), wrap.format(dst, self.dport)
        icmp = self.proto == (ICMP4 if self.family == 4 else ICMP6)
        words = ["icmp" if icmp else NAMES.get(self.proto, f"proto {self.proto}"), src, ">", dst]
        words += [flag for flag in ("syn", "ack", "rst") if getattr(self, flag)]
        if icmp and not self.frag:
            words.append(f"type {self.icmp}")
        if self.length:
            words.append(f"len {self.length}")
        if self.dscp:
            words.append(f"dscp {self.dscp}")
        if self.frag:
            words.append(f"frag {self.frag}")
        return " ".join(words)


def address(family, value):
    return str(ipaddress.IPv4Address(value) if family == 4 else ipaddress.IPv6Address(value))
