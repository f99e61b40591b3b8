"""The words of an entry, taken one after the other, and what both device dialects write alike."""

import ipaddress
import re

from lists import Bad, Unsupported
from sets import Ranges, Wild, ports

OPERATORS = ("eq", "neq", "lt", "gt", "range")
MOST_SCATTERED = 8


class Words:
    def __init__(self, words):
        self.words = list(words)
        self.at = 0

    def peek(self, ahead=0):
        at = self.at + ahead
        return self.words[at] if at < len(self.words) else ""

    def take(self):
        word = self.peek()
        if not word:
            raise Bad("the entry ends too early")
        self.at += 1
        return word

    def takes(self, *choices):
        if self.peek() in choices:
            return self.take()
        return None

    def left(self):
        return self.words[self.at:]


def is_ipv4(word):
    return re.fullmatch(r"\d+\.\d+\.\d+\.\d+", word) is not None


def ipv4(word):
    if not is_ipv4(word):
        raise Bad(f"no address: {word}")
    value = 0
    for part in word.split("."):
        if int(part) > 255:
            raise Bad(f"no address: {word}")
        value = value << 8 | int(part)
    return value


def ipv6(word):
    try:
        return int(ipaddress.IPv6Address(word))
    except ValueError as error:
        raise Bad(f"no address: {word}") from error


def number(word, top):
    if not re.fullmatch(r"\d+", word) or int(word) > top:
        raise Bad(f"no number up to {top}: {word}")
    return int(word)


def protocol_number(word):
    value = number(word, 255)
    if value == 0:
        raise Unsupported("0 is any protocol on some systems, and one of its own on others")
    return value


def block(word, family):
    """A bare address, or one with a length."""
    text, slash, length = word.partition("/")
    bits = 32 if family == 4 else 128
    value = ipv4(text) if family == 4 else ipv6(text)
    return Wild(family, value, (1 << (bits - (number(length, bits) if slash else bits))) - 1)


def scattered(free):
    """How many bits are free above the run of low ones."""
    while free & 1:
        free >>= 1
    return bin(free).count("1")


def wildcard(value, free):
    if scattered(free) > MOST_SCATTERED:
        raise Unsupported("the mask has too many scattered bits")
    return Wild(4, value, free)


def netmask(value, mask):
    return wildcard(value, mask ^ 0xFFFFFFFF)


def port_clause(words, names):
    """Takes an operator with its ports."""
    operator = words.take()

    def port(word):
        if word in names:
            return names[word]
        return number(word, 65535)

    def is_port(word):
        return word in names or word.isdigit()

    if operator in ("eq", "neq"):
        chosen = [port(words.take())]
        while is_port(words.peek()):
            chosen.append(port(words.take()))
        if operator == "eq":
            return ports(*((p, p) for p in chosen))
        return complement(chosen)
    if operator == "range":
        low, high = port(words.take()), port(words.take())
        if low > high:
            raise Bad("a range that ends before it begins")
        return ports((low, high))
    edge = port(words.take())
    low, high = (0, edge - 1) if operator == "lt" else (edge + 1, 65535)
    if low > high:
        raise Bad("no port is there")
    return ports((low, high))


def complement(chosen, top=65535):
    ranges, start = [], 0
    for p in sorted(set(chosen)):
        if p > start:
            ranges.append((start, p - 1))
        start = p + 1
    if start <= top:
        ranges.append((start, top))
    return Ranges(ranges, top)
