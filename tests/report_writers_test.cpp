#include <gtest/gtest.h>

#include <memory>
#include <sstream>

#include "driver/kito_user_context.h"
#include "reports/bodyfile_report.h"
#include "reports/csv_report.h"
#include "reports/text_report.h"
#include "reports/timeline_report.h"

namespace {

constexpr std::uint64_t ft(std::uint64_t unix_seconds, std::uint64_t ticks = 0)
{
    return 116444736000000000ULL + unix_seconds * 10000000ULL + ticks;
}

std::string const notepad_path = "\\DEVICE\\HARDDISKVOLUME2\\WINDOWS\\SYSTEM32\\NOTEPAD.EXE";
std::string const ntdll_path = "\\DEVICE\\HARDDISKVOLUME2\\WINDOWS\\SYSTEM32\\NTDLL.DLL";

// Options as the option pass leaves them. Flags apply in the pass's order.
enum option : unsigned {
    table = 0, // neither -csv, -csvl2t nor -bodyfile: the padded default table
    csv = 1,
    csvl2t = 2,
    bodyfile = 4,
    pair_datetime = 8,
    no_whitespace = 16,
    verbose = 32,
    kito_path = 64,
    longform = 128,
};

std::unique_ptr<kito_user_context> make_context(unsigned options, std::string const& csv_separator = {})
{
    auto context = std::make_unique<kito_user_context>();
    kito_user_context& c = *context;
    c.m_pair_datetime = options & pair_datetime;
    c.m_fmt_csv = !(options & (csvl2t | bodyfile | longform));
    c.m_fmt_timeline = options & csvl2t;
    c.m_fmt_bodyfile = options & bodyfile;
    if (options & csv) c.m_no_padding = !c.m_pair_datetime;
    if (options & (csv | csvl2t)) separator_setup(c, ",", false);
    if (options & bodyfile) separator_setup(c, "|", false);
    if (!csv_separator.empty()) separator_setup(c, csv_separator, false);
    if (options & no_whitespace) {
        c.m_no_padding = true;
        c.m_blank_before_time = false;
        std::erase(c.m_separator, ' ');
    }
    c.m_verbose = options & (verbose | longform);
    if (options & longform) c.m_value_substitute_from = c.m_value_substitute_to = 0;
    c.m_show_prev_runs = true;
    c.m_show_prefetch_path = options & kito_path;
    c.m_program_name = "kito";
    c.m_version_label = "Win10 Prefetch";
    vlm::build_date_time_layout(c.m_date_time_layout, c.m_date_format, c.m_time_format, c.m_pair_datetime);
    return context;
}

// A Windows 10 notepad run five times, with two previous runs, two mapped
// files and two volumes of which only the first has a directory list.
void fill_notepad(kito_user_context& c)
{
    c.m_file_path = "/cases/NOTEPAD.EXE-D8414F97.pf";
    c.m_file_base_name = "NOTEPAD.EXE-D8414F97.pf";
    prefetch_entry& e = c.m_entry;
    e.run_count = 5;
    e.target_name = "NOTEPAD.EXE";
    e.target_path = notepad_path;
    e.input_file_size = 23042;
    e.input_modified = ft(1401696000);         // 2014-06-02 08:00:00
    e.input_accessed = ft(1401700000, 7890000); // 2014-06-02 09:06:40.789
    e.input_stats_changed = ft(1401530000);    // 2014-05-31 09:53:20
    e.last_run = ft(1401618030, 1230000);      // 2014-06-01 10:20:30.123
    e.prev_run_times = {ft(1300000000), ft(1401000000)};
    e.file_strings = {{180, notepad_path}, {100, ntdll_path}};
    e.volume_paths = {"\\DEVICE\\HARDDISKVOLUME2", "\\DEVICE\\HARDDISKVOLUME3"};
    e.volume_times = {ft(1388534400), 0};
    e.volume_serials = {0xa4c300f1u, 0x1234abcdu};
    e.volume_dirs = {{{1, "\\DEVICE\\HARDDISKVOLUME2\\WINDOWS"}, {2, "\\DEVICE\\HARDDISKVOLUME2\\WINDOWS\\SYSTEM32"}}};
}

std::vector<std::string> lines_of(std::string const& text)
{
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
}

std::vector<std::string> fields_of(std::string const& line, char separator)
{
    std::vector<std::string> fields;
    std::size_t from = 0;
    for (std::size_t at; (at = line.find(separator, from)) != std::string::npos; from = at + 1)
        fields.push_back(line.substr(from, at - from));
    fields.push_back(line.substr(from));
    return fields;
}

TEST(TextReport, WholeReport)
{
    auto c = make_context(longform);
    fill_notepad(*c);
    std::ostringstream out;
    EXPECT_TRUE(write_text_report(out, *c));
    EXPECT_EQ(out.str(), "Analyzing file: /cases/NOTEPAD.EXE-D8414F97.pf\n"
                         "modified:       2014-06-02 08:00:00\n"
                         "accessed:       2014-06-02 09:06:40\n"
                         "stats changed   2014-05-31 09:53:20\n"
                         "\n"
                         "target file:    NOTEPAD.EXE, run 5 times\n"
                         "Last run:       2014-06-01 10:20:30.123\n"
                         "Prev run:       2014-05-25 06:40:00.000\n"
                         "Prev run:       2011-03-13 07:06:40.000\n"
                         "path:           " + notepad_path + "\n"
                         "\n"
                         " --------- files mapped --------- \n"
                         "\n"
                         "001 : " + ntdll_path + "\n"
                         "002 : " + notepad_path + "\n"
                         "\n"
                         " --------- directories mapped --------- \n"
                         "\n"
                         "vol path:     \\DEVICE\\HARDDISKVOLUME2\n"
                         "time created: 2014-01-01 00:00:00.000\n"
                         "serial num:   a4c3-00f1\n"
                         "\n"
                         "001 : \\DEVICE\\HARDDISKVOLUME2\\WINDOWS\n"
                         "002 : \\DEVICE\\HARDDISKVOLUME2\\WINDOWS\\SYSTEM32\n"
                         "\n"
                         "vol path:     \\DEVICE\\HARDDISKVOLUME3\n"
                         "time created:  \n"
                         "serial num:   1234-abcd\n"
                         "\n");
}

TEST(TextReport, Variations)
{
    struct {
        char const* name;
        void (*change)(kito_user_context&);
        std::vector<std::string> wanted; // lines that must stand, in this order
    } const cases[] = {
        {"run once, no previous runs, no last run",
         [](kito_user_context& c) {
             c.m_entry.run_count = 1;
             c.m_entry.prev_run_times.clear();
             c.m_entry.last_run = 0;
         },
         {"target file:    NOTEPAD.EXE, run 1 times", "Last run:        ", "path:           " + notepad_path}},
        {"time format without fraction",
         [](kito_user_context& c) { c.m_time_format = "hh:mm:ss"; },
         {"stats changed   2014-05-31 09:53:20", "", "target file:    NOTEPAD.EXE, run 5 times",
          "Last run:       2014-06-01 10:20:30"}},
        {"no volumes ends at the directories title",
         [](kito_user_context& c) {
             c.m_entry.volume_paths.clear();
             c.m_entry.volume_dirs.clear();
         },
         {" --------- directories mapped --------- ", ""}},
        {"ordinals past 999",
         [](kito_user_context& c) {
             c.m_entry.file_strings.clear();
             for (std::uint64_t i = 0; i < 1000; ++i) c.m_entry.file_strings[1000 + i] = "F";
         },
         {"999 : F", "1000 : F", "", " --------- directories mapped --------- "}},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(c.name);
        auto context = make_context(longform);
        fill_notepad(*context);
        c.change(*context);
        std::ostringstream out;
        write_text_report(out, *context);
        auto const lines = lines_of(out.str());
        auto at = std::search(lines.begin(), lines.end(), c.wanted.begin(), c.wanted.end());
        EXPECT_NE(at, lines.end()) << out.str();
        if (std::string(c.name).starts_with("no volumes")) {
            EXPECT_EQ(at + 2, lines.end());
        }
    }
}

TEST(ReportWriters, EachWritesOnlyItsOwnForm)
{
    auto c = make_context(csv);
    std::ostringstream out;
    EXPECT_FALSE(write_text_report(out, *c));
    EXPECT_FALSE(write_timeline_report(out, *c));
    EXPECT_FALSE(write_bodyfile_report(out, *c));
    c->m_fmt_csv = false;
    EXPECT_FALSE(write_csv_report(out, *c));
    EXPECT_EQ(out.str(), "");
}

std::string const csv_header_start = "prefetch file name,app name,times ran,last run, time-UTC,mdate, time-UTC,"
                                     "adate, time-UTC,cdate, time-UTC,path/appname";
std::string const prev_runs = "2014-05-25 06:40:00.000; 2011-03-13 07:06:40.000";

struct csv_case {
    char const* name;
    unsigned options;
    void (*change)(kito_user_context&);
    std::string header;
    std::vector<std::string> row; // parts that must stand in the row
};

void no_change(kito_user_context&) {}

TEST(CsvReport, ColumnsAndRows)
{
    std::string const pad19(19, ' ');
    csv_case const cases[] = {
        {"-csv", csv, no_change, csv_header_start + ",previous dates run",
         {"NOTEPAD.EXE-D8414F97.pf,NOTEPAD.EXE,5,2014-06-01, 10:20:30.123,2014-06-02, 08:00:00.000,2014-06-02, "
         "09:06:40.789,2014-05-31, 09:53:20.000," + notepad_path + "," + prev_runs}},
        {"-csv -no_whitespace", csv | no_whitespace, no_change,
         "prefetch file name,app name,times ran,last run,time-UTC,mdate,time-UTC,adate,time-UTC,cdate,time-UTC,"
         "path/appname,previous dates run",
         {"NOTEPAD.EXE-D8414F97.pf,NOTEPAD.EXE,5,2014-06-01,10:20:30.123,2014-06-02,08:00:00.000,2014-06-02,"
         "09:06:40.789,2014-05-31,09:53:20.000," + notepad_path + "," + prev_runs}},
        {"invalid last run", csv, [](kito_user_context& c) { c.m_entry.last_run = 0; }, "", {"5,, ,2014-06-02"}},
        {"invalid last run compact", csv | no_whitespace, [](kito_user_context& c) { c.m_entry.last_run = 0; },
         "", {"5,,,2014-06-02"}},
        {"invalid last run paired compact", csv | pair_datetime | no_whitespace,
         [](kito_user_context& c) { c.m_entry.last_run = 0; }, "", {"5, ,2014-06-02 08:00:00.000,"}},
        {"-csv -pair_datetime stays padded", csv | pair_datetime, no_change,
         "prefetch file name" + std::string(24, ' ') + ",app name" + std::string(22, ' ') +
             ",times ran,last run [UTC]" + std::string(9, ' ') + ",modify date [UTC]",
         {"NOTEPAD.EXE-D8414F97.pf" + pad19 + ",NOTEPAD.EXE" + pad19 + ",        5, 2014-06-01 10:20:30.123, " +
          "2014-06-02 08:00:00.000,"}},
        {"default table", table, no_change,
         "prefetch file name" + std::string(24, ' ') + " | app name" + std::string(22, ' ') +
             " | times ran | last run   |  time-UTC     | mdate",
         {"NOTEPAD.EXE-D8414F97.pf" + pad19 + " | NOTEPAD.EXE" + pad19 +
          " |         5 | 2014-06-01 |  10:20:30.123 | 2014-06-02 |  08:00:00.000 |"}},
        {"-kito_path widens the name column", kito_path, no_change,
         "prefetch file name" + std::string(31, ' ') + " | app name", // "/" at 6, plus 43
         {"/cases/NOTEPAD.EXE-D8414F97.pf" + std::string(19, ' ') + " | NOTEPAD.EXE"}},
        {"-csv -verbose", csv | verbose, no_change,
         csv_header_start + ",Num Vols,volume(s),volume serial(s),volume date/time(s) (UTC),Num modules,"
                            "Module list,previous dates run",
         {notepad_path + ",2,\\DEVICE\\HARDDISKVOLUME2; \\DEVICE\\HARDDISKVOLUME3,a4c3-00f1; 1234-abcd,"
                        "2014-01-01 00:00:00.000;  ,2," + ntdll_path + "; " + notepad_path + "," + prev_runs}},
        {"-csv -verbose, nothing listed", csv | verbose,
         [](kito_user_context& c) {
             c.m_entry.volume_paths.clear(), c.m_entry.volume_times.clear(), c.m_entry.volume_serials.clear();
             c.m_entry.file_strings.clear(), c.m_entry.prev_run_times.clear();
         },
         "", {notepad_path + ",0,,,,0,,"}},
        {"-csv -verbose -pair_datetime has no verbose columns", csv | verbose | pair_datetime, no_change,
         "path/appname" + std::string(78, ' ') + ",previous dates run     ",
         {notepad_path + std::string(90 - notepad_path.size(), ' ') + "," + prev_runs}},
        {"user before host", csv,
         [](kito_user_context& c) {
             c.m_host_name = "ws1";
             c.m_user_name = "bob";
         },
         ",previous dates run,user acct,host name", {"," + prev_runs + ",bob,ws1"}},
        {"comma in values under -csv", csv | verbose,
         [](kito_user_context& c) {
             c.m_file_base_name = "A,B.pf";
             c.m_entry.target_name = "N,1";
             c.m_entry.target_path = "\\X,Y.EXE";
             c.m_entry.file_strings = {{1, "\\M,1.DLL"}};
         },
         "", {"A B.pf,N 1,5,", ",\\X Y.EXE,", ",\\M 1.DLL,", "," + prev_runs}},
        {"pipe under -csv_separator |", csv, [](kito_user_context& c) { c.m_entry.target_name = "X|Y"; }, "",
         {"NOTEPAD.EXE-D8414F97.pf|X;Y|5|"}},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(c.name);
        auto context = make_context(c.options, std::string(c.name).ends_with("|") ? "|" : "");
        fill_notepad(*context);
        c.change(*context);
        std::ostringstream out;
        EXPECT_TRUE(write_csv_report(out, *context));
        auto const lines = lines_of(out.str());
        ASSERT_EQ(lines.size(), 2u);
        EXPECT_NE(lines[0].find(c.header), std::string::npos) << lines[0];
        for (std::string const& part : c.row) EXPECT_NE(lines[1].find(part), std::string::npos) << lines[1];
    }
}

TEST(CsvReport, HeaderOnceAndWidthsFromTheFirstFile)
{
    auto c = make_context(kito_path);
    fill_notepad(*c);
    std::ostringstream out;
    write_csv_report(out, *c);
    c->m_file_path = "/cases/a/much/longer/folder/NOTEPAD.EXE-D8414F97.pf";
    write_csv_report(out, *c);
    auto const lines = lines_of(out.str());
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(lines[1].find(" | NOTEPAD.EXE"), 49u);
    EXPECT_EQ(lines[2].find(" | NOTEPAD.EXE"), c->m_file_path.size()); // overflows, nothing cut
}

std::string const short_text = "NOTEPAD.EXE-D8414F97.pf [NOTEPAD.EXE executed]";

TEST(TimelineReport, WholeRecordWithPreviousRuns)
{
    auto c = make_context(csvl2t);
    fill_notepad(*c);
    c->m_program_name = "C:\\tools\\kito";
    std::ostringstream out;
    EXPECT_TRUE(write_timeline_report(out, *c));
    std::string const tail = ",PREFETCH,Win10 Prefetch,";
    std::string const common = ",,," + short_text + ",Module list: NOTEPAD.EXE; NTDLL.DLL,2,"
                               "/cases/NOTEPAD.EXE-D8414F97.pf,,Run count: 5 [Previous times run: " + prev_runs +
                               "],kito (velmora),Volume name; serial#; date: [\\DEVICE\\HARDDISKVOLUME2; a4c3-00f1; "
                               "2014-01-01 00:00:00.000]; [\\DEVICE\\HARDDISKVOLUME3; 1234-abcd;  ]\n";
    std::string const previous = ",,," + short_text + ",Modules for last run are at record w/ same name at time: "
                                 "2014-06-01 10:20:30.123,2,/cases/NOTEPAD.EXE-D8414F97.pf,,"
                                 "Not last time run  but a previous time run.,kito (velmora),\n";
    EXPECT_EQ(out.str(),
              "date,time,timezone,MACB,source,sourcetype,type,user,host,short,desc,version,filename,inode,notes,"
              "format,extra\n"
              "2014-05-31, 09:53:20.000,UTC,...B" + tail + "Created" + common +
              "2014-06-01, 10:20:30.123,UTC,..C." + tail + "Last Run" + common +
              "2014-06-02, 08:00:00.000,UTC,M..." + tail + "Last Modified" + common +
              "2014-06-02, 09:06:40.789,UTC,.A.." + tail + "Last Access" + common +
              "2014-05-25, 06:40:00.000,UTC,MAC." + tail + "Modified; Access; Run" + previous +
              "2011-03-13, 07:06:40.000,UTC,MAC." + tail + "Modified; Access; Run" + previous);
}

TEST(TimelineReport, RowsByRunCountAndOptions)
{
    struct {
        char const* name;
        unsigned options;
        void (*change)(kito_user_context&);
        std::string separator;
        std::vector<std::vector<std::string>> rows; // leading fields of each row
    } const cases[] = {
        {"run once: run time is also the creation", csvl2t,
         [](kito_user_context& c) {
             c.m_entry.run_count = 1;
             c.m_entry.prev_run_times.clear();
         },
         ",",
         {{"2014-06-01", " 10:20:30.123", "UTC", "..CB", "PREFETCH", "Win10 Prefetch", "Last Run; Created"},
          {"2014-06-02", " 08:00:00.000", "UTC", "M..."},
          {"2014-06-02", " 09:06:40.789", "UTC", ".A.."}}},
        {"run once without a last run", csvl2t,
         [](kito_user_context& c) {
             c.m_entry.run_count = 1;
             c.m_entry.last_run = 0;
             c.m_entry.prev_run_times.clear();
         },
         ",", {{"2014-06-02", " 08:00:00.000", "UTC", "M..."}, {"2014-06-02", " 09:06:40.789", "UTC", ".A.."}}},
        {"modified equals accessed", csvl2t,
         [](kito_user_context& c) {
             c.m_entry.run_count = 3;
             c.m_entry.input_accessed = c.m_entry.input_modified;
             c.m_entry.prev_run_times.clear();
         },
         ",",
         {{"2014-05-31", " 09:53:20.000", "UTC", "...B", "PREFETCH", "Win10 Prefetch", "Created"},
          {"2014-06-01", " 10:20:30.123", "UTC", "..C."},
          {"2014-06-02", " 08:00:00.000", "UTC", "MA..", "PREFETCH", "Win10 Prefetch", "Last Modified; Last Access"}}},
        {"paired, pipe separator", csvl2t | pair_datetime,
         [](kito_user_context& c) {
             separator_setup(c, "|", false);
             c.m_file_base_name = "A|B.pf";
             c.m_entry.input_accessed = c.m_entry.input_stats_changed = c.m_entry.last_run = c.m_entry.input_modified;
             c.m_entry.prev_run_times.clear();
         },
         "|",
         {{" 2014-06-02 08:00:00.000", "UTC", "MACB", "PREFETCH", "Win10 Prefetch",
           "Last Modified; Last Access; Last Run; Created", "", "", "A;B.pf [NOTEPAD.EXE executed]"}}},
        {"no whitespace, previous time equal to the last run", csvl2t | no_whitespace,
         [](kito_user_context& c) {
             c.m_entry.run_count = 2;
             c.m_entry.prev_run_times = {c.m_entry.last_run};
             c.m_entry.input_modified = c.m_entry.input_accessed = c.m_entry.input_stats_changed = 0;
         },
         ",",
         {{"2014-06-01", "10:20:30.123", "UTC", "..C.", "PREFETCH", "Win10 Prefetch", "Last Run", "", "",
           short_text, "Module list: NOTEPAD.EXE; NTDLL.DLL", "2", "/cases/NOTEPAD.EXE-D8414F97.pf", "",
           "Run count: 2 [Previous time run: 2014-06-01 10:20:30.123]"},
          {"2014-06-01", "10:20:30.123", "UTC", "MAC."}}},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(c.name);
        auto context = make_context(c.options);
        fill_notepad(*context);
        c.change(*context);
        std::ostringstream out;
        write_timeline_report(out, *context);
        auto const lines = lines_of(out.str());
        ASSERT_EQ(lines.size(), c.rows.size() + 1) << out.str();
        std::size_t const columns = c.options & pair_datetime ? 16 : 17;
        EXPECT_EQ(fields_of(lines[0], c.separator[0]).size(), columns) << lines[0];
        for (std::size_t r = 0; r < c.rows.size(); ++r) {
            auto const fields = fields_of(lines[r + 1], c.separator[0]);
            ASSERT_EQ(fields.size(), columns) << lines[r + 1];
            EXPECT_TRUE(std::equal(c.rows[r].begin(), c.rows[r].end(), fields.begin())) << lines[r + 1];
        }
    }
}

TEST(TimelineReport, ModuleListAndHeaderOnce)
{
    struct {
        bool verbose;
        std::string desc;
    } const cases[] = {
        {false, "Module list: NTDLL.DLL; PLAIN"},
        {true, "Module list: \\DEVICE\\HARDDISKVOLUME1\\A\\NTDLL.DLL; \\DEVICE\\HARDDISKVOLUME1\\B\\ntdll.dll; PLAIN"},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(c.verbose);
        auto context = make_context(c.verbose ? csvl2t | verbose : csvl2t);
        fill_notepad(*context);
        context->m_entry.prev_run_times.clear();
        context->m_entry.file_strings = {{1, "\\DEVICE\\HARDDISKVOLUME1\\A\\NTDLL.DLL"},
                                         {2, "\\DEVICE\\HARDDISKVOLUME1\\B\\ntdll.dll"},
                                         {3, "PLAIN"}};
        std::ostringstream out;
        write_timeline_report(out, *context);
        write_timeline_report(out, *context);
        auto const lines = lines_of(out.str());
        ASSERT_EQ(lines.size(), 9u); // one header, four rows per file
        EXPECT_EQ(fields_of(lines[1], ',')[10], c.desc);
        EXPECT_EQ(lines[5].substr(0, 4), "2014");
    }
}

TEST(Bodyfile, SecondsFromFiletime)
{
    struct {
        std::uint64_t filetime, seconds;
    } const cases[] = {
        {0, 0},
        {0x8000000000000000ULL, 0},
        {ft(1401618030, 9999999), 1401618030},
        {1, 1833029933770ULL}, // before 1970: wraps, and stands as it is
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(c.filetime);
        EXPECT_EQ(bodyfile_seconds(c.filetime), c.seconds);
    }
}

TEST(Bodyfile, LinesOfARun)
{
    std::string const header =
        "md5|name|inode|mode as string|uid|gid|size|access time|modify time|mft time|create time\n";
    struct {
        char const* name;
        void (*change)(kito_user_context&);
        std::string expected;
    } const cases[] = {
        {"last run and previous runs",
         [](kito_user_context& c) {
             c.m_entry.input_modified = c.m_entry.input_accessed = ft(1401618030);
             c.m_entry.last_run = ft(1401610830, 5000000);
             c.m_entry.prev_run_times = {ft(1401000000)};
         },
         header + "0|NOTEPAD.EXE-D8414F97.pf (Win10 Prefetch); run count: 5; app run: " + notepad_path +
             "|0||0|0|23042|1401618030|1401618030|1401610830|1401530000\n"
             "0|NOTEPAD.EXE-D8414F97.pf (Win10 Prefetch); not last time run - but prevtime; app run: " +
             notepad_path + "|0||0|0|23042|1401000000|1401000000|1401000000|1401530000\n"},
        {"run once without a last run; pipes in names",
         [](kito_user_context& c) {
             c.m_entry.run_count = 1;
             c.m_entry.last_run = 0;
             c.m_entry.prev_run_times.clear();
             c.m_entry.target_path = "C:\\A|B.EXE";
             c.m_file_base_name = "A|B.pf";
         },
         header + "0|A;B.pf (Win10 Prefetch); run count: 1; app run: C:\\A;B.EXE|0||0|0|23042|1401700000|1401696000|0|0\n"},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(c.name);
        // The separator options leave the bodyfile alone.
        auto context = make_context(bodyfile | no_whitespace, ",");
        fill_notepad(*context);
        c.change(*context);
        std::ostringstream out;
        EXPECT_TRUE(write_bodyfile_report(out, *context));
        EXPECT_EQ(out.str(), c.expected);
    }
}

TEST(Bodyfile, HeaderOnceForTwoFiles)
{
    auto c = make_context(bodyfile);
    fill_notepad(*c);
    std::ostringstream out;
    write_bodyfile_report(out, *c);
    c->m_file_base_name = "SECOND.pf";
    write_bodyfile_report(out, *c);
    auto const lines = lines_of(out.str());
    ASSERT_EQ(lines.size(), 7u);
    EXPECT_TRUE(lines[0].starts_with("md5|name|"));
    EXPECT_TRUE(lines[4].starts_with("0|SECOND.pf (Win10 Prefetch); run count: 5;"));
}

} // namespace
