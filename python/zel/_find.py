"""Where the library's file is."""

from __future__ import annotations

import ntpath
import os
import pathlib
import posixpath
import sys
from typing import List, Mapping


def places(system: str, package: str, environment: Mapping[str, str]) -> List[str]:
    """The files to look for, the best first, on a system (of sys.platform), for a package in a folder.

    On Windows the interpreter does not look on the PATH any more.
    """
    if system != "win32":
        return [posixpath.join(package, "libzel.so.0")]
    beside = ntpath.dirname(package)
    folders = [package, beside, ntpath.join(ntpath.dirname(beside), "bin")]
    folders += [folder.strip('"') for folder in environment.get("PATH", "").split(";")]
    return [ntpath.join(folder, "libzel.dll") for folder in folders if ntpath.isabs(folder)]


def library_file() -> str:
    """What to load: ZEL_LIBRARY, or the first that is there, or the name, for the system to find."""
    named = os.environ.get("ZEL_LIBRARY")
    if named:
        return named
    for place in places(sys.platform, str(pathlib.Path(__file__).resolve().parent), os.environ):
        if os.path.isfile(place):
            return place
    return "libzel.dll" if sys.platform == "win32" else "libzel.so.0"
