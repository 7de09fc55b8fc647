"""What the pages say, held against what the library and the tool do. The environment variable ZEL_PROGRAM names the tool."""

import json
import os
import pathlib
import re
import subprocess
import sys

import pytest

TREE = pathlib.Path(__file__).resolve().parents[2]
PAGES = sorted((TREE / "docs").rglob("*.md"))
MARKDOWN = PAGES + [path for pattern in ("*.md", "bench/*.md", "python/*.md", "tests/**/*.md", "tools/**/*.md")
                    for path in sorted(TREE.glob(pattern))]
sys.path.insert(0, str(TREE / "tests" / "wireshark"))

from capture import answer, inner, message, outer, record, request  # noqa: E402


def page(name):
    return (TREE / "docs" / f"{name}.md").read_text(encoding="utf-8")


def zel(*arguments):
    return subprocess.run([os.environ["ZEL_PROGRAM"], *arguments], capture_output=True, check=True, text=True).stdout


def error_rows():
    """Code to (hexadecimal, name and text) of the tables of codes."""
    rows = re.findall(
        r"^\| (\d+)<br>(0x\w+) \| (.*?) \| [^|]+ \| [^|]+ \|$", page("errors") + page("beyond"), re.MULTILINE
    )
    assert len({code for code, _, _ in rows}) == len(rows), "a code has two rows"
    return {int(code): (hexadecimal, words) for code, hexadecimal, words in rows}


def test_every_code_has_a_row_with_its_text_and_name():
    rows = error_rows()
    codes = [json.loads(line) for line in zel("errors", "--json").splitlines()]
    assert sorted(rows) == sorted(code["code"] for code in codes)
    for code in codes:
        hexadecimal, words = rows[code["code"]]
        assert hexadecimal == f"0x{code['code']:04X}"
        assert f'"{code["text"]}"' in words
        assert f"`{code.get('name', '')}`" in words or "name" not in code


def test_every_constant_of_the_header_is_named_with_its_code():
    header = (TREE / "include" / "libzel" / "libzel.h").read_text(encoding="utf-8")
    constants = re.findall(r"^#define (ZEL_(?:OK|E_\w+|EVENT_\w+)) (\d+)", header, re.MULTILINE)
    assert len(constants) > 20
    rows = error_rows()
    assert [name for name, code in constants if f"`{name}`" not in rows[int(code)][1]] == []


def test_every_new_constant_is_on_its_page_with_its_code():
    header = (TREE / "include" / "libzel" / "libzelx.h").read_text(encoding="utf-8")
    constants = re.findall(r"^#define (LIBZELX_E_\w+) (\d+)", header, re.MULTILINE)
    assert len(constants) >= 5
    rows = re.findall(r"^\| (\d+)<br>(0x\w+) \| `(\w+)`<br>\"[^|]+\" \| [^|]+ \| [^|]+ \|$", page("beyond"), re.MULTILINE)
    assert rows == [(code, f"0x{int(code):04X}", name) for name, code in constants]


def test_every_function_of_the_second_family_is_on_its_page():
    header = (TREE / "include" / "libzel" / "libzelx.h").read_text(encoding="utf-8")
    functions = re.findall(r"^ZEL_API [^;(]*?(libzelx_\w+)\(", header, re.MULTILINE)
    assert len(functions) > 20
    assert [name for name in functions if f"`{name}`" not in page("beyond")] == []


def test_every_option_has_a_row_and_its_danger_leads_there():
    header = (TREE / "include" / "libzel" / "libzelx.h").read_text(encoding="utf-8")
    options = re.findall(r"^  LIBZELX_(\w+) = \d+", header, re.MULTILINE)
    assert len(options) >= 20
    rows = re.findall(r'^\| <a id="opt_(\w+)"></a>`(\w+)` \| .*? \| .*? \| (.*?) \|$', page("beyond"), re.MULTILINE)
    assert [(anchor, name) for anchor, name, _ in rows] == [(name.lower(), name) for name in options]
    dangers = page("oddities")
    for anchor, _, danger in rows:
        if danger != "-":
            assert f"](beyond.md#opt_{anchor})" in dangers
            assert f'<a id="{re.search(r"#(danger_.*)[)]", danger)[1]}"></a>' in dangers


def test_every_command_of_the_tool_is_described():
    commands = re.findall(r"^  ([a-z]+)  +\w", zel("--help").split("Commands:")[1], re.MULTILINE)
    assert len(commands) > 5
    assert [command for command in commands if f"| [zel {command}](tool/{command}.md) |" not in page("tool")] == []


def test_every_option_of_all_commands_is_described():
    options = re.findall(r"^  (-\w,--\w+(?: [A-Z]+)?)  +\w", zel("--help"), re.MULTILINE)
    assert len(options) == 6
    assert [option for option in options if f"| `{option}` |" not in page("tool")] == []


def test_the_exit_statuses_are_those_of_the_help():
    rows = re.findall(r"^\| (\d+) \| (.*) \|$", page("tool").split("## The exit status")[1], re.MULTILINE)
    told = " ".join(zel("--help").split("Exit status:")[1].split("Try:")[0].split())
    plain = [(status, re.sub(r"\[([^]]*)\]\([^)]*\)", r"\1", meaning).replace("`", "")) for status, meaning in rows]
    assert " ".join(f"{status} {meaning}" for status, meaning in plain) == told


def shown_frames():
    """The hexadecimal blocks of wire.md, in order."""
    for language, block in re.findall(r"^```(\w*)\n(.*?)^```$", page("wire"), re.MULTILINE | re.DOTALL):
        if language:
            continue
        lines = [re.match(r"(?:[0-9a-f]{2} )*[0-9a-f]{2}(?= |$)", line) for line in block.splitlines()]
        assert all(lines), block
        yield bytes.fromhex("".join(line.group() for line in lines))


def test_shown_frames_are_right():
    address = bytes.fromhex("00001000 00001001")
    assert list(shown_frames()) == [
        request(600, 1, b"hi"),
        answer(600, 1, b"hi"),
        request(103, 2, record(b"pub", b"t", b"21.5", 1, 2)),
        message(101, inner(0, 0, 1) + address),
    ]
    assert outer(1, 600, 23) == next(shown_frames())[:8]


def prose(path):
    """A page without its code."""
    text = re.sub(r"^```.*?^```$", "", path.read_text(encoding="utf-8"), flags=re.MULTILINE | re.DOTALL)
    return re.sub(r"`[^`]+`", "`code`", text)


@pytest.mark.parametrize("path", MARKDOWN, ids=lambda path: str(path.relative_to(TREE)))
def test_page_is_plain_markdown(path):
    """What a forge would show as it stands: commands and labels of the site's builder, its tags for bold text."""
    assert re.findall(r"\\[a-z]+\b|[\\@](?:ref|anchor|subpage|include)|\{#|</?b>|\[TOC\]", prose(path)) == []


@pytest.mark.parametrize("path", PAGES, ids=lambda path: str(path.relative_to(TREE)))
def test_page_is_reached_from_the_one_above(path):
    above = TREE / "docs" / ("index.md" if path.parent.name == "docs" else path.parent.name + ".md")
    assert path == above or f"]({os.path.relpath(path, above.parent)})" in above.read_text(encoding="utf-8")


def test_every_program_of_the_documents_is_shown_on_a_page():
    shown = [(path.parent / program).resolve() for path in PAGES
             for program in re.findall(r"^\[[^\]]+\]\((\S+\.(?:c|cpp|py))\)$", path.read_text(encoding="utf-8"), re.MULTILINE)]
    assert [program for program in shown if not program.exists()] == []
    programs = sorted((TREE / "docs" / "examples").glob("*.c"))
    assert len(programs) > 5
    assert [program.name for program in programs if program not in shown] == []
