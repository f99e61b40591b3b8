"""Made-up rule files of each format, right but for what no rule can say, with few values so that entries
meet one another. A seed makes the same file at any time."""

import random

from made_json import ConfigDb, OlderOpenConfig, OpenConfig
from made_text import Asa, Ios, Shown


def make_up(seed):
    """The name and the text of a file."""
    rng = random.Random(seed)
    maker = (Ios, Ios, Shown, Asa, OpenConfig, OlderOpenConfig, ConfigDb)[seed % 7](rng)
    ending = ".json" if seed % 7 > 3 else ".cfg"
    return f"made-up-{seed}{ending}", maker.text()
