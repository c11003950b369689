#pragma once
// What one decoded Prefetch file leaves for the writers. The file's bytes are
// gone by the time a writer runs: everything a report shows stands here.
#include <array>
#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "prefetch/offset_string_map.h"

// Where the NTFS file system kept a file: its MFT record and that record's
// sequence number, which tells a reused record from the one Windows saw.
struct ntfs_file_reference {
    std::uint64_t mft_entry = 0;    // low 48 bits of the reference
    std::uint16_t mft_sequence = 0; // high 16 bits
};
// File references by the offset of the file string they belong to.
using file_reference_map = ordered_pairs<ntfs_file_reference>;

// Where a file read from a disk image lies, so that an examiner can find it
// again with the image tools: the partition by its byte offset, the file by
// its MFT record and by its path inside the volume as stored there.
// How the bytes were found in a volume: a file of the folder, a deleted MFT
// entry whose data runs are still recorded, or a span carved from free clusters.
enum class evidence_source { allocated, deleted, unallocated };

// The shadow copy (volume snapshot) a file was read from, as the snapshot
// catalog numbers and names it.
struct shadow_copy_info {
    bool present = false;
    std::uint32_t store = 0;   // 1-based, in catalog order (1 is normally the oldest)
    std::string identifier;    // the store's GUID, lower case with dashes
    std::uint64_t created = 0; // FILETIME
};

// A Prefetch file found by its signature inside a larger file or image.
struct carved_span {
    bool present = false;
    std::uint64_t offset = 0; // bytes from the start of the scanned file or image
    std::uint64_t length = 0; // bytes the hit spans there
};

struct image_location {
    bool present = false;   // the file came from an image
    std::string image_path; // as given
    std::uint64_t partition_offset = 0;
    bool mft_entry_known = true; // false for carved spans, which have no MFT entry
    std::uint64_t mft_entry = 0;
    std::uint16_t mft_sequence = 0;
    std::string path_in_volume;
    evidence_source source = evidence_source::allocated;
    shadow_copy_info shadow_copy;
};

// Why the chain refused a file; none while it has not.
enum class decode_failure {
    none,
    unreadable, // cannot be opened or its file-system facts are missing
    too_large,  // a file in an image larger than the 16 MiB read limit
    empty_file,
    not_prefetch,        // too short, or no "SCCA" after unwrapping
    container_broken,    // a container that yields nothing
    container_too_large, // a container that declares more than 16 MiB of output
    strings_past_end,
    volumes_past_end,
    exception, // out of memory or another fault while decoding
};

// Whether the header's path hash is that of one of the file's own paths.
enum class path_hash_check {
    no_candidate, // no loaded-file path names the program
    matched,
    not_matched, // typical of hosting programs, whose command line is hashed too
};

struct prefetch_entry {
    std::uint32_t run_count = 0;
    std::string target_name;
    std::string target_path;
    // Facts of the input file from the file system; times as FILETIME.
    std::uint64_t input_file_size = 0;
    std::uint32_t input_file_mode = 0;
    std::uint64_t input_modified = 0;
    std::uint64_t input_accessed = 0;
    std::uint64_t input_unused_time = 0; // a fourth slot of the same record, always zero
    std::uint64_t input_stats_changed = 0;
    std::uint64_t input_created = 0; // 0 where the file system keeps no birth time
    std::string input_time_label;    // "Time last run"
    std::string input_time_source;   // short source tag
    std::uint32_t input_time_kind = 0;
    image_location image;
    carved_span carved;
    // Display names of other places in the same image that hold the same bytes.
    std::vector<std::string> same_bytes_at;
    std::string input_sha256; // of the bytes as read, in hex; "" when not the whole file

    // What decoding saw of the file as a whole.
    decode_failure failure = decode_failure::none;
    std::vector<std::uint32_t> container_kinds; // container layers unwrapped, outermost first
    std::uint32_t decoded_size = 0;             // bytes of the plain Prefetch buffer
    std::uint32_t format_version = 0;
    std::uint32_t prefetch_hash = 0; // hash of the program's path, as Windows names the file
    path_hash_check path_hash = path_hash_check::no_candidate;
    std::string hash_path; // the form of a path that gave prefetch_hash, when matched
    // N of a program started with "/prefetch:N", whose hash is that of its path
    // plus N; 0 when the path's own hash matched, or nothing did.
    std::uint32_t hash_prefetch_flag = 0;
    bool hash_hosting_program = false; // not matched, and the program hashes its command line
    bool run_count_known = false;      // the layout stores a run count and it was read

    std::uint64_t last_run = 0;
    std::set<std::uint64_t> entry_times;
    std::set<std::uint64_t> prev_run_times;
    offset_string_map file_strings;
    file_reference_map file_references; // only strings with a non-zero reference
    std::vector<std::string> volume_paths;
    std::vector<std::uint64_t> volume_times;
    std::vector<std::uint32_t> volume_serials;
    std::vector<std::array<std::uint8_t, 40>> volume_records;
    std::vector<offset_string_map> volume_dirs;
};

// A new entry that takes over the memory of `used`'s lists of names and
// volumes, emptied, where it is no more than a usual file needs: decoding
// file after file into the same place then seldom asks for memory, which
// costs most when another thread freed it. Every value is that of a new entry.
prefetch_entry emptied(prefetch_entry&& used);
