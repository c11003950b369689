#pragma once
// Windows names a Prefetch file after its program and a hash of the program's
// full path ("CMD.EXE-4A81B364.pf") and keeps that hash in the header. Hashing
// the loaded-file paths again ties the file to one path on one volume; for the
// \VOLUME{...} paths of Windows 10 and later it also recovers the volume
// number that the stored paths no longer show.
#include "prefetch/prefetch_entry.h"

// Fills path_hash, hash_path, hash_prefetch_flag and hash_hosting_program from
// the decoded strings, name, version and header hash. Candidates are the
// strings, in file order, whose last component begins with the header's name
// (which keeps at most 29 characters of it), A-Z matching a-z; a \VOLUME{...}
// candidate is tried on each of the volumes \DEVICE\HARDDISKVOLUME1 to 64 in
// turn. The first that hashes to the header's value wins; failing that, from
// version 23 on, the first whose hash plus N (1 to 16, the smallest on its
// volumes) does. A hosting program is named only when nothing matched.
void check_path_hash(prefetch_entry& entry);
