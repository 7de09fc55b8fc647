"""clang-tidy over the library's and the tools' files: which ones, how, and what it said."""
import concurrent.futures
import hashlib
import json
import os
import re
import shlex
import subprocess
import time

# No file is begun later, unless everything is asked for: the run is to take three minutes on two cores.
PATIENCE_SEC = 110
FOLDERS = ("src/", "tools/")
DAY_SEC = 24 * 60 * 60
# What g++ for Windows knows and clang does not.
FOREIGN_FLAGS = ("-fno-keep-inline-dllexport", "-Wno-restrict")


def output(*command, cwd=None):
    return subprocess.run(command, cwd=cwd, check=True, capture_output=True, text=True).stdout


def git(tree, *arguments):
    run = subprocess.run(["git", *arguments], cwd=tree, capture_output=True, text=True)
    return run.stdout.strip() if run.returncode == 0 else ""


def base(tree):
    """Where the branch left main; on main itself the last commit that is a day older than the newest."""
    head = git(tree, "rev-parse", "HEAD")
    for main in ("origin/main", "main"):
        fork = git(tree, "merge-base", "HEAD", main)
        if fork and fork != head:
            return fork
    newest = int(git(tree, "log", "-1", "--format=%ct") or 0)
    older = git(tree, "rev-list", "-1", f"--before={newest - DAY_SEC}", "HEAD")
    return older or git(tree, "hash-object", "-t", "tree", "/dev/null")


def changed(tree):
    """The newest first: what is not committed, then commit by commit."""
    since = base(tree)
    named = git(tree, "diff", "--name-only", "HEAD").split("\n")
    named += git(tree, "ls-files", "-o", "--exclude-standard").split("\n")
    history = [f"{since}..HEAD"] if git(tree, "cat-file", "-t", since) == "commit" else ["HEAD"]
    named += git(tree, "log", "--format=", "--name-only", *history).split("\n")
    return [name for name in dict.fromkeys(named) if name and (tree / name).exists()]


def configure(tree, name, preset, *options):
    """A build folder that is only configured, for its commands: one for each file of ours."""
    folder = tree / "build" / "style" / name
    output("cmake", "--preset", preset, "-B", str(folder), "-DZEL_UNITY=OFF", "-DZEL_BUILD_TESTS=OFF",
           "-DZEL_BUILD_EXAMPLES=OFF", "-DZEL_INSTALL=OFF", *options, cwd=tree)
    commands = {}
    for entry in json.loads((folder / "compile_commands.json").read_text()):
        words = [word for word in shlex.split(entry["command"]) if word not in FOREIGN_FLAGS]
        if os.path.basename(words[0]) == "ccache":
            words = words[1:]
        file = os.path.relpath(entry["file"], tree)
        if file.startswith(FOLDERS) and file.endswith(".cpp"):
            commands.setdefault(file, {"directory": entry["directory"], "file": entry["file"], "arguments": words})
    return commands


def for_windows(commands):
    """clang finds the system's headers of a Windows build, but not the headers of g++'s own library."""
    compiler = next(iter(commands.values()))["arguments"][0]
    said = subprocess.run([compiler, "-E", "-v", "-x", "c++", os.devnull], capture_output=True, text=True).stderr
    headers = [f"-isystem{folder}" for folder in re.findall(r"^ (/\S+/c\+\+\S*)$", said, re.M)]
    for entry in commands.values():
        entry["arguments"][0] = "clang++"
        entry["arguments"][1:1] = ["--target=x86_64-w64-mingw32", *headers]
    return commands


def all_commands(tree):
    commands = for_windows(configure(tree, "windows", "windows-release"))
    commands.update(configure(tree, "linux", "linux-debug"))
    (tree / "build" / "style" / "compile_commands.json").write_text(json.dumps(list(commands.values())))
    return commands


def to_look_at(tree, commands, names):
    """A header is looked at by way of its source, or else of the first source that includes it."""
    chosen = []
    for name in names:
        if not name.startswith((*FOLDERS, "include/")):
            continue
        stem = name.rsplit(".", 1)[0]
        if not name.endswith(".h") or stem + ".cpp" in commands:
            chosen.append(stem + ".cpp")
            continue
        include = re.compile(r'#include ["<](\S+/)?' + re.escape(os.path.basename(name)) + '[">]')
        chosen += [file for file in sorted(commands) if include.search((tree / file).read_text())][:1]
    return [name for name in dict.fromkeys(chosen) if name in commands]


class Tidy:
    def __init__(self, tree, commands, everything):
        self.tree, self.commands = tree, commands
        self.end = None if everything else time.monotonic() + PATIENCE_SEC
        self.seen = tree / "build" / "style" / "seen"
        self.seen.mkdir(parents=True, exist_ok=True)
        self.rules = output("clang-tidy", "--version") + (tree / ".clang-tidy").read_text()

    def state(self, name):
        """Stands for all that the outcome hangs on: the rules, the command, the file and our headers in it."""
        entry = self.commands[name]
        words = entry["arguments"]
        words = words[:words.index("-o")] + words[words.index("-o") + 2:]
        rule = output(*[word for word in words if word != "-c"], "-MM", cwd=entry["directory"])
        files = rule.split(":", 1)[1].replace("\\\n", " ").split()
        state = hashlib.sha256((self.rules + " ".join(words)).encode())
        for file in files:
            with open(os.path.join(entry["directory"], file), "rb") as content:
                state.update(content.read())
        return self.seen / state.hexdigest()

    def look(self, name):
        """What there is to say of the file, nothing when it is as it should be, and None when time is up."""
        if self.end and time.monotonic() > self.end:
            return None
        state = self.state(name)
        if state.exists():
            return []
        run = subprocess.run(["clang-tidy", "-p", "build/style", "--quiet", name], cwd=self.tree, capture_output=True, text=True)
        said = run.stdout + run.stderr
        if run.returncode == 0:
            state.touch()
            return []
        return [line for line in said.split("\n") if ": error: " in line or ": warning: " in line] or said.split("\n")


def look(tree, everything):
    """A dictionary with what there is to say of each file that was looked at."""
    commands = all_commands(tree)
    names = sorted(commands) if everything else to_look_at(tree, commands, changed(tree))
    tidy = Tidy(tree, commands, everything)
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        found = dict(zip(names, pool.map(tidy.look, names)))
    left = [name for name, said in found.items() if said is None]
    if left:
        print(f"{len(left)} changed files are left for want of time, `./test.sh style --all` looks at them:", *left)
    return {f"clang-tidy {name}": said for name, said in found.items() if said is not None}
