#!/bin/bash
# Draws what bench/run.sh printed, as bench/results/ keeps it:  bench/plot.sh FOLDER
# FOLDER gets relative.svg, round_trip.svg, publish.svg and distance.svg. Wants gnuplot.
set -euo pipefail
results=$(cd "$(dirname "$0")" && pwd)/results
mkdir -p "$1"
cd "$1"
trap 'rm -f -- *.rows *.all' EXIT
command -v gnuplot >/dev/null || { echo "bench/plot.sh: no gnuplot; packages.txt says what is needed" >&2; exit 1; }

# "name";library;raw;speed of the library against the raw program, from every row that compares the two.
rows() {
  awk '/ raw .* ratio / {
    name = substr($0, 1, 30); sub(/ +$/, "", name)
    split(substr($0, 31), field)
    speed = field[2] ~ /\/s$/ ? field[6] : 1 / field[6]
    printf "\"%s\";%s;%s;%.3f\n", name, field[1], field[4], speed
  }' "$1"
}

# "where";eight threads' requests;one thread's, in thousands a second, from the rows that compare the two.
threads() {
  awk '/^requests, 8 threads.* one / {
    name = substr($0, 1, 30); sub(/ +$/, "", name)
    sub(/^requests, 8 threads(, )?/, "", name)
    split(substr($0, 31), field)
    printf "\"%s\";%s;%s\n", name == "" ? "same host" : name " away", field[1], field[4]
  }' "$1"
}

# The rows of one kind, named by their sizes alone.
sizes() { sed -n "s/^\"$1, \([0-9]* B\)\"/\"\1\"/p" "$2"; }

rows "$results/quiet.txt" >quiet.all
# Indented rows go into the details of the one above.
grep -v '^" ' quiet.all >quiet.rows
sizes "round trip" quiet.rows >round_trip.rows
sizes publish quiet.rows >publish.rows
threads "$results/quiet.txt" | sort -t ';' -k 3 -rn >distance.rows
rowCount=$(wc -l <quiet.rows)
[ "$rowCount" -gt 0 ] || {
  echo "bench/plot.sh: bench/results/quiet.txt has no rows" >&2
  exit 1
}

# The scale ends at the power of 2 that has all bars.
reach=$(awk -F ';' '{ far = $4 > 1 ? $4 : 1 / $4; while (reach < far) reach = reach ? 2 * reach : 2 } END { print reach }' quiet.rows)

gnuplot <<GNUPLOT
set datafile separator ';'
set style fill solid noborder
quiet = '#2f6db5'
raw = '#9aa3ad'
set border 3
set tics nomirror

set terminal svg size 900,640 font 'sans-serif,13' background '#ffffff'
set output 'relative.svg'
set title 'Speed against a raw program (more is better)'
set yrange [$rowCount - 0.4:-0.6]
set logscale x 2
set xrange [1.0 / $reach:$reach]
set xtics ('1/16' 0.0625, '1/8' 0.125, '1/4' 0.25, '1/2' 0.5, 1, 2, 4, 8, 16)
set grid xtics lc '#dddddd'
set key off
set arrow from 1, graph 0 to 1, graph 1 nohead lw 2 lc '#444444' back
plot 'quiet.rows' using 4:0:(1):4:(\$0-0.3):(\$0+0.3):ytic(1) with boxxyerror lc rgb quiet

unset arrow
unset grid
unset logscale
set xtics auto
set terminal svg size 620,380 font 'sans-serif,13' background '#ffffff'
set grid ytics lc '#dddddd'
set style data histogram
set style histogram clustered gap 1
set boxwidth 0.9
set xrange [-0.6:$(wc -l <round_trip.rows) - 0.4]
set yrange [0:*]
set key on outside top center horizontal
set ylabel 'us, less is better'
set output 'round_trip.svg'
set title 'Request and answer, by payload'
plot 'round_trip.rows' using 2:xtic(1) lc rgb quiet title 'library', '' using 3 lc rgb raw title 'raw socket'

set output 'distance.svg'
set title 'Requests on one connection, by the way there and back'
set ylabel 'thousand/s, more is better'
set xrange [-0.6:$(wc -l <distance.rows) - 0.4]
plot 'distance.rows' using 3:xtic(1) lc rgb raw title 'one thread', '' using 2 lc rgb quiet title 'eight threads'

set output 'publish.svg'
set ylabel 'us, less is better'
set title 'Publishing one message, by size'
set xrange [-0.6:$(wc -l <publish.rows) - 0.4]
set logscale y
set yrange [1:*]
plot 'publish.rows' using 2:xtic(1) lc rgb quiet title 'library', '' using 3 lc rgb raw title 'raw socket'
GNUPLOT
