#!/usr/bin/env python3
"""check_links.py <sources>: every link of the documents leads to a file of the sources, and to a heading where it
names one; every document but those at the top is reached from README.md."""

import pathlib
import re
import sys

SOURCES = pathlib.Path(sys.argv[1]).resolve()
LINK = re.compile(r"(?<!!)\[[^\]]*\]\(([^)\s]+)\)")


def without_code(text):
    text = re.sub(r"^```.*?^```", "", text, flags=re.M | re.S)
    return re.sub(r"`[^`\n]*`", "", text)


def anchors(path):
    """As the usual renderers make them of headings."""
    found = set()
    for heading in re.findall(r"^#+ (.*)$", re.sub(r"^```.*?^```", "", path.read_text(), flags=re.M | re.S), flags=re.M):
        name = re.sub(r"[^\w\- ]", "", heading.lower()).strip().replace(" ", "-")
        while name in found:
            name += "-1"
        found.add(name)
    return found


def main():
    documents = sorted([*SOURCES.glob("*.md"), *(SOURCES / "docs").glob("*.md")])
    faults = []
    reached = {SOURCES / "README.md"}
    links = 0
    for document in documents:
        for target in LINK.findall(without_code(document.read_text())):
            links += 1
            if re.match(r"[a-z]+:", target):
                if not target.startswith("https://"):
                    faults.append(f"{document.name}: {target}: only https leads outside")
                continue
            name, _, anchor = target.partition("#")
            path = (document.parent / name).resolve() if name else document
            if not path.is_relative_to(SOURCES) or not path.exists():
                faults.append(f"{document.name}: {target}: there is no such file")
                continue
            reached.add(path)
            if anchor and (path.suffix != ".md" or anchor not in anchors(path)):
                faults.append(f"{document.name}: {target}: there is no such heading")
    faults += [f"{d.name}: no document leads here" for d in documents if d not in reached]
    print("\n".join(faults) or f"{links} links of {len(documents)} documents lead somewhere")
    return bool(faults) or not links


sys.exit(main())
