#!/usr/bin/python3
"""Checks that no source file includes a header of a higher layer.

    check_layers.py SRC KNOWN LAYER...

LAYER names the folders of SRC from the bottom up (the order the build
files give). An include "folder/..." from a file of a lower folder is an
upward include. Those listed in KNOWN (lines "file: include", # comments)
are the ones still to be taken away: the check lists every upward include,
says how many there are, and fails on one that KNOWN does not list, and on a
line of KNOWN that no longer holds, so that the list only shrinks.
"""

import os
import re
import sys

INCLUDE = re.compile(r'\s*#\s*include\s+"([A-Za-z_]+)/([^"]+)"')


def upward_includes(src, layers):
    rank = {name: i for i, name in enumerate(layers)}
    found = []
    for folder in layers:
        top = os.path.join(src, folder)
        for root, _, files in os.walk(top):
            for name in sorted(files):
                if not name.endswith((".h", ".cpp", ".hpp", ".cc")):
                    continue
                path = os.path.join(root, name)
                rel = os.path.relpath(path, src)
                with open(path, encoding="utf-8", errors="replace") as f:
                    for line in f:
                        m = INCLUDE.match(line)
                        if m and m.group(1) in rank and rank[m.group(1)] > rank[folder]:
                            found.append("%s: %s/%s" % (rel, m.group(1), m.group(2)))
    return found


def main():
    src, known_file, layers = sys.argv[1], sys.argv[2], sys.argv[3:]
    known = set()
    if os.path.exists(known_file):
        with open(known_file, encoding="utf-8") as f:
            known = {line.strip() for line in f if line.strip() and not line.startswith("#")}
    found = upward_includes(src, layers)
    print("layers, from the bottom up: " + " < ".join(layers))
    print("upward includes: %d" % len(found))
    for item in found:
        print("  " + item + ("" if item in known else "   <- new"))
    new = [item for item in found if item not in known]
    gone = sorted(known - set(found))
    for item in gone:
        print("  no longer there, take it off %s: %s" % (os.path.basename(known_file), item))
    if new:
        print("FAILED: %d upward include(s) that the layer order forbids" % len(new))
    return 1 if new or gone else 0


if __name__ == "__main__":
    sys.exit(main())
