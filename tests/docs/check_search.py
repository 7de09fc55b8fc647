"""The site's search finds the words of the pages:  check_search.py SITE TREE

Every word of every page stands in the search's index with an address of that page; every address leads somewhere; and a few
words lead where their reader wants to be.
"""

import json
import pathlib
import re
import sys

WANTED = {
    "4104": "errors.html#errors__raised_by_the_library",
    "firewall": "windows.html#windows__the_firewall",
    "wildcard": "concepts.html#concepts__topics",
    "0x2001": "errors.html#errors__raised_by_the_library",
    "powershell": "windows.html#windows__the_firewall",
    "fork": "threads.html#threads__forking",
    "sigterm": "host.html#host__services",
    "libzelx_flush": "beyond.html#beyond__publishing",
}


def read_index(site):
    text = (site / "search" / "words.js").read_text(encoding="utf-8")
    return json.loads(re.fullmatch(r"zelSearch\.load\((.*)\);\n", text, re.DOTALL)[1])


def words_of(markdown):
    """The words that a reader sees, without pictures, links' targets, tags, programs and the numbers of lists."""
    text = re.sub(r"^```.*?^```$|!\[[^\]]*\]\([^)]*\)|\]\([^)]*\)|<[^>\n]*>|&\w+;|^ *\d+\. ", " ", markdown, flags=re.MULTILINE | re.DOTALL)
    return set(re.findall(r"\w+", text.lower()))


def check(site, docs):
    index = read_index(site)
    texts = {}
    for address, *words in index:
        file, _, fragment = address.partition("#")
        texts.setdefault(file, []).append(" ".join(words).lower())
        if fragment and not re.search(f'(id|name)="{re.escape(fragment)}"', (site / file).read_text(encoding="utf-8")):
            yield f"{address}: no such place"
    for page in sorted(docs.rglob("*.md")):
        found = set(re.findall(r"\w+", " ".join(texts.get("_".join(page.relative_to(docs).with_suffix(".html").parts), []))))
        missing = words_of(page.read_text(encoding="utf-8")) - found
        if missing:
            yield f"{page.name}: not found: {', '.join(sorted(missing))}"
    for word, place in WANTED.items():
        if not any(address == place and word in " ".join(words).lower() for address, *words in index):
            yield f"{word}: not found in {place}"


def main():
    site, tree = map(pathlib.Path, sys.argv[1:])
    complaints = [*check(site, tree / "docs")]
    print(*complaints, sep="\n")
    return 1 if complaints else 0


if __name__ == "__main__":
    sys.exit(main())
