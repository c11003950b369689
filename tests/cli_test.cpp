// The built kito as a user meets it: which stream gets what, and the status.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <regex>

#include "support/run_process.h"

namespace {

// The pipe examples name the program as the user started it.
std::string usage_for(std::string const& program)
{
    return "-----------------------------------------------------------------------------\n\n"
           "kito - ver: 1.39\n\nUsage:\n\n   kito <filename> [options]   = parse individual file\n"
           "   find /home -name *.pf -type f | " + program + " -pipe\n"
           "   ls /home/prefetch_dir/*.pf | " + program + " -pipe > results\n"
           "   kito -enumdir <location pf files> -num_subdirs <#> [options]\n\n Basic options\n"
           "  -csv                       = output in comma separated value format\n"
           "  -csvl2t                    = log2timeline output\n  -bodyfile                  = sleuthkit output\n"
           "  -verbose                   = force module listing to be in output\n\n Additional options\n"
           "  -pipe                      = pipe files into app for processing\n"
           "  -hostname <name>           = csv output will contain this hostname\n"
           "  -dateformat mm/dd/yyyy     = \"yyyy-mm-dd\" is the default\n"
           "  -timeformat hh:mm:ss       = \"hh:mm:ss.xxx\" is the default\n"
           "  -pair_datetime             = combine date/time into 1 field for csv\n"
           "  -no_whitespace             = remove whitespace between csv delimiter\n"
           "  -csv_separator \"|\"         = use a pipe character for csv separator\n"
           "  -kito_path                 = include prefetch path in output\n"
           "  -filter <*partial*|*.ext>  = filters stdin data from -pipe option\n\n";
}

class cli : public testing::Test {
protected:
    void SetUp() override { if (binary.empty()) GTEST_SKIP() << "KITO_BINARY not set"; }
    // Checks the three header lines of a run with these words; gives back what follows the blank line.
    static std::string after_header(std::string const& text, std::string const& command)
    {
        static std::regex const shape("kito - ver: 1\\.39\nrun time: [0-9/-]+ [0-9]{2}:[0-9]{2}:[0-9]{2} \\[UTC\\]; "
                                      "host: [^;\n]+; system: [^\n]*;(32|64)[^\n]*\n\"command: ([^\n]*)");
        std::size_t const end = text.find("\"\n\n");
        std::string const head = text.substr(0, end);
        std::smatch match;
        EXPECT_TRUE(end != std::string::npos && std::regex_match(head, match, shape)) << text;
        EXPECT_EQ(match.empty() ? "" : match[2].str(), command);
        return end == std::string::npos ? "" : text.substr(end + 3);
    }
    temp_folder const folder{"cli"};
    std::string binary = env_or_empty("KITO_BINARY"), dir = folder.path();
};

TEST_F(cli, help_in_any_case_and_any_position)
{
    for (std::vector<std::string> const& args : std::vector<std::vector<std::string>>{
             {}, {"-H"}, {"--HELP"}, {"/?"}, {"a.pf", "-hostname", "-h"}, {"a.pf", "-Help", "-csv"}}) {
        SCOPED_TRACE(args.empty() ? "no args" : args.back());
        process_result const r = run_kito(args);
        EXPECT_EQ(std::tuple(r.status, r.out, r.err), std::tuple(0, "", usage_for(binary)));
    }
}

// Words left over send a single-file run to the usage screen, behind the header and any warnings.
TEST_F(cli, leftovers_and_warnings_end_at_the_usage_screen)
{
    struct row { std::vector<std::string> args; std::string echoed, warning; } const rows[] = {
        {{"a.pf", "b.pf"}, "a.pf b.pf", ""}, {{"-csv"}, "-csv", ""}, {{"a.pf", "-l2"}, "a.pf -l2", ""},
        {{"a.pf", "-verbose", "-v"}, "a.pf -verbose -v", ""},
        {{"my file.pf", "-threads", "zz", "x"}, "'my file.pf' -threads zz x", ""},
        {{"a", "b", "-dateformat", "yy-m-d"}, "a b -dateformat yy-m-d", "invalid yy-m-d, using default format\n"},
        {{"a", "b", "-timeformat", "hh"}, "a b -timeformat hh", "invalid hh, using default format\n"},
    };
    for (row const& r : rows) {
        SCOPED_TRACE(r.echoed);
        std::vector<std::string> args = r.args;
        args.push_back("-quiet");
        process_result const p = run_kito(args);
        EXPECT_EQ(after_header(p.out, binary + " " + r.echoed + " -quiet"), "");
        EXPECT_EQ(std::pair(p.status, p.err), std::pair(0, r.warning + usage_for("kito")));
    }
}

TEST_F(cli, option_failures_put_the_header_on_stdout)
{
    struct row { std::vector<std::string> args; std::string err; } const rows[] = {
        {{"a.pf", "-sqlite", "x"}, "This option is not offered in this build\n"},
        {{"a.pf", "-out", "no/such/r.txt"}, "prob opening file no/such/r.txt for output, aborting\n"},
        {{"a.pf", "-aliaspath", "a|b|c"}, "imbalanced alias to true pathfiles, aborting\n"},
        {{"a.pf", "-cmd_start_time", "06.01.2014"}, ""},
    };
    for (row const& r : rows) {
        SCOPED_TRACE(r.args[1]);
        process_result const p = run_kito(r.args, "", dir);
        EXPECT_EQ(std::pair(p.status, p.err), std::pair(255, r.err));
        EXPECT_EQ(after_header(p.out, binary + " " + r.args[0] + " " + r.args[1] + " " + r.args[2]), "");
    }
    process_result const pipe = run_kito({"-pipe", "-quiet"});
    EXPECT_EQ(pipe.status, 255);
    EXPECT_EQ(after_header(pipe.out, "<filelist> ... | " + binary + " -pipe -quiet"),
              " =================================================== \n\n");
}

TEST_F(cli, results_file_and_the_forced_long_form_as_a_value)
{
    // A valued option written last takes the forced "-longform" as its value.
    EXPECT_EQ(run_kito({"missing.pf", "-out"}, "", dir).out, "");
    after_header(read_file(dir + "/-longform"), binary + " missing.pf -out");
    EXPECT_EQ(run_kito({"a.pf", "b.pf", "-dateformat"}).err.rfind("invalid -longform, using default format\n", 0), 0u);

    // -append keeps nothing, and stays behind as a leftover.
    write_file(dir + "/r.txt", "old content");
    process_result const appended = run_kito({"a.pf", "-append", "-out", "r.txt"}, "", dir);
    EXPECT_EQ(std::pair(appended.status, appended.out), std::pair(0, std::string()));
    EXPECT_EQ(after_header(read_file(dir + "/r.txt"), binary + " a.pf -append -out r.txt"), "");
    // A link or a device is written through, never removed; the link first, so a broken probe stops before /dev/null.
    ASSERT_EQ(symlink((dir + "/target.txt").c_str(), (dir + "/link.txt").c_str()), 0);
    EXPECT_EQ(run_kito({"a.pf", "b.pf", "-out", "link.txt"}, "", dir).status, 0);
    struct stat facts {};
    ASSERT_TRUE(lstat((dir + "/link.txt").c_str(), &facts) == 0 && S_ISLNK(facts.st_mode));
    EXPECT_EQ(run_kito({"a.pf", "b.pf", "-out", "/dev/null"}).status, 0);
    EXPECT_TRUE(stat("/dev/null", &facts) == 0 && S_ISCHR(facts.st_mode));
}

TEST_F(cli, decompress_to_unpacks_one_file_or_a_batch_into_a_folder)
{
    std::string const corpus = corpus_dir();
    if (corpus.empty()) GTEST_SKIP() << "no corpus";
    std::string const calc = corpus + "/real/Win10/CALC.EXE-3FBEF7FD.pf";
    process_result const one = run_kito({calc, "-decompress_to", dir + "/calc.pf", "-quiet"});
    EXPECT_EQ(std::pair(one.status, one.err), std::pair(0, std::string("\x1b[2K\r    \rSuccess\n")));
    EXPECT_EQ(read_file(dir + "/calc.pf").substr(0, 8), std::string("\x1e\0\0\0SCCA", 8));
    // One good write makes the batch a success, whatever the files around it do.
    process_result const batch = run_kito({"-pipe", "-decompress_to", dir + "/out", "-quiet"}, calc + "\nnone.pf\n");
    EXPECT_EQ(std::pair(batch.status, batch.err), std::pair(0, std::string("Prob reading file none.pf\n")));
    EXPECT_EQ(read_file(dir + "/out/CALC.EXE-3FBEF7FD.pf"), read_file(dir + "/calc.pf"));
}

// The log takes the command line as parsed, each batch name, and the run's length in whole seconds.
TEST_F(cli, diags_log_lines)
{
    EXPECT_EQ(run_kito({"-pipe", "-diags", "log.txt", "-l2", "-quiet"}, "none.pf\n", dir).status, 255);
    std::string const log = read_file(dir + "/log.txt");
    EXPECT_TRUE(std::regex_match(log, std::regex("->" + binary + " -pipe -diags log.txt -l2 -quiet -longform\n"
                                                 "->none.pf\n->[0-9]+ secs"))) << log;
}

} // namespace
