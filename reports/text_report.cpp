#include "reports/text_report.h"

#include <cstdio>
#include <iostream>
#include <unistd.h>

#include "driver/kito_user_context.h"
#include "foundation/vlm_time_text.h"
#include "reports/field_output.h"

namespace {

// An examiner watching a batch on a terminal sees every line as it is
// finished. Anywhere else the report goes out whole, flushed once at its end:
// a system call per line made a batch several times slower than reading its
// files. Messages on standard error come only before or after a report, so
// where both streams meet in one file their order is unchanged.
bool flush_each_line(std::ostream const& out)
{
    static bool const terminal = ::isatty(STDOUT_FILENO) == 1;
    return terminal && &out == &std::cout;
}

// Flushes when the report ends, also when it ends early by an exception.
struct flush_on_exit {
    std::ostream& out;
    ~flush_on_exit() { out.flush(); }
};

void put_line(std::ostream& out, std::string const& text)
{
    out << text << '\n';
    if (flush_each_line(out)) out.flush();
}

// The file system times of the Prefetch file are shown to the second (the
// cut form); the times recorded inside it keep their fraction.
std::string time_text(kito_user_context const& context, std::uint64_t filetime, bool whole)
{
    if (!whole) return filetime_text(filetime, context.m_date_format, context.m_time_format);
    std::string date;
    std::string clock;
    vlm::format_time_text_whole(date, clock, vlm::time(filetime, vlm::filetime), context.m_date_format,
                                context.m_time_format);
    return date + " " + clock;
}

std::string ordinal_text(std::size_t ordinal)
{
    char text[24];
    std::snprintf(text, sizeof text, "%03zu", ordinal);
    return text;
}

void put_numbered_list(std::ostream& out, offset_string_map const& strings)
{
    std::size_t ordinal = 0;
    for (auto const& [offset, name] : strings) put_line(out, ordinal_text(++ordinal) + " : " + name);
}

void put_volume_block(std::ostream& out, kito_user_context const& context, std::size_t i)
{
    prefetch_entry const& entry = context.m_entry;
    std::uint64_t const created = i < entry.volume_times.size() ? entry.volume_times[i] : 0;
    std::uint32_t const serial = i < entry.volume_serials.size() ? entry.volume_serials[i] : 0;
    put_line(out, "vol path:     " + entry.volume_paths[i]);
    put_line(out, "time created: " + time_text(context, created, false));
    put_line(out, "serial num:   " + volume_serial_text(serial));
    put_line(out, "");
    if (i >= entry.volume_dirs.size()) return;
    put_numbered_list(out, entry.volume_dirs[i]);
    put_line(out, "");
}

} // namespace

bool write_text_report(std::ostream& out, kito_user_context& context)
{
    if (context.m_fmt_csv || context.m_fmt_timeline || context.m_fmt_bodyfile) return false;
    prefetch_entry const& entry = context.m_entry;
    flush_on_exit const flush{out};

    put_line(out, "Analyzing file: " + context.m_file_path);
    put_line(out, "modified:       " + time_text(context, entry.input_modified, true));
    put_line(out, "accessed:       " + time_text(context, entry.input_accessed, true));
    put_line(out, "stats changed   " + time_text(context, entry.input_stats_changed, true));
    put_line(out, "");
    put_line(out, "target file:    " + entry.target_name + ", run " + std::to_string(entry.run_count) + " times");
    put_line(out, "Last run:       " + time_text(context, entry.last_run, false));
    for (auto it = entry.prev_run_times.rbegin(); it != entry.prev_run_times.rend(); ++it)
        put_line(out, "Prev run:       " + time_text(context, *it, false));
    put_line(out, "path:           " + entry.target_path);
    put_line(out, "");
    put_line(out, " --------- files mapped --------- ");
    put_line(out, "");
    put_numbered_list(out, entry.file_strings);
    put_line(out, "");
    put_line(out, " --------- directories mapped --------- ");
    put_line(out, "");
    for (std::size_t i = 0; i < entry.volume_paths.size(); ++i) put_volume_block(out, context, i);
    return true;
}
