"""Imports a source tree with the program's importer and opens it."""

import os

from quorvel_plugin import Plugin


def importer():
    return os.path.join(os.path.dirname(os.path.realpath("/proc/self/exe")), "quorvel-import")


class ImportSourceTree(Plugin):
    def getName(self):
        return "Import source tree"

    def getHelpString(self):
        return ("Analyse the sources of a folder (C, C++, Python, Java, Kotlin, JavaScript, TypeScript, Go, "
                "Rust, C#), with the history of its git work tree, and open the dataset made of them.")

    def getImportance(self):
        return 10

    def activate(self):
        folder = self.chooseFolder("Choose the source tree to import")
        if folder:
            self.importFolder(folder)

    def importFolder(self, folder, command=None, history=None, since=None):
        """Imports `folder` into the datasets folder and opens the result;
        gives its path, or None when the import failed or was aborted. The
        dataset is written under a temporary name, so an abort leaves none
        behind. `history`: True to read git's history, False not to, None
        to read it where the folder lies in a work tree; `since` limits it
        to the commits after a date git understands."""
        name = os.path.basename(os.path.normpath(folder)) or "sources"
        target = os.path.join(self.getDefaultDatasetOutputPath(), name + ".db")
        partial = target + ".importing"
        if os.path.exists(partial):
            os.remove(partial)
        options = []
        if history is not None:
            options.append("--git" if history else "--no-git")
        if since:
            options += ["--since", since]
        run = self.waitForSubprocess((command or [importer()]) + options + [folder, partial])
        run.join(10)
        failed = run.openerror or run.returncode != 0 or not os.path.exists(partial)
        if failed:
            if os.path.exists(partial):
                os.remove(partial)
            text = "\n".join(run.errors) or "".join(run.output) or "The importer could not be run."
            self.setError(text)
            return None
        os.replace(partial, target)
        self.setInputFile(target)
        return target
