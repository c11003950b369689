#!/bin/sh
# -image against the same files extracted: an NTFS volume image whose
# Windows/Prefetch folder holds 1,000 copies of the corpus's real files (the
# broken one left out), read with kito -image, against those files read from
# the file system with kito -pipe, in the -csv and -json forms. Each time is
# the best of several rounds; peak memory comes from /usr/bin/time where it is
# installed. Needs root, FUSE, mkntfs and ntfs-3g to build the image.
#
# usage: image_bench.sh [-c corpus folder] [-n file count] [-r rounds] <kito>
set -eu

here=$(cd "$(dirname "$0")" && pwd)
corpus=${KITO_CORPUS:-$here/../../shared/corpus}
wanted=1000
rounds=5
while getopts c:n:r: option; do
    case $option in
        c) corpus=$OPTARG ;;
        n) wanted=$OPTARG ;;
        r) rounds=$OPTARG ;;
        *) exit 2 ;;
    esac
done
shift $((OPTIND - 1))
[ $# -eq 1 ] && [ -x "$1" ] || { echo "usage: image_bench.sh [-c corpus] [-n count] [-r rounds] <kito>" >&2; exit 2; }
kito=$1
. "$here/folders.sh"

work=$(mktemp -d "${TMPDIR:-/tmp}/kito_image_bench.XXXXXX")
trap 'mountpoint -q "$work/mnt" && umount "$work/mnt"; rm -rf "$work"' EXIT INT TERM
corpus_folder "$corpus" "$work/corpus" "$wanted"

# The first `wanted` files, flattened under unique names, into a volume with
# room for them, and the same files extracted into a plain folder.
mkdir -p "$work/mnt" "$work/extracted"
head -n "$wanted" "$work/corpus/list" > "$work/chosen"
bytes=$(xargs -d '\n' cat < "$work/chosen" | wc -c)
truncate -s $((bytes * 2 + 32 * 1048576)) "$work/volume.raw"
mkntfs -F -q -Q "$work/volume.raw" > /dev/null 2>&1
ntfs-3g "$work/volume.raw" "$work/mnt"
mkdir -p "$work/mnt/Windows/Prefetch"
while read -r file; do
    name=$(basename "$(dirname "$file")")-$(basename "$file")
    cp "$file" "$work/mnt/Windows/Prefetch/$name"
    cp "$file" "$work/extracted/$name"
done < "$work/chosen"
umount "$work/mnt"
find "$work/extracted" -type f | sort > "$work/list"
cat "$work/volume.raw" "$work/list" > /dev/null

peak_kib() {
    if [ -x /usr/bin/time ]; then /usr/bin/time -f %M "$@" 2>&1 > /dev/null | tail -n 1; else echo "-"; fi
}
pipe_run() { "$kito" -pipe -quiet "$@" < "$work/list"; }

printf '%-6s %10s %10s %8s %12s %12s\n' form "image s" "pipe s" ratio "image KiB" "pipe KiB"
for form in -csv -json; do
    image_s=$(best_time "$kito" -image "$work/volume.raw" -quiet "$form")
    pipe_s=$(best_time pipe_run "$form")
    image_mem=$(peak_kib "$kito" -image "$work/volume.raw" -quiet "$form")
    pipe_mem=$(peak_kib sh -c "\"$kito\" -pipe -quiet $form < \"$work/list\"")
    ratio=$(echo "$image_s $pipe_s" | awk '{ printf "%.2f", $1 / $2 }')
    printf '%-6s %10s %10s %8s %12s %12s\n' "$form" "$image_s" "$pipe_s" "$ratio" "$image_mem" "$pipe_mem"
done
reported() { "$@" -quiet -json | grep -c '"record":"prefetch"'; }
echo "files: $(wc -l < "$work/list"); reported from the image: $(reported "$kito" -image "$work/volume.raw"), \
from the extracted files: $(reported pipe_run)"
