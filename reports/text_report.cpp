#include "reports/text_report.h"

#include <array>
#include <charconv>
#include <initializer_list>
#include <iostream>
#include <string_view>
#include <unistd.h>

#include "foundation/vlm_time_text.h"
#include "reports/field_output.h"

namespace {

// Collects the report's lines and hands them to the stream in large pieces,
// flushing once at the end of the report (also one ended by an exception). A
// system call per line made a batch several times slower than reading its
// files. Messages on standard error come only before or after a report, so
// where both streams meet in one file their order is unchanged. An examiner
// watching a batch on a terminal still sees every line as it is finished.
class line_sink {
public:
    explicit line_sink(std::ostream& out) : m_out(out), m_each_line(is_terminal(out)), m_text(thread_buffer())
    {
        m_text.clear();
    }
    ~line_sink()
    {
        send();
        m_out.flush();
        // A line of megabytes (a hostile name) leaves no buffer of its size behind.
        if (m_text.capacity() > 4 * piece_size) std::string().swap(m_text);
    }
    line_sink(line_sink const&) = delete;
    line_sink& operator=(line_sink const&) = delete;

    void line(std::initializer_list<std::string_view> parts)
    {
        for (std::string_view part : parts) m_text.append(part);
        m_text.push_back('\n');
        if (m_each_line || m_text.size() >= piece_size) send();
        if (m_each_line) m_out.flush();
    }

private:
    static constexpr std::size_t piece_size = 0x10000;

    static bool is_terminal(std::ostream const& out)
    {
        static bool const terminal = ::isatty(STDOUT_FILENO) == 1;
        return terminal && &out == &std::cout;
    }
    // One buffer for the reports of a thread, kept at its size from report
    // to report: growing a new one for each took more than filling it.
    static std::string& thread_buffer()
    {
        thread_local std::string text;
        return text;
    }
    void send()
    {
        m_out.write(m_text.data(), static_cast<std::streamsize>(m_text.size()));
        m_text.clear();
    }

    std::ostream& m_out;
    bool const m_each_line;
    std::string& m_text; // one line_sink at a time on a thread
};

// The file system times of the Prefetch file are shown to the second (the
// cut form); the times recorded inside it keep their fraction.
enum class shown { with_fraction, whole_seconds };

std::string time_text(report_settings const& settings, std::uint64_t filetime, shown precision)
{
    if (precision == shown::with_fraction) return filetime_text(filetime, settings.date_format, settings.time_format);
    std::string date;
    std::string clock;
    vlm::format_time_text_whole(date, clock, vlm::time(filetime, vlm::filetime), settings.date_format,
                                settings.time_format);
    return date + " " + clock;
}

// The running number from 1, zero-filled to three digits ("007", "1000").
std::string_view ordinal_text(std::array<char, 24>& buffer, std::size_t ordinal)
{
    char* start = buffer.data() + 3;
    char* const end = std::to_chars(start, buffer.data() + buffer.size(), ordinal).ptr;
    while (end - start < 3) *--start = '0';
    return {start, static_cast<std::size_t>(end - start)};
}

void put_numbered_list(line_sink& out, offset_string_map const& strings)
{
    std::array<char, 24> buffer;
    std::size_t ordinal = 0;
    for (auto const& [offset, name] : strings) out.line({ordinal_text(buffer, ++ordinal), " : ", name});
}

void put_volume_block(line_sink& out, prefetch_entry const& entry, report_settings const& settings, std::size_t i)
{
    std::uint64_t const created = i < entry.volume_times.size() ? entry.volume_times[i] : 0;
    std::uint32_t const serial = i < entry.volume_serials.size() ? entry.volume_serials[i] : 0;
    out.line({"vol path:     ", entry.volume_paths[i]});
    out.line({"time created: ", time_text(settings, created, shown::with_fraction)});
    out.line({"serial num:   ", volume_serial_text(serial)});
    out.line({});
    if (i >= entry.volume_dirs.size()) return;
    put_numbered_list(out, entry.volume_dirs[i]);
    out.line({});
}

} // namespace

bool write_text_report(std::ostream& stream, report_subject const& file, report_settings const& settings)
{
    prefetch_entry const& entry = file.entry;
    line_sink out(stream);

    out.line({"Analyzing file: ", file.file_path});
    out.line({"modified:       ", time_text(settings, entry.input_modified, shown::whole_seconds)});
    out.line({"accessed:       ", time_text(settings, entry.input_accessed, shown::whole_seconds)});
    out.line({"stats changed   ", time_text(settings, entry.input_stats_changed, shown::whole_seconds)});
    out.line({});
    out.line({"target file:    ", entry.target_name, ", run ", std::to_string(entry.run_count), " times"});
    out.line({"Last run:       ", time_text(settings, entry.last_run, shown::with_fraction)});
    for (auto it = entry.prev_run_times.rbegin(); it != entry.prev_run_times.rend(); ++it)
        out.line({"Prev run:       ", time_text(settings, *it, shown::with_fraction)});
    out.line({"path:           ", entry.target_path});
    out.line({});
    out.line({" --------- files mapped --------- "});
    out.line({});
    put_numbered_list(out, entry.file_strings);
    out.line({});
    out.line({" --------- directories mapped --------- "});
    out.line({});
    for (std::size_t i = 0; i < entry.volume_paths.size(); ++i) put_volume_block(out, entry, settings, i);
    return true;
}
