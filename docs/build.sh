#!/bin/bash
# Builds the documents as a site:  docs/build.sh [FOLDER]   (default: build/docs; the site is in FOLDER/html)
# Fails on every warning, so on everything public in the headers that has no comment. Wants doxygen and
# doxygen-awesome-css.
set -euo pipefail
cd "$(dirname "$0")/.."
out=${1:-build/docs}
mkdir -p "$out"
ZEL_DOCS_OUT=$(cd "$out" && pwd)
ZEL_DOCS_THEME=/usr/share/doxygen-awesome-css
ZEL_DOCS_VERSION=$(sed -nE 's/^project\(libzel VERSION ([0-9.]+).*/\1/p' CMakeLists.txt)
export ZEL_DOCS_OUT ZEL_DOCS_THEME ZEL_DOCS_VERSION

for wanted in doxygen "$ZEL_DOCS_THEME/doxygen-awesome.css"; do
  if ! command -v "$wanted" >/dev/null && ! [ -e "$wanted" ]; then
    echo "docs/build.sh: no $wanted; packages.txt says what is needed" >&2
    exit 1
  fi
done

rm -rf "$ZEL_DOCS_OUT/html"
mkdir -p "$ZEL_DOCS_OUT/theme"
cd "$ZEL_DOCS_OUT/theme"
doxygen -w html header.html footer.html style.css
sed -i '/<\/head>/e cat "$OLDPWD/docs/head.html"' header.html
cd "$OLDPWD"
doxygen docs/Doxyfile
rm "$ZEL_DOCS_OUT"/html/search/*_*.{js,html} # the lists of names that docs/search.js stands in for
python3 -B docs/words.py "$ZEL_DOCS_OUT/html"
echo "$ZEL_DOCS_OUT/html/index.html"
