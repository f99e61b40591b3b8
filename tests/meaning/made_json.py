"""Made-up OpenConfig and CONFIG_DB."""

import json

from maker import Maker


class OpenConfig(Maker):
    def text(self):
        sets = [self.acl(f"s{n}", self.pick(4, 4, 6, 0)) for n in range(self.pick(1, 2))]
        prefix_sets = [self.named(f"p{family}", prefix=[self.prefix(family) for _ in range(3)],
                                  **{"exclude-prefix": [self.prefix(family)]}) for family in (4, 6)]
        port_set = self.named("q", port=[22, "10..90", 53],
                              **{"exclude-port": [self.pick(22, 53, "20..30")]})
        return json.dumps({
            "openconfig-acl:acl": {"acl-sets": {"acl-set": sets}},
            "openconfig-defined-sets:defined-sets": {
                "ipv4-prefix-sets": {"ipv4-prefix-set": [prefix_sets[0]]},
                "ipv6-prefix-sets": {"ipv6-prefix-set": [prefix_sets[1]]},
                "port-sets": {"port-set": [port_set]}}}, indent=1)

    @staticmethod
    def named(name, **config):
        return {"name": name, "config": {"name": name, **config}}

    def acl(self, name, family):
        kind = {4: "ACL_IPV4", 6: "ACL_IPV6", 0: "ACL_MIXED"}[family]
        numbers = self.rng.sample(range(1, 99), self.rng.randint(1, 8))
        return {"name": name, "type": kind, "acl-entries": {"acl-entry": [
            self.entry(n, family or self.pick(4, 6)) for n in numbers]}}

    def entry(self, number, family):
        ip, transport, made = {}, {}, {"sequence-id": number}
        for side in ("source", "destination"):
            if self.some(.4):
                if self.some(.2):
                    ip[f"{side}-address-prefix-set"] = f"p{family}"
                else:
                    ip[f"{side}-address"] = self.prefix(family)
            if self.some(.3):
                if self.some(.2):
                    transport[f"{side}-port-set"] = "q"
                else:
                    transport[f"{side}-port"] = self.pick(22, 0, "80", "0..80", "53..53", "1024..65535",
                                                             "ANY")
        if self.some(.5):
            ip["protocol"] = self.pick(*(("IP_TCP", "IP_UDP", 6, 17, 132) if transport else
                                         ("IP_GRE", 50, 0)))
        if self.some(.15):
            ip["dscp"] = self.pick(0, 46)
        elif self.some(.1):
            ip["dscp-set"] = [8, 46, 10]
        if self.some(.1):
            ip["length"] = self.pick(20, 60)
        if not transport and "protocol" not in ip and self.some(.3):
            icmp = self.pick("ECHO_REPLY", "TIME_EXCEEDED", "ECHO" if family == 4 else "ECHO_REQUEST")
            made[f"ipv{family}"] = {f"icmpv{family}": {"config": {"type": icmp}}}
        elif self.some(.2) and ip.get("protocol") in (None, 6, "IP_TCP"):
            transport |= {"detail-mode": "BUILTIN",
                          "builtin-detail": self.pick("TCP_INITIAL", "TCP_ESTABLISHED")}
        elif not transport and family == 4 and self.some(.2):
            transport = {"detail-mode": "BUILTIN", "builtin-detail": "FRAGMENT"}
        if ip or f"ipv{family}" not in made:
            made.setdefault(f"ipv{family}", {})["config"] = ip or {"source-address": self.prefix(family)}
        if transport:
            made["transport"] = {"config": transport}
        made["actions"] = {"config": {"forwarding-action": self.pick("ACCEPT", "DROP", "REJECT")}}
        return made


class OlderOpenConfig(Maker):
    """Maps keyed by name, of one family each."""

    def text(self):
        made = {}
        for name in ("a", "b")[:self.pick(1, 2)]:
            family = self.pick(4, 6)
            numbers = self.rng.sample(range(1, 99), self.rng.randint(1, 8))
            made[name] = {"acl-entries": {"acl-entry": {str(n): self.entry(n, family) for n in numbers}}}
        return json.dumps({"acl": {"acl-sets": {"acl-set": made}}}, indent=1)

    def entry(self, number, family):
        ip = {f"{self.pick('source', 'destination')}-ip-address": self.prefix(family)}
        made = {"config": {"sequence-id": number}, "ip": {"config": ip},
                "actions": {"config": {"forwarding-action": self.pick("ACCEPT", "DROP")}}}
        if self.some(.6):
            ip["protocol"] = self.pick("IP_TCP", "17", 6, "0")
            transport = {f"{side}-port": self.pick("0", "22", "80..1023", "0..80")
                         for side in ("source", "destination") if self.some(.5)}
            if transport:
                made["transport"] = {"config": transport}
        elif self.some(.4):
            ip["protocol"] = "1" if family == 4 else "58"
            made["icmp"] = {"config": {"type": self.pick("8", "129", "3")}}
        return made


class ConfigDb(Maker):
    def text(self):
        kind = self.pick("L3", "L3V6", "L3V4V6")
        rules = {}
        for number, priority in enumerate(self.rng.sample(range(1, 99), self.rng.randint(1, 9))):
            rules[f"T|R{number}"] = {"PRIORITY": str(priority), "PACKET_ACTION": self.pick("FORWARD", "DROP"),
                                     **self.match(kind)}
        if self.some(.7):
            return json.dumps({"ACL_TABLE": {"T": {"type": kind}}, "ACL_RULE": rules}, indent=1)
        # The order in which they are set does not matter, but what is taken away must have been there.
        made = [{"ACL_TABLE_TABLE:T": {"type": kind}, "OP": "SET"}]
        for name, fields in rules.items():
            key = "ACL_RULE_TABLE:" + name.replace("|", ":")
            fields["priority"] = fields.pop("PRIORITY")
            made.append({key: fields, "OP": "SET"})
            if self.some(.15):
                made.append({key: {}, "OP": "DEL"})
        return json.dumps(made, indent=1)

    def match(self, kind):
        made = {}
        family = {"L3": 4, "L3V6": 6}.get(kind) or self.pick(4, 6)
        six = "V6" if family == 6 else ""
        for side in ("SRC", "DST"):
            if self.some(.5):
                made[f"{side}_IP{six}"] = self.prefix(family) if self.some(.7) else (
                    self.ipv6() if six else self.ipv4())
        if self.some(.15):
            made[f"ICMP{six}_TYPE"] = self.pick("0", "8", "129")
            return made
        if self.some(.5):
            made["NEXT_HEADER" if six else "IP_PROTOCOL"] = self.pick("6", "17", "132")
        for side in ("SRC", "DST"):
            if self.some(.3):
                made[f"L4_{side}_PORT"] = self.pick("0", "22", "80")
            elif self.some(.2):
                made[f"L4_{side}_PORT_RANGE"] = self.pick("0-80", "22-22", "1024-65535")
        if self.some(.15) and made.get("IP_PROTOCOL", "6") == "6" and made.get("NEXT_HEADER", "6") == "6":
            made["TCP_FLAGS"] = self.pick("0x02/0x12", "0x10/0x10")
        if self.some(.2):
            made["DSCP"] = self.pick("46", "0x2e", "8/56", "0/1")
        if not made or (kind == "L3V4V6" and not any(k.endswith(("_IP", "V6")) for k in made)):
            made["ETHER_TYPE"] = "34525" if six else "0x0800"
        return made
