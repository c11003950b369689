// Real consumers read kito's delimited output: sleuthkit's mactime the bodyfile, Python's csv module the CSV forms.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <regex>
#include <sstream>

#include "support/run_process.h"

namespace {

// The real samples, sorted: the one under Bad/ comes first, so the header has to wait for the next file.
class Consumers : public testing::Test {
protected:
    void SetUp() override
    {
        std::error_code absent;
        for (auto const& item : std::filesystem::recursive_directory_iterator(corpus_dir() + "/real", absent))
            if (item.is_regular_file()) files.push_back(item.path().string());
        std::sort(files.begin(), files.end());
        good = std::count_if(files.begin(), files.end(), [](auto const& f) { return f.find("/Bad/") == f.npos; });
        if (files.empty()) GTEST_SKIP() << "no corpus";
    }
    std::vector<std::string> files;
    std::size_t good = 0;
    temp_folder const folder{"consumers"};
    std::string const dir = folder.path();
};

// kito over the files, without the run header and its blank line; written to path where one is given.
std::string run_batch(std::vector<std::string> const& files, std::vector<std::string> const& options, std::string const& path = {})
{
    std::string names;
    for (auto const& f : files) names += f + "\n";
    std::string const out = run_kito(options, names).out, body = out.substr(out.find("\"\n\n") + 3);
    if (!path.empty()) write_file(path, body);
    return body;
}

TEST_F(Consumers, MactimeListsTheRunTimesOfTheTextReport)
{
    std::size_t checked = 0;
    run_batch(files, {"-pipe", "-bodyfile"}, dir + "/body");
    process_result const listing = run_tool("mactime", {"-b", dir + "/body", "-d", "-y"});
    if (listing.status == 127) GTEST_SKIP() << "mactime is not installed";
    ASSERT_EQ(listing.status, 0) << listing.err;
    std::string name;
    std::istringstream text(run_batch(files, {"-pipe"}));
    // "Last run:       2014-06-01 10:20:30.123" stands in a mactime row (date, size, type, mode, uid, gid, meta,
    // name) at "2014-06-01T10:20:30Z" as a change, "..c.", and a previous run as a modification, "m...", too.
    for (std::string line; std::getline(text, line);) {
        if (line.starts_with("Analyzing file: ")) name = std::filesystem::path(line.substr(16)).filename().string();
        bool const last = line.starts_with("Last run:       ");
        if ((!last && !line.starts_with("Prev run:       ")) || line.size() < 35) continue;
        std::regex const row("\n" + line.substr(16, 10) + "T" + line.substr(27, 8) + "Z,[0-9]+," +
                             (last ? "..c.,,0,0,0,\"" : "m...,,0,0,0,\"") + name + " \\([^\n]*; " + // its "." matches itself too
                             (last ? "run count: " : "not last time run - but prevtime"));
        EXPECT_TRUE(std::regex_search(listing.out, row)) << name << ": " << line;
        ++checked;
    }
    EXPECT_GE(checked, good);
}

TEST_F(Consumers, PythonCsvFindsEqualFieldCounts)
{
    std::string const table = dir + "/table.csv";
    std::string const script = "import csv, sys\nrows = list(csv.reader(open(sys.argv[1], newline='', encoding='utf-8', "
                               "errors='surrogateescape')))\nprint(len(rows) - 1, *sorted({len(r) for r in rows}))\n";
    struct { std::vector<std::string> options; std::size_t columns; } const cases[] = {
        {{"-pipe", "-csv"}, 13}, {{"-pipe", "-csv", "-no_whitespace"}, 13}, {{"-pipe", "-csv", "-verbose"}, 19},
        {{"-pipe", "-csvl2t"}, 17}, {{"-pipe", "-csvl2t", "-pair_datetime"}, 16}};
    for (auto const& c : cases) {
        run_batch(files, c.options, table);
        process_result const read = run_tool("python3", {"-c", script, table});
        if (read.status == 127) GTEST_SKIP() << "python3 is not installed";
        std::istringstream counts(read.out);
        std::vector<std::size_t> const n{std::istream_iterator<std::size_t>(counts), {}};
        // Rows under the header, then each distinct width: one width; a CSV row per good file, a timeline at least one.
        EXPECT_TRUE(n.size() == 2 && n[1] == c.columns && (c.options[1] == "-csv" ? n[0] == good : n[0] >= good))
            << c.options[1] << " " << c.options.back() << ": " << read.out << read.err;
    }
}

} // namespace
