#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <sstream>

#include "driver/output_entry.h"
#include "reports/bodyfile_report.h"
#include "reports/timeline_report.h"
#include "support/run_process.h"

namespace {

using change_fn = void (*)(kito_user_context&);
void no_change(kito_user_context&) {}

constexpr std::uint64_t ft(std::uint64_t unix_seconds, std::uint64_t ticks = 0)
{ return 116444736000000000ULL + unix_seconds * 10000000ULL + ticks; }
std::string const vol1 = "\\DEVICE\\HARDDISKVOLUME1", vol2 = "\\DEVICE\\HARDDISKVOLUME2",
                  notepad_path = vol2 + "\\WINDOWS\\SYSTEM32\\NOTEPAD.EXE", pf = "NOTEPAD.EXE-D8414F97.pf",
                  ntdll_path = vol2 + "\\WINDOWS\\SYSTEM32\\NTDLL.DLL", longer = "/cases/a/much/longer/folder/" + pf;

// Options as the option pass leaves them, applied in its order; 0 is the padded default table.
enum option : unsigned { table = 0, csv = 1, csvl2t = 2, bodyfile = 4, pair_datetime = 8, no_whitespace = 16,
                         verbose = 32, kito_path = 64, longform = 128 };

// A Windows 10 notepad run five times: two previous runs, two mapped files, two volumes, one with directories.
std::unique_ptr<kito_user_context> make_context(unsigned options, change_fn change = no_change)
{
    auto context = std::make_unique<kito_user_context>();
    kito_user_context& c = *context;
    c.m_fmt_csv = !(options & (csvl2t | bodyfile | longform)), c.m_fmt_timeline = options & csvl2t;
    c.m_fmt_bodyfile = options & bodyfile, c.m_pair_datetime = options & pair_datetime;
    if (options & csv) c.m_no_padding = !c.m_pair_datetime;
    if (options & (csv | csvl2t | bodyfile)) separator_setup(c, options & bodyfile ? "|" : ",", false);
    if (options & no_whitespace) c.m_no_padding = true, c.m_blank_before_time = false, std::erase(c.m_separator, ' ');
    c.m_verbose = options & (verbose | longform);
    if (options & longform) c.m_value_substitute_from = c.m_value_substitute_to = 0;
    c.m_show_prev_runs = true, c.m_show_prefetch_path = options & kito_path, c.m_program_name = "kito";
    vlm::build_date_time_layout(c.m_date_time_layout, c.m_date_format, c.m_time_format, c.m_pair_datetime);
    c.m_file_path = "/cases/" + pf, c.m_file_base_name = pf, c.m_version_label = "Win10 Prefetch";
    prefetch_entry& e = c.m_entry;
    e.run_count = 5, e.target_name = "NOTEPAD.EXE", e.target_path = notepad_path, e.input_file_size = 23042;
    e.input_modified = ft(1401696000), e.input_accessed = ft(1401700000, 7890000); // 06-02 08:00:00, 09:06:40.789
    e.input_stats_changed = ft(1401530000), e.last_run = ft(1401618030, 1230000); // 05-31 09:53:20, 06-01 10:20:30.123
    e.prev_run_times = {ft(1300000000), ft(1401000000)}, e.file_strings = {{180, notepad_path}, {100, ntdll_path}};
    e.volume_paths = {vol2, "\\DEVICE\\HARDDISKVOLUME3"}, e.volume_serials = {0xa4c300f1u, 0x1234abcdu};
    e.volume_times = {ft(1388534400), 0}, e.volume_dirs = {{{1, vol2 + "\\WINDOWS"}, {2, vol2 + "\\WINDOWS\\SYSTEM32"}}};
    change(c);
    return context;
}

// What the writer leaves for one file, or for two in a run, the second with a longer path.
std::string written(unsigned options, change_fn change, int files = 1)
{
    auto context = make_context(options, change);
    std::ostringstream out;
    for (int i = 0; i < files; ++i, context->m_file_path = longer) EXPECT_TRUE(write_prefetch_report(out, *context, true));
    return out.str();
}

void no_last_run(kito_user_context& c) { c.m_entry.last_run = 0; }
void run_once(kito_user_context& c) { c.m_entry.run_count = 1, c.m_entry.prev_run_times.clear(); }
void run_once_no_last_run(kito_user_context& c) { run_once(c), no_last_run(c); }
// Names with line ends, made safe row by row in the record itself; the file's own times now, the last run in 2012.
void line_ends(kito_user_context& c, std::string const& name)
{
    prefetch_entry& e = c.m_entry;
    e.input_modified = e.input_accessed = e.input_stats_changed = ft(1764000000), e.last_run = ft(1345526400);
    e.file_strings = {{1, "\\VOLUME{X}\\CALC.EXE"}, {2, "A\nB"}, {3, name}}, e.volume_paths = {"\\V\r1", "\\V\n2"};
}
void lone_cr(kito_user_context& c) { line_ends(c, "\rC"), c.m_entry.prev_run_times.clear(); }
void split_crlf(kito_user_context& c) { line_ends(c, "C\r\r\nD"), c.m_entry.input_accessed = ft(1700000000); }
void three_modules(kito_user_context& c)
{ c.m_entry.file_strings = {{1, vol1 + "\\A\\NTDLL.DLL"}, {2, vol1 + "\\B\\ntdll.dll"}, {3, "PLAIN"}}; }

// Each case's whole output against its golden file, tests/cases/golden/writer-<name>.txt.
TEST(ReportWriters, WholeOutputs)
{
    struct { char const* name; unsigned options; change_fn change; int files = 1; } const cases[] = {
        {"text", longform, no_change},
        {"csv", csv, no_change},
        {"timeline", csvl2t, [](auto& c) { c.m_program_name = "C:\\tools\\kito"; }},
        // -bodyfile ignores the separator options; previous runs, a pipe in the path.
        {"bodyfile", bodyfile | no_whitespace,
         [](auto& c) { separator_setup(c, ",", false), c.m_entry.target_path = "C:\\A|B", c.m_entry.prev_run_times = {ft(1401000000)}; }},
        // Run once, no last run; the top bit set gives 0, before 1970 wraps; fractions drop.
        {"bodyfile-run-once", bodyfile,
         [](auto& c) { run_once_no_last_run(c), c.m_entry.input_accessed = 1ULL << 63, c.m_entry.input_modified = 1; }},
        {"text-run-once", longform, run_once_no_last_run},
        {"text-without-fraction", longform, [](auto& c) { c.m_time_format = "hh:mm:ss"; }},
        {"text-without-volumes", longform, [](auto& c) { c.m_entry.volume_paths.clear(), c.m_entry.volume_dirs.clear(); }},
        {"text-ordinals-past-999", longform, [](auto& c) { for (std::uint64_t i = 0; i < 1000; ++i) c.m_entry.file_strings.emplace(1000 + i, "F"); }},
        {"csv-no-last-run", csv, no_last_run},
        {"csv-no-last-run-compact", csv | no_whitespace, no_last_run},
        {"csv-no-last-run-paired-compact", csv | pair_datetime | no_whitespace, no_last_run},
        {"csv-paired-padded", csv | pair_datetime, no_change},
        {"table", table, no_change},
        {"csv-verbose", csv | verbose, no_change},
        {"csv-verbose-nothing-listed", csv | verbose, [](auto& c) { c.m_entry = {}, c.m_entry.target_path = "\\X"; }},
        {"csv-verbose-paired", csv | verbose | pair_datetime, no_change},
        {"csv-user-and-host", csv, [](auto& c) { c.m_host_name = "ws1", c.m_user_name = "bob"; }},
        {"csv-commas-in-values", csv | verbose,
         [](auto& c) { c.m_file_base_name = "A,B.pf", c.m_entry.target_name = "N,1", c.m_entry.target_path = "\\X,Y";
                       c.m_entry.file_strings = {{1, "\\M,1.DLL"}}; }},
        {"csv-pipe-separator", csv, [](auto& c) { separator_setup(c, "|", false), c.m_entry.target_name = "X|Y"; }},
        {"timeline-run-once", csvl2t, run_once},
        {"timeline-run-once-no-last-run", csvl2t, run_once_no_last_run},
        {"timeline-paired-pipe", csvl2t | pair_datetime,
         [](auto& c) { separator_setup(c, "|", false), c.m_file_base_name = "A|B.pf", c.m_entry.prev_run_times.clear();
                       c.m_entry.input_accessed = c.m_entry.input_stats_changed = c.m_entry.last_run = ft(1401696000); }},
        {"timeline-previous-equals-last", csvl2t | no_whitespace,
         [](auto& c) { c.m_entry.run_count = 2, c.m_entry.prev_run_times = {c.m_entry.last_run};
                       c.m_entry.input_modified = c.m_entry.input_accessed = c.m_entry.input_stats_changed = 0; }},
        {"timeline-modules-by-name", csvl2t, three_modules},
        {"timeline-modules-verbose", csvl2t | verbose, three_modules},
        {"timeline-lone-cr", csvl2t, lone_cr},
        {"timeline-lone-cr-verbose", csvl2t | verbose, lone_cr},
        {"timeline-split-crlf", csvl2t, split_crlf},
        {"timeline-split-crlf-verbose", csvl2t | verbose, split_crlf},
        // Two files: one header; the first sizes the padded columns, a longer name overflows.
        {"two-files-padded", kito_path, no_change, 2},
        {"two-files-timeline", csvl2t, no_change, 2},
        {"two-files-bodyfile", bodyfile, no_change, 2},
    };
    for (auto const& c : cases) {
        std::string const golden = env_or_empty("KITO_SOURCE") + "/tests/cases/golden/writer-" + c.name + ".txt";
        EXPECT_EQ(written(c.options, c.change, c.files), read_file(golden)) << c.name;
    }
}

} // namespace
