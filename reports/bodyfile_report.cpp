#include "reports/bodyfile_report.h"

#include "foundation/vlm_string.h"

std::uint64_t bodyfile_seconds(std::uint64_t filetime)
{
    if (filetime == 0 || (filetime >> 63) != 0) return 0;
    // Unsigned on purpose: a time before 1970 wraps to a huge number, and the
    // line shows it as such rather than hiding the odd value.
    return (filetime - vlm::unix_epoch_ticks) / vlm::ticks_per_second;
}

void write_bodyfile_header(std::ostream& out)
{
    out << "md5|name|inode|mode as string|uid|gid|size|access time|modify time|mft time|create time";
}

bool write_bodyfile_record(bool& header_pending, std::ostream& out, bodyfile_record& record)
{
    if (header_pending) {
        write_bodyfile_header(out);
        out << '\n';
        header_pending = false;
    }
    substitute_char(record.name, '|', ';', false);
    auto const number = [](std::uint64_t value) { return std::to_string(value); };
    time_quad const& t = record.times;
    std::string const line = (record.md5.empty() ? "0" : record.md5) + "|" + record.name + "|" + number(record.inode) +
                             "|" + record.mode_text + "|" + number(record.uid) + "|" + number(record.gid) + "|" +
                             number(record.size) + "|" + number(t.a) + "|" + number(t.m) + "|" + number(t.c) + "|" +
                             number(t.b) + "\n";
    out.write(line.data(), static_cast<std::streamsize>(line.size()));
    return true;
}

bool write_bodyfile_report(std::ostream& out, report_subject const& file, report_state& state)
{
    prefetch_entry const& entry = file.entry;
    std::string const label = file.file_base_name + " (" + file.version_label + ")";

    bodyfile_record record;
    record.size = entry.input_file_size;
    record.times.m = bodyfile_seconds(entry.input_modified);
    record.times.a = bodyfile_seconds(entry.input_accessed);
    record.times.c = bodyfile_seconds(entry.last_run);
    // NTFS keeps a created time for a file read from an image. A copy on a
    // Linux file system has none to trust, and the column keeps what it
    // always held there: the change time, or the run of a single-run program.
    bool const ntfs_created = entry.image.present;
    record.times.b = bodyfile_seconds(ntfs_created ? entry.input_created : created_time(entry));
    record.name = label + "; run count: " + std::to_string(entry.run_count) + "; app run: " + entry.target_path;
    write_bodyfile_record(state.header_pending, out, record);

    for (auto it = entry.prev_run_times.rbegin(); it != entry.prev_run_times.rend(); ++it) {
        bodyfile_record copy = record; // the size stays
        copy.times.m = copy.times.a = copy.times.c = bodyfile_seconds(*it);
        copy.times.b = bodyfile_seconds(ntfs_created ? entry.input_created : entry.input_stats_changed);
        copy.name = label + "; not last time run - but prevtime; app run: " + entry.target_path;
        write_bodyfile_record(state.header_pending, out, copy);
    }
    return true;
}
