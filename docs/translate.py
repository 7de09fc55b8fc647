"""Doxygen's filter for the pages:  translate.py FILE >TRANSLATED

The pages are plain Markdown, so that they read well wherever Markdown is shown. Doxygen wants more: a label at each heading,
its own commands for links between pages, for programs that are shown, and for the order of the pages.
"""

import pathlib
import re
import sys

DOCS = pathlib.Path(__file__).resolve().parent
# Where the site has what the tree has elsewhere.
ELSEWHERE = {"include/libzel/libzel.h": "modules.html", "include/libzel/libzel.hpp": "annotated.html"}
PART = re.compile(
    r"""
    (?P<verbatim> ^```.*?^```$ | `[^`]+` | !\[[^\]]*\]\([^)]*\) )
    | ^\[[^\]]+\]\( (?P<program> [^)\s]+\.(?:c|cpp|py) ) \)$
    | \[ (?P<text> (?:`[^`]*`|[^\]`])+ ) \]\( (?P<target> [^)\s]+ ) \)
    | <a\ id="(?P<place>\w+)"></a>
    | \*\* (?P<bold> (?:`[^`]*`|[^*`])+ ) \*\*
    """, re.MULTILINE | re.DOTALL | re.VERBOSE)


def page_label(page):
    return "_".join(page.relative_to(DOCS).with_suffix("").parts)


def slug(heading):
    """A heading's fragment, as code hosts make it."""
    return re.sub(r"[^\w\- ]", "", heading.lower()).replace(" ", "-")


def label(page, fragment):
    """Two underscores: the headers have labels of their own with one."""
    return page_label(page) + ("__" + fragment.replace("-", "_") if fragment else "")


def parent(page):
    """The page that another one stands below: that of its folder."""
    return DOCS / "index.md" if page.parent == DOCS else page.parent.with_suffix(".md")


class Page:
    def __init__(self, path):
        self.path = path
        self.below = set()  # pages that have their place in the order

    def translated(self):
        text = PART.sub(self.part, self.path.read_text(encoding="utf-8"))
        return self.with_labels(text)

    def part(self, match):
        if match["verbatim"]:
            return match[0]
        if match["program"]:
            name = pathlib.PurePath(match["program"]).name
            return f"\\{'verbinclude' if name.endswith('.py') else 'include'} {name}"
        if match["place"]:
            return f"\\anchor {label(self.path, match['place'])} "
        if match["bold"]:
            return f"<b>{PART.sub(self.part, match['bold'])}</b>"
        return self.link(" ".join(match["text"].split()), match["target"])

    def link(self, text, target):
        if re.match(r"\w+:", target):
            return f"[{text}]({target})"
        file, _, fragment = target.partition("#")
        page = (self.path.parent / file).resolve() if file else self.path
        if not page.is_relative_to(DOCS) or page.suffix != ".md":
            return self.outside(text, page)
        goal = label(page, fragment)
        if parent(page) == self.path and page not in self.below and not fragment:
            self.below.add(page)
            return f"\\subpage {goal} \"{text}\""
        if "`" in text or '"' in text:
            return f'<a href="{page_label(page)}.html{"#" + goal if fragment else ""}">{text}</a>'
        return f"\\ref {goal} \"{text}\""

    @staticmethod
    def outside(text, path):
        """Files of the tree are named; the site does not have them."""
        name = path.relative_to(DOCS.parent).as_posix()
        if name in ELSEWHERE:
            return f'<a href="{ELSEWHERE[name]}">{text}</a>'
        return text if name in text else f"{text} (`{name}`)"

    def with_labels(self, text):
        verbatim = re.findall(r"^```.*?^```$", text, re.MULTILINE | re.DOTALL)
        prose = re.split(r"^```.*?^```$", text, flags=re.MULTILINE | re.DOTALL)
        wants_contents = len(re.findall(r"^## ", "\n".join(prose), re.MULTILINE)) > 2
        for i, piece in enumerate(prose):
            piece = re.sub(r"^# .*", lambda title: f"{title[0]} {{#{self.page_name()}}}", piece, flags=re.MULTILINE)
            if wants_contents and "\n## " in piece:
                piece = piece.replace("\n## ", "\n\\tableofcontents\n\n## ", 1)
                wants_contents = False
            prose[i] = re.sub(r"^##+ (.*)", lambda heading: f"{heading[0]} {{#{label(self.path, slug(heading[1]))}}}", piece,
                              flags=re.MULTILINE)
        return "".join(piece + block for piece, block in zip(prose, verbatim + [""]))

    def page_name(self):
        return "mainpage" if self.path == DOCS / "index.md" else page_label(self.path)


if __name__ == "__main__":
    print(Page(pathlib.Path(sys.argv[1]).resolve()).translated(), end="")
