"""The plug-in base from a plain interpreter: the subprocess reader's line
protocol, its failures and abort, and the loading and order of plug-ins."""

import os
import sys
import tempfile
import time
import unittest

import quorvel_plugin


def run(command):
    thread = quorvel_plugin.TSubprocessThread(command)
    thread.start()
    thread.join(30)
    return thread


class SubprocessThreadTest(unittest.TestCase):
    def test_lines_of_both_streams_are_read_and_the_marks_understood(self):
        script = ("import sys\n"
                  "print('***QUORVEL')\n"
                  "print('***STATUS:  half way ')\n"
                  "print('***ERROR: bad file', file=sys.stderr)\n"
                  "print('plain')\n"
                  "sys.exit(3)\n")
        t = run([sys.executable, "-u", "-c", script])
        self.assertTrue(t.validplugin)
        self.assertEqual(t.status, "half way")
        self.assertEqual(t.errors, ["bad file"])
        self.assertIn("plain\n", t.output)
        self.assertEqual(t.output[-1], "")
        self.assertEqual(t.returncode, 3)
        self.assertFalse(t.openerror)

    def test_a_missing_program_and_an_abort(self):
        t = run(["/nonexistent/tool"])
        self.assertTrue(t.openerror)
        self.assertEqual(t.returncode, 1)

        t = quorvel_plugin.TSubprocessThread([sys.executable, "-c", "import time; time.sleep(30)"])
        t.start()
        time.sleep(0.3)
        started = time.time()
        t.terminate()
        t.join(10)
        self.assertFalse(t.is_alive())
        self.assertLess(time.time() - started, 5)
        self.assertEqual(t.errors, ["Aborted by the user"])
        self.assertEqual(t.returncode, 1)


    def test_a_command_line_given_as_one_string(self):
        t = run("%s -c 'print(\"***STATUS: one string\")'" % sys.executable)
        self.assertFalse(t.openerror)
        self.assertEqual(t.status, "one string")
        self.assertEqual(t.returncode, 0)


class WaitTest(unittest.TestCase):
    class AbortingUi:
        """The progress dialog of a user who presses Abort at once."""
        pulses = 0

        def pluginProgressOpen(self, title):
            pass

        def pluginProgressPulse(self, text):
            WaitTest.AbortingUi.pulses += 1
            return False

        def pluginProgressClose(self):
            pass

        def pluginYield(self):
            pass

    def test_an_aborted_wait_for_a_function_ends_when_the_function_has_ended(self):
        saved = quorvel_plugin._ui
        quorvel_plugin._ui = lambda: WaitTest.AbortingUi()
        try:
            done = []
            quorvel_plugin.Plugin().waitForFunction(lambda: (time.sleep(0.5), done.append(True)))
            self.assertEqual(done, [True])
        finally:
            quorvel_plugin._ui = saved


class PluginSystemTest(unittest.TestCase):
    def test_the_default_log_reaches_the_program_log(self):
        import MQuorvel
        folder = tempfile.mkdtemp()
        saved = MQuorvel.me.logger
        MQuorvel.me.logger = MQuorvel.TLogger(os.path.join(folder, "Quorvel.log"))
        try:
            quorvel_plugin.TPluginSystem(os.path.join(folder, "missing"))
        finally:
            MQuorvel.me.logger = saved
        with open(os.path.join(folder, "Quorvel.log"), encoding="utf-8") as f:
            self.assertIn("Cannot find plugin folder", f.read())

    def test_plugins_load_by_folder_name_in_order_of_importance(self):
        root = tempfile.mkdtemp()
        plugins = os.path.join(root, "plugins")

        def plugin(name, body):
            os.makedirs(os.path.join(plugins, name))
            with open(os.path.join(plugins, name, "QuorvelPlugin.py"), "w") as f:
                f.write(body)

        plugin("Low", "from quorvel_plugin import Plugin\nclass Low(Plugin):\n  pass\n")
        plugin("High", "from quorvel_plugin import Plugin\n"
                       "class High(Plugin):\n  def getImportance(self): return 5\n")
        plugin("Broken", "raise ValueError('broken plug-in')\n")
        os.makedirs(os.path.join(plugins, "Empty"))
        logged = []
        path = list(sys.path)
        system = quorvel_plugin.TPluginSystem(plugins, log=lambda level, text: logged.append((level, text)))
        self.assertEqual([p.getName() for p in system.plugins], ["High", "Low"])
        self.assertEqual(system.folderOf(system.plugins[0]), os.path.join(plugins, "High"))
        self.assertEqual(sys.path, path)
        self.assertTrue(any(level == "error" and "broken plug-in" in text for level, text in logged))

        logged.clear()
        self.assertEqual(quorvel_plugin.TPluginSystem(os.path.join(root, "none"),
                                                      log=lambda l, t: logged.append(t)).plugins, [])
        self.assertIn("Cannot find plugin folder", logged[0])


if __name__ == "__main__":
    unittest.main()
