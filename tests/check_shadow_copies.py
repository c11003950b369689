#!/usr/bin/env python3
"""Proves the shadow-copy stores of make_vss_images.sh with the field's own tools, before kito reads
them: vshadowinfo lists every store with its identifier and creation time; each store, mounted with
vshadowmount and then ntfs-3g, holds exactly the files of its state, byte for byte; and outside the
stores' own file each store reads as the state it was taken from. Usage: check_shadow_copies.py IMAGES
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

import make_shadow_copies as writer

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


def main():
    if os.path.exists(f"{images}/SKIP"):
        skip(open(f"{images}/SKIP").read().strip())
    for tool in ("vshadowinfo", "vshadowmount", "ntfs-3g"):
        if not shutil.which(tool):
            skip(f"{tool} is not installed")
    manifest = json.load(open(f"{images}/vss-manifest.json"))
    volume = f"{images}/vss.raw"
    failures = []

    info = subprocess.run(["vshadowinfo", volume], check=True, capture_output=True, text=True).stdout
    if f"Number of stores:\t{len(manifest['stores'])}\n" not in info:
        failures.append(f"vshadowinfo does not count {len(manifest['stores'])} stores:\n{info}")
    for store in manifest["stores"]:
        section = info.split(f"Store: {store['store']}\n")[-1].split("\nStore:")[0]
        for line in (f"Identifier\t\t: {store['identifier']}", f"Creation time\t\t: {filetime_text(store['created_filetime'])}"):
            if line not in section:
                failures.append(f"store {store['store']}: no '{line}' in:\n{section}")

    own_blocks = set(writer.store_file_blocks(volume)[0])
    with tempfile.TemporaryDirectory() as work:
        stores, view = f"{work}/stores", f"{work}/view"
        os.mkdir(stores), os.mkdir(view)
        shadow = mounted(["vshadowmount", "-v", volume, stores], stores)
        try:
            for store, state in zip(manifest["stores"], manifest["states"]):
                device = f"{stores}/vss{store['store']}"
                expected = {f["name"]: f["sha256"] for f in state["files"] if f["source"] == "allocated"}
                ntfs = mounted(["ntfs-3g", "-o", "ro,no_detach", device, view], view)
                try:
                    seen = files_in(f"{view}/Windows/Prefetch")
                finally:
                    unmount(ntfs, view)
                if seen != expected:
                    failures.append(f"store {store['store']} holds {seen}, not {expected}")
                with open(device, "rb") as f, open(f"{images}/{state['volume']}", "rb") as g:
                    got, want = f.read(), g.read()
                differ = [at for at in range(0, len(want), writer.BLOCK)
                          if at not in own_blocks and got[at : at + writer.BLOCK] != want[at : at + writer.BLOCK]]
                if len(got) != len(want) or differ:
                    failures.append(f"store {store['store']} differs from {state['volume']} at {differ[:8]}")
        finally:
            unmount(shadow, stores)
    for failure in failures:
        print(failure)
    print(f"{len(manifest['stores'])} stores checked, {len(failures)} failures")
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
