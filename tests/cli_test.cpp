// The built kito as a user meets it: which stream gets what, and the status.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <regex>

#include "support/run_process.h"

namespace {

std::string const usage_tail =
    "   kito -enumdir <location pf files> -num_subdirs <#> [options]\n"
    "\n"
    " Basic options\n"
    "  -csv                       = output in comma separated value format\n"
    "  -csvl2t                    = log2timeline output\n"
    "  -bodyfile                  = sleuthkit output\n"
    "  -verbose                   = force module listing to be in output\n"
    "\n"
    " Additional options\n"
    "  -pipe                      = pipe files into app for processing\n"
    "  -hostname <name>           = csv output will contain this hostname\n"
    "  -dateformat mm/dd/yyyy     = \"yyyy-mm-dd\" is the default\n"
    "  -timeformat hh:mm:ss       = \"hh:mm:ss.xxx\" is the default\n"
    "  -pair_datetime             = combine date/time into 1 field for csv\n"
    "  -no_whitespace             = remove whitespace between csv delimiter\n"
    "  -csv_separator \"|\"         = use a pipe character for csv separator\n"
    "  -kito_path                 = include prefetch path in output\n"
    "  -filter <*partial*|*.ext>  = filters stdin data from -pipe option\n"
    "\n";

std::string usage_for(std::string const& program)
{
    return "-----------------------------------------------------------------------------\n\n"
           "kito - ver: 1.39\n\n"
           "Usage:\n\n"
           "   kito <filename> [options]   = parse individual file\n"
           "   find /home -name *.pf -type f | " + program + " -pipe\n"
           "   ls /home/prefetch_dir/*.pf | " + program + " -pipe > results\n" + usage_tail;
}

class cli : public testing::Test {
protected:
    void SetUp() override
    {
        if (env_or_empty("KITO_BINARY").empty()) GTEST_SKIP() << "KITO_BINARY not set";
        binary = env_or_empty("KITO_BINARY");
        dir = make_temp_dir("cli");
    }
    // The three header lines and the blank line, for a run with these words.
    void expect_header(std::string const& text, std::string const& command)
    {
        std::size_t const end = text.find("\"\n\n");
        ASSERT_NE(end, std::string::npos) << text;
        std::regex const shape("kito - ver: 1\\.39\n"
                               "run time: [0-9/-]+ [0-9]{2}:[0-9]{2}:[0-9]{2} \\[UTC\\]; host: [^;\n]+; system: "
                               "[^\n]*;(32|64)[^\n]*\n"
                               "\"command: ([^\n]*)");
        std::smatch match;
        std::string const head = text.substr(0, end);
        ASSERT_TRUE(std::regex_match(head, match, shape)) << head;
        EXPECT_EQ(match[2].str(), command);
    }
    // What follows the header.
    static std::string body(std::string const& text) { return text.substr(text.find("\"\n\n") + 3); }
    std::string binary, dir;
};

TEST_F(cli, help_in_any_case_and_any_position)
{
    for (std::vector<std::string> const& args : std::vector<std::vector<std::string>>{
             {}, {"-H"}, {"--HELP"}, {"/?"}, {"a.pf", "-hostname", "-h"}, {"a.pf", "-Help", "-csv"}}) {
        SCOPED_TRACE(args.empty() ? "no args" : args.back());
        process_result const r = run_kito(args);
        EXPECT_EQ(r.status, 0);
        EXPECT_EQ(r.out, "");
        EXPECT_EQ(r.err, usage_for(binary));
    }
}

// Leftover words send a single-file run to the usage screen behind the header.
TEST_F(cli, leftovers_end_at_the_usage_screen)
{
    struct row {
        std::vector<std::string> args;
        std::string echoed;
    } const rows[] = {
        {{"a.pf", "b.pf"}, "a.pf b.pf"},
        {{"-csv"}, "-csv"},
        {{"a.pf", "-verbose", "-v"}, "a.pf -verbose -v"},
        {{"a.pf", "-csv", "-csv"}, "a.pf -csv -csv"},
        {{"a.pf", "-l2"}, "a.pf -l2"},
        {{"my file.pf", "-threads", "zz", "x"}, "'my file.pf' -threads zz x"},
    };
    for (row const& r : rows) {
        SCOPED_TRACE(r.echoed);
        std::vector<std::string> args = r.args;
        args.push_back("-quiet");
        process_result const p = run_kito(args);
        EXPECT_EQ(p.status, 0);
        expect_header(p.out, binary + " " + r.echoed + " -quiet");
        EXPECT_EQ(body(p.out), "");
        EXPECT_EQ(p.err, usage_for("kito"));
    }
}

TEST_F(cli, option_failures_put_the_header_on_stdout)
{
    struct row {
        std::vector<std::string> args;
        std::string err;
    } const rows[] = {
        {{"a.pf", "-sqlite", "x"}, "This option is not offered in this build\n"},
        {{"a.pf", "-out", "no/such/r.txt"}, "prob opening file no/such/r.txt for output, aborting\n"},
        {{"a.pf", "-sqlite_log", "x"}, "This option is not offered in this build\n"},
        {{"a.pf", "-aliaspath", "a|b|c"}, "imbalanced alias to true pathfiles, aborting\n"},
        {{"a.pf", "-alias", "|"}, "imbalanced alias to true pathfiles, aborting\n"},
        {{"a.pf", "-cmd_start_time", "06.01.2014"}, ""},
    };
    for (row const& r : rows) {
        SCOPED_TRACE(r.args[1]);
        process_result const p = run_kito(r.args, "", dir);
        EXPECT_EQ(p.status, 255);
        EXPECT_EQ(p.err, r.err);
        expect_header(p.out, binary + " " + r.args[0] + " " + r.args[1] + " " + r.args[2]);
        EXPECT_EQ(body(p.out), "");
    }
}

TEST_F(cli, warnings_go_on_with_the_run)
{
    struct row {
        std::vector<std::string> args;
        std::string warning;
    } const rows[] = {
        {{"-dateformat", "yy-m-d"}, "invalid yy-m-d, using default format\n"},
        {{"-cmd_start_time", "2014-06-02", "-cmd_stop_time", "2014-06-01"}, "invalid stop time, ignoring\n"},
        {{"-cmd_start_time", "2014-02-30x"}, "invalid start time, ignoring\n"},
    };
    for (row const& r : rows) {
        SCOPED_TRACE(r.warning);
        std::vector<std::string> args{"a.pf", "b.pf", "-quiet"};
        args.insert(args.end(), r.args.begin(), r.args.end());
        process_result const p = run_kito(args);
        EXPECT_EQ(p.status, 0);
        EXPECT_EQ(p.err, r.warning + usage_for("kito"));
    }
}

TEST_F(cli, header_shows_its_own_date_format)
{
    process_result const p = run_kito({"a.pf", "b.pf", "-dateformat", "yy"});
    EXPECT_TRUE(std::regex_search(p.out, std::regex("\nrun time: [0-9]{2}/[0-9]{2}/[0-9]{2} [0-9:]{8} \\[UTC\\]"))) << p.out;
    EXPECT_NE(p.err.find("invalid yy, using default format\n"), std::string::npos);
}

TEST_F(cli, pipe_header_and_empty_batch)
{
    process_result const p = run_kito({"-pipe", "-quiet"});
    EXPECT_EQ(p.status, 255);
    expect_header(p.out, "<filelist> ... | " + binary + " -pipe -quiet");
    EXPECT_EQ(body(p.out), " =================================================== \n\n");
}

// A valued option written last takes the forced "-longform" as its value.
TEST_F(cli, trailing_valued_option_takes_the_forced_long_form)
{
    process_result const out = run_kito({"missing.pf", "-out"}, "", dir);
    EXPECT_EQ(out.out, "");
    std::string const results = read_file(dir + "/-longform");
    expect_header(results, binary + " missing.pf -out");

    process_result const date = run_kito({"a.pf", "b.pf", "-dateformat"});
    EXPECT_EQ(date.err.rfind("invalid -longform, using default format\n", 0), 0u) << date.err;
}

TEST_F(cli, results_file_probe)
{
    // The probe removes a regular file; a run that then fails leaves nothing.
    write_file(dir + "/old.txt", "old content");
    process_result const failed = run_kito({"a.pf", "-out", "old.txt", "-cmd_stop_time", "bad"}, "", dir);
    EXPECT_EQ(failed.status, 255);
    EXPECT_NE(access((dir + "/old.txt").c_str(), F_OK), 0);

    // -append keeps nothing, and stays behind as a leftover.
    write_file(dir + "/r.txt", "old content");
    process_result const appended = run_kito({"a.pf", "-append", "-out", "r.txt"}, "", dir);
    EXPECT_EQ(appended.status, 0);
    EXPECT_EQ(appended.out, "");
    expect_header(read_file(dir + "/r.txt"), binary + " a.pf -append -out r.txt");
    EXPECT_EQ(read_file(dir + "/r.txt").find("old content"), std::string::npos);

    // A link or a device is written through, never removed.
    ASSERT_EQ(symlink((dir + "/target.txt").c_str(), (dir + "/link.txt").c_str()), 0);
    process_result const linked = run_kito({"a.pf", "b.pf", "-out", "link.txt"}, "", dir);
    EXPECT_EQ(linked.status, 0);
    struct stat facts {};
    ASSERT_EQ(lstat((dir + "/link.txt").c_str(), &facts), 0);
    EXPECT_TRUE(S_ISLNK(facts.st_mode));
    expect_header(read_file(dir + "/target.txt"), binary + " a.pf b.pf -out link.txt");

    EXPECT_EQ(run_kito({"a.pf", "b.pf", "-out", "/dev/null"}).status, 0);
    ASSERT_EQ(stat("/dev/null", &facts), 0);
    EXPECT_TRUE(S_ISCHR(facts.st_mode));
}

TEST_F(cli, diagnostics_log)
{
    // -l2 is consumed only beside an open log; the file is then looked for.
    process_result const p = run_kito({"missing.pf", "-diags", "log.txt", "-l2", "-quiet"}, "", dir);
    EXPECT_EQ(p.status, 255);
    EXPECT_EQ(p.err.find("Usage:"), std::string::npos);
    std::string const log = read_file(dir + "/log.txt");
    EXPECT_EQ(log.substr(0, log.find('\n') + 1), "->" + binary + " missing.pf -diags log.txt -l2 -quiet -longform\n");
}

TEST_F(cli, single_file_reports_follow_the_header)
{
    std::string const corpus = corpus_dir();
    if (corpus.empty()) GTEST_SKIP() << "KITO_CORPUS absent";
    std::string file;
    for (auto const& entry : std::filesystem::directory_iterator(corpus + "/real/XPPro"))
        if (file.empty() || entry.path().string() < file) file = entry.path().string();
    for (char const* format : {"-longform", "-csv", "-csvl2t", "-bodyfile"}) {
        SCOPED_TRACE(format);
        process_result const p = run_kito({file, format, "-quiet"});
        EXPECT_EQ(p.status, 0) << p.err;
        EXPECT_EQ(p.err, "");
        expect_header(p.out, binary + " " + file + " " + format + " -quiet");
        EXPECT_NE(body(p.out), "");
    }
    process_result const bad = run_kito({corpus + "/real/Bad/notAPrefetch.pf"});
    EXPECT_EQ(bad.status, 255);
    EXPECT_NE(bad.err, "");
}

TEST_F(cli, decompress_to_a_file)
{
    std::string const corpus = corpus_dir();
    if (corpus.empty()) GTEST_SKIP() << "KITO_CORPUS absent";
    process_result const p =
        run_kito({corpus + "/real/Win10/CALC.EXE-3FBEF7FD.pf", "-decompress_to", "calc.pf", "-quiet"}, "", dir);
    EXPECT_EQ(p.status, 0) << p.err;
    EXPECT_EQ(p.err, "\x1b[2K\r    \rSuccess\n");
    EXPECT_EQ(read_file(dir + "/calc.pf").substr(4, 4), "SCCA");
}

} // namespace
