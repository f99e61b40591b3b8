"""What the made-up files are drawn from."""


class Maker:
    def __init__(self, rng):
        self.rng = rng
        self.lines = []

    def pick(self, *choices):
        return self.rng.choice(choices)

    def some(self, chance):
        return self.rng.random() < chance

    def ipv4(self):
        return f"10.{self.pick(0, 1)}.{self.pick(0, 1)}.{self.rng.randrange(8)}"

    def ipv6(self):
        return f"2001:db8:{self.pick(0, 1)}::{self.rng.randrange(4)}"

    def prefix(self, family):
        if family == 4:
            return f"{self.ipv4()}/{self.pick(0, 7, 8, 15, 24, 29, 30, 31, 32)}"
        return f"{self.ipv6()}/{self.pick(0, 32, 47, 48, 64, 127, 128)}"
