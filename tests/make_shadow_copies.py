#!/usr/bin/env python3
"""Shadow-copy stores for test volumes, laid out as Windows writes them, and what the volumes hold.

  make_shadow_copies.py write VOLUME STATE... [--created FILETIME...]
      VOLUME is an NTFS volume image in its current state, each STATE an earlier copy of it, oldest
      first. Writes into VOLUME the volume header at 0x1e00, the catalog and one store per STATE,
      each store holding the earlier content of the 16 KiB blocks that changed after it. They go
      into the clusters of STORE_FILE, which must have been made before the first state so that
      its clusters never held anything else. Prints the stores as JSON.
  make_shadow_copies.py damage KIND VOLUME
      Damages the stores of VOLUME in place. KIND: block-list (store 1's block list is no block
      list), catalog (store 2's entry places its block list past the volume's end), foreign (the
      stores lie on another volume: the catalog keeps only its type 2 entries).
  make_shadow_copies.py manifest RUNS_JSON VOLUME...
      Lists, as The Sleuth Kit reads them, the Prefetch files of each VOLUME, allocated and
      deleted, with the SHA-256 of their content and, where it is a version of runs.json, that
      version's name and run times.
"""
import hashlib
import json
import re
import struct
import subprocess
import sys
import uuid

VSS = uuid.UUID("3808876b-c176-4e48-b7ae-04046e6cc752")
STORE_INFO = uuid.UUID("e5de7d45-49f2-40a4-817c-7dc82b72587f")
STORE_FILE = "/System Volume Information/{3808876b-c176-4e48-b7ae-04046e6cc752}"
BLOCK = 0x4000
HEADER_AT = 0x1E00
CATALOG_BLOCKS = 4
ENTRY = 128
ENTRIES_PER_BLOCK = (BLOCK - 128) // ENTRY
DESCRIPTORS_PER_BLOCK = (BLOCK - 128) // 32
PREFETCH = "/Windows/Prefetch"


def tool(*args):
    return subprocess.run(args, check=True, capture_output=True).stdout


def guid(name):
    """A fixed GUID per name, so that every build writes the same volumes."""
    return uuid.uuid5(VSS, name)


def block_header(record_type, relative, offset, next_offset, info_size=0):
    fields = struct.pack("<IIQQQQ", 1, record_type, relative, offset, next_offset, info_size)
    return (VSS.bytes_le + fields).ljust(128, b"\0")


def store_file_blocks(volume):
    """The volume offsets of the 16 KiB blocks that lie wholly in STORE_FILE, and its file reference."""
    entry = int(tool("ifind", "-n", STORE_FILE, volume))
    istat = tool("istat", volume, str(entry)).decode()
    sequence = int(re.search(r"Sequence: (\d+)", istat).group(1))
    cluster = int(re.search(r"Cluster Size: (\d+)", tool("fsstat", volume).decode()).group(1))
    data = istat[istat.index("Type: $DATA") :].split("\n", 1)[1]
    clusters = {int(c) for c in re.findall(r"\d+", data.split("\nType:")[0])}
    per_block = BLOCK // cluster
    blocks = sorted({c // per_block for c in clusters})
    whole = [b * BLOCK for b in blocks if all(b * per_block + i in clusters for i in range(per_block))]
    return whole, entry | sequence << 48


def changed_blocks(older, newer, skip):
    return [at for at in range(0, len(older), BLOCK) if at not in skip and older[at : at + BLOCK] != newer[at : at + BLOCK]]


def put(image, at, data):
    image[at : at + len(data)] = data


def store_information(number):
    machine = "KITO-TEST".encode("utf-16-le")
    text = struct.pack("<H", len(machine)) + machine
    ids = STORE_INFO.bytes_le + guid(f"copy {number}").bytes_le + guid("copy set").bytes_le
    return ids + struct.pack("<IIII", 0x1D, 1, 0x0002001D, 0) + text + text


def write_store(image, number, saved, free):
    """Lays store `number` out in blocks taken from `free`: header, block list, block-range list,
    bitmap, then the saved copies of the blocks in `saved` (volume offset: earlier content)."""
    lists = max(1, -(-len(saved) // DESCRIPTORS_PER_BLOCK))
    count = 3 + lists + len(saved)
    if len(free) < count:
        sys.exit(f"the store file is too small: store {number} needs {count} more blocks")
    mine = [free.pop(0) for _ in range(count)]
    rel = {at: i * BLOCK for i, at in enumerate(mine)}
    header, list_blocks, ranges, bitmap, data = mine[0], mine[1 : 1 + lists], mine[1 + lists], mine[2 + lists], mine[3 + lists :]
    info = store_information(number)
    put(image, header, block_header(4, 0, header, 0, len(info)) + info)
    descriptors = [struct.pack("<QQQII", original, rel[copy], copy, 0, 0) for original, copy in zip(sorted(saved), data)]
    for i, at in enumerate(list_blocks):
        following = list_blocks[i + 1] if i + 1 < len(list_blocks) else 0
        chunk = descriptors[i * DESCRIPTORS_PER_BLOCK : (i + 1) * DESCRIPTORS_PER_BLOCK]
        put(image, at, (block_header(3, rel[at], at, following) + b"".join(chunk)).ljust(BLOCK, b"\0"))
    runs = []
    for at in mine:
        if runs and runs[-1][0] + runs[-1][2] == at:
            runs[-1][2] += BLOCK
        else:
            runs.append([at, rel[at], BLOCK])
    put(image, ranges, (block_header(5, rel[ranges], ranges, 0) + b"".join(struct.pack("<QQQ", *r) for r in runs)).ljust(BLOCK, b"\0"))
    put(image, bitmap, block_header(6, rel[bitmap], bitmap, 0).ljust(BLOCK, b"\0"))
    for original, copy in zip(sorted(saved), data):
        put(image, copy, saved[original])
    return header, list_blocks[0], ranges, bitmap


def catalog_blocks(image, entries, at):
    for i, block in enumerate(at):
        following = at[i + 1] if i + 1 < len(at) else 0
        chunk = entries[i * ENTRIES_PER_BLOCK : (i + 1) * ENTRIES_PER_BLOCK]
        put(image, block, (block_header(2, i * BLOCK, block, following) + b"".join(chunk)).ljust(BLOCK, b"\0"))


def volume_header(catalog, holder):
    fields = struct.pack("<QQQQQ", HEADER_AT, HEADER_AT, 0, catalog, 0)
    body = VSS.bytes_le + struct.pack("<II", 1, 1) + fields + guid("volume").bytes_le + holder.bytes_le
    return (body + struct.pack("<I", 1)).ljust(512, b"\0")


def write(volume, states, created):
    free, file_ref = store_file_blocks(volume)
    with open(volume, "rb") as f:
        image = bytearray(f.read())
    skip = set(free)
    catalog, free = free[:CATALOG_BLOCKS], free[CATALOG_BLOCKS:]
    put(image, HEADER_AT, volume_header(catalog[0], guid("volume")))
    contents = []
    for path in states:
        with open(path, "rb") as f:
            contents.append(f.read())
    contents.append(bytes(image))
    entries, stores, previous_bitmap = [], [], 0
    for i in range(len(states)):
        number = i + 1
        older, newer = contents[i], contents[i + 1]
        saved = {at: older[at : at + BLOCK] for at in changed_blocks(older, newer, skip)}
        header, block_list, ranges, bitmap = write_store(image, number, saved, free)
        store_id = guid(f"store {number}")
        entries.append(struct.pack("<QQ16sQQQ", 2, len(image), store_id.bytes_le, number, 0x40, created[i]).ljust(ENTRY, b"\0"))
        entries.append(struct.pack("<QQ16sQQQQQQQ", 3, block_list, store_id.bytes_le, header, ranges, bitmap, file_ref, 0, previous_bitmap, i).ljust(ENTRY, b"\0"))
        previous_bitmap = bitmap
        stores.append({"store": number, "identifier": str(store_id), "created_filetime": created[i], "saved_blocks": len(saved)})
    catalog_blocks(image, entries, catalog)
    with open(volume, "r+b") as f:
        f.write(image)
    print(json.dumps(stores, indent=1))


def read_catalog(image):
    """The catalog's block offsets and its entries, as (volume offset, bytes)."""
    at = struct.unpack_from("<Q", image, HEADER_AT + 48)[0]
    blocks, entries = [], []
    while at and len(blocks) < CATALOG_BLOCKS:
        blocks.append(at)
        entries += [(at + 128 + i * ENTRY, bytes(image[at + 128 + i * ENTRY : at + 128 + (i + 1) * ENTRY])) for i in range(ENTRIES_PER_BLOCK)]
        at = struct.unpack_from("<Q", image, at + 40)[0]
    return blocks, entries


def damage(kind, volume):
    with open(volume, "rb") as f:
        image = bytearray(f.read())
    blocks, entries = read_catalog(image)
    type3 = [(at, e) for at, e in entries if struct.unpack_from("<Q", e)[0] == 3]
    if kind == "block-list":
        block_list = struct.unpack_from("<Q", type3[0][1], 8)[0]
        put(image, block_list, b"no block list here".ljust(128, b"\xff"))
    elif kind == "catalog":
        put(image, type3[1][0] + 8, struct.pack("<Q", len(image) + 64 * BLOCK))
    elif kind == "foreign":
        put(image, HEADER_AT + 80, guid("another volume").bytes_le)
        kept = [e for _, e in entries if struct.unpack_from("<Q", e)[0] == 2]
        catalog_blocks(image, kept, blocks)
    else:
        sys.exit(f"unknown damage {kind}")
    with open(volume, "r+b") as f:
        f.write(image)


def manifest(runs_json, volumes):
    with open(runs_json) as f:
        runs = json.load(f)
    folder = runs_json.rsplit("/", 1)[0]
    versions = {}
    for name, times in runs.items():
        with open(f"{folder}/{name}", "rb") as f:
            versions[hashlib.sha256(f.read()).hexdigest()] = (name, times)
    out = []
    for volume in volumes:
        prefetch = tool("ifind", "-n", PREFETCH, volume).decode().strip()
        files = []
        for line in tool("fls", volume, prefetch).decode().splitlines():
            match = re.match(r"\S+ (\* )?(\d+)(\S*):\t(.*)$", line)
            if not match or "realloc" in match.group(3):
                continue
            deleted, entry, name = match.group(1) is not None, match.group(2), match.group(4)
            sha = hashlib.sha256(tool("icat", volume, entry)).hexdigest()
            version, times = versions.get(sha, (None, None))
            files.append({"name": name, "mft_entry": int(entry), "source": "deleted" if deleted else "allocated",
                          "sha256": sha, "version": version, "runs": times})
        out.append({"volume": volume.rsplit("/", 1)[-1], "files": files})
    print(json.dumps(out, indent=1))


def main(args):
    if args[:1] == ["write"] and len(args) >= 3:
        created = [int(t) for t in args[args.index("--created") + 1 :]] if "--created" in args else []
        states = args[2 : args.index("--created")] if "--created" in args else args[2:]
        created += [132500000000000000 + i * 864000000000 for i in range(len(created), len(states))]
        write(args[1], states, created)
    elif args[:1] == ["damage"] and len(args) == 3:
        damage(args[1], args[2])
    elif args[:1] == ["manifest"] and len(args) >= 3:
        manifest(args[1], args[2:])
    else:
        sys.exit(__doc__)


if __name__ == "__main__":
    main(sys.argv[1:])
