"""Colour maps and dataset loading from a plain interpreter."""
import os
import shutil
import tempfile
import unittest

import MQuorvel
from MQuorvel import TColorMap, TColorMapData, TColorMap_TypeNames, TVector4, TXmlReader, me

SOURCE = os.environ["QUORVEL_SOURCE_DIR"]
LIBRARY = os.path.join(os.environ["QUORVEL_BINARY_DIR"], "bin", "library")


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
        work = tempfile.mkdtemp()
        sample = os.path.join(work, "orbit.xml")
        shutil.copy(os.path.join(SOURCE, "samples", "orbit", "orbit.xml"), sample)
        db = TXmlReader(sample).convertToDatabase()
        self.assertEqual(db.execute("SELECT count(*) FROM edges").fetchone()[0], 18)
        cwd = os.getcwd()
        os.chdir(work)
        try:
            MQuorvel.setUpNetworks(LIBRARY)
            box = MQuorvel.instantiateLibBox("BMain", {"assign": [("dataset filename", sample)]})
            MQuorvel.doflow(me.flowlayout)
            loader = box.getProcessorByName("dataset loader")
            hierarchies = loader.getOutputPinByName("hierarchies").getData()
            self.assertEqual(hierarchies.getItemCount(), 2)
            names = loader.getOutputPinByName("node attributes").getData().getItemByKey("name")[0]
            self.assertEqual(names.getValueById(12), ("Circle", True))
            self.assertIn("Loaded '%s'" % sample, me.logger.getLastMessages())
        finally:
            me.flowlayout.destroy()
            me.flowlib.destroy()
            os.chdir(cwd)


if __name__ == "__main__":
    unittest.main()
