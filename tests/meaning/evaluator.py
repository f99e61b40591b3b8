"""Reads a rule file by the format that it is of."""

import re
from dataclasses import dataclass
from typing import Optional

import asa
import configdb
import ios
import openconfig
from lists import Bad, Reading


@dataclass
class Options:
    implicit: bool = True               # the end that a format implies
    plain: bool = False                 # later fragments get nothing special
    nd_permits: Optional[bool] = None   # IPv6 lists end in permits of neighbour discovery


def format_of(text):
    if re.match(r"\s*(/\S*:\s*)?[\[{]", text):
        if re.search(r'"(\w+-?\w*:)?(acl|acl-sets|acl-set|acl-entries)"\s*:', text):
            return openconfig
        return configdb
    if re.search(r"^(ASA|PIX) Version|^access-list \S+ (line \d+ )?(extended|standard) ", text, re.MULTILINE):
        return asa
    return ios


def read(text, options):
    try:
        return format_of(text).read(text, options)
    except Bad as error:
        return Reading(wrong={(error.line, error.line): str(error)})
