"""Tests of the package as it is installed."""

import os
import shutil
import subprocess
import sys
import tempfile
import unittest

from support import PACKAGE

CHECK = """
import sys
import marvo
assert marvo.__file__.startswith(sys.prefix), marvo.__file__
try:
    marvo.Session()
except marvo.LibraryError as error:
    print(error)
"""


class InstallTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = folder.name

    def install(self):
        """Installs a copy of the package, because setuptools writes into its folder, and returns the new Python."""
        source, environment = os.path.join(self.folder, "source"), os.path.join(self.folder, "venv")
        shutil.copytree(PACKAGE, source, ignore=shutil.ignore_patterns("build", "*.egg-info", "__pycache__"))
        subprocess.run([sys.executable, "-m", "venv", "--system-site-packages", environment], check=True)
        python = os.path.join(environment, "bin", "python3")
        subprocess.run(
            [python, "-m", "pip", "install", "-q", "--no-build-isolation", "--no-index", source],
            check=True,
            env=self.environment(),
        )
        return python

    def environment(self, **variables):
        kept = {name: value for name, value in os.environ.items() if name not in ("PYTHONPATH", "MARVO_LIBRARY")}
        return {**kept, **variables}

    def run_python(self, python, code, **variables):
        command = [python, "-c", code]
        environment = self.environment(**variables)
        return subprocess.run(command, env=environment, cwd=self.folder, check=True, capture_output=True, text=True).stdout

    def test_installed_package_is_imported_without_the_library(self):
        python = self.install()
        self.assertEqual(
            self.run_python(python, CHECK),
            "cannot load the library 'libmarvo-4.so': "
            "libmarvo-4.so: cannot open shared object file: No such file or directory\n",
        )
        self.assertEqual(
            self.run_python(python, CHECK, MARVO_LIBRARY="/nowhere/libmarvo.so"),
            "cannot load the library '/nowhere/libmarvo.so': "
            "/nowhere/libmarvo.so: cannot open shared object file: No such file or directory\n",
        )
        code = "import importlib.metadata, importlib.resources, marvo\n"
        code += "print(importlib.metadata.version('marvo'), importlib.resources.files(marvo).joinpath('py.typed').is_file())"
        self.assertEqual(self.run_python(python, code), f"{os.environ['MARVO_VERSION']} True\n")


if __name__ == "__main__":
    unittest.main()
