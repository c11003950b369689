#!/usr/bin/env python3
"""Proves the shadow-copy stores of make_vss_images.sh with the field's own tools, before kito reads
them: vshadowinfo lists every store with its identifier and creation time; each store, mounted with
vshadowmount and then ntfs-3g, holds exactly the files of its state, byte for byte; outside the
stores' own file each store reads as the state it was taken from; the damaged volumes fail just in
the stores meant; and the QCOW2 and E01 hold the disk. Usage: check_shadow_copies.py IMAGES
Ends with 77 (skipped) where the images could not be made or the tools are missing."""
import datetime
import hashlib
import json
import os
import shutil
import subprocess
import sys
import tempfile
import time

sys.dont_write_bytecode = True  # nothing left in the source tree
import make_shadow_copies as writer  # noqa: E402

SKIPPED = 77
images = sys.argv[1]


def skip(reason):
    print(f"skipped: {reason}")
    sys.exit(SKIPPED)


def filetime_text(filetime):
    """A FILETIME as vshadowinfo writes it: "Nov 16, 2020 11:33:20.000000000 UTC"."""
    moment = datetime.datetime(1601, 1, 1) + datetime.timedelta(microseconds=filetime // 10)
    return moment.strftime("%b %d, %Y %H:%M:%S.") + f"{filetime % 10**7:07d}00 UTC"


def mounted(command, mount_point):
    """Runs a FUSE mount that stays in the foreground and waits until it is there."""
    log = tempfile.TemporaryFile()
    process = subprocess.Popen(command, stdout=subprocess.DEVNULL, stderr=log)
    for _ in range(200):
        if os.path.ismount(mount_point):
            return process
        if process.poll() is not None:
            log.seek(0)
            sys.exit(f"{command} failed: {log.read().decode(errors='replace')[-2000:]}")
        time.sleep(0.05)
    sys.exit(f"{command} did not mount")


def unmount(process, mount_point):
    subprocess.run(["umount", mount_point], check=True)
    process.wait()


def files_in(folder):
    return {name: hashlib.sha256(open(os.path.join(folder, name), "rb").read()).hexdigest() for name in os.listdir(folder)}


def store_views(volume, work):
    """Each store of the volume as vshadowmount gives it: its bytes and its Prefetch files (None
    where it cannot be read or ntfs-3g cannot mount it)."""
    stores, view = f"{work}/stores", f"{work}/view"
    os.makedirs(stores), os.makedirs(view)
    views = {}
    shadow = mounted(["vshadowmount", "-v", volume, stores], stores)
    try:
        for device in sorted(os.listdir(stores)):
            try:
                with open(f"{stores}/{device}", "rb") as f:
                    content = f.read()
            except OSError:  # a store that cannot be read
                views[int(device[3:])] = (b"", None)
                continue
            ntfs = subprocess.Popen(["ntfs-3g", "-o", "ro,no_detach", f"{stores}/{device}", view],
                                    stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
            while not os.path.ismount(view) and ntfs.poll() is None:
                time.sleep(0.05)
            files = None
            if ntfs.poll() is None:
                try:
                    files = files_in(f"{view}/Windows/Prefetch")
                finally:
                    unmount(ntfs, view)
            views[int(device[3:])] = (content, files)
    finally:
        unmount(shadow, stores)
    return views


def vshadowinfo(volume):
    return subprocess.run(["vshadowinfo", volume], capture_output=True, text=True).stdout


def main():
    if os.path.exists(f"{images}/SKIP"):
        skip(open(f"{images}/SKIP").read().strip())
    for tool in ("vshadowinfo", "vshadowmount", "ntfs-3g", "qemu-img", "ewfexport"):
        if not shutil.which(tool):
            skip(f"{tool} is not installed")
    manifest = json.load(open(f"{images}/vss-manifest.json"))
    volume = f"{images}/vss.raw"
    failures = []

    info = vshadowinfo(volume)
    if f"Number of stores:\t{len(manifest['stores'])}\n" not in info:
        failures.append(f"vshadowinfo does not count {len(manifest['stores'])} stores:\n{info}")
    for store in manifest["stores"]:
        section = info.split(f"Store: {store['store']}\n")[-1].split("\nStore:")[0]
        for line in (f"Identifier\t\t: {store['identifier']}", f"Creation time\t\t: {filetime_text(store['created_filetime'])}"):
            if line not in section:
                failures.append(f"store {store['store']}: no '{line}' in:\n{section}")

    own_blocks = set(writer.store_file_blocks(volume)[0])
    with tempfile.TemporaryDirectory() as work:
        views = store_views(volume, work)
    for store, state in zip(manifest["stores"], manifest["states"]):
        content, seen = views.get(store["store"], (b"", None))
        expected = {f["name"]: f["sha256"] for f in state["files"] if f["source"] == "allocated"}
        if seen != expected:
            failures.append(f"store {store['store']} holds {seen}, not {expected}")
        with open(f"{images}/{state['volume']}", "rb") as f:
            want = f.read()
        differ = [at for at in range(0, len(want), writer.BLOCK)
                  if at not in own_blocks and content[at : at + writer.BLOCK] != want[at : at + writer.BLOCK]]
        if len(content) != len(want) or differ:
            failures.append(f"store {store['store']} differs from {state['volume']} at {differ[:8]}")

    # Damaged: store 1's block list (store 2 still reads), store 2's (store 1 reads through it), and
    # stores that lie on another volume (no store reads here).
    for kind, readable in (("block-list", [2]), ("catalog", []), ("foreign", [])):
        damaged = f"{images}/vss-bad-{kind}.raw"
        with tempfile.TemporaryDirectory() as work:
            views = store_views(damaged, work)
        read = [n for n, (_, files) in sorted(views.items()) if files is not None]
        if read != readable:
            failures.append(f"{damaged}: stores {read} read, not {readable}")
    if vshadowinfo(f"{images}/vss-bad-foreign.raw").count("Data stored outside volume.") != len(manifest["stores"]):
        failures.append("vss-bad-foreign.raw: its stores are not outside the volume")

    # The QCOW2 and the E01 hold the disk, byte for byte.
    if subprocess.run(["qemu-img", "compare", "-q", "-f", "raw", "-F", "qcow2", f"{images}/vss-disk.raw", f"{images}/vss-disk.qcow2"]).returncode:
        failures.append("vss-disk.qcow2 differs from vss-disk.raw")
    with tempfile.TemporaryDirectory() as work:
        subprocess.run(["ewfexport", "-q", "-u", "-f", "raw", "-t", f"{work}/disk", f"{images}/vss-disk.E01"], capture_output=True)
        if not os.path.exists(f"{work}/disk.raw") or open(f"{work}/disk.raw", "rb").read() != open(f"{images}/vss-disk.raw", "rb").read():
            failures.append("vss-disk.E01 differs from vss-disk.raw")
    for failure in failures:
        print(failure)
    print(f"{len(manifest['stores'])} stores checked, {len(failures)} failures")
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
