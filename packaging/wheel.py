#!/usr/bin/env python3
"""Makes a wheel of the Python package with the library inside; the same files give the same bytes.

wheel.py FOLDER VERSION PLATFORM LIBRARY NAME LICENSE...

FOLDER gets the wheel, PLATFORM is its tag's last part, LIBRARY the library's file, which is NAME inside of the package, LICENSE
texts to go with it. SOURCE_DATE_EPOCH is the time of all files.
"""

import base64
import hashlib
import os
import pathlib
import sys
import time
import zipfile

TREE = pathlib.Path(__file__).resolve().parent.parent
INFO = "zel-{}.dist-info/"

METADATA = """\
Metadata-Version: 2.1
Name: zel
Version: {}
Summary: Client of the Zel device communication protocol, with the libzel library
License: Apache-2.0
Requires-Python: >=3.9
Classifier: Typing :: Typed
Classifier: License :: OSI Approved :: Apache Software License
Classifier: Operating System :: {}
Description-Content-Type: text/markdown

The package `zel` for Python, with the library inside: nothing else is needed.

    import zel

    with zel.Connection("192.168.1.20.0.1") as connection:
        print(connection.request(600, b"what"))

`zel.aio` is the same for asyncio. `help(zel)` tells more.
"""

WHEEL = """\
Wheel-Version: 1.0
Generator: libzel ({})
Root-Is-Purelib: false
Tag: py3-none-{}
"""


def package(version):
    """The modules, and the type marker."""
    files = {}
    for path in sorted((TREE / "python" / "zel").iterdir()):
        if path.suffix in (".py", ".typed"):
            files["zel/" + path.name] = path.read_bytes()
    files["zel/_version.py"] = f'"""The product\'s version."""\n\n__version__ = "{version}"\n'.encode()
    return files


def digest(data):
    return "sha256=" + base64.urlsafe_b64encode(hashlib.sha256(data).digest()).rstrip(b"=").decode()


def record(files, name):
    lines = [f"{path},{digest(data)},{len(data)}\n" for path, data in files.items()]
    return "".join([*lines, f"{name},,\n"]).encode()


def write(path, files):
    moment = time.gmtime(int(os.environ["SOURCE_DATE_EPOCH"]))[:6]
    with zipfile.ZipFile(path, "w", zipfile.ZIP_DEFLATED, compresslevel=9) as wheel:
        for name, data in files.items():
            entry = zipfile.ZipInfo(name, moment)
            entry.compress_type = zipfile.ZIP_DEFLATED
            entry.create_system = 3
            entry.external_attr = (0o100755 if name.startswith("zel/lib") else 0o100644) << 16
            wheel.writestr(entry, data)


def main(folder, version, platform, library, name, *licenses):
    info = INFO.format(version)
    files = package(version)
    files["zel/" + name] = pathlib.Path(library).read_bytes()
    system = "Microsoft :: Windows" if platform.startswith("win") else "POSIX :: Linux"
    files[info + "METADATA"] = METADATA.format(version, system).encode()
    files[info + "WHEEL"] = WHEEL.format(version, platform).encode()
    for license_file in licenses:
        files[info + "licenses/" + pathlib.Path(license_file).name] = pathlib.Path(license_file).read_bytes()
    files[info + "RECORD"] = record(files, info + "RECORD")
    write(pathlib.Path(folder) / f"zel-{version}-py3-none-{platform}.whl", files)


if __name__ == "__main__":
    if len(sys.argv) < 6:
        sys.exit(__doc__)
    main(*sys.argv[1:])
