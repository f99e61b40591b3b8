"""Names that the dialects have for numbers."""

PROTOCOLS = {
    "icmp": 1, "igmp": 2, "ipinip": 4, "tcp": 6, "igrp": 9, "udp": 17, "gre": 47, "esp": 50, "ahp": 51,
    "eigrp": 88, "ospf": 89, "nos": 94, "pim": 103, "pcp": 108, "snp": 109, "vrrp": 112, "rsvp": 46,
    "ah": 51, "ipsec": 50, "sctp": 132, "icmp6": 58, "icmpv6": 58,
}

TCP_PORTS = {
    "bgp": 179, "chargen": 19, "cmd": 514, "daytime": 13, "discard": 9, "domain": 53, "drip": 3949,
    "echo": 7, "exec": 512, "finger": 79, "ftp": 21, "ftp-data": 20, "gopher": 70, "hostname": 101,
    "ident": 113, "irc": 194, "klogin": 543, "kshell": 544, "login": 513, "lpd": 515, "nntp": 119,
    "pim-auto-rp": 496, "pop2": 109, "pop3": 110, "smtp": 25, "sunrpc": 111, "syslog": 514, "tacacs": 49,
    "talk": 517, "telnet": 23, "time": 37, "uucp": 540, "whois": 43, "www": 80, "msrpc": 135,
    "onep-plain": 15001, "onep-tls": 15002,
}

UDP_PORTS = {
    "biff": 512, "bootpc": 68, "bootps": 67, "discard": 9, "dnsix": 195, "domain": 53, "echo": 7,
    "isakmp": 500, "mobile-ip": 434, "nameserver": 42, "netbios-dgm": 138, "netbios-ns": 137,
    "netbios-ss": 139, "non500-isakmp": 4500, "ntp": 123, "pim-auto-rp": 496, "rip": 520, "snmp": 161,
    "snmptrap": 162, "sunrpc": 111, "syslog": 514, "tacacs": 49, "talk": 517, "tftp": 69, "time": 37,
    "who": 513, "xdmcp": 177,
}

EOS_PORTS = {"ssh": 22, "https": 443, "http": 80, "ldap": 389, "ldaps": 636, "snmp": 161}

_ASA_BOTH = {
    "cifs": 3020, "discard": 9, "domain": 53, "echo": 7, "http": 80, "kerberos": 750, "nfs": 2049,
    "pim-auto-rp": 496, "sip": 5060, "sunrpc": 111, "tacacs": 49, "talk": 517, "www": 80,
}
ASA_TCP = dict(_ASA_BOTH) | {
    "aol": 5190, "bgp": 179, "chargen": 19, "citrix-ica": 1494, "cmd": 514, "ctiqbe": 2748, "daytime": 13,
    "exec": 512, "finger": 79, "ftp": 21, "ftp-data": 20, "gopher": 70, "h323": 1720, "hostname": 101,
    "https": 443, "ident": 113, "imap4": 143, "irc": 194, "klogin": 543, "kshell": 544, "ldap": 389,
    "ldaps": 636, "login": 513, "lotusnotes": 1352, "lpd": 515, "netbios-ssn": 139, "nntp": 119,
    "pcanywhere-data": 5631, "pop2": 109, "pop3": 110, "pptp": 1723, "rsh": 514, "rtsp": 554, "smtp": 25,
    "sqlnet": 1521, "ssh": 22, "telnet": 23, "uucp": 540, "whois": 43,
}
ASA_UDP = dict(_ASA_BOTH) | {
    "biff": 512, "bootpc": 68, "bootps": 67, "dnsix": 195, "isakmp": 500, "mobile-ip": 434,
    "nameserver": 42, "netbios-dgm": 138, "netbios-ns": 137, "ntp": 123, "pcanywhere-status": 5632,
    "radius": 1645, "radius-acct": 1646, "rip": 520, "secureid-udp": 5510, "snmp": 161, "snmptrap": 162,
    "syslog": 514, "tftp": 69, "time": 37, "vxlan": 4789, "who": 513, "xdmcp": 177,
}

DSCP = {"default": 0, "ef": 46} | {f"cs{n}": 8 * n for n in range(1, 8)} | {
    f"af{c}{d}": 8 * c + 2 * d for c in range(1, 5) for d in range(1, 4)}
PRECEDENCE = ["routine", "priority", "immediate", "flash", "flash-override", "critical", "internet",
              "network"]

ICMP4_TYPES = {
    "echo-reply": 0, "unreachable": 3, "source-quench": 4, "redirect": 5, "alternate-address": 6, "echo": 8,
    "router-advertisement": 9, "router-solicitation": 10, "time-exceeded": 11, "parameter-problem": 12,
    "timestamp-request": 13, "timestamp-reply": 14, "information-request": 15, "information-reply": 16,
    "mask-request": 17, "mask-reply": 18, "traceroute": 30, "conversion-error": 31, "mobile-redirect": 32,
}
ICMP6_TYPES = {
    "unreachable": 1, "packet-too-big": 2, "time-exceeded": 3, "parameter-problem": 4, "echo-request": 128,
    "echo-reply": 129, "mld-query": 130, "mld-report": 131, "mld-reduction": 132,
    "router-solicitation": 133, "router-advertisement": 134, "nd-ns": 135, "nd-na": 136, "redirect": 137,
    "mldv2": 143,
}
#: Names of a type together with a code, which a rule cannot say.
ICMP4_CODES = {
    "administratively-prohibited", "dod-host-prohibited", "dod-net-prohibited",
    "general-parameter-problem", "host-isolated", "host-precedence-unreachable", "host-redirect",
    "host-tos-redirect", "host-tos-unreachable", "host-unknown", "host-unreachable", "net-redirect",
    "net-tos-redirect", "net-tos-unreachable", "net-unreachable", "network-unknown",
    "no-room-for-option", "option-missing", "packet-too-big", "port-unreachable",
    "precedence-unreachable", "protocol-unreachable", "reassembly-timeout", "source-route-failed",
    "ttl-exceeded",
}
ICMP6_CODES = {
    "no-route", "no-admin", "beyond-scope", "address-unreachable", "port-unreachable", "hop-limit",
    "reassembly-timeout", "header", "next-header", "parameter-option", "destination-unreachable",
}
ASA_ICMP6_TYPES = {
    "unreachable": 1, "packet-too-big": 2, "time-exceeded": 3, "parameter-problem": 4, "echo": 128,
    "echo-reply": 129, "membership-query": 130, "membership-report": 131, "membership-reduction": 132,
    "router-solicitation": 133, "router-advertisement": 134, "neighbor-solicitation": 135,
    "neighbor-advertisement": 136, "neighbor-redirect": 137,
}
