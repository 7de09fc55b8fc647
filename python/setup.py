"""Writes the version into what is built, as CMakeLists.txt, which tells it, is not part of that."""

import pathlib

from setuptools import setup
from setuptools.command.build_py import build_py


class BuildWithVersion(build_py):
    def run(self) -> None:
        super().run()
        text = f'"""The product\'s version."""\n\n__version__ = "{self.distribution.get_version()}"\n'
        (pathlib.Path(self.build_lib) / "zel" / "_version.py").write_text(text, encoding="utf-8")


setup(cmdclass={"build_py": BuildWithVersion})
