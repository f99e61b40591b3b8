#!/usr/bin/env python3
"""tidy.py BUILD JOBS FOLDER...: clang-tidy over the sources of some folders.

A source that was found clean is looked at again only after its text, that of anything that it includes, the
checks or the program have changed: the names of what is clean, by hashes of all that, are kept in BUILD/clean."""

import hashlib
import json
import pathlib
import shlex
import subprocess
import sys
from concurrent.futures import ThreadPoolExecutor

build, jobs, folders = pathlib.Path(sys.argv[1]), int(sys.argv[2]), [pathlib.Path(f).resolve() for f in sys.argv[3:]]
clean = build / "clean"
clean.mkdir(exist_ok=True)
version = subprocess.run(["clang-tidy", "--version"], capture_output=True, check=True).stdout
common = version + pathlib.Path(".clang-tidy").read_bytes()


def preprocessed(command):
    """With its comments, since some of them are meant for clang-tidy; None where the compiler refuses it."""
    words = shlex.split(command["command"])
    words = words[: words.index("-o")] + ["-E", "-C", command["file"]]
    run = subprocess.run(words, cwd=command["directory"], capture_output=True, check=False)
    return run.stdout if run.returncode == 0 else None


def look(command):
    """What clang-tidy says; "" for nothing, None where it has said so before."""
    text = preprocessed(command)
    mark = text and clean / hashlib.sha256(common + command["command"].encode() + text).hexdigest()
    if mark and mark.exists():
        return None
    run = subprocess.run(["clang-tidy", "-p", str(build), "--quiet", command["file"]],
                         capture_output=True, text=True, check=False)
    if run.returncode == 0 and not run.stdout:
        if mark:
            mark.touch()
        return ""
    return run.stdout or run.stderr


def is_ours(path):
    return any(folder in path.parents for folder in folders)


commands = [c for c in json.loads((build / "compile_commands.json").read_text()) if is_ours(pathlib.Path(c["file"]))]
commands.sort(key=lambda c: c["file"])
looked = faulty = 0
with ThreadPoolExecutor(jobs) as pool:
    for said in pool.map(look, commands):
        looked += said is not None
        if said:
            faulty += 1
            print(said, end="", flush=True)
print(f"clang-tidy: {len(commands)} sources, {looked} of them looked at, findings in {faulty}")
sys.exit(1 if faulty or not commands else 0)
