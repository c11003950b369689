#!/usr/bin/env bash
# Builds the shadow-copy images: one NTFS volume in three states of its Prefetch folder (files
# replaced by other versions of the same program, added, deleted), the two earlier states kept as
# shadow-copy stores by make_shadow_copies.py, and deleted entries whose clusters are intact or
# reused. Writes vss.raw (the bare volume), vss-disk.raw (it in an MBR disk at sector 2048) as
# QCOW2 and E01, the volume with damaged stores, and vss-manifest.json: what each state holds.
# Usage: make_vss_images.sh OUT_DIR VERSIONS_DIR (make_images.sh has checked root, FUSE and tools).
set -euo pipefail
out=$1
versions=$2
here=$(dirname "$0")
work=$out/vss-work
mnt=$work/mnt
mkdir -p "$mnt"
mount_pid=
mount_volume() {
    ntfs-3g -o no_detach "$1" "$mnt" > /dev/null 2>&1 &
    mount_pid=$!
    until mountpoint -q "$mnt"; do sleep 0.05; done
}
# umount can return before ntfs-3g has written everything: wait for it to end.
unmount_volume() { umount "$mnt" && wait "$mount_pid"; }
cleanup() { mountpoint -q "$mnt" && umount "$mnt"; rm -rf "$work"; }
trap cleanup EXIT

volume=$out/vss.raw
prefetch=$mnt/Windows/Prefetch
truncate -s 16M "$volume"
mkntfs -F -q -Q -s 512 -c 4096 "$volume" > /dev/null 2>&1

# State 1, the oldest. The stores' file comes first, so that its clusters never hold anything else.
mount_volume "$volume"
mkdir -p "$mnt/System Volume Information" "$prefetch"
head -c 2M /dev/zero > "$mnt/System Volume Information/{3808876b-c176-4e48-b7ae-04046e6cc752}"
for name in CALC.EXE-77FDF17F CMD.EXE-4A81B364 MSPAINT.EXE-8F2A1C3D NOTEPAD.EXE-336351A9; do
    cp "$versions/$name.pf.1" "$prefetch/$name.pf"
done
echo "not Prefetch" > "$prefetch/Layout.ini"
unmount_volume
cp "$volume" "$out/vss-state1.raw"

# State 2: CALC and MSPAINT rewritten, WORDPAD and SNIPPINGTOOL added, NOTEPAD deleted last so
# that no new file takes its MFT entry.
mount_volume "$volume"
cp "$versions/CALC.EXE-77FDF17F.pf.2" "$prefetch/CALC.EXE-77FDF17F.pf"
cp "$versions/MSPAINT.EXE-8F2A1C3D.pf.2" "$prefetch/MSPAINT.EXE-8F2A1C3D.pf"
cp "$versions/WORDPAD.EXE-2B4E7D19.pf.1" "$prefetch/WORDPAD.EXE-2B4E7D19.pf"
cp "$versions/SNIPPINGTOOL.EXE-4E1A2B3C.pf.1" "$prefetch/SNIPPINGTOOL.EXE-4E1A2B3C.pf"
rm "$prefetch/NOTEPAD.EXE-336351A9.pf"
unmount_volume
cp "$volume" "$out/vss-state2.raw"

# State 3, the live volume: MSPAINT rewritten again, WORDPAD deleted with its clusters intact.
mount_volume "$volume"
cp "$versions/MSPAINT.EXE-8F2A1C3D.pf.3" "$prefetch/MSPAINT.EXE-8F2A1C3D.pf"
rm "$prefetch/WORDPAD.EXE-2B4E7D19.pf"
unmount_volume
# NOTEPAD's freed clusters written over, as by a file that took them and went again: its entry
# still records them. (ntfs-3g itself does not hand freed clusters out again soon enough.)
notepad=$(ifind -n /Windows/Prefetch/NOTEPAD.EXE-336351A9.pf "$volume")
for cluster in $(istat "$volume" "$notepad" | sed -n '/^Type: \$DATA/,$p' | tail -n +2); do
    head -c 4096 /dev/zero | tr '\0' 'U' | dd of="$volume" bs=4096 seek="$cluster" conv=notrunc status=none
done

# The stores, taken a day apart in 2021 (FILETIME).
python3 "$here/make_shadow_copies.py" write "$volume" "$out/vss-state1.raw" "$out/vss-state2.raw" \
    --created 132539328000000000 132540192000000000 > "$work/stores.json"
{
    echo '{"stores":'
    cat "$work/stores.json"
    echo ',"states":'
    python3 "$here/make_shadow_copies.py" manifest "$versions/runs.json" "$out/vss-state1.raw" "$out/vss-state2.raw" "$volume"
    echo '}'
} > "$out/vss-manifest.json"

for kind in block-list catalog foreign; do
    cp "$volume" "$out/vss-bad-$kind.raw"
    python3 "$here/make_shadow_copies.py" damage "$kind" "$out/vss-bad-$kind.raw"
done

# The volume in an MBR disk, as QCOW2 and as E01.
rm -f "$out/vss-disk.raw"
truncate -s 18M "$out/vss-disk.raw"
echo 'start=2048, size=32768, type=7' | sfdisk -q "$out/vss-disk.raw"
dd if="$volume" of="$out/vss-disk.raw" bs=512 seek=2048 conv=notrunc status=none
qemu-img convert -f raw -O qcow2 "$out/vss-disk.raw" "$out/vss-disk.qcow2"
ewfacquire -u -q -c none -t "$out/vss-disk" "$out/vss-disk.raw" > /dev/null 2>&1 ||
    ewfacquire -u -c none -t "$out/vss-disk" "$out/vss-disk.raw" > /dev/null
