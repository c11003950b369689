#!/bin/bash
# Byte-for-byte comparison of two builds of kito (say the one before a change
# and the one after) over the benchmark folders and the synthetic corpus, in
# every output form: text, -csv, -csv -verbose, -csvl2t, -bodyfile, -json, and the
# files that -decompress_to writes. Standard output and standard error are
# compared apart, and once more written together into one file, so that their
# interleaving is compared too. The run header's time line is the one line
# allowed to differ. Prints each difference; exits 1 if there was any. With -H
# the file of 8 million empty strings (hostile_strings.sh) is compared too, in
# the text and -csv -verbose forms (slow with an old build).
#
# usage: compare_outputs.sh [-c corpus folder] [-n file count] [-H] <old kito> <new kito>
set -eu

here=$(cd "$(dirname "$0")" && pwd)
corpus=${KITO_CORPUS:-$here/../../shared/corpus}
wanted=10000
hostile=no
while getopts c:n:H option; do
    case $option in
        c) corpus=$OPTARG ;;
        n) wanted=$OPTARG ;;
        H) hostile=yes ;;
        *) exit 2 ;;
    esac
done
shift $((OPTIND - 1))
[ $# -eq 2 ] || { echo "usage: compare_outputs.sh [-c corpus] [-n count] [-H] <old kito> <new kito>" >&2; exit 2; }
old=$(realpath "$1")
new=$(realpath "$2")
for kito in "$old" "$new"; do [ -x "$kito" ] || { echo "not executable: $kito" >&2; exit 1; }; done
[ -d "$corpus/real" ] && [ -d "$corpus/synthetic" ] || { echo "no corpus at $corpus" >&2; exit 1; }
. "$here/folders.sh"

work=$(mktemp -d "${TMPDIR:-/tmp}/kito_compare.XXXXXX")
trap 'rm -rf "$work"' EXIT INT TERM
corpus_folder "$corpus" "$work/corpus" "$wanted"
mam_folder "$corpus" "$work/mam" 2100
# The synthetic files as single inputs, copied so their times can be fixed,
# with the broken real file and a missing name for the messages.
mkdir -p "$work/synthetic/files"
cp "$corpus"/synthetic/*.pf "$corpus"/real/Bad/* "$work/synthetic/files/"
find "$work/synthetic/files" -type f -exec touch -m -d '2020-01-02 03:04:05' {} +
find "$work/synthetic/files" -type f | sort > "$work/synthetic/list"
xargs -d '\n' cat < "$work/synthetic/list" > /dev/null
# Batches with failures among good files: messages between reports.
{ echo "$work/missing.pf"; cat "$work/synthetic/list"; } > "$work/synthetic/batch"

forms=("" "-csv" "-csv -verbose" "-csvl2t" "-bodyfile" "-json")
differences=0
compared=0

# Both builds run under the same program name, so the headers' command lines match.
run() { (exec -a kito "$@"); }
# The header's time line and the JSON run record hold the moment of the run.
mask_time() { sed -e 's/^run time: .*;/run time: -;/' -e 's/\({"record":"run",.*"started":\)[^,]*/\1-/' "$@"; }

# same <label> <run folder>: the old and new outputs of one run must match.
same() {
    compared=$((compared + 1))
    local name
    for name in out err both; do
        if ! cmp -s <(mask_time "$2/old.$name") <(mask_time "$2/new.$name"); then
            differences=$((differences + 1))
            echo "DIFFERENT: $1 ($name)"
            diff <(mask_time "$2/old.$name") <(mask_time "$2/new.$name") | head -5 || true
        fi
    done
}

# check <label> <stdin file> <arguments...>
check() {
    local label=$1 input=$2 side kito
    shift 2
    local dir="$work/run"
    rm -rf "$dir" && mkdir -p "$dir"
    for side in old new; do
        kito=$old && [ "$side" = new ] && kito=$new
        run "$kito" "$@" < "$input" > "$dir/$side.out" 2> "$dir/$side.err" || echo "status $?" >> "$dir/$side.err"
        run "$kito" "$@" < "$input" > "$dir/$side.both" 2>&1 || echo "status $?" >> "$dir/$side.both"
    done
    same "$label" "$dir"
}

for folder in corpus mam synthetic; do
    list=$work/$folder/list
    [ "$folder" = synthetic ] && list=$work/synthetic/batch
    for form in "${forms[@]}"; do
        # shellcheck disable=SC2086 # the form is a list of words
        check "$folder batch ${form:-text}" "$list" -pipe $form
    done
done

# Every synthetic file on its own, in every form.
while read -r file; do
    for form in "${forms[@]}"; do
        # shellcheck disable=SC2086
        check "$(basename "$file") ${form:-text}" /dev/null "$file" $form
    done
done < "$work/synthetic/list"

if [ "$hostile" = yes ]; then
    "$here/hostile_strings.sh" "$work/hostile.pf"
    check "hostile strings text" /dev/null "$work/hostile.pf"
    check "hostile strings -csv -verbose" /dev/null "$work/hostile.pf" -csv -verbose
fi

# The unpacked containers, one at a time and as a batch.
unpacked() {
    local label=$1 input=$2 side kito
    shift 2
    for side in old new; do
        kito=$old && [ "$side" = new ] && kito=$new
        rm -rf "$work/unpacked.$side" && mkdir -p "$work/unpacked.$side"
        (cd "$work/unpacked.$side" && run "$kito" "$@" < "$input" > stdout 2> stderr || echo "status $?" >> stderr)
        mask_time -i "$work/unpacked.$side/stdout"
    done
    compared=$((compared + 1))
    if ! diff -r "$work/unpacked.old" "$work/unpacked.new" > /dev/null; then
        differences=$((differences + 1))
        echo "DIFFERENT: $label"
    fi
}
while read -r file; do
    unpacked "$(basename "$file") -decompress_to" /dev/null "$file" -decompress_to out.bin
done < "$work/synthetic/list"
unpacked "synthetic batch -decompress_to" "$work/synthetic/batch" -pipe -decompress_to out
unpacked "MAM batch -decompress_to" "$work/mam/list" -pipe -decompress_to out

echo "$compared runs compared, $differences differences"
[ "$differences" -eq 0 ]
