"""Writes what the site's search looks through:  words.py SITE

SITE/search/words.js gets an entry for every section of a page and every function: its address, the page's title, its own
heading, and all its words, in the order in which the main page names the pages. It is a script, so that browsers load it from
a disk, too.
"""

import html.parser
import json
import pathlib
import re
import sys

# Lists of names, which lead to what is found anyway.
LISTS = re.compile(r"-members|^(annotated|classes|files|functions|modules|namespace|pages)|_8h(pp)?$|^dir_")
UNREAD = ("script", "style", "select")


class Sections(html.parser.HTMLParser):
    """The sections of a page, from its title on."""

    def __init__(self, path):
        super().__init__()
        self.name = path.name
        self.title = ""
        self.sections = [["", "", []]]  # fragment, heading, words
        self.depth = 0  # of elements inside the contents
        self.skipped = 0
        self.within = ""  # "title", "heading", or nothing
        self.fragment = ""
        self.feed(path.read_text(encoding="utf-8"))

    def handle_starttag(self, tag, attributes):
        attributes = dict(attributes)
        kind = attributes.get("class") or ""
        if tag == "div":  # others inside the title's are no part of it
            self.within = "title" if kind == "title" else ""
        if tag == "div" and (self.depth or kind == "contents"):
            self.depth += 1
        self.skipped += tag in UNREAD or (tag == "div" and kind in ("toc", "ttc")) or bool(self.skipped and tag == "div")
        if self.depth and not self.skipped and tag in ("h1", "h2", "h3"):
            self.within = "heading"
            self.sections.append(["", "", []])
        elif self.within == "heading" and tag == "a":
            self.sections[-1][0] = attributes.get("id") or attributes.get("href", "").removeprefix("#") or self.sections[-1][0]

    def handle_endtag(self, tag):
        if self.skipped and (tag in UNREAD or tag == "div"):
            self.skipped -= 1
        if tag == "div" and self.depth:
            self.depth -= 1
        if tag in ("h1", "h2", "h3") or (tag == "div" and self.within == "title"):
            self.within = ""
        if self.depth and tag in ("td", "th", "p", "li", "div", "dd", "dt"):
            self.sections[-1][2].append(" ")

    def handle_data(self, data):
        if self.within == "title":
            self.title += data
        elif self.within == "heading":
            self.sections[-1][1] += data.replace("\N{BLACK DIAMOND}\N{NO-BREAK SPACE}", "")
        elif self.depth and not self.skipped:
            self.sections[-1][2].append(data)

    def entries(self):
        for fragment, heading, words in self.sections:
            text = " ".join("".join(words).split())
            if text and not fragment.endswith("-members"):  # what is listed there follows, each with its own place
                yield [self.name + ("#" + fragment if fragment else ""), " ".join(self.title.split()),
                       " ".join(heading.split()), text]


def is_page(path):
    """A page of the documents; the others are of the interfaces."""
    return "_8" not in path.stem and not re.match(r"group__|class|struct|namespace", path.stem)


def main():
    site = pathlib.Path(sys.argv[1])
    paths = [path for path in site.glob("*.html") if path.stem == "namespacezel" or not LISTS.search(path.stem)]
    order = re.findall(r'href="(\w+)\.html', (site / "index.html").read_text(encoding="utf-8"))
    order += sorted(path.stem for path in paths)
    paths.sort(key=lambda path: (not is_page(path), order.index(path.stem), path.name))
    entries = [entry for path in paths for entry in Sections(path).entries()]
    lines = ",\n".join(json.dumps(entry, ensure_ascii=False) for entry in entries)
    (site / "search" / "words.js").write_text(f"zelSearch.load([\n{lines}\n]);\n", encoding="utf-8")


if __name__ == "__main__":
    main()
