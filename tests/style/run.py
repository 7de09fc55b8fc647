#!/usr/bin/env python3
"""Looks at the sources without running anything: format, rules of the house, clang-tidy.

run.py [--all]: clang-tidy looks at what changed since main, as far as the time goes; with --all at everything.
The last line is ctest's summary, for test.sh.
"""
import pathlib
import re
import subprocess
import sys

import tidy

TREE = pathlib.Path(__file__).resolve().parents[2]
COLUMNS = 110
# Their comments are still to be broken anew.
LATER_NARROW = ("src/", "include/libzel/libzel.h", "include/libzel/libzelx.h")
MOST_LINES = 600
FLOORS = ["platform", "utils", "zelcomm", "zelclient", "libzel"]
LOCKS = r"std::(\w*mutex|condition_variable\w*|lock_guard|unique_lock|scoped_lock|shared_lock|j?thread)\b(?!::id)"
REASON = r"NOLINT(NEXTLINE|BEGIN)?\([\w.,\- ]+\): \w"
SILENCER = r"NOLINT(?!END)|diagnostic ignored|no_thread_safety_analysis|NO_THREAD_SAFETY_ANALYSIS"


def sources(*folders):
    """Our C and C++ files, new ones that are not committed yet among them, with their lines."""
    listed = subprocess.run(["git", "ls-files", "-co", "--exclude-standard", "--", *folders], cwd=TREE, check=True,
                            capture_output=True, text=True).stdout.split("\n")
    for name in listed:
        if name.endswith((".h", ".hpp", ".c", ".cpp")) and (TREE / name).exists():
            yield name, (TREE / name).read_text(encoding="utf-8").split("\n")


def each_line(*folders):
    for name, lines in sources(*folders):
        for number, line in enumerate(lines, 1):
            yield name, number, line


def misformatted():
    names = [name for name, _ in sources()]
    run = subprocess.run(["clang-format", "-n", "-Werror", *names], cwd=TREE, capture_output=True, text=True)
    return [line for line in run.stderr.split("\n") if "error:" in line] or ([run.stderr] if run.returncode else [])


def overlong_lines():
    """A raw string keeps its lines, and the formatter leaves it."""
    return [f"{name}:{number}: {len(line)} columns" for name, number, line in each_line()
            if len(line) > COLUMNS and 'R"' not in line and not name.startswith(LATER_NARROW)]


def overlong_files():
    return [f"{name}: {len(lines)} lines" for name, lines in sources() if len(lines) > MOST_LINES]


def unexplained_suppressions():
    """NOLINT(check): reason. Other silencers have a comment in the line before."""
    found = []
    before = ""
    for name, number, line in each_line():
        if re.search(SILENCER, line) and "#define" not in line:
            if not (re.search(REASON, line) if "NOLINT" in line else before.lstrip().startswith("//")):
                found.append(f"{name}:{number}: no reason is given: {line.strip()}")
        before = line
    return found


def foreign_locks():
    """Only these two know the standard's; the rest uses theirs, which clang's analysis understands."""
    return [f"{name}:{number}: {line.strip()}" for name, number, line in each_line("src", "include/utils", "include/zelclient")
            if re.search(LOCKS, line) and not re.match(r"src/utils/(Mutex\.h|Thread\.(h|cpp))$", name)]


def upward_includes():
    found = []
    for name, number, line in each_line("src"):
        floor = FLOORS.index(name.split("/")[1])
        included = re.match(r'#include "(\w+)/', line)
        # The public header is no floor: it has the types.
        if included and included[1] in FLOORS[floor + 1:] and "libzel/libzel" not in line:
            found.append(f"{name}:{number}: {line}")
    return found


def systems_outside_platform():
    return [f"{name}:{number}: {line}" for name, number, line in each_line("src", "include/utils", "include/zelclient")
            if re.search(r"^\s*#.*\b(_WIN32|__linux__|__unix__|__MINGW32__)\b", line) and not name.startswith("src/platform/")]


RULES = {
    "everything is formatted": misformatted,
    f"lines have at most {COLUMNS} columns": overlong_lines,
    f"files have at most {MOST_LINES} lines": overlong_files,
    "suppressions say why": unexplained_suppressions,
    "locks and threads are those of utils": foreign_locks,
    "includes go downwards": upward_includes,
    "only src/platform knows the system": systems_outside_platform,
}


def main():
    results = {name: rule() for name, rule in RULES.items()}
    results.update(tidy.look(TREE, everything="--all" in sys.argv[1:]))
    for name, found in results.items():
        print("FAILED " if found else "ok     ", name)
        print("".join(f"    {line}\n" for line in found), end="")
    failed = sum(1 for found in results.values() if found)
    print(f"{(len(results) - failed) * 100 // len(results)}% tests passed, {failed} tests failed out of {len(results)}")
    return failed != 0


if __name__ == "__main__":
    sys.exit(main())
