#!/usr/bin/python3
"""What the workbench can do before it has a main window: open a dataset the
way "Open dataset" will (BMain from the library, the file name assigned),
run the network until it is quiet, and report what reached BMain's ports.

    PYTHONPATH=build/python /usr/bin/python3 scripts/demo.py build/bin/library samples/orbit/orbit.db
"""
import os
import shutil
import sys
import tempfile

import MQuorvel
from MQuorvel import me


def port(box, name):
    p = box.getIdentityProcessorByInputName(name)
    return p.getOnlyOutputPin().getData() if p else None


def main(library, dataset):
    work = tempfile.mkdtemp(prefix="quorvel-demo-")
    # Loading writes indexes into a database file: work on a copy.
    copy = os.path.join(work, os.path.basename(dataset))
    shutil.copy(dataset, copy)
    os.chdir(work)
    MQuorvel.setUpNetworks(library)
    box = MQuorvel.instantiateLibBox("BMain", {"assign": [("dataset filename", copy)]})
    passes = MQuorvel.doflow(me.flowlayout)
    print("Opened %s in %d passes of the flow network." % (dataset, passes))
    print(me.logger.getMostImportantMessage())

    hierarchies = port(box, "hierarchies")
    for i in range(hierarchies.getItemCount()):
        h = hierarchies.getItemByIndex(i)[0]
        print("%s: %d nodes" % (h.m_KeyName, h.getRowCount() - 1))
    names = None
    attributes = port(box, "node attributes")
    for i in range(attributes.getItemCount()):
        column = attributes.getItemByIndex(i)[0]
        if column.m_KeyName == "name":
            names = column
        print("node attribute %-12s %-7s %d values" % (column.m_KeyName, column.getAttributeType(), column.getRowCount()))
    edges = port(box, "edges")
    kinds = {}
    kind = port(box, "edge attributes").getItemByKey("kind")[0]
    for row in range(edges.getRowCount()):
        eid = edges.getRow(row)[0]
        value, found = kind.getValueById(eid) if kind else ("", False)
        kinds[value if found else "(no kind)"] = kinds.get(value if found else "(no kind)", 0) + 1
    print("edges: %d %s" % (edges.getRowCount(), ", ".join("%s %d" % kv for kv in sorted(kinds.items()))))
    collapsed = port(box, "edge collapsed")
    colors = port(box, "edge colors")
    print("aggregated edges: %d records, %d coloured" % (collapsed.getRecordCount(), colors.getRecordCount()))
    if hierarchies.getItemCount() and names:
        h = hierarchies.getItemByIndex(0)[0]
        print("The first hierarchy, three levels deep:")
        root = h.getNidByRow(1)
        for nid in h.getNidsBelowNid(root):
            depth = len(h.getNidsAboveNid(nid)) - 1
            if depth <= 3:
                name, found = names.getValueById(nid)
                print("  " + "  " * depth + (name if found else "(node %d has no attributes)" % nid))
    me.flowlayout.destroy()
    me.flowlib.destroy()


if __name__ == "__main__":
    if len(sys.argv) != 3:
        sys.exit("usage: demo.py <library> <dataset>")
    main(os.path.abspath(sys.argv[1]), os.path.abspath(sys.argv[2]))
