"""What the program offers its plug-ins: the base class `Plugin`, a
subprocess reader that understands the tools' line protocol, and the
loader of the "plugins" folder.

A plug-in is a folder in "plugins" holding "QuorvelPlugin.py" with a class
of the folder's name: getName(), getHelpString(), getImportance() and
activate(). The dialogs come from the program itself (MQuorvel), so that no
plug-in needs a toolkit of its own.
"""

import importlib.util
import os
import shlex
import signal
import subprocess
import sys
import threading
import time
import traceback

STATUS = "***STATUS: "
ERROR = "***ERROR: "
MARK = "***QUORVEL"


def _ui():
    import MQuorvel

    return MQuorvel


def _me():
    import MQuorvel

    return MQuorvel.me


class TSubprocessThread(threading.Thread):
    """Runs a command with standard error merged into standard output and
    reads its lines as they come."""

    def __init__(self, command):
        super().__init__(daemon=True)
        self.command = command
        self.status = ""
        self.stop = False
        self.errors = []
        self.returncode = 1
        self.output = []
        self.openerror = False
        self.validplugin = False
        self.process = None

    def run(self):
        try:
            command = shlex.split(self.command) if isinstance(self.command, str) else list(self.command)
            self.process = subprocess.Popen(
                command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, stdin=subprocess.DEVNULL,
                text=True, errors="replace", bufsize=1, start_new_session=True)
            while not self.stop:
                line = self.process.stdout.readline()
                self.output.append(line)
                if not line:
                    break
                if line.startswith(STATUS):
                    self.status = line[len(STATUS):].strip()
                if line.startswith(ERROR):
                    self.errors.append(line[len(ERROR):].strip())
                if line.startswith(MARK):
                    self.validplugin = True
            code = self.process.wait()
            if not self.stop:
                self.returncode = code
        except Exception:
            self.openerror = True

    def terminate(self):
        self.errors.append("Aborted by the user")
        self.stop = True
        if self.process is not None:
            # The tool and whatever it started: they share its session.
            try:
                os.killpg(self.process.pid, signal.SIGKILL)
            except OSError:
                pass
        self.returncode = 1


class Plugin:
    """The base class of plug-ins."""

    def getName(self):
        return type(self).__name__

    def getHelpString(self):
        return ""

    def getImportance(self):
        return 0

    def terminate(self):
        pass

    def getDefaultDatasetOutputPath(self):
        folder = os.path.join(_me().applicationfolder, "datasets")
        try:
            os.makedirs(folder, exist_ok=True)
        except OSError:
            pass
        if not os.path.isdir(folder):
            raise RuntimeError("Could not create folder '%s'" % folder)
        return folder

    def signSqlFile(self, inputfile):
        pass

    def setInputFile(self, inputfile):
        window = _me().mainwindow
        window.Load(None if inputfile is None else os.path.realpath(inputfile))

    def setError(self, text):
        ui = _ui()
        ui.pluginLogWindow(self.getName() + " error log", text)
        ui.pluginMessageBox("Errors occured during the analysis. See the log for more information.", self.getName(),
                            True)

    def setInfo(self, text):
        _ui().pluginMessageBox(text, self.getName(), False)

    def getParentWindow(self):
        return _me().mainwindow

    # Questions a plug-in asks: None when the user cancels.
    def chooseFolder(self, title=None):
        return _ui().pluginChooseFolder(title or self.getName())

    def chooseFile(self, title=None, wildcard="*"):
        return _ui().pluginChooseFile(title or self.getName(), wildcard)

    def askText(self, prompt, value="", title=None):
        return _ui().pluginAskText(title or self.getName(), prompt, value)

    def _wait(self, thread, text, aborted, to_the_end=False):
        """Pulses the progress dialog while the thread lives. An abort calls
        `aborted`; the wait then ends at once, or with `to_the_end` when the
        thread has ended."""
        ui = _ui()
        ui.pluginProgressOpen(self.getName())
        try:
            was_aborted = False
            while thread.is_alive():
                if not ui.pluginProgressPulse("Aborting..." if was_aborted else text()) and not was_aborted:
                    aborted()
                    if not to_the_end:
                        break
                    was_aborted = True
                time.sleep(0.1)
                ui.pluginYield()
        finally:
            ui.pluginProgressClose()

    def waitForFunction(self, function):
        # A plain thread cannot be stopped: an abort waits for it to end.
        thread = threading.Thread(target=function, daemon=True)
        thread.start()
        self._wait(thread, lambda: "Processing...", lambda: None, to_the_end=True)

    def waitForSubprocess(self, command):
        thread = TSubprocessThread(command)
        thread.start()
        self._wait(thread, lambda: thread.status, thread.terminate)
        return thread

    def stopBusy(self):
        dialog = getattr(self, "progressdlg", None)
        if dialog is not None:
            dialog.Hide()


class TPluginSystem:
    def __init__(self, plugindir="plugins", log=None):
        self.plugindir = plugindir
        self.plugins = []
        self._folders = {}
        log = log or _log
        if not os.path.isdir(plugindir):
            log("error", "Cannot find plugin folder '%s'" % plugindir)
            return
        log("info", 'Loading plug-ins from "%s"' % plugindir)
        for name in os.listdir(plugindir):
            folder = os.path.join(plugindir, name)
            module = None
            for candidate in ("QuorvelPlugin.py", "QuorvelPlugin.pyc"):
                if os.path.isfile(os.path.join(folder, candidate)):
                    module = os.path.join(folder, candidate)
                    break
            if module is None:
                continue
            saved = list(sys.path)
            try:
                sys.path.append(os.path.abspath(folder))
                spec = importlib.util.spec_from_file_location(name, module)
                loaded = importlib.util.module_from_spec(spec)
                spec.loader.exec_module(loaded)
                plugin = getattr(loaded, name)()
                self.plugins.append(plugin)
                self._folders[id(plugin)] = os.path.abspath(folder)
            except Exception:
                log("error", traceback.format_exc())
            finally:
                sys.path[:] = saved
        self.plugins.sort(key=lambda p: p.getImportance(), reverse=True)

    def folderOf(self, plugin):
        return self._folders[id(plugin)]


def _log(level, text):
    try:
        me = _me()
        if level == "error":
            me.logger.error(text, None)
        else:
            me.logger.info(text, None)
    except Exception:
        print(text)
