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

    def run_program(self, lines):
        with open(os.path.join(self.work, "quit.qvscript"), "w") as f:
            f.write("exit()\n")
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


if __name__ == "__main__":
    unittest.main()

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

