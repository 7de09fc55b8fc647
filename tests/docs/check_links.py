"""Finds dead links, and Markdown that was not understood:  check_links.py SITE TREE

Every link of the built site into itself, and every link of the tree's Markdown files to a file of the tree, must lead
somewhere, fragments included. Links to other sites are not followed.
"""

import html.parser
import pathlib
import re
import sys
import urllib.parse


VERBATIM = ("pre", "code", "script", "style")


class Page(html.parser.HTMLParser):
    def __init__(self, path):
        super().__init__()
        self.links = []
        self.anchors = set()
        self.raw = []
        self.verbatim = 0
        self.in_line = False  # of a program
        self.feed(path.read_text(encoding="utf-8"))

    def handle_starttag(self, tag, attributes):
        self.in_line = self.in_line or (tag == "div" and ("class", "line") in attributes)
        self.verbatim += tag in VERBATIM
        for name, value in attributes:
            if name == "id" or (tag == "a" and name == "name"):
                self.anchors.add(value)
            if name in ("href", "src") and value:
                self.links.append(value)

    def handle_endtag(self, tag):
        self.in_line = self.in_line and tag != "div"
        self.verbatim -= tag in VERBATIM

    def handle_data(self, data):
        if not self.verbatim and not self.in_line and re.search(r"\*\*|\]\(\w|`|\\ref", data):
            self.raw.append(data.strip())


def is_foreign(link):
    return bool(urllib.parse.urlsplit(link).scheme) or link.startswith("//")


def check_site(site):
    pages = {path.resolve(): Page(path) for path in site.rglob("*.html")}
    count = 0
    for path, page in pages.items():
        yield from (f"{path.name}: raw Markdown: {text}" for text in page.raw)
        for link in page.links:
            if is_foreign(link):
                continue
            count += 1
            parts = urllib.parse.urlsplit(link)
            target = (path.parent / urllib.parse.unquote(parts.path)).resolve() if parts.path else path
            fragment = urllib.parse.unquote(parts.fragment)
            if not target.exists():
                yield f"{path.name}: {link}: no such file"
            elif fragment and target in pages and fragment not in pages[target].anchors:
                yield f"{path.name}: {link}: no such place"
    yield from () if count > 100 else [f"only {count} links in {site}: that is no site"]


def places(text):
    """The fragments of a Markdown file: of its headings, as code hosts make them, and those that it names itself."""
    for line in re.findall(r"^#+ +(.*)$", text, re.MULTILINE):
        yield re.sub(r"[^\w\- ]", "", line.lower()).replace(" ", "-")
    yield from re.findall(r'<a id="(\w+)"></a>', text)


def check_markdown(tree, files):
    for path in files:
        text = path.read_text(encoding="utf-8")
        prose = re.sub(r"^```.*?^```", "", text, flags=re.MULTILINE | re.DOTALL)
        for link in re.findall(r"\[[^\]]*\]\(([^)\s]+)\)", prose):
            if is_foreign(link):
                continue
            parts = urllib.parse.urlsplit(link)
            target = (path.parent / parts.path).resolve() if parts.path else path
            where = path.relative_to(tree)
            if not target.exists():
                yield f"{where}: {link}: no such file"
            elif parts.fragment and parts.fragment not in places(target.read_text(encoding="utf-8")):
                yield f"{where}: {link}: no such place"


def main():
    site, tree = map(lambda argument: pathlib.Path(argument).resolve(), sys.argv[1:])
    patterns = ("*.md", "docs/**/*.md", "bench/*.md", "python/*.md", "tests/**/*.md", "tools/**/*.md")
    files = [path for pattern in patterns for path in sorted(tree.glob(pattern))]
    complaints = [*check_site(site), *check_markdown(tree, files)]
    print(*complaints, sep="\n")
    print(f"{len(files)} Markdown files and the site: {len(complaints)} complaints")
    return 1 if complaints else 0


if __name__ == "__main__":
    sys.exit(main())
