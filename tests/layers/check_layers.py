#!/usr/bin/python3
"""Checks that no source file includes a header of a higher layer.

    check_layers.py SRC KNOWN LAYER...

LAYER names the folders of SRC from the bottom up (the order the build
files give); a layer may be a folder within a folder ("views/core"). A file
belongs to the longest layer its path starts with, and so does an include
"folder/.../name.h"; an include of a higher layer is an upward include. Those listed in KNOWN (lines "file: include", # comments)
are the ones still to be taken away: the check lists every upward include,
says how many there are, and fails on one that KNOWN does not list, and on a
line of KNOWN that no longer holds, so that the list only shrinks.
"""

import os
import re
import sys

INCLUDE = re.compile(r'\s*#\s*include\s+"([^"]+)"')


def layer_of(path, layers):
    """The longest layer that the path starts with, or None."""
    best = None
    for name in layers:
        if path.startswith(name + "/") and (best is None or len(name) > len(best)):
            best = name
    return best


def upward_includes(src, layers):
    rank = {name: i for i, name in enumerate(layers)}
    found = []
    for root, _, files in os.walk(src):
        for name in sorted(files):
            if not name.endswith((".h", ".cpp", ".hpp", ".cc")):
                continue
            path = os.path.join(root, name)
            rel = os.path.relpath(path, src)
            own = layer_of(rel, layers)
            if own is None:
                continue
            with open(path, encoding="utf-8", errors="replace") as f:
                for line in f:
                    m = INCLUDE.match(line)
                    if not m:
                        continue
                    target = layer_of(m.group(1), layers)
                    if target is not None and rank[target] > rank[own]:
                        found.append("%s: %s" % (rel, m.group(1)))
    return sorted(found)


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
