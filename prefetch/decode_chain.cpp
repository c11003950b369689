#include "prefetch/decode_chain.h"

#include <algorithm>
#include <cstdio>
#include <limits>
#include <vector>

#include "foundation/problem_messages.h"
#include "foundation/sha256.h"
#include "foundation/uni_fileio.h"
#include "foundation/vlm_string.h"
#include "foundation/vlm_time.h"
#include "prefetch/container_decompressor.h"
#include "prefetch/file_metrics.h"
#include "prefetch/path_hash.h"
#include "prefetch/prefetch_header.h"
#include "prefetch/section_tables.h"

namespace {

// The header and the file information, which every layout keeps within the
// first block of a container's output.
constexpr std::uint32_t header_bytes = 4096;

// Notes why the file is refused; the result is always false.
bool refuse(prefetch_entry& entry, decode_failure failure)
{
    entry.failure = failure;
    return false;
}

// Unwraps one container layer, if the bytes begin with one, and notes its
// kind: data and size then point to its output, which the decompressor
// keeps. False when a container is there but yields nothing.
// `wanted` bytes of the output are decoded at least; the decompressor decodes
// the rest when asked. A container fails or not on its first block.
bool unwrap_container(std::uint8_t const*& data, std::uint32_t& size, container_decompressor& decompressor,
                      prefetch_entry& entry, std::uint32_t wanted = std::numeric_limits<std::uint32_t>::max())
{
    std::uint32_t declared_size = 0;
    std::uint32_t const kind = detect_container(declared_size, data, static_cast<std::int32_t>(size));
    if (kind == container_none) return true;
    entry.container_kinds.push_back(kind);
    decompressor.reset();
    if (!decompressor.decompress_container(data, static_cast<std::int32_t>(size), wanted) ||
        decompressor.output().empty())
        return refuse(entry, declared_size > read_limit ? decode_failure::container_too_large
                                                        : decode_failure::container_broken);
    data = decompressor.output().data();
    size = static_cast<std::uint32_t>(decompressor.output().size());
    return true;
}

std::uint64_t unix_to_filetime(std::uint64_t seconds) { return vlm::time(seconds, vlm::unix_time).filetime_ticks; }

bool read_file_facts(std::wstring const& path, prefetch_entry& entry)
{
    file_facts facts;
    if (!file_facts_of(wide_to_utf8(path), facts)) return false;
    entry.input_file_size = facts.size;
    entry.input_file_mode = facts.mode;
    entry.input_modified = unix_to_filetime(facts.modified);
    entry.input_accessed = unix_to_filetime(facts.accessed);
    entry.input_unused_time = 0;
    entry.input_stats_changed = unix_to_filetime(facts.changed);
    if (facts.born_known && facts.born_seconds >= 0)
        entry.input_created = unix_to_filetime(static_cast<std::uint64_t>(facts.born_seconds)) + facts.born_nanoseconds / 100;
    entry.input_time_label = "Time last run";
    entry.input_time_source = "pf";
    entry.input_time_kind = 1;
    return true;
}

// The loader does not say why a read failed; the file system tells an empty
// file from one that is missing or cannot be opened.
decode_failure read_failure(std::wstring const& path)
{
    std::uint64_t size = 1, changed = 0, modified = 0, accessed = 0;
    std::uint32_t mode = 0;
    bool const empty = file_stat(path, size, mode, changed, modified, accessed) && size == 0;
    return empty ? decode_failure::empty_file : decode_failure::unreadable;
}

// The digest of the input for its chain of custody, from the bytes in hand.
// A file cut at the read limit (or changed since it was measured) keeps none:
// the digest of a part would not be the file's. One that the source already
// took of the same bytes stands.
void note_input_digest(std::vector<std::uint8_t> const& bytes, prefetch_entry& entry)
{
    if (entry.input_sha256.empty() && bytes.size() == entry.input_file_size) entry.input_sha256 = sha256_hex(bytes);
}

} // namespace

bool read_prefetch_file(std::string const& path, decode_buffers& buffers, prefetch_entry& entry)
{
    std::wstring const wide_path = utf8_to_wide(path);
    buffers.trim();
    if (!read_file_prefix(path, read_limit, buffers.file_bytes) || buffers.file_bytes.empty()) {
        print_problem("prob reading file %s\n", path.c_str());
        return refuse(entry, read_failure(wide_path));
    }
    if (!read_file_facts(wide_path, entry)) return refuse(entry, decode_failure::unreadable);
    return true;
}

bool decode_input_bytes(decode_buffers& buffers, prefetch_entry& entry, std::string& version_label)
{
    std::vector<std::uint8_t> const& bytes = buffers.file_bytes;
    if (buffers.wants.digest) note_input_digest(bytes, entry);
    std::uint8_t const* data = bytes.data();
    auto size = static_cast<std::uint32_t>(bytes.size());
    // A form that shows neither names nor volumes reads the header and the
    // strings as far as the executable's path: the first block holds the
    // header, and the strings decode on as they are read.
    bool const in_part = !buffers.wants.file_names && !buffers.wants.volumes && !buffers.wants.path_hash;
    if (!unwrap_container(data, size, buffers.outer, entry, in_part ? header_bytes : read_limit)) return false;
    container_decompressor* partial = in_part && data == buffers.outer.output().data() ? &buffers.outer : nullptr;
    std::uint32_t inner_size = 0;
    if (partial != nullptr && detect_container(inner_size, data, static_cast<std::int32_t>(size)) != container_none) {
        // A container inside: it is decompressed from the whole output.
        partial->decode_to(size);
        partial = nullptr;
    }
    return decode_prefetch_buffer(data, size, buffers.inner, entry, version_label, buffers.wants, partial);
}

bool load_prefetch_file(std::string const& path, decode_buffers& buffers, prefetch_entry& entry,
                        std::string& version_label)
{
    return read_prefetch_file(path, buffers, entry) && decode_input_bytes(buffers, entry, version_label);
}

bool decode_prefetch_buffer(std::uint8_t const* data, std::uint32_t size, container_decompressor& inner,
                            prefetch_entry& entry, std::string& version_label, decode_wants const& wants,
                            container_decompressor* partial)
{
    if (partial != nullptr) partial->decode_to(header_bytes);
    // A container may hold another; this second layer is the last one
    // unwrapped, so a third is left as it is and refused below.
    if (!unwrap_container(data, size, inner, entry)) return false;
    if (!is_prefetch_buffer(data, static_cast<std::int32_t>(size))) return refuse(entry, decode_failure::not_prefetch);

    byte_view const buf{data, size};
    entry.decoded_size = size;
    read_u32(buf, pf_header::format_version, entry.format_version);
    read_u32(buf, pf_header::prefetch_hash, entry.prefetch_hash);
    std::wstring exe_name = read_exe_name(buf);
    if (!exe_name.empty()) entry.target_name = wide_to_utf8(exe_name);
    // A layout without run information is no failure: count and time stay 0.
    entry.run_count_known = read_run_info(entry.last_run, entry.run_count, data);
    if (entry.run_count_known) entry.entry_times.insert(entry.last_run);

    if (!decode_file_strings(entry.file_strings, exe_name, data, size, wants.file_names, partial))
        return refuse(entry, decode_failure::strings_past_end);
    if (wants.volumes) read_file_references(entry.file_references, buf, entry.file_strings);
    entry.target_path = exe_name.empty() ? std::string("unk") : wide_to_utf8(exe_name);
    if (!(wants.volumes ? decode_volumes(entry, data, size, wants.volume_directories) : volumes_in_buffer(data, size)))
        return refuse(entry, decode_failure::volumes_past_end);

    version_label = find_layout(buf).label;
    harvest_prev_run_times(entry.prev_run_times, buf);
    if (wants.path_hash) check_path_hash(entry);
    return true;
}
