#!/bin/sh
# Time to draw of the -html page in headless Chromium: the page of the corpus
# folder (at least 10,000 files, folders.sh) against the page of its first
# 191 files, both made by each kito given (say the build before a change and
# the one after) and drawn in the same session, in alternation.
#
# "Drawn" is the first frame after the page's own script ran: a probe script
# put behind it (the page's security policy widened for that copy alone)
# prints performance.now() there, counted from the start of navigation, so
# the browser's own start is left out. The process's whole wall time is given
# too. Each figure is the best of the rounds; the ratio is large over small.
#
# usage: html_bench.sh [-c corpus folder] [-n file count] [-s small count]
#                      [-r rounds] <kito> [<kito> ...]
set -eu

here=$(cd "$(dirname "$0")" && pwd)
corpus=${KITO_CORPUS:-$here/../../shared/corpus}
wanted=10000
small=191
rounds=3
while getopts c:n:s:r: option; do
    case $option in
        c) corpus=$OPTARG ;;
        n) wanted=$OPTARG ;;
        s) small=$OPTARG ;;
        r) rounds=$OPTARG ;;
        *) exit 2 ;;
    esac
done
shift $((OPTIND - 1))
[ $# -ge 1 ] || { echo "usage: html_bench.sh [-c corpus] [-n count] [-s count] [-r rounds] <kito> [<kito> ...]" >&2; exit 2; }
for kito in "$@"; do [ -x "$kito" ] || { echo "not executable: $kito" >&2; exit 1; }; done
command -v chromium > /dev/null || { echo "chromium not installed" >&2; exit 1; }
[ -d "$corpus/real" ] || { echo "no corpus at $corpus" >&2; exit 1; }
. "$here/folders.sh"

work=$(mktemp -d "${TMPDIR:-/tmp}/kito_html_bench.XXXXXX")
trap 'rm -rf "$work"' EXIT INT TERM
corpus_folder "$corpus" "$work/corpus" "$wanted"
head -n "$small" "$work/corpus/list" > "$work/small-list"

probe='<script>requestAnimationFrame(function () { setTimeout(function () { console.log("drawn " + performance.now().toFixed(0)); }, 0); });</script>'

# page <kito> <list> <name>: the page, and its copy with the probe behind the page's script.
page() {
    "$1" -pipe -html < "$2" > "$work/$3.html" 2> /dev/null || true
    sed -e "s/script-src 'sha256-[^']*'/script-src 'unsafe-inline'/" \
        -e "s|^</body>|$probe</body>|" "$work/$3.html" > "$work/$3-probe.html"
}

# draw <name>: "<ms to draw> <s of wall time>" of one load.
draw() {
    rm -rf "$work/profile"
    start=$(date +%s.%N)
    chromium --headless --no-sandbox --disable-gpu --no-first-run --disable-background-networking \
        --disable-component-update --disable-sync --enable-logging=stderr --v=0 --hide-scrollbars \
        --user-data-dir="$work/profile" --window-size=1400,1000 --screenshot="$work/shot.png" \
        "file://$work/$1-probe.html" > /dev/null 2> "$work/log" || true
    end=$(date +%s.%N)
    ms=$(sed -n 's/.*"drawn \([0-9]*\)".*/\1/p' "$work/log" | head -n 1)
    awk -v ms="${ms:-NA}" -v a="$start" -v b="$end" 'BEGIN { printf "%s %.2f\n", ms, b - a }'
}

i=0
for kito in "$@"; do
    i=$((i + 1))
    page "$kito" "$work/small-list" "small$i"
    page "$kito" "$work/corpus/list" "large$i"
done

round=0
while [ "$round" -lt "$rounds" ]; do
    round=$((round + 1))
    i=0
    for kito in "$@"; do
        i=$((i + 1))
        for size in small large; do echo "$i $size $(draw "$size$i")" >> "$work/times"; done
    done
done

printf '%-40s %8s %10s %10s %8s %10s\n' kito files "page MB" "draw ms" "ratio" "wall s"
i=0
for kito in "$@"; do
    i=$((i + 1))
    for size in small large; do
        files=$(wc -l < "$work/$([ $size = small ] && echo small-list || echo corpus/list)")
        bytes=$(wc -c < "$work/$size$i.html")
        awk -v k="$kito" -v i="$i" -v s="$size" -v f="$files" -v b="$bytes" '
            $1 == i && $2 == s { if (ms == "" || $3 < ms) ms = $3; if (w == "" || $4 < w) w = $4 }
            $1 == i && $2 == "small" { if (sm == "" || $3 < sm) sm = $3 }
            END { printf "%-40s %8d %10.1f %10s %8.2f %10.2f\n", k, f, b / 1e6, ms, ms / sm, w }' "$work/times"
    done
done
