#!/bin/sh
# Batch throughput: reads a folder of at least 10,000 Prefetch files (copies of
# the corpus's real files, plain and compressed mixed) with cat, then with
# kito -pipe in the text, -csv and -json forms, and prints files per second and the
# ratio of each kito run to cat.
#
# usage: batch_bench.sh <path of kito> [corpus folder] [file count]
set -eu

kito=${1:?usage: batch_bench.sh <path of kito> [corpus folder] [file count]}
here=$(cd "$(dirname "$0")" && pwd)
corpus=${2:-${KITO_CORPUS:-$here/../../shared/corpus}}
wanted=${3:-10000}
[ -x "$kito" ] || { echo "not executable: $kito" >&2; exit 1; }
[ -d "$corpus/real" ] || { echo "no corpus at $corpus" >&2; exit 1; }

work=$(mktemp -d "${TMPDIR:-/tmp}/kito_batch_bench.XXXXXX")
trap 'rm -rf "$work"' EXIT INT TERM
mkdir "$work/files"

# Every real file but the deliberately broken one, under a unique name (the
# same program name occurs in several folders), copied round after round.
mkdir "$work/round"
find "$corpus/real" -type f -name '*.pf' ! -path '*/Bad/*' | sort > "$work/sources"
[ -s "$work/sources" ] || { echo "no Prefetch files under $corpus/real" >&2; exit 1; }
index=0
while read -r source; do
    index=$((index + 1))
    cp "$source" "$work/round/$index-$(basename "$source")"
done < "$work/sources"
round=0
while [ $((round * index)) -lt "$wanted" ]; do
    round=$((round + 1))
    cp -r "$work/round" "$work/files/$round"
done
find "$work/files" -type f | sort > "$work/list"
files=$(wc -l < "$work/list")
compressed=$(grep -c '/Win10/' "$work/sources" || true)
echo "files: $files ($(wc -l < "$work/sources") sources, $compressed of them compressed)"

now() { date +%s.%N; }

# Seconds taken by a command reading the list on standard input.
timed() {
    start=$(now)
    "$@" < "$work/list" > /dev/null 2> "$work/stderr" || true
    end=$(now)
    awk -v a="$start" -v b="$end" 'BEGIN { printf "%.6f", b - a }'
}

cat_seconds=$(timed xargs -d '\n' cat)
text_seconds=$(timed "$kito" -pipe)
csv_seconds=$(timed "$kito" -pipe -csv)
json_seconds=$(timed "$kito" -pipe -json)

report() {
    awk -v name="$1" -v t="$2" -v n="$files" -v c="$cat_seconds" \
        'BEGIN { printf "%-12s %8.3f s  %10.0f files/s  %6.2f x cat\n", name, t, n / t, t / c }'
}
report "cat" "$cat_seconds"
report "kito text" "$text_seconds"
report "kito -csv" "$csv_seconds"
report "kito -json" "$json_seconds"
