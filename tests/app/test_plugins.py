"""The bundled importer plug-in in the running program: it appears in the
File menu, imports a folder into the datasets folder and opens it; a
failing importer ends in its error log with no dataset left."""

import os
import shutil
import subprocess
import tempfile
import unittest

EXE = os.environ["QUORVEL_EXE"]
SOURCE = os.environ["QUORVEL_SOURCE_DIR"]
BIN = os.path.dirname(EXE)
DATASETS = os.path.join(os.path.dirname(BIN), "datasets")


class ImporterPluginTest(unittest.TestCase):
    def setUp(self):
        self.work = tempfile.mkdtemp(prefix="plugins-")
        for name in ("library", "logo.bmp", "Tarnwick.ico"):
            shutil.copy(os.path.join(BIN, name), self.work)
        for name in ("icons", "plugins"):
            shutil.copytree(os.path.join(BIN, name), os.path.join(self.work, name))
        self.sources = os.path.join(self.work, "orbit-sources")
        shutil.copytree(os.path.join(SOURCE, "samples", "orbit", "src"), self.sources)
        self.target = os.path.join(DATASETS, "orbit-sources.db")
        for f in (self.target, self.target + ".importing"):
            if os.path.exists(f):
                os.remove(f)

    def tearDown(self):
        shutil.rmtree(self.work, ignore_errors=True)
        if os.path.exists(self.target):
            os.remove(self.target)

    def run_program(self, lines, then=()):
        """Runs the program on `lines`; `then` runs once the commands they
        queued (such as opening a dataset) are done."""
        with open(os.path.join(self.work, "quit.qvscript"), "w") as f:
            f.write("\n".join(list(then) + ["exit()"]) + "\n")
        with open(os.path.join(self.work, "run.qvscript"), "w") as f:
            # The dataset opens by commands queued behind the script's own.
            f.write("\n".join(lines + ["runScript('quit.qvscript')"]) + "\n")
        env = dict(os.environ, QUORVEL_POPUPS="log")
        r = subprocess.run([EXE, "-r", "run.qvscript"], cwd=self.work, env=env, timeout=120)
        self.assertEqual(r.returncode, 0)
        with open(os.path.join(self.work, "Quorvel.log"), encoding="utf-8", errors="replace") as f:
            return f.read()

    def test_a_folder_is_imported_and_opened(self):
        log = self.run_program(["me.pluginsystem.plugins[0].importFolder(%r)" % self.sources])
        self.assertIn("Loaded plug-in: Import source tree", log)
        self.assertIn("Loaded '%s'" % os.path.realpath(self.target), log)
        self.assertTrue(os.path.exists(self.target))
        self.assertFalse(os.path.exists(self.target + ".importing"))

    def test_a_failing_importer_leaves_no_dataset(self):
        failing = "['sh', '-c', 'echo \"***ERROR: cannot read $1\"; exit 2', 'sh']"
        log = self.run_program(["me.pluginsystem.plugins[0].importFolder(%r, %s)" % (self.sources, failing)])
        self.assertIn("Import source tree error log", log)
        self.assertIn("cannot read " + self.sources, log)
        self.assertIn("Errors occured during the analysis. See the log for more information.", log)
        self.assertFalse(os.path.exists(self.target))

    def test_a_plugin_sees_the_main_window_when_it_is_made_and_its_messages_reach_the_log(self):
        folder = os.path.join(self.work, "plugins", "Probe")
        os.makedirs(folder)
        with open(os.path.join(folder, "QuorvelPlugin.py"), "w") as f:
            f.write("import MQuorvel\n"
                    "from quorvel_plugin import Plugin\n"
                    "class Probe(Plugin):\n"
                    "    def __init__(self):\n"
                    "        MQuorvel.me.logger.info('Probe made with a main window: %s'\n"
                    "                                % (MQuorvel.me.mainwindow is not None), None)\n")
        broken = os.path.join(self.work, "plugins", "Broken")
        os.makedirs(broken)
        with open(os.path.join(broken, "QuorvelPlugin.py"), "w") as f:
            f.write("raise RuntimeError('this plug-in cannot load')\n")
        log = self.run_program([])
        self.assertIn("Probe made with a main window: True", log)
        self.assertIn("this plug-in cannot load", log, "a plug-in that fails to load is in the log")

    def test_a_typescript_project_opens_with_its_bundles(self):
        sources = os.path.join(self.work, "ts-sources")
        shutil.copytree(os.path.join(SOURCE, "samples", "languages", "typescript"), sources)
        target = os.path.join(DATASETS, "ts-sources.db")
        self.addCleanup(lambda: os.path.exists(target) and os.remove(target))
        picture = os.path.join(self.work, "radial.png")
        log = self.run_program(["me.pluginsystem.plugins[0].importFolder(%r, history=False)" % sources], then=[
            "openView('heb')",
            "me.logger.info('radial records: %d' % me.flowlayout.getBoxByType('BHebView').getProcessorByName("
            "'view edge collapser').getOnlyOutputPin().getData().getRecordCount(), None)",
            "saveWindowPicture(%r)" % picture,
        ])
        self.assertIn("Loaded '%s'" % os.path.realpath(target), log)
        self.assertIn("radial records: 7", log, "nine edges between files, on seven pairs of files")
        # The bundles cross the inner disk: coloured pixels about the middle
        # of the view, which is white without edges.
        width, height, rows = read_png(picture)
        middle = [rows[y][x] for y in range(height * 2 // 5, height * 3 // 5)
                  for x in range(width * 2 // 5, width * 3 // 5)]
        coloured = sum(1 for r, g, b in middle if max(r, g, b) - min(r, g, b) > 60)
        self.assertGreater(coloured, 50)
        shutil.copy(picture, "/tmp/radial-ts.png") if os.environ.get("QUORVEL_TEST_PICTURES") else None


def read_png(path):
    """Width, height and rows of (r, g, b) of an 8-bit RGB or RGBA PNG."""
    import struct
    import zlib

    with open(path, "rb") as f:
        data = f.read()
    pos, idat, width, height, channels = 8, b"", 0, 0, 3
    while pos < len(data):
        length, kind = struct.unpack(">I4s", data[pos:pos + 8])
        body = data[pos + 8:pos + 8 + length]
        if kind == b"IHDR":
            width, height, _, colour = struct.unpack(">IIBB", body[:10])
            channels = 4 if colour == 6 else 3
        elif kind == b"IDAT":
            idat += body
        pos += 12 + length
    raw, stride, rows, previous = zlib.decompress(idat), width * channels, [], bytearray(width * channels)
    for y in range(height):
        kind, line = raw[y * (stride + 1)], bytearray(raw[y * (stride + 1) + 1:(y + 1) * (stride + 1)])
        for i in range(stride):
            a = line[i - channels] if i >= channels else 0
            b = previous[i]
            c = previous[i - channels] if i >= channels else 0
            p = a + b - c
            pred = {0: 0, 1: a, 2: b, 3: (a + b) // 2,
                    4: a if abs(p - a) <= abs(p - b) and abs(p - a) <= abs(p - c) else b if abs(p - b) <= abs(p - c) else c}[kind]
            line[i] = (line[i] + pred) & 0xFF
        rows.append([tuple(line[x * channels:x * channels + 3]) for x in range(width)])
        previous = line
    return width, height, rows


if __name__ == "__main__":
    unittest.main()
