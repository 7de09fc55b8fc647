"""Each rule of run.py notices what it is there for, and lets pass what it should. clang-tidy: only which files it gets."""
import subprocess

import pytest
import run
import tidy

CASES = [
    (run.misformatted, "src/utils/A.h", "int  a;\n", "int a;\n"),
    (run.overlong_lines, "tools/a.cpp", "//" + " x" * 55 + "\n", "//" + " x" * 54 + "\n"),
    (run.overlong_lines, "tests/a.cpp", "// not text, R is no raw string" + "x" * 90 + "\n", 'auto a = R"(' + "x" * 120 + ')";\n'),
    (run.overlong_files, "tools/a.cpp", "\n" * 600, "\n" * 599),
    (run.unexplained_suppressions, "src/utils/A.h", "int a;  // NOLINT\n", "int a;  // NOLINT(bugprone-x): it is so\n"),
    (run.unexplained_suppressions, "src/utils/A.h", "int a;  // NOLINT(bugprone-x)\n", "// NOLINTNEXTLINE(a-b,c-d): it is so\nint a;\n"),
    (run.unexplained_suppressions, "src/utils/A.h", "\n#pragma GCC diagnostic ignored \"-Wshadow\"\n",
     "// It is so.\n#pragma GCC diagnostic ignored \"-Wshadow\"\n"),
    (run.foreign_locks, "src/zelcomm/A.h", "std::lock_guard lock(mutex);\n", "const MutexLock lock(mutex);\n"),
    (run.foreign_locks, "include/utils/A.h", "std::recursive_timed_mutex m;\n", "std::thread::id id = std::this_thread::get_id();\n"),
    (run.foreign_locks, "src/zelclient/A.cpp", "std::jthread t;\n", "Thread t;\n"),
    (run.upward_includes, "src/utils/A.h", '#include "zelcomm/Frame.h"\n', '#include "platform/Platform.h"\n'),
    (run.upward_includes, "src/platform/A.h", '#include "utils/Log.h"\n', '#include "libzel/libzel.h"\n'),
    (run.systems_outside_platform, "src/utils/A.h", "#ifdef _WIN32\n#endif\n", "int a;  // no _WIN32 here\n"),
    (run.systems_outside_platform, "include/utils/A.h", "#if defined(__linux__)\n#endif\n", "\n"),
]


def git(tree, *arguments):
    subprocess.run(["git", "-c", "user.name=a", "-c", "user.email=a@b", "-C", str(tree), *arguments], check=True, capture_output=True)


@pytest.fixture
def tree(tmp_path, monkeypatch):
    git(tmp_path, "init", "-q", "-b", "main")
    (tmp_path / ".clang-format").write_text((run.TREE / ".clang-format").read_text())
    monkeypatch.setattr(run, "TREE", tmp_path)
    return tmp_path


def write(tree, name, text):
    (tree / name).parent.mkdir(parents=True, exist_ok=True)
    (tree / name).write_text(text)


def commit(tree, name, text, when):
    write(tree, name, text)
    git(tree, "add", ".")
    subprocess.run(["git", "-c", "user.name=a", "-c", "user.email=a@b", "-C", str(tree), "commit", "-qm", name], check=True,
                   env={"PATH": "/usr/bin:/bin", "GIT_COMMITTER_DATE": f"{when} +0000", "GIT_AUTHOR_DATE": f"{when} +0000"})


@pytest.mark.parametrize("rule, name, bad, good", CASES)
def test_rule_tells_bad_from_good(tree, rule, name, bad, good):
    write(tree, name, bad)
    assert len(rule()) == 1
    write(tree, name, good)
    assert rule() == []


def test_on_main_the_last_day_is_looked_at(tree):
    for day, name in enumerate(["old", "older_than_a_day", "yesterday", "today"]):
        commit(tree, f"src/{name}.cpp", "", 1_700_000_000 + [0, 10, 90_000, 100_000][day])
    assert tidy.changed(tree) == ["src/today.cpp", "src/yesterday.cpp"]


def test_a_young_repository_is_looked_at_whole(tree):
    commit(tree, "src/a.cpp", "", 1_700_000_000)
    assert "src/a.cpp" in tidy.changed(tree)


def test_on_a_branch_its_own_commits_and_what_is_not_committed_are_looked_at(tree):
    commit(tree, "src/a.cpp", "", 1_700_000_000)
    git(tree, "switch", "-qc", "branch")
    commit(tree, "src/b.cpp", "", 1_700_000_000)
    write(tree, "src/a.cpp", "changed")
    write(tree, "src/new.cpp", "")
    assert tidy.changed(tree) == ["src/a.cpp", "src/new.cpp", "src/b.cpp"]


def test_a_header_is_looked_at_by_way_of_a_source(tree):
    write(tree, "src/utils/A.cpp", "")
    write(tree, "src/utils/B.cpp", '#include "utils/Only.h"\n')
    commands = {"src/utils/A.cpp": {}, "src/utils/B.cpp": {}}
    assert tidy.to_look_at(tree, commands, ["src/utils/A.h", "src/utils/Only.h", "README.md"]) == ["src/utils/A.cpp", "src/utils/B.cpp"]
