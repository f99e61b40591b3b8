#!/usr/bin/env python3
"""check_json.py <sources> <program>: holds every JSON output of the program, and every JSON file that it reads
in the examples, against the schemas that are installed with it."""

import json
import os
import pathlib
import subprocess
import sys
import tempfile

import jsonschema

SOURCES = pathlib.Path(sys.argv[1]).resolve()
PROGRAM = pathlib.Path(sys.argv[2]).resolve()

# Each call, the schema of what it prints (none for no output), and whether it says anything on standard error.
CALLS = [
    ("compile --json examples/edge.json", "naxel-tables", False),
    ("compile --json --chip examples/combo-chip.json examples/edge.json examples/branch.rules",
     "naxel-tables", True),
    ("compile --json strange.json", "naxel-tables", False),
    ("compile --json -o tables.json examples/edge.json", None, False),
    ("gen --json -o made.rules --style fw --rules 10", "naxel-generation", True),
    ("gen --json -o made.json --style attributes --rules 10 --hand-made 2", "naxel-generation", True),
    ("convert --json --to json examples/edge.json examples/branch.rules", "naxel-rules", True),
    ("verify --json --packets 100 examples/edge.json", "naxel-verify", False),
    ("load --json --dry-run --ovs br0 examples/branch.rules", "naxel-load", True),
    ("explain --json --src 198.51.100.7 --dst 203.0.113.17 --proto 6 --chip examples/combo-chip.json "
     "--why-not 30 examples/edge.json", "naxel-explain", False),
    ("classify --json --why-not edge-in:20 --src 198.51.100.7 --dst 203.0.113.17 examples/edge.json",
     "naxel-explain", False),
    ("explain --json --each --why-not rest --packets examples/edge.pcap examples/edge.json",
     "naxel-explain", False),
    # Folders: one line for each of their files.
    ("explain --src 198.51.100.7 --dst 203.0.113.17 one", "naxel-device", True),
    ("compile --timeout 100 --resume log bad", "naxel-device", True),
    ("convert --to ios one", "naxel-device", True),
    ("check --json examples/faulty.json examples/branch.rules", "naxel-check", True),
    ("check --json --effort 0 examples/edge.json", "naxel-check", False),
    ("search --json --count 9 examples/edge.json", "naxel-search", False),
    ("search --json --want none examples/edge.json strange.json", "naxel-search", False),
    ("search --json --in ip\tany\t>\t10.0.0.0/8 --not-in ip\tany\t>\tany examples/edge.json",
     "naxel-search", False),
    ("search --json --in ip\tany\t>\t10.0.0.0/99 examples/edge.json", None, True),
    ("diff --json examples/edge.json examples/edge-new.json", "naxel-diff", False),
    ("diff --json --chip refuses.json examples/edge.json examples/edge-new.json", "naxel-diff", False),
    ("diff --json --no-rows examples/edge.json strange.json", "naxel-diff", False),
    ("prune --json --cost --merge examples/office.ios", "naxel-prune", False),
    ("cost --json examples/edge.json", "naxel-cost", False),
    ("cost --json --chip examples/combo-chip.json examples/edge.json examples/branch.rules", "naxel-cost", True),
    ("cost --json --chip narrow.json examples/edge.json", "naxel-cost", False),
    ("whatif --json --grid grid.json examples/edge.json", "naxel-whatif", False),
    # Messages of every kind.
    ("compile --json", None, True),
    ("complie --json", None, True),
    ("compile --json --format jsn a", None, True),
    ("compile --json missing\x1b[31m\xff", None, True),
    ("compile --json broken.json", None, True),
    ("compile --json --max-entries 1 examples/edge.json", None, True),
    ("compile --json --chip refuses.json examples/edge.json", None, True),
    ("compile --json -o examples/edge.json examples/edge.json", None, True),
]


def files(folder):
    """What the calls read besides the examples."""
    rule = {"index": 4294967294, "name": "tab\t\x1b[31m\u202e\u00e4", "sport": "1-7", "proto": [6, 17],
            "action": {"dropEnabled": True, "tc": 7, "setTcEnabled": True}}
    acl = {"name": "\u2028", "af": "ipv6", "rules": [rule]}
    head = {"schema": "naxel-rules", "version": 1}
    chip = {"schema": "naxel-chip", "version": 1,
            "softChip": {"refuseTable": "v4Source", "refuseAcquires": 1}}
    (folder / "strange.json").write_text(json.dumps({**head, "acls": [acl]}))
    (folder / "refuses.json").write_text(json.dumps(chip))
    for name, text in (("one", (SOURCES / "examples/branch.rules").read_bytes()), ("bad", b"{")):
        (folder / name).mkdir()
        (folder / name / "device").write_bytes(text)
    narrow = {"schema": "naxel-chip", "version": 1, "prefixXformWidth": {"ipv4Src": 2},
              "softChip": {"capacity": {"aclEntries": 9}}}
    (folder / "narrow.json").write_text(json.dumps(narrow))
    grid = {"schema": "naxel-grid", "version": 1,
            "vary": {"labelCode": ["aligned", "compact"], "prefixXformWidth": [2, 16]}}
    (folder / "grid.json").write_text(json.dumps(grid))
    (folder / "broken.json").write_bytes(b'{"schema":"naxel-rules",\n "version":1, "acls":[\xff\x1b[2J]}')


def main():
    schemas = {}
    for path in sorted((SOURCES / "schema").glob("*.schema.json")):
        schema = json.loads(path.read_text())
        jsonschema.Draft202012Validator.check_schema(schema)
        schemas[path.name.removesuffix(".schema.json")] = jsonschema.Draft202012Validator(schema)
    failures = []
    seen = set()

    def check(what, text, wanted=None):
        try:
            value = json.loads(text)
            name = value["schema"]
            seen.add(name)
            schemas[name].validate(value)
            for part in value.get("messages", []) + [value[m] for m in ["result"] if m in value]:
                check(what, json.dumps(part))
            if wanted and name != wanted:
                failures.append(f"{what}: {name} instead of {wanted}")
        except (ValueError, KeyError, jsonschema.ValidationError) as e:
            failures.append(f"{what}: {str(e)[:500]}\n  {text[:300]}")

    for path in sorted((SOURCES / "examples").glob("*.json")):
        check(path.name, path.read_text())
    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name)
        (folder / "examples").symlink_to(SOURCES / "examples")
        files(folder)
        for call, schema, talks in CALLS:
            arguments = [os.fsencode(a) if "\xff" not in a else a.encode("latin-1")
                         for a in call.split(" ")]
            done = subprocess.run([PROGRAM, *arguments], cwd=folder, capture_output=True, check=False)
            out = done.stdout.decode("ascii" if schema == "naxel-message" else "utf-8")
            if schema:
                check(call, out, schema)
            elif out:
                failures.append(f"{call}: prints {out[:200]}")
            lines = done.stderr.decode("ascii").splitlines()
            for line in lines:
                if "--json" in call:
                    check(call, line, "naxel-message")
            if bool(lines) != talks:
                failures.append(f"{call}: says {lines}")
        for path in ("tables.json", "made.json", "narrow.json", "grid.json"):
            check(path, (folder / path).read_text())
    failures += [f"nothing is held against {name}" for name in sorted(schemas.keys() - seen)]
    print("\n".join(failures) or f"{len(CALLS)} calls")
    return bool(failures)


sys.exit(main())
