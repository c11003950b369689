#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <sstream>

#include "driver/output_entry.h"
#include "reports/bodyfile_report.h"
#include "reports/timeline_report.h"

namespace {

using change_fn = void (*)(kito_user_context&);
void no_change(kito_user_context&) {}

constexpr std::uint64_t ft(std::uint64_t unix_seconds, std::uint64_t ticks = 0)
{ return 116444736000000000ULL + unix_seconds * 10000000ULL + ticks; }
std::string const vol1 = "\\DEVICE\\HARDDISKVOLUME1", vol2 = "\\DEVICE\\HARDDISKVOLUME2",
                  notepad_path = vol2 + "\\WINDOWS\\SYSTEM32\\NOTEPAD.EXE", pf = "NOTEPAD.EXE-D8414F97.pf",
                  ntdll_path = vol2 + "\\WINDOWS\\SYSTEM32\\NTDLL.DLL", longer = "/cases/a/much/longer/folder/" + pf,
                  prev_runs = "2014-05-25 06:40:00.000; 2011-03-13 07:06:40.000";

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
void three_modules(kito_user_context& c)
{ c.m_entry.file_strings = {{1, vol1 + "\\A\\NTDLL.DLL"}, {2, vol1 + "\\B\\ntdll.dll"}, {3, "PLAIN"}}; }

TEST(ReportWriters, WholeOutputs)
{
    std::string const short_text = pf + " [NOTEPAD.EXE executed]", tail = ",PREFETCH,Win10 Prefetch,";
    std::string const common = ",,," + short_text + ",Module list: NOTEPAD.EXE; NTDLL.DLL,2,/cases/" + pf +
                               ",,Run count: 5 [Previous times run: " + prev_runs + "],kito (velmora),Volume name; "
                               "serial#; date: [" + vol2 + "; a4c3-00f1; 2014-01-01 00:00:00.000]; "
                               "[\\DEVICE\\HARDDISKVOLUME3; 1234-abcd;  ]\n";
    std::string const previous = ",,," + short_text + ",Modules for last run are at record w/ same name at time: "
                                 "2014-06-01 10:20:30.123,2,/cases/" + pf + ",,Not last time run  but a previous "
                                 "time run.,kito (velmora),\n";
    std::string const body_header = "md5|name|inode|mode as string|uid|gid|size|access time|modify time|mft time|"
                                    "create time\n0|" + pf + " (Win10 Prefetch); ";
    struct { char const* name; unsigned options; change_fn change; std::string expected; } const cases[] = {
        {"text", longform, no_change,
         "Analyzing file: /cases/" + pf + "\nmodified:       2014-06-02 08:00:00\naccessed:       2014-06-02 "
         "09:06:40\nstats changed   2014-05-31 09:53:20\n\ntarget file:    NOTEPAD.EXE, run 5 times\n"
         "Last run:       2014-06-01 10:20:30.123\nPrev run:       2014-05-25 06:40:00.000\nPrev run:       "
         "2011-03-13 07:06:40.000\npath:           " + notepad_path + "\n\n --------- files mapped --------- \n\n"
         "001 : " + ntdll_path + "\n002 : " + notepad_path + "\n\n --------- directories mapped --------- \n\n"
         "vol path:     " + vol2 + "\ntime created: 2014-01-01 00:00:00.000\nserial num:   a4c3-00f1\n\n001 : " +
         vol2 + "\\WINDOWS\n002 : " + vol2 + "\\WINDOWS\\SYSTEM32\n\nvol path:     \\DEVICE\\HARDDISKVOLUME3\n"
         "time created:  \nserial num:   1234-abcd\n\n"},
        {"-csv", csv, no_change,
         "prefetch file name,app name,times ran,last run, time-UTC,mdate, time-UTC,adate, time-UTC,cdate, time-UTC,"
         "path/appname,previous dates run\n" + pf + ",NOTEPAD.EXE,5,2014-06-01, 10:20:30.123,2014-06-02, 08:00:00.000,"
         "2014-06-02, 09:06:40.789,2014-05-31, 09:53:20.000," + notepad_path + "," + prev_runs + "\n"},
        {"-csvl2t", csvl2t, [](auto& c) { c.m_program_name = "C:\\tools\\kito"; },
         "date,time,timezone,MACB,source,sourcetype,type,user,host,short,desc,version,filename,inode,notes,format,"
         "extra\n2014-05-31, 09:53:20.000,UTC,...B" + tail + "Created" + common +
         "2014-06-01, 10:20:30.123,UTC,..C." + tail + "Last Run" + common +
         "2014-06-02, 08:00:00.000,UTC,M..." + tail + "Last Modified" + common +
         "2014-06-02, 09:06:40.789,UTC,.A.." + tail + "Last Access" + common +
         "2014-05-25, 06:40:00.000,UTC,MAC." + tail + "Modified; Access; Run" + previous +
         "2011-03-13, 07:06:40.000,UTC,MAC." + tail + "Modified; Access; Run" + previous},
        {"-bodyfile ignores the separator options; previous runs, a pipe in the path", bodyfile | no_whitespace,
         [](auto& c) { separator_setup(c, ",", false), c.m_entry.target_path = "C:\\A|B";
                       c.m_entry.prev_run_times = {ft(1401000000)}; },
         body_header + "run count: 5; app run: C:\\A;B|0||0|0|23042|1401700000|1401696000|1401618030|1401530000\n0|" +
         pf + " (Win10 Prefetch); not last time run - but prevtime; app run: C:\\A;B|0||0|0|23042|1401000000|"
         "1401000000|1401000000|1401530000\n"},
        {"-bodyfile, run once, no last run; the top bit set gives 0, before 1970 wraps; fractions drop", bodyfile,
         [](auto& c) { run_once_no_last_run(c), c.m_entry.input_accessed = 1ULL << 63, c.m_entry.input_modified = 1; },
         body_header + "run count: 1; app run: " + notepad_path + "|0||0|0|23042|0|1833029933770|0|0\n"},
    };
    for (auto const& c : cases) EXPECT_EQ(written(c.options, c.change), c.expected) << c.name;
}

// Parts that must stand in this order in the output, and the number of lines when it is not 0.
struct excerpt_case { char const* name; unsigned options; change_fn change; std::vector<std::string> parts;
                      std::size_t lines = 0; int files = 1; };

TEST(ReportWriters, Excerpts)
{
    std::string const pad19(19, ' '), short_text = pf + " [NOTEPAD.EXE executed]";
    excerpt_case const cases[] = {
        {"text: run once, no previous runs, no last run", longform, run_once_no_last_run,
         {"target file:    NOTEPAD.EXE, run 1 times\nLast run:        \npath:           "}},
        {"text: time format without fraction", longform, [](auto& c) { c.m_time_format = "hh:mm:ss"; },
         {"\nLast run:       2014-06-01 10:20:30\nPrev run:       2014-05-25 06:40:00\n"}},
        {"text: no volumes ends at the directories title", longform,
         [](auto& c) { c.m_entry.volume_paths.clear(), c.m_entry.volume_dirs.clear(); },
         {"002 : " + notepad_path + "\n\n --------- directories mapped --------- \n\n"}, 18},
        {"text: ordinals past 999", longform,
         [](auto& c) { for (std::uint64_t i = 0; i < 1000; ++i) c.m_entry.file_strings[1000 + i] = "F"; },
         {"\n002 : " + notepad_path + "\n003 : F\n", "\n999 : F\n1000 : F\n"}},
        {"invalid last run", csv, no_last_run, {",5,, ,2014-06-02"}},
        {"invalid last run compact", csv | no_whitespace, no_last_run,
         {"times ran,last run,time-UTC,mdate,time-UTC,", ",5,,,2014-06-02,08:00:00.000,2014-06-02,09:06:40.789,"}},
        {"invalid last run paired compact", csv | pair_datetime | no_whitespace, no_last_run, {",5, ,2014-06-02 08:0"}},
        {"-csv -pair_datetime stays padded", csv | pair_datetime, no_change,
         {"prefetch file name" + std::string(24, ' ') + ",app name" + std::string(22, ' ') + ",times ran,last run "
          "[UTC]" + std::string(9, ' ') + ",modify date [UTC]", "\n" + pf + pad19 + ",NOTEPAD.EXE" + pad19 +
          ",        5, 2014-06-01 10:20:30.123, 2014-06-02 08:00:00.000,"}},
        {"default table", table, no_change,
         {"prefetch file name" + std::string(24, ' ') + " | app name" + std::string(22, ' ') + " | times ran | "
          "last run   |  time-UTC     | mdate", "\n" + pf + pad19 + " | NOTEPAD.EXE" + pad19 + " |         5 | "
          "2014-06-01 |  10:20:30.123 | 2014-06-02 |  08:00:00.000 |"}},
        {"-csv -verbose", csv | verbose, no_change,
         {",path/appname,Num Vols,volume(s),volume serial(s),volume date/time(s) (UTC),Num modules,Module list,"
          "previous dates run\n", notepad_path + ",2," + vol2 + "; \\DEVICE\\HARDDISKVOLUME3,a4c3-00f1; 1234-abcd,"
          "2014-01-01 00:00:00.000;  ,2," + ntdll_path + "; " + notepad_path + "," + prev_runs + "\n"}},
        {"-csv -verbose, nothing listed", csv | verbose,
         [](auto& c) { c.m_entry = {}, c.m_entry.target_path = "\\X"; }, {",\\X,0,,,,0,,\n"}},
        {"-csv -verbose -pair_datetime has no verbose columns", csv | verbose | pair_datetime, no_change,
         {"path/appname" + std::string(78, ' ') + ",previous dates run     \n",
          notepad_path + std::string(90 - notepad_path.size(), ' ') + "," + prev_runs + "\n"}},
        {"user before host", csv, [](auto& c) { c.m_host_name = "ws1", c.m_user_name = "bob"; },
         {",previous dates run,user acct,host name\n", "," + prev_runs + ",bob,ws1\n"}},
        {"comma in values under -csv", csv | verbose,
         [](auto& c) { c.m_file_base_name = "A,B.pf", c.m_entry.target_name = "N,1", c.m_entry.target_path = "\\X,Y";
                       c.m_entry.file_strings = {{1, "\\M,1.DLL"}}; },
         {"\nA B.pf,N 1,5,", ",\\X Y,", ",\\M 1.DLL,"}},
        {"pipe under -csv_separator |", csv,
         [](auto& c) { separator_setup(c, "|", false), c.m_entry.target_name = "X|Y"; }, {"\n" + pf + "|X;Y|5|"}},
        {"timeline: run once, the run time is also the creation", csvl2t, run_once,
         {"\n2014-06-01, 10:20:30.123,UTC,..CB,PREFETCH,Win10 Prefetch,Last Run; Created,",
          "\n2014-06-02, 08:00:00.000,UTC,M...,", "\n2014-06-02, 09:06:40.789,UTC,.A..,"}, 4},
        {"timeline: run once without a last run", csvl2t, run_once_no_last_run,
         {"\n2014-06-02, 08:00:00.000,UTC,M...,", "\n2014-06-02, 09:06:40.789,UTC,.A..,"}, 3},
        {"timeline: paired, pipe separator", csvl2t | pair_datetime,
         [](auto& c) { separator_setup(c, "|", false), c.m_file_base_name = "A|B.pf", c.m_entry.prev_run_times.clear();
                       c.m_entry.input_accessed = c.m_entry.input_stats_changed = c.m_entry.last_run = ft(1401696000); },
         {"date/time|timezone|MACB|", "\n 2014-06-02 08:00:00.000|UTC|MACB|PREFETCH|Win10 Prefetch|Last Modified; "
          "Last Access; Last Run; Created|||A;B.pf [NOTEPAD.EXE executed]|"}, 2},
        {"timeline: no whitespace, previous time equal to the last run", csvl2t | no_whitespace,
         [](auto& c) { c.m_entry.run_count = 2, c.m_entry.prev_run_times = {c.m_entry.last_run};
                       c.m_entry.input_modified = c.m_entry.input_accessed = c.m_entry.input_stats_changed = 0; },
         {"\n2014-06-01,10:20:30.123,UTC,..C.,PREFETCH,Win10 Prefetch,Last Run,,," + short_text + ",Module list: "
          "NOTEPAD.EXE; NTDLL.DLL,2,/cases/" + pf + ",,Run count: 2 [Previous time run: 2014-06-01 10:20:30.123],",
          "\n2014-06-01,10:20:30.123,UTC,MAC.,"}, 3},
        {"timeline: module names cut, one per name in any case", csvl2t, three_modules, {",Module list: NTDLL.DLL; PLAIN,"}},
        {"timeline: -verbose keeps whole module paths", csvl2t | verbose, three_modules,
         {",Module list: " + vol1 + "\\A\\NTDLL.DLL; " + vol1 + "\\B\\ntdll.dll; PLAIN,"}},
        // Two files: one header; the first sizes the padded columns ("/" at 6, plus 43), a longer name overflows.
        {"two files, padded", kito_path, no_change, {"prefetch file name" + std::string(31, ' ') + " | app name",
         "\n/cases/" + pf + pad19 + " | NOTEPAD.EXE", "\n" + longer + " | NOTEPAD.EXE" + pad19 + " |"}, 3, 2},
        {"two files, timeline", csvl2t, no_change, {"date,time,", "," + longer + ",,Run count: 5"}, 13, 2},
        {"two files, bodyfile", bodyfile, no_change, {"md5|name|", "\n0|" + pf}, 7, 2},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(c.name);
        std::string const out = written(c.options, c.change, c.files);
        std::size_t at = 0;
        for (std::string const& part : c.parts)
            EXPECT_NE(at = out.find(part, at == out.npos ? 0 : at), out.npos) << "missing: " << part << "\nin: " << out;
        if (c.lines) { EXPECT_EQ(std::count(out.begin(), out.end(), '\n'), c.lines) << out; }
    }
}

} // namespace
