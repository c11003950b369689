#!/usr/bin/env bash
# Builds the disk images the image tests read: NTFS volumes made with mkntfs,
# filled through an ntfs-3g mount with known NTFS times, then laid out as a
# bare volume, as an MBR disk, as that disk in E01 segments, VMDK, VHD and
# split raw, plus damaged ones; and with make_vss_images.sh one with shadow copies.
# Usage: make_images.sh OUT_DIR SAMPLES_DIR VERSIONS_DIR
# Without root, FUSE or one of the tools it writes OUT_DIR/SKIP with the reason
# and ends well, so that the tests can skip and say why.
set -euo pipefail
out=$1
samples=$2
versions=$3
rm -rf "$out"
mkdir -p "$out"

skip() {
    echo "$1" > "$out/SKIP"
    exit 0
}
[ "$(id -u)" = 0 ] || skip "not root: an ntfs-3g mount needs it"
[ -e /dev/fuse ] || skip "no /dev/fuse"
for tool in mkntfs ntfs-3g setfattr sfdisk ewfacquire qemu-img istat fls ifind icat fsstat python3; do
    command -v "$tool" > /dev/null || skip "$tool is not installed"
done

mnt=$out/mnt
mkdir -p "$mnt"
cleanup() { mountpoint -q "$mnt" && umount "$mnt"; rmdir "$mnt" 2> /dev/null || true; }
trap cleanup EXIT

# The NTFS created time of a file, from a date and a count of 100-ns units,
# as the 8 little-endian bytes of a FILETIME.
set_created() {
    local ticks
    ticks=$(($(date -u -d "$2" +%s) * 10000000 + $3 + 116444736000000000))
    setfattr -n system.ntfs_crtime -v "0x$(printf '%016x' "$ticks" | fold -w2 | tac | tr -d '\n')" "$1"
}

# A file with modified, accessed and created times of its own: the n-th file
# of a folder lies n days after the first.
place() {
    local source=$1 target=$2 n=$3
    cp "$source" "$target"
    touch -m -d "2021-03-0$((n + 1)) 05:06:07.1234567 UTC" "$target"
    touch -a -d "2022-04-0$((n + 1)) 06:07:08.7654321 UTC" "$target"
    set_created "$target" "2020-0$((n + 1))-02 03:04:05" 1234567
}

new_volume() {
    truncate -s "${2:-16M}" "$1"
    mkntfs -F -q -Q -s 512 -c 4096 "$1" > /dev/null 2>&1
}

# Volume 1: Windows/Prefetch with three samples and a text file the default
# filter passes over, and a stray .pf outside the Prefetch folder.
new_volume "$out/volume.raw"
ntfs-3g "$out/volume.raw" "$mnt"
mkdir -p "$mnt/Windows/Prefetch" "$mnt/Users/Public"
n=0
for name in CALC.EXE-77FDF17F.pf CMD.EXE-4A81B364.pf MSPAINT.EXE-8F2A1C3D.pf; do
    place "$samples/$name" "$mnt/Windows/Prefetch/$name" $n
    n=$((n + 1))
done
echo "not Prefetch" > "$mnt/Windows/Prefetch/Layout.ini"
cp "$samples/CALC.EXE-77FDF17F.pf" "$mnt/Users/Public/STRAY.EXE-11111111.pf"
umount "$mnt"

# Volume 2: the folders spelled otherwise, a .pf that is no Prefetch file
# and a sparse one past the 16 MiB read limit (named to come first), and one
# sample. It is larger than the sparse file: The Sleuth Kit refuses an entry
# whose run reaches past the volume's end.
new_volume "$out/volume2.raw" 24M
ntfs-3g "$out/volume2.raw" "$mnt"
mkdir -p "$mnt/windows/PREFETCH"
echo "no Prefetch file" > "$mnt/windows/PREFETCH/00-NOT-PREFETCH.pf"
truncate -s 17M "$mnt/windows/PREFETCH/01-HUGE.pf"
place "$samples/WORDPAD.EXE-2B4E7D19.pf" "$mnt/windows/PREFETCH/WORDPAD.EXE-2B4E7D19.pf" 3
umount "$mnt"

# Volume 3: one content at three places (two copies of CMD.EXE's file, and
# two equal files that are no Prefetch files) and two versions of CALC.EXE's
# file. The older version, also left beside the images, is the sample with
# its last run two hours earlier and a run of long ago in slot 6 (the run
# slots of version 26 start at byte 128).
put_u64() {
    printf "$(printf '%016x\n' "$3" | fold -w2 | tac | sed 's/^/\\x/' | tr -d '\n')" |
        dd of="$1" bs=1 seek="$2" conv=notrunc status=none
}
cp "$samples/CALC.EXE-77FDF17F.pf" "$out/CALC-older.pf"
put_u64 "$out/CALC-older.pf" 128 130299928000000000
put_u64 "$out/CALC-older.pf" 176 130200000000000000
new_volume "$out/versions.raw"
ntfs-3g "$out/versions.raw" "$mnt"
mkdir -p "$mnt/Windows/Prefetch"
place "$samples/CALC.EXE-77FDF17F.pf" "$mnt/Windows/Prefetch/CALC.EXE-77FDF17F.pf" 0
place "$out/CALC-older.pf" "$mnt/Windows/Prefetch/CALC.EXE-77FDF17F.OLD.pf" 1
for name in "CMD.EXE-4A81B364.pf" "Copy (2) of CMD.EXE-4A81B364.pf" "Copy of CMD.EXE-4A81B364.pf"; do
    place "$samples/CMD.EXE-4A81B364.pf" "$mnt/Windows/Prefetch/$name" 2
done
place "$samples/MSPAINT.EXE-8F2A1C3D.pf" "$mnt/Windows/Prefetch/MSPAINT.EXE-8F2A1C3D.pf" 3
echo "no Prefetch file" > "$mnt/Windows/Prefetch/BAD-1.pf"
echo "no Prefetch file" > "$mnt/Windows/Prefetch/BAD-2.pf"
umount "$mnt"

# The MBR disk: volume 1 at sector 2048, volume 2 right behind it.
truncate -s 42M "$out/disk.raw"
printf 'start=2048, size=32768, type=7\nstart=34816, size=49152, type=7\n' | sfdisk -q "$out/disk.raw"
dd if="$out/volume.raw" of="$out/disk.raw" bs=512 seek=2048 conv=notrunc status=none
dd if="$out/volume2.raw" of="$out/disk.raw" bs=512 seek=34816 conv=notrunc status=none

# Volume 1 alone behind a GPT table.
truncate -s 20M "$out/gpt.raw"
printf 'label: gpt\nstart=2048, size=32768\n' | sfdisk -q "$out/gpt.raw"
dd if="$out/volume.raw" of="$out/gpt.raw" bs=512 seek=2048 conv=notrunc status=none

# The disk as E01 in 16 MiB segments, uncompressed: E01, E02, E03.
ewfacquire -u -q -c none -S 16777216 -t "$out/disk" "$out/disk.raw" > /dev/null 2>&1 ||
    ewfacquire -u -c none -S 16777216 -t "$out/disk" "$out/disk.raw" > /dev/null

# The same disk as VMDK, as dynamic VHD, and as raw split into 16 MiB pieces.
qemu-img convert -f raw -O vmdk "$out/disk.raw" "$out/disk.vmdk"
qemu-img convert -f raw -O vpc "$out/disk.raw" "$out/disk.vhd"
split -b 16M -d -a 3 --numeric-suffixes=1 "$out/disk.raw" "$out/disk.split."
qemu-img convert -f raw -O qcow2 "$out/disk.raw" "$out/disk.qcow2"
# Formats kito recognises but does not read.
qemu-img create -q -f vhdx "$out/empty.vhdx" 1M
gzip -c "$out/volume.raw" > "$out/volume.raw.gz"
head -c 300 "$out/disk.qcow2" > "$out/truncated.qcow2"

# Damaged and wrong images.
echo "this is a text file, not a disk image" > "$out/not-an-image.txt"
truncate -s 4M "$out/zeros.raw"
new_volume "$out/no-prefetch.raw"
head -c 9000000 "$out/disk.E01" > "$out/truncated.E01"
mkdir "$out/gap"
ln "$out/disk.E01" "$out/disk.E03" "$out/gap/"
# The MFT entry of CMD.EXE's Prefetch file gets a wrong update sequence value
# at the end of its first sector, as a torn write leaves it.
cp "$out/volume.raw" "$out/damaged-entry.raw"
prefetch=$(fls -p "$out/volume.raw" 5 | awk '/\tWindows$/ {print $2}' | tr -d :)
prefetch=$(fls "$out/volume.raw" "$prefetch" | awk '/\tPrefetch$/ {print $2}' | tr -d :)
entry=$(fls "$out/volume.raw" "$prefetch" | awk '/\tCMD.EXE/ {print $2}' | cut -d- -f1)
mft_cluster=$(istat "$out/volume.raw" 0 | awk '/^Type: \$DATA/ {getline; print $1; exit}')
printf 'XX' | dd of="$out/damaged-entry.raw" bs=1 seek=$((mft_cluster * 4096 + entry * 1024 + 510)) conv=notrunc status=none
# Free clusters: Prefetch files written (the containers padded past what an
# MFT entry holds), their first clusters read with istat, some deleted and
# their MFT entries reused by small files, one of the deleted ones then
# overwritten. freed-before.raw keeps the volume as it was; freed.expect
# lists the deleted files whose clusters stay intact, with their offsets.
new_volume "$out/freed.raw"
ntfs-3g "$out/freed.raw" "$mnt"
mkdir -p "$mnt/Windows/Prefetch"
for name in NOTEPAD.EXE-336351A9.pf CMD.EXE-4A81B364.pf CALC.EXE-77FDF17F.pf; do
    cp "$samples/$name" "$mnt/Windows/Prefetch/$name"
done
for name in MSPAINT.EXE-8F2A1C3D.pf WORDPAD.EXE-2B4E7D19.pf; do
    { cat "$samples/$name"; head -c 3000 /dev/zero; } > "$mnt/Windows/Prefetch/$name"
done
umount "$mnt"
cp "$out/freed.raw" "$out/freed-before.raw"
first_cluster() { istat "$out/freed.raw" "$(ifind -n "/Windows/Prefetch/$1" "$out/freed.raw")" | awk '/^Type: \$DATA/ {getline; print $1; exit}'; }
declare -A at
for name in CMD.EXE-4A81B364.pf MSPAINT.EXE-8F2A1C3D.pf WORDPAD.EXE-2B4E7D19.pf CALC.EXE-77FDF17F.pf; do
    at[$name]=$(($(first_cluster "$name") * 4096))
done
ntfs-3g "$out/freed.raw" "$mnt"
rm "$mnt/Windows/Prefetch/"{CMD.EXE-4A81B364,MSPAINT.EXE-8F2A1C3D,WORDPAD.EXE-2B4E7D19,CALC.EXE-77FDF17F}.pf
for n in 1 2 3 4; do echo "small file $n" > "$mnt/Windows/new$n.txt"; done
umount "$mnt"
dd if=/dev/zero of="$out/freed.raw" bs=4096 seek=$((at[CALC.EXE-77FDF17F.pf] / 4096)) count=1 conv=notrunc status=none
# Intact: the volume still holds the file's bytes where they were (a growing
# folder index may have taken the clusters of another).
: > "$out/freed.expect"
for name in "${!at[@]}"; do
    size=$(stat -c %s "$samples/$name")
    cmp -s -n "$size" "$samples/$name" <(tail -c +$((at[$name] + 1)) "$out/freed.raw") && echo "$name ${at[$name]}" >> "$out/freed.expect"
done
bash "$(dirname "$0")/make_vss_images.sh" "$out" "$versions"
echo "images made"
