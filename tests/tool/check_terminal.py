"""check_terminal.py SOURCES PROGRAM: what a person at a terminal sees of a run that takes its time, and what Ctrl-C
leaves behind."""

import os
import pathlib
import pty
import re
import select
import signal
import subprocess
import sys
import tempfile
import time

sources, program = pathlib.Path(sys.argv[1]), sys.argv[2]
faults = 0
CLEARED = "\r\x1b[K"


def expect(holds, what):
    global faults
    if not holds:
        faults += 1
        print(what)


class Run:
    """A run whose messages go to a terminal."""

    def __init__(self, *words):
        self.master, slave = pty.openpty()
        self.process = subprocess.Popen([program, *words], cwd=sources, stdin=subprocess.DEVNULL,
                                        stdout=subprocess.PIPE, stderr=slave)
        os.close(slave)
        self.seen = ""

    def read_until(self, done):
        end = time.monotonic() + 60
        while not done(self.seen) and time.monotonic() < end:
            if not select.select([self.master], [], [], 1)[0]:
                continue
            try:
                self.seen += os.read(self.master, 4096).decode(errors="replace")
            except OSError:  # nobody is at the other end any more
                break
        return done(self.seen)

    def interrupt(self):
        self.process.send_signal(signal.SIGINT)
        out = self.process.communicate(timeout=60)[0]
        self.read_until(lambda seen: False)
        return out


def counts(seen):
    return [int(n) for n in re.findall(r"looking packets up: (\d+) of 1000000000000 \(\d+ s\)", seen)]


# The line appears, counts, and is gone in the end. A signal ends the process as the shell expects.
run = Run("verify", "--packets", "1000000000000", "examples/edge.json")
expect(run.read_until(lambda seen: len(set(counts(seen))) >= 3), f"no progress is shown: {run.seen!r}")
numbers = counts(run.seen)
expect(numbers == sorted(numbers), f"it goes back: {numbers}")
expect(all(len(line) <= 79 for line in run.seen.split(CLEARED)), "a line wraps")
printed = run.interrupt()
expect(run.process.returncode == -signal.SIGINT, f"it ends with {run.process.returncode}")
expect(printed == b"", f"it prints {printed!r}")
expect(run.seen.endswith(CLEARED), f"something stays on the terminal: {run.seen[-100:]!r}")

# What is being written goes away with the run, and what was there before stays.
with tempfile.TemporaryDirectory() as folder:
    kept = pathlib.Path(folder) / "rules.json"
    kept.write_text("as it was\n")
    run = Run("gen", "--rules", "1000000", "--output", str(kept))
    expect(run.read_until(lambda seen: " s)" in seen), f"no progress of writing is shown: {run.seen!r}")
    run.interrupt()
    expect(run.process.returncode == -signal.SIGINT, f"gen ends with {run.process.returncode}")
    expect(os.listdir(folder) == ["rules.json"] and kept.read_text() == "as it was\n",
           f"files are left or changed: {os.listdir(folder)}")

# Nothing of it without a terminal, or where quiet is wanted.
run = Run("verify", "--quiet", "--packets", "3000000", "examples/edge.json")
run.process.communicate(timeout=300)
run.read_until(lambda seen: False)
expect(run.seen == "", f"--quiet shows {run.seen!r}")
sys.exit(1 if faults else 0)
