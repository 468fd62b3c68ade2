"""The database wrapper, flow files and the library from a plain
interpreter."""
import os
import tempfile
import unittest

import MQuorvel
from MQuorvel import (TDatabase, TFlowManager, TIntDataSource, TAbstractIdentityProcessor, TAbstractBox,
                      TStringData, doflow, me)

LIBRARY = os.path.join(os.environ["QUORVEL_BINARY_DIR"], "bin", "library")


class DatabaseTest(unittest.TestCase):
    def test_rows_by_index_and_name(self):
        db = TDatabase(":memory:")
        db.execute("CREATE TABLE nodeattr (nid INTEGER KEY, key STRING, value STRING, type STRING)")
        db.execute("INSERT INTO nodeattr (nid,key,value) VALUES (?,?,?)", [(1, "size", "12"), (2, "size", "n/a")],
                   many=True)
        rows = db.execute("SELECT nid, value FROM nodeattr ORDER BY nid").fetchall()
        self.assertEqual(rows[0]["value"], 12)
        self.assertEqual(rows[1][1], "n/a")
        self.assertEqual(list(rows[0]), [1, 12])
        self.assertIsNone(db.execute("SELECT * FROM nothing", allowfail=True))
        with self.assertRaises(RuntimeError):
            db.execute("SELECT * FROM nothing")
        self.assertEqual(db.pp(db.execute("CREATE TABLE x (a)")), "#### NO RESULTS ###")
        self.assertIn("Count: 2", db.prn("SELECT * FROM nodeattr"))


class FlowFileTest(unittest.TestCase):
    def test_store_load_and_instantiate(self):
        folder = tempfile.mkdtemp()
        path = os.path.join(folder, "p.qvperspective")
        fm = TFlowManager(True)
        fm.postCreate(fm)
        box = TAbstractBox()
        box.postCreate(box)
        box.m_Type = "BTest"
        fm.addBox(fm, box)
        src = fm.constructProcessor(TIntDataSource)
        src.m_KeyName = "n"
        fm_box_add = box.addProcessor(box, src)
        self.assertIsNone(fm_box_add)
        src.ensureDataExists()
        fm.store(box, path)
        back = TFlowManager(True)
        back.postCreate(back)
        objs = back.load(back, path)
        self.assertEqual([o.__class__.__name__ for o in objs], ["TAbstractBox", "TIntDataSource"])
        self.assertEqual(back.getProcessorByName("n").getData().getValue(), 0)
        self.assertIsNone(back.load(back, os.path.join(folder, "missing")))
        fm.destroy()
        back.destroy()

    def test_library_box_instantiates_from_a_prompt(self):
        cwd = os.getcwd()
        os.chdir(tempfile.mkdtemp())
        try:
            MQuorvel.setUpNetworks(LIBRARY)
            box = MQuorvel.instantiateLibBox("BMain", {"assign": [("dataset filename", "x.db")]})
            self.assertEqual(box.m_Type, "BMain")
            doflow(me.flowlayout)
            self.assertEqual(box.getProcessorByName("dataset filename").getData().getValue(), "x.db")
            hook = box.getProcessorByName("node primary selection hook")
            seen = []
            hook.setHook(lambda proc: seen.append(proc.getOnlyInputPin().getData().getCount()))
            box.getProcessorByName("node primary selection").getData().add(7)
            doflow(me.flowlayout)
            self.assertEqual(seen, [1])
            with self.assertRaisesRegex(RuntimeError, "Cannot find box by name 'BNone'"):
                MQuorvel.instantiateLibBox("BNone")
        finally:
            me.flowlayout.destroy()
            me.flowlib.destroy()
            os.chdir(cwd)

    def test_view_boxes_load_and_run_without_the_window_library(self):
        cwd = os.getcwd()
        os.chdir(tempfile.mkdtemp())
        try:
            import shutil
            shutil.copy(os.path.join(os.environ["QUORVEL_SOURCE_DIR"], "samples", "orbit", "orbit.db"), "orbit.db")
            MQuorvel.setUpNetworks(LIBRARY)
            MQuorvel.instantiateLibBox("BMain", {"assign": [("dataset filename", "orbit.db")]})
            view = MQuorvel.instantiateLibBox("BListView", {
                "assign": [("gui title", "Node list view")],
                "rename": [("attributes", "node attributes"), ("selections", "node selections"),
                           ("selection b", "node primary selection"), ("icon attributes", "node icon attributes")]})
            doflow(me.flowlayout)
            self.assertFalse(me.manualupdate)
            lists = [p for p in view.m_Processors if isinstance(p, MQuorvel.TListGuiProcessorCpp)]
            self.assertEqual(len(lists), 1)
            lists[0].buildRow2Id()
            self.assertEqual(len(lists[0].m_Row2Id), 29)
        finally:
            me.flowlayout.destroy()
            me.flowlib.destroy()
            os.chdir(cwd)


if __name__ == "__main__":
    unittest.main()
