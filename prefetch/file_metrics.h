#pragma once
// The file metrics array: one entry per file the program loaded. From Vista
// on an entry ends in the file's NTFS file reference, which names the MFT
// record of the file on its volume; nothing else in the tool reads the array.
#include "prefetch/byte_reader.h"
#include "prefetch/prefetch_entry.h"

// For each file string that a metrics entry names, the entry's file reference,
// keyed by the string's offset. A reference of 0, an entry that names no
// string, a layout without references and an array past the end of the
// buffer leave strings out; nothing here fails a file.
void read_file_references(file_reference_map& references, byte_view buf, offset_string_map const& file_strings);
