#!/usr/bin/env python3
"""Compares what the tool makes of rule files with what their formats mean.

    compare.py --tool NAXEL [--packets N] [--seed N] [--drop-wrong] FILES...
    compare.py --tool NAXEL [--made-up N] --samples SAMPLES BROKEN

The reader of the formats here shares nothing with the tool but the formats: it decides each packet by the
texts of the entries, one after the other. The tool compiles the file and looks the same packets up. Compared
are the verdict, the line of the entry that decides, which lists there are, and which entries are left out
because a rule cannot say them.

In BROKEN each line that is wrong has "wrong:" in it, or in the comment above it; the tool must report an
error at these lines and at no other.
"""

import argparse
import json
import os
import random
import re
import subprocess
import sys
import tempfile

import draw
import evaluator
import make_up

#: Options of the tool, and what they mean here.
VARIANTS = (
    ((), evaluator.Options()),
    (("--fragments=plain", "--nd-permits=yes"), evaluator.Options(plain=True, nd_permits=True)),
    (("--no-implicit", "--nd-permits=no"), evaluator.Options(implicit=False)),
)
HARMLESS = ("same-priority", "empty-list")  # warnings that are not about an entry that is left out
IMPLIED = ("implicit", "fragments-")  # names of rules that stand for no entry
SKIP = ("--skip-unsupported", "--skip-errors")
SHOWN = 20  # diagnostics of a kind
MISMATCHES_SHOWN = 10


class Tool:
    def __init__(self, path):
        self.path = path

    def run(self, rules, *arguments):
        """Exit code, output, messages as (line, severity, code, text), and what else was said."""
        done = subprocess.run([self.path, "explain", "--json", rules, *arguments],
                              capture_output=True, text=True, errors="replace", check=False)
        said, rest = [], []
        for line in done.stderr.splitlines():
            message = json.loads(line) if line.startswith("{") else {}
            if message.get("file") == rules and "line" in message:
                said.append((message["line"], message["severity"], message["code"], message["text"]))
            else:
                rest.append(line)
        return done.returncode, done.stdout, said, "\n".join(rest)


class Comparison:
    """One rule file."""

    def __init__(self, tool, path, arguments):
        self.tool, self.path, self.arguments = tool, path, arguments
        self.faults = []

    def fault(self, text):
        self.faults.append(f"{self.path}: {text}")

    def run(self):
        """What there was, in words."""
        with open(self.path, encoding="utf-8", errors="replace", newline="") as file:
            text = file.read()
        with tempfile.TemporaryDirectory() as folder:
            rules = os.path.join(folder, os.path.basename(self.path))
            text, dropped = self.accepted(rules, text)
            if text is None:
                return "refused"
            summary = ""
            for options, meaning in VARIANTS:
                reading = evaluator.read(text, meaning)
                self.match_lists(reading)
                packets, reached = draw.packets(reading.lists, self.texts_of(text, reading),
                                                self.arguments.packets, random.Random(self.arguments.seed))
                self.packets(rules, options, reading, packets, folder)
                if options:
                    continue
                self.left_out(reading, dropped)
                entries = sum(len(made.entries) for made in reading.lists)
                summary = (f"{len(reading.lists)} lists, {entries} entries, {len(reached)} reached, "
                           f"{len(packets)} packets, {len(reading.left_out)} entries left out, "
                           f"{len(dropped)} wrong lines dropped")
            return summary

    def accepted(self, rules, text):
        """Writes the text, without the lines that the tool refuses if so wished."""
        nothing = rules + ".none"
        with open(nothing, "w", encoding="utf-8") as file:
            file.write("# none\n")
        dropped = {}
        while True:
            with open(rules, "w", encoding="utf-8", newline="") as file:
                file.write(text)
            code, output, self.said, stderr = self.tool.run(rules, *SKIP, "--packets", nothing)
            if code == 0:
                self.acls = {(acl["name"], acl["af"]) for acl in json.loads(output)["acls"]}
                return text, dropped
            wrong = {line: why for line, severity, _, why in self.said if severity == "error"}
            if not self.arguments.drop_wrong or not wrong or not wrong.keys() - dropped.keys():
                self.fault(f"refused with exit code {code}: {stderr.strip()[:2000]}")
                return None, dropped
            known = evaluator.read(text, evaluator.Options()).wrong
            for line, why in wrong.items():
                if not any(first <= line <= last for first, last in known):
                    self.fault(f"line {line}: the tool refuses what is right: {why}")
            dropped |= wrong
            text = self.without(text, wrong)

    @staticmethod
    def without(text, wrong):
        lines = text.split("\n")
        for line in wrong:
            lines[line - 1] = ""
        return "\n".join(lines)

    def match_lists(self, reading):
        """Takes out lists that the tool does not have, which is a fault unless they decide nothing."""
        kept, theirs = [], set(self.acls)
        for made in reading.lists:
            family = f"ipv{made.family}"
            if (made.name, family) in theirs:
                kept.append(made)
                theirs.remove((made.name, family))
            elif made.entries:
                self.fault(f"the tool has no list {made.name} of {family}")
        for name, family in theirs:
            self.fault(f"the tool has a list {name} of {family}, the file has none")
        reading.lists = kept

    @staticmethod
    def texts_of(text, reading):
        """Of the entries that are left out."""
        lines = text.split("\n")
        return ["\n".join(lines[first - 1:last]) for first, last in [*reading.left_out, *reading.wrong]]

    def left_out(self, reading, dropped):
        told = {line for line, _, _, _ in self.said}
        if len(self.said) < SHOWN:
            for (first, last), why in {**reading.left_out, **reading.wrong}.items():
                if not any(first <= line <= last for line in told):
                    self.fault(f"line {first}: nothing is said of it, but there is this: {why}")
        for line, severity, code, why in self.said:
            if severity == "warning" and code not in HARMLESS and line not in dropped and not any(
                    first <= line <= last for first, last in [*reading.left_out, *reading.wrong]):
                self.fault(f"line {line}: a warning, though a rule can say it: {code}: {why}")

    def packets(self, rules, options, reading, packets, folder):
        path = os.path.join(folder, "packets.txt")
        with open(path, "w", encoding="utf-8") as file:
            for made, packet in packets:
                file.write(f'"{made.name}": {packet.line()}\n')
        code, output, _, stderr = self.tool.run(rules, *SKIP, *options, "--packets", path, "--each")
        if code != 0:
            self.fault(f"exit code {code} with packets: {stderr.strip()[:2000]}")
            return
        report = json.loads(output)
        shown = 0
        if len(report["verdicts"]) != len(packets):
            self.fault(f"{len(report['verdicts'])} verdicts on {len(packets)} packets")
        for (made, packet), found in zip(packets, report["verdicts"]):
            expected = made.verdict(packet)
            if agree(expected, found):
                continue
            shown += 1
            if shown <= MISMATCHES_SHOWN:
                self.fault(f"{' '.join(options + (made.name,))}: {packet.line()}: the format says "
                           f"{words(expected)}, the tool {found_words(found)}")
        if shown > MISMATCHES_SHOWN:
            self.fault(f"{shown} packets differ in all")


def agree(expected, found):
    if found.get("rule") is None or expected is None:
        return found.get("rule") is None and expected is None
    if found["action"].startswith("permit") != expected.permit:
        return False
    if expected.implied:
        return found["name"].startswith(IMPLIED)
    return expected.first <= line_of(found) <= expected.last


def line_of(found):
    place = re.search(r":(\d+)$", found.get("from", ""))
    return int(place[1]) if place else 0


def words(entry):
    if entry is None:
        return "nothing"
    return ("permit" if entry.permit else "deny") + " " + (
        "implied" if entry.implied else f"line {entry.first}")


def found_words(found):
    if found.get("rule") is None:
        return "nothing"
    return f"{found['action']} line {line_of(found)} ({found['name']})"


def check_broken(tool, path):
    """The faults of a file of errors."""
    with open(path, encoding="utf-8") as file:
        lines = file.read().split("\n")
    wanted = set()
    for number, line in enumerate(lines, 1):
        if line.startswith("! wrong:"):
            wanted.add(number + 1)
        elif path.endswith(".json") and "wrong" in line:
            wanted.add(number)
    with tempfile.NamedTemporaryFile("w", suffix=".txt") as nothing:
        nothing.write("# none\n")
        nothing.flush()
        code, _, said, stderr = tool.run(path, "--packets", nothing.name)
    found = {line for line, severity, _, _ in said if severity == "error"}
    faults = [] if code == 2 else [f"{path}: exit code {code}: {stderr[:500]}"]
    faults += [f"{path}:{line}: no error is reported" for line in sorted(wanted - found)]
    faults += [f"{path}:{line}: an error is reported: {why}" for line, severity, _, why in said
               if severity == "error" and line not in wanted]
    reading = evaluator.read("\n".join(lines), evaluator.Options())
    ours = {line for first, last in reading.wrong for line in range(first, last + 1)}
    faults += [f"{path}:{line}: the two readers here disagree" for line in sorted(ours ^ wanted)]
    return faults


def files_in(folder):
    return [os.path.join(folder, name) for name in sorted(os.listdir(folder))]


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--tool", required=True)
    parser.add_argument("--packets", type=int, default=500)
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--made-up", type=int, default=0, metavar="N", help="also N made-up files")
    parser.add_argument("--drop-wrong", action="store_true", help="go on without lines that are refused")
    parser.add_argument("--samples", nargs=2, metavar=("SAMPLES", "BROKEN"))
    parser.add_argument("files", nargs="*")
    arguments = parser.parse_args()
    tool = Tool(arguments.tool)
    files, broken = list(arguments.files), []
    if arguments.samples:
        files += files_in(arguments.samples[0])
        broken = files_in(arguments.samples[1])
    faults = []
    with tempfile.TemporaryDirectory() as folder:
        for seed in range(arguments.seed, arguments.seed + arguments.made_up):
            name, text = make_up.make_up(seed)
            with open(os.path.join(folder, name), "w", encoding="utf-8") as file:
                file.write(text)
            comparison = Comparison(tool, file.name, arguments)
            comparison.run()
            if comparison.faults:
                faults += [fault.replace(folder + "/", "") for fault in comparison.faults]
                print(f"{name}:\n{text}")
    for path in files:
        comparison = Comparison(tool, path, arguments)
        summary = comparison.run()
        faults += comparison.faults
        print(f"{os.path.basename(path)}: {summary}, {len(comparison.faults)} faults", flush=True)
    for path in broken:
        found = check_broken(tool, path)
        faults += found
        print(f"{os.path.basename(path)}: {len(found)} faults", flush=True)
    for fault in faults:
        print(fault)
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
