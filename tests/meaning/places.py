"""A JSON text as a tree whose objects know the lines that they stand on."""

import json
import re

from lists import Bad

SPACE = re.compile(r"[ \t\r\n]*")
STRING = re.compile(r'"(?:[^"\\]|\\.)*"', re.DOTALL)
SCALAR = re.compile(r"-?\d+(?:\.\d+)?(?:[eE][+-]?\d+)?|true|false|null")


class Object(dict):
    """Of several members of one name the last counts; the others are in `repeated`."""

    def __init__(self):
        super().__init__()
        self.first = self.last = 0
        self.repeated = []


class Text:
    def __init__(self, text):
        self.text = text
        self.at = 0
        self.ends = [m.start() for m in re.finditer("\n", text)]

    def line(self, at):
        low, high = 0, len(self.ends)
        while low < high:
            middle = (low + high) // 2
            if self.ends[middle] < at:
                low = middle + 1
            else:
                high = middle
        return low + 1

    def fail(self, why):
        raise Bad(why, self.line(self.at))

    def space(self):
        self.at = SPACE.match(self.text, self.at).end()
        return self.text[self.at:self.at + 1]

    def take(self, char):
        if self.space() != char:
            self.fail(f"no {char}")
        self.at += 1

    def scalar(self, pattern):
        found = pattern.match(self.text, self.at)
        if not found:
            self.fail("no value")
        self.at = found.end()
        return json.loads(found[0])

    def value(self):
        char = self.space()
        if char == "{":
            return self.object()
        if char == "[":
            self.at += 1
            made = []
            while self.space() != "]":
                if made:
                    self.take(",")
                made.append(self.value())
            self.at += 1
            return made
        return self.scalar(STRING if char == '"' else SCALAR)

    def object(self):
        made = Object()
        made.first = self.line(self.at)
        self.at += 1
        while self.space() != "}":
            if made:
                self.take(",")
                self.space()
            began = self.line(self.at)
            key = self.scalar(STRING)
            self.take(":")
            if isinstance(made.get(key), Object):
                made.repeated.append(made[key])
            made[key] = self.value()
            if isinstance(made[key], Object):
                made[key].first = began
        self.at += 1
        made.last = self.line(self.at - 1)
        return made


def parse(text):
    """The first value of the text, and what stands before it."""
    start = re.search(r"^\s*[\[{]", text, re.MULTILINE)
    if not start:
        raise Bad("no JSON")
    source = Text(text)
    source.at = start.start()
    return source.value(), text[:start.start()]
