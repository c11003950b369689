#!/bin/sh
# -image -vss against -image alone: an NTFS volume whose Windows/Prefetch
# holds copies of the corpus's real files in three states (the oldest, a
# third of the files rewritten, another third rewritten), the two older
# states kept as shadow-copy stores by tests/make_shadow_copies.py. The
# target: -vss, which reads the volume three times, at most three times the
# time of -image. Each time is the best of several rounds. Needs root, FUSE,
# mkntfs, ntfs-3g and the sleuthkit tools (for the writer).
#
# usage: vss_bench.sh [-c corpus folder] [-n file count] [-r rounds] <kito>
set -eu

here=$(cd "$(dirname "$0")" && pwd)
corpus=${KITO_CORPUS:-$here/../../shared/corpus}
writer=${KITO_SHADOW_WRITER:-$here/../tests/make_shadow_copies.py}
wanted=600
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
[ $# -eq 1 ] && [ -x "$1" ] || { echo "usage: vss_bench.sh [-c corpus] [-n count] [-r rounds] <kito>" >&2; exit 2; }
kito=$1
. "$here/folders.sh"

work=$(mktemp -d "${TMPDIR:-/tmp}/kito_vss_bench.XXXXXX")
trap 'mountpoint -q "$work/mnt" && umount "$work/mnt"; rm -rf "$work"' EXIT INT TERM
corpus_folder "$corpus" "$work/corpus" "$wanted"
head -n "$wanted" "$work/corpus/list" > "$work/chosen"

mkdir -p "$work/mnt"
volume=$work/volume.raw
bytes=$(xargs -d '\n' cat < "$work/chosen" | wc -c)
truncate -s $(((bytes * 3 + 48 * 1048576) / 16384 * 16384)) "$volume"
mkntfs -F -q -Q -s 512 -c 4096 "$volume" > /dev/null 2>&1
# umount can return before ntfs-3g has written everything: wait for it.
mount_volume() {
    ntfs-3g -o no_detach "$volume" "$work/mnt" > /dev/null 2>&1 &
    mount_pid=$!
    until mountpoint -q "$work/mnt"; do sleep 0.05; done
}
unmount_volume() { umount "$work/mnt" && wait "$mount_pid"; }
# state <n> <from>: rewrites every third file from the <from>-th on with the
# content of the file after it, so that each state differs.
state() {
    mount_volume
    i=0
    while read -r file; do
        i=$((i + 1))
        [ "$1" -gt 0 ] && [ $((i % 3)) -ne "$2" ] && continue
        source=$(sed -n "$(((i % wanted) + 1))p" "$work/chosen")
        [ "$1" -eq 0 ] && source=$file
        cp "$source" "$work/mnt/Windows/Prefetch/$(basename "$(dirname "$file")")-$i-$(basename "$file")"
    done < "$work/chosen"
    unmount_volume
}
mount_volume
mkdir -p "$work/mnt/System Volume Information" "$work/mnt/Windows/Prefetch"
head -c $((bytes / 16384 * 16384 + 4 * 1048576)) /dev/zero > "$work/mnt/System Volume Information/{3808876b-c176-4e48-b7ae-04046e6cc752}"
unmount_volume
state 0 0; cp "$volume" "$work/state1.raw"
state 1 1; cp "$volume" "$work/state2.raw"
state 2 2
python3 "$writer" write "$volume" "$work/state1.raw" "$work/state2.raw" > /dev/null
rm "$work/state1.raw" "$work/state2.raw"
cat "$volume" > /dev/null

reported() { "$@" -quiet -json 2> /dev/null | grep -c '"record":"prefetch"'; }

printf '%-6s %10s %10s %8s\n' form "image s" "-vss s" ratio
for form in -csv -json; do
    plain=$(best_time "$kito" -image "$volume" -quiet "$form")
    stores=$(best_time "$kito" -image "$volume" -vss -quiet "$form")
    printf '%-6s %10s %10s %8s\n' "$form" "$plain" "$stores" "$(echo "$plain $stores" | awk '{ printf "%.2f", $2 / $1 }')"
done
echo "files per state: $wanted; reported: -image $(reported "$kito" -image "$volume"), -image -vss $(reported "$kito" -image "$volume" -vss)"
