"""Sets of numbers and of addresses: what is in them, a member of them, and what lies just beside them."""

from packet import BITS


class Ranges:
    """Numbers from 0 to `top` in inclusive ranges."""

    def __init__(self, ranges, top):
        self.ranges = list(ranges)
        self.top = top

    def __contains__(self, value):
        return any(low <= value <= high for low, high in self.ranges)

    def member(self, rng):
        low, high = rng.choice(self.ranges)
        return rng.choice((low, high, rng.randint(low, high)))

    def edges(self):
        for low, high in self.ranges:
            for value in (low - 1, low, high, high + 1):
                if 0 <= value <= self.top:
                    yield value


def ports(*ranges):
    return Ranges(ranges, 65535)


class Wild:
    """The addresses that agree with `value` wherever `free` has no one bit."""

    def __init__(self, family, value, free):
        self.family = family
        self.free = free
        self.value = value & ~free
        self.care = ((1 << BITS[family]) - 1) ^ free

    def has(self, address):
        return address & self.care == self.value

    def member(self, rng):
        return self.value | rng.choice((0, self.free, rng.getrandbits(BITS[self.family]) & self.free))

    def beside(self, rng):
        low, high = self.value, self.value | self.free
        flip = 1 << rng.randrange(BITS[self.family])
        return rng.choice((low - 1, high + 1, self.member(rng) ^ flip)) & ((1 << BITS[self.family]) - 1)


class Span:
    """The addresses from `low` to `high`."""

    def __init__(self, family, low, high):
        self.family = family
        self.low, self.high = low, high

    def has(self, address):
        return self.low <= address <= self.high

    def member(self, rng):
        return rng.choice((self.low, self.high, rng.randint(self.low, self.high)))

    def beside(self, rng):
        return rng.choice((self.low - 1, self.high + 1)) & ((1 << BITS[self.family]) - 1)


def prefix(family, value, length):
    return Wild(family, value, (1 << (BITS[family] - length)) - 1)


class Addresses:
    """The union of some blocks without the union of others. Blocks are of either family."""

    def __init__(self, blocks, without=()):
        self.blocks = list(blocks)
        self.without = list(without)

    def families(self):
        return {b.family for b in self.blocks}

    def has(self, family, address):
        return any(b.family == family and b.has(address) for b in self.blocks) and not any(
            b.family == family and b.has(address) for b in self.without)

    def member(self, family, rng):
        """A member, or None where chance finds none."""
        blocks = [b for b in self.blocks if b.family == family]
        for _ in range(8 if blocks else 0):
            address = rng.choice(blocks).member(rng)
            if self.has(family, address):
                return address
        return None

    def beside(self, family, rng):
        blocks = [b for b in self.blocks + self.without if b.family == family]
        return rng.choice(blocks).beside(rng) if blocks else None


ANY4 = Addresses([prefix(4, 0, 0)])
ANY6 = Addresses([prefix(6, 0, 0)])
ANY = Addresses(ANY4.blocks + ANY6.blocks)
