#!/bin/sh
# -carve over a file without hits against cat, both on cached data: random
# bytes (1 GiB by default) in a temporary folder, read once to cache them, then
# best of several rounds each of `cat FILE > /dev/null` and `kito -carve FILE
# -csv`. Prints seconds, the ratio to cat and kito's peak memory where
# /usr/bin/time is installed. The file is removed at the end.
#
# usage: carve_bench.sh [-s MiB] [-r rounds] <kito> [<kito> ...]
set -eu

size=1024
rounds=5
while getopts s:r: option; do
    case $option in
        s) size=$OPTARG ;;
        r) rounds=$OPTARG ;;
        *) exit 2 ;;
    esac
done
shift $((OPTIND - 1))
[ $# -ge 1 ] || { echo "usage: carve_bench.sh [-s MiB] [-r rounds] <kito> [<kito> ...]" >&2; exit 2; }
. "$(cd "$(dirname "$0")" && pwd)/folders.sh"

work=$(mktemp -d "${TMPDIR:-/tmp}/kito_carve_bench.XXXXXX")
trap 'rm -rf "$work"' EXIT INT TERM
head -c $((size * 1048576)) /dev/urandom > "$work/random.bin"
cat "$work/random.bin" > /dev/null


cat_time=$(best_time sh -c "cat '$work/random.bin' > /dev/null")
printf '%-40s %8s s\n' "cat ($size MiB)" "$cat_time"
for kito in "$@"; do
    t=$(best_time "$kito" -carve "$work/random.bin" -csv)
    memory=
    [ -x /usr/bin/time ] && memory=$(/usr/bin/time -f %M "$kito" -carve "$work/random.bin" -csv 2>&1 >/dev/null | tail -1)
    printf '%-40s %8s s  %5.2f x cat  %s\n' "$kito -carve" "$t" "$(echo "$t $cat_time" | awk '{print $1 / $2}')" \
        "${memory:+peak ${memory} KiB}"
done
