#!/usr/bin/python3
"""Writes the sample dataset "orbit" twice: as orbit.xml and as orbit.db.

The database is written directly with SQLite, not through the workbench's
XML converter, so that loading both forms checks the converter and the
loader against each other. Run from this folder:  /usr/bin/python3 make_orbit.py
"""
import os
import sqlite3

HERE = os.path.dirname(os.path.abspath(__file__))
SRC = "orbit/src"

# nid, name, type, file (relative to orbit/), first line of the definition,
# last line; attributes beyond these come from EXTRA.
NODES = [
    (1, "orbit", "folder", None, None, None),
    (2, "geometry", "folder", None, None, None),
    (3, "vector.h", "file", "src/geometry/vector.h", 1, 13),
    (4, "Vec2", "struct", "src/geometry/vector.h", 6, 13),
    (5, "length", "method", "src/geometry/vector.h", 10, 12),
    (6, "x", "field", "src/geometry/vector.h", 7, 7),
    (7, "y", "field", "src/geometry/vector.h", 8, 8),
    (8, "vector.cpp", "file", "src/geometry/vector.cpp", 1, 6),
    (9, "shape.h", "file", "src/geometry/shape.h", 1, 25),
    (10, "Shape", "class", "src/geometry/shape.h", 6, 10),
    (11, "area", "method", "src/geometry/shape.h", 9, 9),
    (12, "Circle", "class", "src/geometry/shape.h", 12, 17),
    (13, "area", "method", "src/geometry/shape.cpp", 3, 5),
    (14, "radius", "field", "src/geometry/shape.h", 16, 16),
    (15, "Square", "class", "src/geometry/shape.h", 19, 24),
    (16, "area", "method", "src/geometry/shape.cpp", 7, 9),
    (17, "shape.cpp", "file", "src/geometry/shape.cpp", 1, 9),
    (18, "app", "folder", None, None, None),
    (19, "main.cpp", "file", "src/app/main.cpp", 1, 22),
    (20, "main", "function", "src/app/main.cpp", 15, 22),
    (21, "depth", "function", "src/app/main.cpp", 11, 13),
    (22, "printArea", "function", "src/app/main.cpp", 7, 9),
    (23, "tools", "folder", None, None, None),
    (24, "report.py", "file", "src/tools/report.py", 1, 9),
    (25, "Report", "class", "src/tools/report.py", 4, 9),
    (26, "summarize", "method", "src/tools/report.py", 8, 9),
    # 27 "docs" has no attribute at all.
    (28, "layers", "folder", None, None, None),
    (29, "core", "namespace", None, None, None),
    (30, "application", "namespace", None, None, None),
]

# Numbers of every kind: "lines" whole numbers (an int column), "complexity"
# fractions (a float column), "language" texts, "size" mixed (a text column).
EXTRA = {
    3: {"language": "C++", "size": 201},
    8: {"language": "C++", "size": 140},
    9: {"language": "C++", "size": 468},
    17: {"language": "C++", "size": 187},
    19: {"language": "C++", "size": "n/a"},
    24: {"language": "Python", "size": 243},
    5: {"complexity": 1.5},
    11: {"complexity": 1.0},
    13: {"complexity": 1.25},
    16: {"complexity": 2.5},
    20: {"complexity": 3.75},
    21: {"complexity": 2.0},
    22: {"complexity": 1.0},
    26: {"complexity": 1.5},
}

# Hierarchy 1: containment. Hierarchy 2: layers over some of the same nodes.
CONTAINMENT = [
    (1, 2), (2, 3), (3, 4), (4, 5), (4, 6), (4, 7), (2, 8), (2, 9), (9, 10), (10, 11), (9, 12), (12, 13),
    (12, 14), (9, 15), (15, 16), (2, 17), (1, 18), (18, 19), (19, 20), (19, 21), (19, 22), (1, 23), (23, 24),
    (24, 25), (25, 26), (1, 27),
]
LAYERS = [(28, 29), (29, 4), (29, 10), (29, 12), (29, 15), (28, 30), (30, 20), (30, 21), (30, 22), (30, 25)]

# eid, from, to, attributes. Edges run both ways between 11 and 22, 21
# calls itself, and 1017 has no attribute.
EDGES = [
    (1000, 8, 3, {"kind": "include", "weight": 1, "strength": 0.5}),
    (1001, 9, 3, {"kind": "include", "weight": 1, "strength": 0.5}),
    (1002, 17, 9, {"kind": "include", "weight": 1, "strength": 0.5}),
    (1003, 19, 9, {"kind": "include", "weight": 1, "strength": 0.25}),
    (1004, 12, 10, {"kind": "inherits", "weight": 3, "strength": 1.5}),
    (1005, 15, 10, {"kind": "inherits", "weight": 3, "strength": 1.5}),
    (1006, 20, 22, {"kind": "calls", "weight": 2, "strength": 0.75}),
    (1007, 22, 11, {"kind": "calls", "weight": 1, "strength": 0.75}),
    (1008, 21, 21, {"kind": "calls", "weight": 6, "strength": 0.125}),
    (1009, 20, 21, {"kind": "calls", "weight": 1, "strength": 0.75}),
    (1010, 13, 14, {"kind": "uses", "weight": 2, "strength": 0.25}),
    (1011, 5, 6, {"kind": "uses", "weight": 2, "strength": 0.25}),
    (1012, 5, 7, {"kind": "uses", "weight": 2, "strength": 0.25}),
    (1013, 26, 11, {"kind": "calls", "weight": 1, "strength": 0.125}),
    (1014, 11, 22, {"kind": "callback", "weight": 1, "strength": 2.25}),
    (1015, 16, 4, {"kind": "uses", "weight": 1, "strength": 0.5}),
    (1016, 25, 26, {"kind": "calls", "weight": 1, "strength": 0.5}),
    (1017, 24, 19, {}),
]


def node_attributes():
    for nid, name, kind, path, first, last in NODES:
        attrs = {"name": name, "type": kind}
        if path:
            attrs["lines"] = last - first + 1
            with open(os.path.join(HERE, "orbit", path)) as f:
                text = f.read().split("\n")
            attrs["_srcloc"] = "%s|%d|1|%d|%d" % (path, first, last, max(1, len(text[last - 1])))
        attrs.update(EXTRA.get(nid, {}))
        yield nid, attrs


def write_db(path):
    if os.path.exists(path):
        os.remove(path)
    db = sqlite3.connect(path)
    db.execute("CREATE TABLE edges (eid INTEGER PRIMARY KEY, fromnid INTEGER, tonid INTEGER)")
    db.execute("CREATE TABLE nodeattr (nid INTEGER KEY, key STRING, value STRING, type STRING)")
    db.execute("CREATE TABLE edgeattr (eid INTEGER KEY, key STRING, value STRING, type STRING)")
    db.execute("CREATE TABLE hierarchy (hid INTEGER, nid INTEGER, parentnid INTEGER, childorder INTEGER)")
    db.execute("CREATE TABLE information(key TEXT, value)")
    db.execute("INSERT INTO information (key, value) VALUES ('database format version', 2)")
    db.execute("INSERT INTO information (key, value) VALUES ('creation date', (SELECT datetime('now')) )")
    for nid, attrs in node_attributes():
        for key, value in attrs.items():
            db.execute("INSERT INTO nodeattr (nid,key,value) VALUES (?,?,?)", (nid, key, value))
    for hid, links in ((1, CONTAINMENT), (2, LAYERS)):
        db.execute("INSERT INTO hierarchy VALUES (?,?,NULL,0)", (hid, links[0][0]))
        order = {}
        for parent, child in links:
            order[parent] = order.get(parent, 0) + 1
            db.execute("INSERT INTO hierarchy VALUES (?,?,?,?)", (hid, child, parent, order[parent]))
    for eid, src, dst, attrs in EDGES:
        db.execute("INSERT INTO edges VALUES (?,?,?)", (eid, src, dst))
        for key, value in attrs.items():
            db.execute("INSERT INTO edgeattr (eid,key,value) VALUES (?,?,?)", (eid, key, value))
    db.commit()
    db.close()


def xml_escape(text):
    return (str(text).replace("&", "&amp;").replace("<", "&lt;").replace(">", "&gt;").replace('"', "&quot;"))


def write_xml(path):
    out = ['<?xml version="1.0" encoding="UTF-8"?>', "<dataset>", "  <nodes>"]
    for nid, attrs in node_attributes():
        out.append('    <node nid="%d">' % nid)
        for key, value in attrs.items():
            out.append('      <attribute key="%s" value="%s"/>' % (xml_escape(key), xml_escape(value)))
        out.append("    </node>")
    out.append('    <node nid="27"/>')
    out.append("  </nodes>")
    for links in (CONTAINMENT, LAYERS):
        out.append("  <hierarchy>")
        for parent, child in links:
            out.append('    <edge fromnid="%d" tonid="%d"/>' % (parent, child))
        out.append("  </hierarchy>")
    out.append("  <edgeset>")
    for eid, src, dst, attrs in EDGES:
        if not attrs:
            out.append('    <edge eid="%d" fromnid="%d" tonid="%d"/>' % (eid, src, dst))
            continue
        out.append('    <edge eid="%d" fromnid="%d" tonid="%d">' % (eid, src, dst))
        for key, value in attrs.items():
            out.append('      <attribute key="%s" value="%s"/>' % (xml_escape(key), xml_escape(value)))
        out.append("    </edge>")
    out.append("  </edgeset>")
    out.append("</dataset>")
    with open(path, "w") as f:
        f.write("\n".join(out) + "\n")


if __name__ == "__main__":
    write_db(os.path.join(HERE, "orbit", "orbit.db"))
    write_xml(os.path.join(HERE, "orbit", "orbit.xml"))
