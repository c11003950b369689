#include "reports/json_report.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "reports/field_output.h"
#include "reports/report_texts.h"

namespace {

// One object under construction; members stand in the order they are added.
// Keys are literals of this file and need no escaping.
class json_object {
public:
    json_object& raw(std::string_view key, std::string_view json)
    {
        m_text.append(m_text.size() > 1 ? ",\"" : "\"").append(key).append("\":").append(json);
        return *this;
    }
    json_object& text(std::string_view key, std::string_view value) { return raw(key, json_string(value)); }
    json_object& number(std::string_view key, std::uint64_t value) { return raw(key, std::to_string(value)); }
    std::string close() const { return m_text + "}"; }
    // The members so far, behind the opening brace, for a record that goes on
    // in pieces.
    std::string_view members() const { return std::string_view(m_text).substr(1); }

private:
    std::string m_text = "{";
};

template <typename iterator, typename convert>
std::string json_array(iterator first, iterator last, convert to_json)
{
    std::string text = "[";
    for (; first != last; ++first) text.append(text.size() > 1 ? "," : "").append(to_json(*first));
    return text + "]";
}

template <typename range, typename convert>
std::string json_array(range const& items, convert to_json)
{
    return json_array(std::begin(items), std::end(items), to_json);
}

std::string json_number(std::uint64_t value) { return std::to_string(value); }

void put_text(std::ostream& out, std::string_view text)
{
    out.write(text.data(), static_cast<std::streamsize>(text.size()));
}

// A record is one line.
void put_record(std::ostream& out, json_object const& record) { put_text(out, record.close() + "\n"); }

// An array member streamed item by item: a hostile file's eight million
// file names never stand in memory as one text.
template <typename range, typename convert>
void put_array(std::ostream& out, std::string_view key, range const& items, convert to_json)
{
    put_text(out, ",\"");
    put_text(out, key);
    put_text(out, "\":[");
    bool first = true;
    for (auto const& item : items) {
        if (!first) put_text(out, ",");
        first = false;
        put_text(out, to_json(item));
    }
    put_text(out, "]");
}

std::string unit_escape(std::uint32_t unit)
{
    char text[8];
    std::snprintf(text, sizeof text, "\\u%04x", unit & 0xffffu);
    return text;
}

// How many leading bytes are printable ASCII other than the quote and the
// backslash: the bulk of any path, copied as one run.
std::size_t plain_run(std::string_view text)
{
    std::size_t n = 0;
    while (n < text.size() && text[n] >= 0x20 && text[n] < 0x7f && text[n] != '"' && text[n] != '\\') ++n;
    return n;
}

// Appends the character that `text` begins with, escaped as json_string
// (in the header) tells; gives back how many bytes it took.
std::size_t append_character(std::string& out, std::string_view text)
{
    std::uint32_t code_point = 0;
    std::size_t const length = utf8_sequence(text, code_point);
    if (length == 0) out += unit_escape(0xdc00u | static_cast<std::uint8_t>(text[0]));
    else if (code_point == '"' || code_point == '\\') out.append(1, '\\').append(1, static_cast<char>(code_point));
    else if (code_point < 0x20 || code_point == 0x7f || (code_point >= 0xd800 && code_point <= 0xdfff))
        out += unit_escape(code_point);
    else out.append(text.substr(0, length));
    return length == 0 ? 1 : length;
}

// Windows names a Prefetch file after the program and the hash of its path:
// "CMD.EXE-4A81B364.pf". Empty when the name carries no such eight digits.
std::string name_hash_of(std::string const& file_name)
{
    std::size_t const dash = file_name.rfind('-');
    if (dash == std::string::npos) return {};
    std::size_t const dot = file_name.find('.', dash);
    std::string const digits = file_name.substr(dash + 1, dot == std::string::npos ? dot : dot - dash - 1);
    bool const hex = digits.size() == 8 &&
                     std::all_of(digits.begin(), digits.end(), [](unsigned char c) { return std::isxdigit(c); });
    return hex ? digits : std::string();
}

// The digest of the input as read; null when it was not read whole.
void add_sha256(json_object& record, prefetch_entry const& e)
{
    record.raw("sha256", e.input_sha256.empty() ? "null" : json_string(e.input_sha256));
}

void add_input(json_object& record, report_subject const& file)
{
    prefetch_entry const& e = file.entry;
    record.text("path", file.file_path).text("file_name", file.file_base_name);
    record.number("file_size", e.input_file_size).raw("file_modified", json_time(e.input_modified));
    record.raw("file_accessed", json_time(e.input_accessed)).raw("file_changed", json_time(e.input_stats_changed));
    record.raw("file_created", json_time(e.input_created));
    add_sha256(record, e);
}

char const* source_name(evidence_source source)
{
    switch (source) {
    case evidence_source::allocated: return "allocated";
    case evidence_source::deleted: return "deleted";
    case evidence_source::unallocated: return "unallocated";
    }
    return "allocated";
}

std::string shadow_copy_json(shadow_copy_info const& copy)
{
    if (!copy.present) return "null";
    json_object store;
    store.number("store", copy.store).text("identifier", copy.identifier);
    return store.raw("created", json_time(copy.created)).number("created_filetime", copy.created).close();
}

// Where in an image the file lies, and the other places that hold the same
// bytes; nothing for a file read from the file system.
void add_image_location(json_object& record, prefetch_entry const& e)
{
    image_location const& image = e.image;
    if (!image.present) return;
    json_object place;
    place.text("path", image.image_path).number("partition_offset", image.partition_offset);
    // A span carved from free clusters belongs to no MFT entry.
    place.raw("mft_entry", image.mft_entry_known ? json_number(image.mft_entry) : "null");
    place.raw("mft_sequence", image.mft_entry_known ? json_number(image.mft_sequence) : "null");
    place.text("path_in_volume", image.path_in_volume).text("source", source_name(image.source));
    record.raw("image", place.raw("shadow_copy", shadow_copy_json(image.shadow_copy)).close());
    record.raw("same_bytes_at", json_array(e.same_bytes_at, json_string));
}

// Where a carved file lay in the scanned file or image; nothing for other files.
void add_carved_span(json_object& record, carved_span const& carved)
{
    if (!carved.present) return;
    json_object span;
    record.raw("carved", span.number("offset", carved.offset).number("length", carved.length).close());
}

void add_hashes(json_object& record, report_subject const& file)
{
    std::uint32_t const hash = file.entry.prefetch_hash;
    std::string const name_hash = name_hash_of(file.file_base_name);
    record.text("prefetch_hash", hash_text(hash));
    if (name_hash.empty()) {
        record.raw("name_hash", "null").raw("hash_matches_name", "null");
        return;
    }
    bool const matches = std::strtoul(name_hash.c_str(), nullptr, 16) == hash;
    record.text("name_hash", name_hash).raw("hash_matches_name", matches ? "true" : "false");
}

void add_path_hash(json_object& record, prefetch_entry const& e)
{
    bool const matched = e.path_hash == path_hash_check::matched;
    record.raw("hash_matches_path", matched ? "true" : e.path_hash == path_hash_check::not_matched ? "false" : "null");
    record.raw("hash_path", matched ? json_string(e.hash_path) : "null");
    record.raw("hash_prefetch_flag", e.hash_prefetch_flag != 0 ? std::to_string(e.hash_prefetch_flag) : "null");
    record.raw("hash_hosting_program", e.hash_hosting_program ? "true" : "false");
}

void add_runs(json_object& record, prefetch_entry const& e)
{
    auto const first = e.prev_run_times.rbegin(), last = e.prev_run_times.rend(); // latest first
    record.number("run_count", e.run_count).raw("last_run", json_time(e.last_run));
    record.number("last_run_filetime", e.last_run).raw("previous_runs", json_array(first, last, json_time));
    record.raw("previous_runs_filetime", json_array(first, last, json_number));
}

std::string file_json(prefetch_entry const& e, std::uint64_t offset, std::string_view name)
{
    auto const found = e.file_references.find(offset);
    bool const known = found != e.file_references.end();
    json_object file;
    file.text("path", name).raw("mft_entry", known ? json_number(found->second.mft_entry) : "null");
    return file.raw("mft_sequence", known ? json_number(found->second.mft_sequence) : "null").close();
}

std::string volume_json(prefetch_entry const& e, std::size_t i)
{
    std::uint64_t const created = i < e.volume_times.size() ? e.volume_times[i] : 0;
    std::uint32_t const serial = i < e.volume_serials.size() ? e.volume_serials[i] : 0;
    auto const directory = [](auto const& ordered) { return json_string(ordered.second); };
    std::string const directories = i < e.volume_dirs.size() ? json_array(e.volume_dirs[i], directory) : "[]";
    json_object volume;
    volume.text("device_path", e.volume_paths[i]).raw("created", json_time(created));
    volume.number("created_filetime", created).text("serial", volume_serial_text(serial));
    return volume.raw("directories", directories).close();
}

void add_examiner_tags(json_object& record, report_settings const& settings)
{
    if (settings.host_name_given) record.text("host", settings.host_name);
    if (settings.user_name_given) record.text("user", settings.user_name);
}

void put_prefetch_record(std::ostream& out, report_subject const& file, report_settings const& settings,
                         check_tally& tally)
{
    prefetch_entry const& e = file.entry;
    std::vector<finding> const found = find_inconsistencies(e, settings.run_started);
    json_object record;
    record.text("record", "prefetch");
    add_input(record, file);
    add_image_location(record, e);
    add_carved_span(record, e.carved);
    record.number("format_version", e.format_version).text("label", file.version_label);
    record.raw("container", e.container_kinds.empty() ? "null" : json_string(container_names(e.container_kinds)))
        .number("decoded_size", e.decoded_size);
    record.text("executable", e.target_name).text("executable_path", e.target_path);
    add_hashes(record, file);
    add_path_hash(record, e);
    add_runs(record, e);
    record.raw("findings", json_array(found, [](finding which) { return json_string(finding_code(which)); }));
    auto const one_file = [&e](auto const& string) {
        auto const& [offset, name] = string;
        return file_json(e, offset, name);
    };
    std::vector<std::size_t> volumes(e.volume_paths.size());
    for (std::size_t i = 0; i < volumes.size(); ++i) volumes[i] = i;
    auto const volume = [&e](std::size_t i) { return volume_json(e, i); };
    put_text(out, "{");
    put_text(out, record.members());
    put_array(out, "files", e.file_strings, one_file);
    put_array(out, "volumes", volumes, volume);
    json_object tags;
    add_examiner_tags(tags, settings);
    if (!tags.members().empty()) put_text(out, ",");
    put_text(out, tags.members());
    put_text(out, "}\n");
    count_checks(tally, e, found);
}

json_object error_record(report_subject const& file, report_settings const& settings)
{
    json_object record;
    record.text("record", "error").text("path", file.file_path);
    add_sha256(record, file.entry);
    record.text("error", failure_reason(file.entry.failure));
    add_image_location(record, file.entry);
    add_carved_span(record, file.entry.carved);
    add_examiner_tags(record, settings);
    return record;
}

} // namespace

std::string json_string(std::string_view text)
{
    std::string out = "\"";
    out.reserve(text.size() + 2);
    while (!text.empty()) {
        std::size_t const plain = plain_run(text);
        out.append(text.substr(0, plain));
        text.remove_prefix(plain > 0 ? plain : append_character(out, text));
    }
    return out + "\"";
}

std::string json_time(std::uint64_t filetime)
{
    std::string const text = iso_time(filetime);
    return text.empty() ? "null" : "\"" + text + "\"";
}

void write_json_run_record(std::ostream& out, run_facts const& facts)
{
    json_object record;
    record.text("record", "run").text("tool", "kito").text("version", facts.version);
    record.raw("started", json_time(facts.started)).text("host", facts.host).text("system", facts.system);
    put_record(out, record.raw("arguments", json_array(facts.arguments, json_string)));
}

bool write_json_report(std::ostream& out, report_subject const& file, report_settings const& settings, bool decoded,
                       check_tally& tally)
{
    if (decoded) put_prefetch_record(out, file, settings, tally);
    else put_record(out, error_record(file, settings));
    return decoded;
}

void write_json_history(std::ostream& out, program_history const& program, report_settings const& settings)
{
    std::set<std::uint64_t> const runs = program.all_runs();
    auto const name = [](program_version const& version) { return json_string(version.display_name); };
    json_object record;
    record.text("record", "history").text("image", program.image_path);
    record.number("partition_offset", program.partition_offset).text("executable", program.executable);
    record.text("prefetch_hash", hash_text(program.prefetch_hash)).raw("versions", json_array(program.versions, name));
    record.raw("runs", json_array(runs.rbegin(), runs.rend(), json_time));
    record.raw("runs_filetime", json_array(runs.rbegin(), runs.rend(), json_number));
    add_examiner_tags(record, settings);
    put_record(out, record);
}

void write_json_summary(std::ostream& out, std::uint64_t files, std::uint64_t reported, check_tally const& tally,
                        std::optional<std::uint64_t> duplicates)
{
    json_object record;
    record.text("record", "summary").number("files", files).number("reported", reported);
    record.number("failed", files - reported);
    if (duplicates) record.number("duplicates", *duplicates);
    record.number("path_hash_matched", tally.path_hash_matched);
    record.number("path_hash_matched_prefetch_flag", tally.path_hash_matched_prefetch_flag);
    record.number("path_hash_not_matched", tally.path_hash_not_matched);
    record.number("path_hash_hosting_program", tally.path_hash_hosting_program);
    record.number("path_hash_unchecked", tally.path_hash_unchecked);
    if (tally.carving) record.number("carve_rejected", tally.carve_rejected);
    json_object by_finding;
    for (finding const which : all_findings)
        by_finding.number(finding_code(which), tally.with_finding[static_cast<std::size_t>(which)]);
    put_record(out, record.raw("findings", by_finding.close()));
}
