"""The completions as the shells make them. The environment variable ZEL_PROGRAM names the tool; a shell that is not here is
left out."""

import os
import pathlib
import pty
import re
import select
import shutil
import subprocess
import time

import pytest

COMMANDS = ["doctor", "errors", "id", "listen", "pub", "record", "replay", "request", "scan", "send", "sub", "version", "watch"]
COMMON = ["--help", "--json", "--log", "--quiet", "--verbose", "--version"]


@pytest.fixture(scope="module")
def scripts(tmp_path_factory):
    folder = tmp_path_factory.mktemp("completion")
    for shell, name in (("bash", "zel.bash"), ("zsh", "_zel"), ("fish", "zel.fish")):
        text = subprocess.run([os.environ["ZEL_PROGRAM"], "--generate", shell], capture_output=True, check=True).stdout
        (folder / name).write_bytes(text)
    (folder / "recipe.bin").touch()
    return folder


def run(folder, *command):
    environment = {"PATH": os.environ["PATH"], "HOME": str(folder), "LC_ALL": "C.UTF-8"}
    done = subprocess.run(command, capture_output=True, check=True, text=True, cwd=folder, env=environment)
    assert done.stderr == ""
    return done.stdout


def bash(folder, line):
    words = line.split(" ")
    program = f"source ./zel.bash; COMP_WORDS=({' '.join(repr(word) for word in words)}); COMP_CWORD={len(words) - 1}; _zel; "
    return run(folder, "bash", "-c", program + "printf '%s\\n' \"${COMPREPLY[@]}\"").split()


def fish(folder, line):
    out = run(folder, "fish", "--no-config", "-c", f"source zel.fish; complete -C '{line}'")
    return [entry.split("\t")[0] for entry in out.splitlines()]


ZSH = r"""
autoload -Uz compinit; compinit -u -D
compadd() {
  local -a words; local word
  if (( ! ${@[(I)-[OAD]]} )); then builtin compadd -O words "$@"; fi
  for word in $words; do print -r -- "found:$word" >>found; done
  builtin compadd "$@"
}
report() { : >found; zle complete-word; print -r -- end >>found; zle kill-whole-line }
zle -C complete-word list-choices _main_complete
zle -N report; bindkey '^X' report
print READY
"""


def zsh(folder, line):
    """Types the line into a shell of its own, which notes what is added for completion."""
    (folder / ".zshrc").write_text(f"fpath=({folder} $fpath)\nPS1='> '\n" + ZSH)
    (folder / "found").unlink(missing_ok=True)
    process, terminal = pty.fork()
    if process == 0:
        os.chdir(folder)
        os.execvpe("zsh", ["zsh", "-i"], {"PATH": os.environ["PATH"], "HOME": str(folder), "TERM": "dumb", "LC_ALL": "C.UTF-8"})
    try:
        wait_for(terminal, lambda said: "READY" in said)
        os.write(terminal, line.encode() + b"\x18")
        found = folder / "found"
        wait_for(terminal, lambda _: found.exists() and found.read_text().endswith("end\n"))
    finally:
        os.close(terminal)
        os.waitpid(process, 0)
    return re.findall(r"^found:(.*)$", (folder / "found").read_text(), re.MULTILINE)


def wait_for(terminal, condition):
    said, end = "", time.monotonic() + 30
    while not condition(said):
        assert time.monotonic() < end, said
        if select.select([terminal], [], [], 0.05)[0]:
            said += os.read(terminal, 65536).decode(errors="replace")


SHELLS = {"bash": bash, "zsh": zsh, "fish": fish}


@pytest.fixture(params=SHELLS)
def complete(request, scripts):
    if not shutil.which(request.param):
        pytest.skip(f"no {request.param}")
    return lambda line: sorted(SHELLS[request.param](scripts, line))


def test_commands_are_completed_once(complete):
    assert complete("zel ") == COMMANDS


def test_the_beginning_of_a_command_is_completed(complete):
    assert complete("zel re") == ["record", "replay", "request"]


def test_parts_of_a_command_are_completed(complete):
    assert complete("zel id ") == ["get", "local", "set"]


def test_long_options_are_completed_once(complete):
    assert complete("zel scan --") == sorted(["--seconds", "--watch", *COMMON])


def test_options_of_a_part_are_its_own(complete):
    assert complete("zel id get --") == sorted(["--timeout", *COMMON])


def test_a_files_name_is_completed(complete):
    assert complete("zel send 10.0.0.1 700 rec") == ["recipe.bin"]
    assert complete("zel pub 10.0.0.1 t --file rec") == ["recipe.bin"]


def test_the_value_of_an_option_is_no_command(complete):
    assert complete("zel scan --seconds ") == []


def test_an_argument_that_is_called_like_a_command_is_none(complete):
    assert complete("zel sub 10.0.0.1 scan --wa") == ["--wait", "--wait-online"]
