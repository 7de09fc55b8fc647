"""The product's version, which CMakeLists.txt tells in the source tree. What is installed has the number in here."""

import pathlib
import re

_project = (pathlib.Path(__file__).resolve().parents[2] / "CMakeLists.txt").read_text(encoding="utf-8")
__version__ = re.findall(r"^project\(libzel VERSION ([\d.]+)", _project, re.MULTILINE)[0]
