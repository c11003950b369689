#!/bin/sh
# Batch throughput on two folders built from the corpus:
# - the corpus folder: at least 10,000 copies of the real files, plain and
#   compressed mixed;
# - the MAM folder: 2,100 copies of the Windows 10 files, all "MAM" containers.
# Each folder is read with cat, then with kito -pipe in the text and -csv
# forms (the corpus folder also with -json, which a kito without it ignores),
# each on every core (the default) and, for the forms the targets name, on
# one thread (-threads 1, which a kito without it ignores).
# Given more than one kito (say the build before a change and the one
# after), all of them run side by side in the same session. Each time is the
# best of several rounds; the table shows files per second and the ratio to cat.
#
# usage: batch_bench.sh [-c corpus folder] [-n file count] [-m MAM file count]
#                       [-r rounds] <kito> [<kito> ...]
set -eu

here=$(cd "$(dirname "$0")" && pwd)
corpus=${KITO_CORPUS:-$here/../../shared/corpus}
wanted=10000
mam_wanted=2100
rounds=3
while getopts c:n:m:r: option; do
    case $option in
        c) corpus=$OPTARG ;;
        n) wanted=$OPTARG ;;
        m) mam_wanted=$OPTARG ;;
        r) rounds=$OPTARG ;;
        *) exit 2 ;;
    esac
done
shift $((OPTIND - 1))
[ $# -ge 1 ] || { echo "usage: batch_bench.sh [-c corpus] [-n count] [-m count] [-r rounds] <kito> [<kito> ...]" >&2; exit 2; }
for kito in "$@"; do [ -x "$kito" ] || { echo "not executable: $kito" >&2; exit 1; }; done
[ -d "$corpus/real" ] || { echo "no corpus at $corpus" >&2; exit 1; }
. "$here/folders.sh"

work=$(mktemp -d "${TMPDIR:-/tmp}/kito_batch_bench.XXXXXX")
trap 'rm -rf "$work"' EXIT INT TERM
corpus_folder "$corpus" "$work/corpus" "$wanted"
mam_folder "$corpus" "$work/mam" "$mam_wanted"

now() { date +%s.%N; }

# Best time in seconds, over the rounds, of a command reading a list on
# standard input.
timed() {
    list=$1
    shift
    best=
    i=0
    while [ "$i" -lt "$rounds" ]; do
        i=$((i + 1))
        start=$(now)
        "$@" < "$list" > /dev/null 2> "$work/stderr" || true
        end=$(now)
        best=$(awk -v a="$start" -v b="$end" -v best="$best" \
            'BEGIN { t = b - a; if (best != "" && best < t) t = best; printf "%.6f", t }')
    done
    echo "$best"
}

report() {
    awk -v name="$1" -v t="$2" -v n="$3" -v c="$4" \
        'BEGIN { printf "  %-34s %8.3f s  %8.0f files/s  %6.2f x cat\n", name, t, n / t, t / c }'
}

# bench_folder <title> <folder work> <form>...: cat, then every kito in every form.
bench_folder() {
    title=$1 folder=$2
    shift 2
    files=$(wc -l < "$folder/list")
    echo "$title: $files files ($(wc -l < "$folder/sources") sources)"
    cat_seconds=$(timed "$folder/list" xargs -d '\n' cat)
    report "cat" "$cat_seconds" "$files" "$cat_seconds"
    for form in "$@"; do
        k=0
        for kito in $kitos; do
            k=$((k + 1))
            # shellcheck disable=SC2086 # the form is a list of words
            seconds=$(timed "$folder/list" "$kito" -pipe $form)
            report "[$k] kito ${form:-text}" "$seconds" "$files" "$cat_seconds"
        done
    done
}

kitos="$*"
k=0
for kito in $kitos; do k=$((k + 1)); echo "[$k] $kito"; done
bench_folder "corpus folder" "$work/corpus" "" "-threads 1" "-csv" "-json"
bench_folder "MAM folder" "$work/mam" "-csv" "-csv -threads 1" ""
