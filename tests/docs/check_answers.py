#!/usr/bin/env python3
"""check_answers.py <sources> <program>: holds what the answering commands say about the examples against one another:
costs against the tables, the page against both, witnesses against lookups, smaller rule sets against the whole ones."""

import collections
import html.parser
import json
import pathlib
import subprocess
import sys
import tempfile

SOURCES = pathlib.Path(sys.argv[1]).resolve()
PROGRAM = pathlib.Path(sys.argv[2]).resolve()
FOLDER = tempfile.TemporaryDirectory()
FAILURES = []

SETS = [["faulty.json"], ["office.ios"], ["office.openconfig"], ["branch.rules"], ["edge.json", "branch.rules"],
        ["implied.ios"]]
# Two of its rules and two that the format implies could be one.
IMPLIED = """ipv6 access-list implied
 permit icmp any any mld-query
 permit icmp any any mld-report
"""
TABLES = {"v4Source": ("prefix", "ipv4Src"), "v4Destination": ("prefix", "ipv4Dst"),
          "v6Source": ("prefix", "ipv6Src"), "v6Destination": ("prefix", "ipv6Dst"),
          "v4PrefixCombo": ("combo", "ipv4SrcDstPrefix"), "v6PrefixCombo": ("combo", "ipv6SrcDstPrefix"),
          "portCombo": ("combo", "srcDstL4Port")}


def run(*words):
    done = subprocess.run([PROGRAM, *words], cwd=FOLDER.name, capture_output=True, check=False)
    if done.returncode not in (0, 1):
        sys.exit(f"{words}: {done.stderr.decode()}")
    return done.stdout.decode()


def answer(*words):
    return json.loads(run(words[0], "--json", *words[1:]))


class Page(html.parser.HTMLParser):
    """The rows of the tables of a page, by heading; a row is a list of the lines of its cells."""

    def __init__(self, text):
        super().__init__()
        self.rows = collections.defaultdict(list)
        self.heading, self.open, self.text = "", [], ""
        self.feed(text)

    def handle_starttag(self, tag, attrs):
        if tag == "tr":
            self.open = []
        self.text = self.text + "\n" if tag == "small" else "" if tag in ("td", "h2", "h3") else self.text

    def handle_endtag(self, tag):
        if tag in ("h2", "h3"):
            self.heading = self.text
        elif tag == "td":
            self.open.append(self.text.split("\n"))
        elif tag == "tr" and self.open:
            self.rows[self.heading].append(self.open)

    def handle_data(self, data):
        self.text += data


def rows_of(tables):
    """Each table as a map from what a row matches to what it yields."""
    out = collections.defaultdict(dict)
    for kind in ("prefix", "range", "combo"):
        for name, rows in tables[kind].items():
            for row in rows:
                out[kind, name][tuple(v for k, v in row.items() if k != "label")] = row["label"]
    for acl in tables["acl"]:
        for rule in acl["rules"]:
            for entry in rule["entries"]:
                key = (acl["name"], rule["index"], json.dumps(entry, sort_keys=True))
                out["aclEntries"][key] = json.dumps(rule["action"], sort_keys=True)
    return {name: out["aclEntries"] if name == "aclEntries" else out[TABLES.get(name, ("range", name))]
            for name in [*TABLES, *tables["range"], "aclEntries"]}


def hold(name, options, files):
    def same(what, a, b):
        if a != b:
            FAILURES.append(f"{name} {' '.join(options)}: {what}:\n  {a}\n  {b}")

    tables = rows_of(answer("compile", *options, *files)["tables"])
    cost = answer("cost", *options, *files)
    check = answer("check", *files)
    entries = collections.Counter((acl, rule) for acl, rule, _ in tables["aclEntries"])

    # What they cost, told four times.
    same("entries", cost["entries"], sum(entries.values()))
    for acl in cost["acls"]:
        same("ACL", acl["entries"], sum(n for (of, _), n in entries.items() if of == acl["name"]))
    for rule in cost["costs"]:
        same("rule", rule["entries"], sum(entries[rule["acl"], i] for i in rule["rules"]))
    sizes = {table["table"]: table["rows"] for table in cost["tables"] if table["rows"]}
    same("rows", sizes, {table: len(rows) for table, rows in tables.items() if rows})
    same("bits", cost["bits"], sum(table["bits"] for table in cost["tables"]))
    point = answer("whatif", "--vary", "labelCode=compact", *options, *files)["points"][0]
    same("whatif", [point[m] for m in ("entries", "bits", "rows")],
         [cost["entries"], cost["bits"], sum(sizes.values())])

    page = Page(run("report", "-o", "-", *options, *files)).rows
    same("page: tables", [(r[0][0], int(r[1][0])) for r in page["Tables"]],
         [(t["table"], t["rows"]) for t in cost["tables"]])
    same("page: ACLs", sorted((r[0][0], int(r[3][0])) for r in page["ACLs"]),
         sorted((a["name"], a["entries"]) for a in cost["acls"]))
    same("page: rules", [int(r[2][0]) for r in page["Rules"]], [r["entries"] for r in cost["costs"]])
    same("page: findings", [(*r[0], len(r[2]) - 1) for r in page["Findings"]],
         [(f["code"], f["severity"], min(len(f.get("others", [])), 5)) for f in check["findings"]])

    def decide(what, wanted, by=files):
        """Packets of (ACL, rule, packet) are decided by these rules, and counted there."""
        path = pathlib.Path(FOLDER.name, "packets")
        path.write_text("".join(f"{acl}: {packet}\n" for acl, _, packet in wanted))
        told = answer("explain", "--each", "--packets", "packets", *options, *by) if wanted else {"verdicts": []}
        same(what, [(v["acl"], v.get("rule")) for v in told["verdicts"]], [(acl, rule) for acl, rule, _ in wanted])
        hits = {(a["name"], r["rule"]): r["hits"] for a in told.get("acls", []) for r in a["rules"] if r["hits"]}
        same(what + ": hits", hits, dict(collections.Counter((a, r) for a, r, _ in wanted if r is not None)))

    reached = [(a["name"], r["rule"], r["packet"]) for a in check["acls"] for r in a["rules"] if r["reached"] == "yes"]
    decide("check", reached)
    found = []
    for verdict in ("permit", "drop"):
        acls = answer("search", "--count", "1000", "--want", verdict, *files)["acls"]
        some = [(a["name"], p["rule"], p["packet"]) for a in acls for p in a["packets"]]
        same(verdict, {p["action"].split(",")[0] for a in acls for p in a["packets"]} - {verdict}, set())
        decide(verdict, some)
        found += some
    same("search finds what check reaches", sorted(f[:2] for f in found), sorted(r[:2] for r in reached))

    pruned = answer("prune", "--merge", "--cost", "--to", "json", "-o", "smaller.json", *options, *files)
    same("pruned", pruned["before"] - pruned["after"], len(pruned["rules"]))
    small = answer("cost", "--trials", "0", *options, "smaller.json")
    same("cost of pruned", pruned["entries"], {"before": cost["entries"], "after": small["entries"]})
    for old, new in ((files, files), (files, ["smaller.json"])):
        more = [f"--more-old={f}" for f in old[1:]] + [f"--more-new={f}" for f in new[1:]]
        diff = answer("diff", *options, *more, old[0], new[0])
        same("diff of the same", (diff["same"], diff["changes"]), (True, []))
        if old == new:
            same("kept", {t["table"]: t["kept"] for t in diff["rows"]["tables"] if t != {**t, "kept": 0}}, sizes)
    return tables, decide


def hold_change(options):
    """Rows that a change writes are those in which the tables of both sides differ."""
    old, decide_old = hold("old", options, ["edge.json"])
    new, decide_new = hold("new", options, ["edge-new.json"])
    diff = answer("diff", "--labels", "anew", *options, "edge.json", "edge-new.json")
    told = {t["table"]: [t[m] for m in ("added", "deleted", "changed", "kept")] for t in diff["rows"]["tables"]}
    for name, a in old.items():
        b = new[name]
        both = a.keys() & b.keys()
        kept = sum(a[k] == b[k] for k in both)
        if told.get(name, [0] * 4) != [len(b.keys() - a.keys()), len(a.keys() - b.keys()), len(both) - kept, kept]:
            FAILURES.append(f"{options}: rows of {name}: {told.get(name)}")
    for side, decide in (("old", decide_old), ("new", decide_new)):
        decide("change", [(c["acl"], (c[side] or {}).get("rule"), c["packet"]) for c in diff["changes"]])


def main():
    for path in (SOURCES / "examples").iterdir():
        pathlib.Path(FOLDER.name, path.name).symlink_to(path)
    pathlib.Path(FOLDER.name, "implied.ios").write_text(IMPLIED)
    for options in ([], ["--chip", "combo-chip.json"]):
        for files in SETS:
            hold("+".join(files), options, files)
        hold_change(options)
    print("\n".join(FAILURES) or f"{len(SETS) + 2} sets")
    return bool(FAILURES)


sys.exit(main())
