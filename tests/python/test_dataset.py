"""Colour maps and dataset loading from a plain interpreter."""
import os
import shutil
import tempfile
import unittest

import MQuorvel
from MQuorvel import TColorMap, TColorMapData, TColorMap_TypeNames, TVector4, TXmlReader, me

SOURCE = os.environ["QUORVEL_SOURCE_DIR"]
LIBRARY = os.path.join(os.environ["QUORVEL_BINARY_DIR"], "bin", "library")


class OpenedSample:
    """BMain from the built library on a copy of a sample dataset, in a
    scratch folder; the networks are emptied again on leaving."""

    def __init__(self, name):
        self.work = tempfile.mkdtemp()
        self.path = os.path.join(self.work, name)
        shutil.copy(os.path.join(SOURCE, "samples", "orbit", name), self.path)

    def __enter__(self):
        self.cwd = os.getcwd()
        os.chdir(self.work)
        MQuorvel.setUpNetworks(LIBRARY)
        self.box = MQuorvel.instantiateLibBox("BMain", {"assign": [("dataset filename", self.path)]})
        MQuorvel.doflow(me.flowlayout)
        return self

    def __exit__(self, *exc):
        me.flowlayout.destroy()
        me.flowlib.destroy()
        os.chdir(self.cwd)


class Halves(TColorMap):
    """A map written in a script: red below one half, blue above."""

    def getColor(self, v, color):
        color.x, color.y, color.z, color.w = (1.0, 0.0, 0.0, 1.0) if v < 0.5 else (0.0, 0.0, 1.0, 1.0)

    def getName(self):
        return "halves"


class ColorMapTest(unittest.TestCase):
    def test_script_maps_go_through_the_clamp(self):
        data = TColorMapData("Halves", Halves(), 10.0, 20.0)
        c = TVector4()
        data.getColor(12.0, c)
        self.assertEqual((c.x, c.z), (1.0, 0.0))
        data.getColor(19.0, c)
        self.assertEqual((c.x, c.z), (0.0, 1.0))
        self.assertEqual(data.toString(), "halves")
        types = TColorMap_TypeNames()
        types.getColorForNominal("FILE", c)
        self.assertAlmostEqual(c.x, 0.6, places=6)


class LoadingTest(unittest.TestCase):
    def test_xml_reader_and_loader_through_bmain(self):
        with OpenedSample("orbit.xml") as opened:
            db = TXmlReader(opened.path).convertToDatabase()
            self.assertEqual(db.execute("SELECT count(*) FROM edges").fetchone()[0], 18)
            loader = opened.box.getProcessorByName("dataset loader")
            hierarchies = loader.getOutputPinByName("hierarchies").getData()
            self.assertEqual(hierarchies.getItemCount(), 2)
            names = loader.getOutputPinByName("node attributes").getData().getItemByKey("name")[0]
            self.assertEqual(names.getValueById(12), ("Circle", True))
            self.assertIn("Loaded '%s'" % opened.path, me.logger.getLastMessages())


class AnalysisTest(unittest.TestCase):
    def test_collapse_from_a_script(self):
        with OpenedSample("orbit.db") as opened:
            box = opened.box
            port = lambda name: box.getIdentityProcessorByInputName(name).getOnlyOutputPin().getData()
            rows = port("collapsed hierarchy").getRowCount()
            state = box.getProcessorByName("collapsed attr").getData()
            state.setValueById(2, True)  # the folder geometry
            MQuorvel.doflow(me.flowlayout)
            self.assertLess(port("collapsed hierarchy").getRowCount(), rows)
            self.assertEqual(port("collapsed hierarchy").getRowByNid(3), (0, False))
            ranks = MQuorvel.ordnorm(port("node attributes").getItemByKey("type")[0])
            self.assertEqual(ranks.getMinimumValue(), 0.0)


if __name__ == "__main__":
    unittest.main()
