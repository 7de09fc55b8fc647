#!/usr/bin/env python3
"""Writes docs/python/reference.md from what the Python package says of itself:  python_reference.py [--check]

With --check it writes nothing, and fails when the page would be another one.
"""

import ast
import pathlib
import sys
import textwrap

DOCS = pathlib.Path(__file__).resolve().parent
PACKAGE = DOCS.parent / "python" / "zel"
PAGE = DOCS / "python" / "reference.md"
# What a user meets first; the rest follows in the order of the alphabet.
FIRST = ["Connection", "Request", "Message", "Subscription", "Event", "Stats", "init", "scan", "Scan", "Device", "send_file"]

HEAD = """\
# Python reference

What the package `zel` has, in its own words. [From Python](../python.md) tells how to use it. This page is written by
`docs/python_reference.py`.
"""
ASYNC = "What is here has the same names as in `zel`, is awaited, and is said in full there."


def names_of(tree):
    for node in tree.body:
        if isinstance(node, ast.Assign) and node.targets[0].id == "__all__":
            return ast.literal_eval(node.value)
    return []


def read(module):
    return ast.parse((PACKAGE / f"{module}.py").read_text(encoding="utf-8"))


def definition(tree, name):
    """Where a name is defined: the node, and the text behind it for what has no docstring of its own."""
    for node, following in zip(tree.body, [*tree.body[1:], None]):
        if isinstance(node, (ast.ClassDef, ast.FunctionDef, ast.AsyncFunctionDef)) and node.name == name:
            return node, None
        if isinstance(node, ast.Assign) and getattr(node.targets[0], "id", "") == name:
            return node, following
        if isinstance(node, ast.ImportFrom) and name in [alias.name for alias in node.names] and node.level == 1:
            return definition(read(node.module), name)
    return None, None


def said(node):
    """A docstring as Markdown: lists and code stay, lines are joined by whoever shows them."""
    return textwrap.dedent(ast.get_docstring(node) or "")


def is_public(node):
    return not node.name.startswith("_")


def is_property(node):
    return any(getattr(decorator, "id", "") == "property" for decorator in node.decorator_list)


def signature(node, owner=None):
    arguments = node.args
    if owner and arguments.args and arguments.args[0].arg in ("self", "cls"):
        arguments = ast.parse(f"def f({ast.unparse(arguments)}): pass").body[0].args
        arguments.args.pop(0)
    name = owner if node.name == "__init__" else f"{owner}.{node.name}" if owner else node.name
    result = f" -> {ast.unparse(node.returns)}" if node.returns and node.name != "__init__" else ""
    if is_property(node):
        return f"{name}{result.replace(' ->', ':')}"
    kind = "await " if isinstance(node, ast.AsyncFunctionDef) else ""
    return f"{kind}{name}({ast.unparse(arguments)}){result}"


def code(*lines):
    return "```python\n" + "\n".join(lines) + "\n```\n"


def fields(node):
    """Members of an enumeration and fields of a data class, each with what is said behind it."""
    for item, following in zip(node.body, [*node.body[1:], None]):
        text = following.value.value if isinstance(following, ast.Expr) else ""
        if isinstance(item, ast.AnnAssign) and not item.target.id.startswith("_"):
            yield item.target.id, ast.unparse(item.annotation), text
        elif isinstance(item, ast.Assign) and isinstance(item.value, ast.Constant):
            yield item.targets[0].id, ast.unparse(item.value), text


def field_table(node):
    rows = [f"| `{name}` | `{value}` | {' '.join(text.split())} |" for name, value, text in fields(node)]
    return "\n".join(["| Name | Is | |", "|---|---|---|", *rows]) + "\n" if rows else ""


def describe_class(node, prefix):
    yield f"### class {prefix}{node.name}\n"
    methods = [item for item in node.body if isinstance(item, (ast.FunctionDef, ast.AsyncFunctionDef))]
    begin = [item for item in methods if item.name == "__init__"]
    if begin and node.name not in ("Request", "Subscription", "FileTransfer", "Inflow", "Stdout"):
        yield code(signature(begin[0], node.name))
    yield said(node) + "\n"
    yield field_table(node)
    for method in filter(is_public, methods):
        if said(method) or is_property(method):
            yield code(signature(method, node.name))
            yield said(method) + "\n"


def describe(node, following, prefix):
    if isinstance(node, ast.ClassDef):
        yield from describe_class(node, prefix)
    elif isinstance(node, ast.Assign):
        yield f"### {prefix}{node.targets[0].id}\n"
        yield (following.value.value if isinstance(following, ast.Expr) else "") + "\n"
    else:
        yield f"### {prefix}{node.name}\n"
        yield code(signature(node))
        yield said(node) + "\n"


def describe_all(module, prefix=""):
    tree = read(module)
    names = [name for name in names_of(tree) if name not in ("__version__", "aio")]
    for name in sorted(names, key=lambda name: (FIRST.index(name) if name in FIRST else len(FIRST), name.lower())):
        node, following = definition(tree, name)
        if node is None:
            sys.exit(f"python_reference.py: {module} defines no {name}")
        yield from describe(node, following, prefix)


def page():
    parts = [HEAD, "## zel\n", *describe_all("__init__")]
    parts += ["## zel.aio\n", code(*aio_example()), ASYNC + "\n", aio_words(), *describe_all("aio", "aio.")]
    return "\n".join(part for part in parts if part.strip()).rstrip() + "\n"


def aio_example():
    return textwrap.dedent(said(read("aio")).split("\n\n", 1)[1].rsplit("\n\n", 1)[0]).splitlines()


def aio_words():
    return said(read("aio")).rsplit("\n\n", 1)[1] + "\n"


def main():
    text = page()
    if "--check" in sys.argv:
        if not PAGE.exists() or PAGE.read_text(encoding="utf-8") != text:
            sys.exit("docs/python/reference.md is not what docs/python_reference.py writes: run that")
        return
    PAGE.write_text(text, encoding="utf-8")


if __name__ == "__main__":
    main()
