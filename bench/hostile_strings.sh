#!/bin/sh
# Writes the costliest file-name section a file can hold: a version-30
# header (metrics at 304, strings at 228, volumes at the very end) in front of
# 16 MiB of zero units, that is about 8 million empty strings, each one a
# line of the text report and an entry of the decoded file.
#
# usage: hostile_strings.sh <path to write>
set -eu
out=${1:?usage: hostile_strings.sh <path to write>}
head -c 16777216 /dev/zero > "$out"
put() { printf "$2" | dd of="$out" bs=1 seek="$1" conv=notrunc status=none; }
put 0 '\036'                   # format version 30
put 4 'SCCA'
put 84 '\060\001'              # metrics_offset 304
put 100 '\344'                 # strings_offset 228
put 108 '\000\000\000\001'     # volumes_offset 16777216, the end of the file
