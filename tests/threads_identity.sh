#!/bin/bash
# Decoding on several threads changes nothing that a run writes: for every
# source and form of the table below, standard output, standard error and
# the exit status of kito with -threads 1 equal those of kito with its
# default (a thread a core) and with more threads than files in flight. Only
# the lines of the run header that carry the start time and the command line
# may differ.
#
# usage: threads_identity.sh   (reads KITO_BINARY, KITO_CORPUS, KITO_SAMPLES,
#                               KITO_IMAGES and TMPDIR; exits 77 to skip)
set -u
kito=${KITO_BINARY:?}
corpus=${KITO_CORPUS:-}
[ -d "$corpus/real" ] || { echo "no corpus at '$corpus': skipped"; exit 77; }
work=$(mktemp -d "${TMPDIR:-/tmp}/threads.XXXXXX")
trap 'rm -rf "$work"' EXIT

# Inputs. The corpus as it is; damaged copies of its real files (cut in
# half, cut after the header, a byte changed in the header and in the middle);
# a hostile list of names; a folder tree of the damaged copies to walk.
find "$corpus" -type f | sort > "$work/corpus.list"
mkdir -p "$work/mutants/a/b"
n=0
while read -r source; do
    n=$((n + 1))
    size=$(stat -c %s "$source")
    dir=$work/mutants/$(printf 'a/b\na\n.\n' | sed -n "$((n % 3 + 1))p")
    head -c $((size / 2)) "$source" > "$dir/$n-half.pf"
    head -c 100 "$source" > "$dir/$n-header.pf"
    for at in 12 $((size / 2)); do
        cp "$source" "$dir/$n-flip$at.pf"
        printf '\377' | dd of="$dir/$n-flip$at.pf" bs=1 seek="$at" conv=notrunc status=none
    done
done < <(find "$corpus/real" -type f | sort)
find "$work/mutants" -type f | sort > "$work/mutants.list"
: > "$work/empty.pf"
{
    echo "$work/missing.pf"
    echo "$work"
    echo "$work/empty.pf"
    echo
    printf '%s\r\n' "$(head -n 1 "$work/corpus.list")"
    echo "$(head -n 1 "$work/corpus.list") "
    head -n 3 "$work/corpus.list"
    head -c 5000 /dev/zero | tr '\0' x
    echo
    echo "$work/mutants/"
    tail -n 2 "$work/corpus.list"
} > "$work/hostile.list"

# source name | arguments | standard input
sources="corpus|-pipe|$work/corpus.list
mutants|-pipe|$work/mutants.list
hostile|-pipe|$work/hostile.list
walk|-enumdir $work/mutants/ -num_subdirs 2|/dev/null
filtered|-pipe -filter *flip*|$work/mutants.list"
if [ -n "${KITO_IMAGES:-}" ] && [ -d "$KITO_IMAGES" ]; then
    for image in "$KITO_IMAGES"/*.raw "$KITO_IMAGES"/disk.E01 "$KITO_IMAGES"/truncated.E01 "$KITO_IMAGES"/disk.vmdk \
        "$KITO_IMAGES"/disk.vhd "$KITO_IMAGES"/disk.split.001; do
        [ -f "$image" ] && sources="$sources
image $(basename "$image")|-image $image|/dev/null"
    done
    # Shadow copies, deleted entries and free clusters: the first pass, the
    # duplicates, the histories and the carved spans.
    for image in "$KITO_IMAGES"/vss.raw "$KITO_IMAGES"/vss-disk.qcow2 "$KITO_IMAGES"/vss-bad-block-list.raw \
        "$KITO_IMAGES"/versions.raw "$KITO_IMAGES"/freed.raw; do
        [ -f "$image" ] && sources="$sources
every place $(basename "$image")|-image $image -vss -deleted -unallocated|/dev/null"
    done
fi
forms=("" "-csv" "-csv -verbose -no_whitespace" "-csvl2t" "-csvl2t -verbose" "-bodyfile" "-json" "-html" "-verbose")

# The run's own start time and command line, wherever the form puts them.
header_lines='^run time: |^"command: |^\{"record":"run"|<dt>Run at<|<dt>Command<'

failures=0
cases=0
run() { # <name> <arguments> <input> <threads option...>
    local name=$1 arguments=$2 input=$3
    shift 3
    # shellcheck disable=SC2086 # the arguments are a list of words
    "$kito" $arguments "$@" < "$input" > "$work/out.$name" 2> "$work/err.$name"
    echo "status $?" >> "$work/err.$name"
    sed -E -i "\%$header_lines%d" "$work/out.$name"
}
while IFS='|' read -r source arguments input; do
    for form in "${forms[@]}"; do
        cases=$((cases + 1))
        run one "$arguments $form" "$input" -threads 1
        run default "$arguments $form" "$input"
        run many "$arguments $form" "$input" -threads 5
        for other in default many; do
            if ! cmp -s "$work/out.one" "$work/out.$other" || ! cmp -s "$work/err.one" "$work/err.$other"; then
                failures=$((failures + 1))
                echo "DIFFERS: $source, form '$form', -threads 1 against $other"
                diff "$work/out.one" "$work/out.$other" | head -n 5
                diff "$work/err.one" "$work/err.$other" | head -n 5
            fi
        done
    done
done <<< "$sources"
echo "$cases cases, $failures differences"
[ "$failures" -eq 0 ]
