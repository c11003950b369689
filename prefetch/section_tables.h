#pragma once
// The two sections behind the header that the tool decodes: the file-name
// strings (with the search for the executable's full path among them) and the
// volumes with their device paths, creation times, serials and directories.
#include <cstdint>
#include <string>

#include "prefetch/prefetch_entry.h"

class container_decompressor;

// Reads the strings at strings_offset into file_strings, keyed by the offset
// at which each began. exe_name_wide comes in holding the header's name and
// leaves holding the first string that contains it, if any does.
// False when the buffer is refused or strings_offset lies past its end.
// Without `keep_names` the strings are only searched, and file_strings stays empty.
// `partial`, when given, is the decompressor whose output `data` is, decoded
// only in part: a string is read once its bytes are final, decoding on as
// far as it reaches.
bool decode_file_strings(offset_string_map& file_strings, std::wstring& exe_name_wide, std::uint8_t const* data,
                         std::uint32_t size, bool keep_names = true, container_decompressor* partial = nullptr);

// Appends one entry per volume to the volume vectors of the entry and each
// creation time to entry_times. False when the buffer is refused or
// volumes_offset lies past its end; every other damage ends the list early.
// Without `keep_directories` each volume's directory list is walked (it moves
// the scan on) but left empty.
bool decode_volumes(prefetch_entry& entry, std::uint8_t const* data, std::uint32_t size, bool keep_directories = true);
// The test of decode_volumes that refuses a buffer, without reading the volumes.
bool volumes_in_buffer(std::uint8_t const* data, std::uint32_t size);
