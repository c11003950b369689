// Real consumers read kito's delimited output: sleuthkit's mactime reads the
// bodyfile, Python's csv module reads the CSV forms.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <sstream>

#include "support/run_process.h"

namespace {

namespace fs = std::filesystem;

std::vector<std::string> real_prefetch_files()
{
    std::vector<std::string> files;
    std::string const corpus = corpus_dir();
    if (corpus.empty() || !fs::is_directory(corpus + "/real")) return files;
    for (auto const& item : fs::recursive_directory_iterator(corpus + "/real"))
        if (item.is_regular_file()) files.push_back(item.path().string());
    std::sort(files.begin(), files.end());
    return files;
}

std::size_t good_file_count(std::vector<std::string> const& files)
{
    return std::count_if(files.begin(), files.end(),
                         [](std::string const& f) { return f.find("/real/Bad/") == std::string::npos; });
}

std::vector<std::string> lines_of(std::string const& text)
{
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
}

// A run's output begins with the three lines of the run header and a blank
// line; the report proper follows.
std::string report_body(std::string const& output)
{
    std::size_t at = 0;
    for (int line = 0; line < 4 && at != std::string::npos; ++line) {
        at = output.find('\n', at);
        if (at != std::string::npos) ++at;
    }
    EXPECT_NE(output.find("\n\n"), std::string::npos);
    return at == std::string::npos ? std::string() : output.substr(at);
}

std::string run_batch(std::vector<std::string> const& files, std::vector<std::string> options)
{
    std::string names;
    for (auto const& f : files) names += f + "\n";
    options.insert(options.begin(), "-pipe");
    return report_body(run_kito(options, names).out);
}

// The full path of a program found on PATH, or empty.
std::string find_program(std::string const& program)
{
    process_result const found = run_process("/bin/sh", {"-c", "command -v " + program});
    std::string path = found.status == 0 ? found.out : std::string();
    while (!path.empty() && path.back() == '\n') path.pop_back();
    return path;
}

// "Last run:       2014-06-01 10:20:30.123" -> "2014-06-01T10:20:30Z".
std::string iso_second(std::string const& line, std::size_t label_size)
{
    std::string text = line.substr(label_size);
    if (text.size() < 19) return {};
    text = text.substr(0, 19);
    text[10] = 'T';
    return text + "Z";
}

TEST(Consumers, MactimeListsTheRunTimesOfTheTextReport)
{
    auto const files = real_prefetch_files();
    if (files.empty()) GTEST_SKIP() << "no corpus";
    std::string const mactime = find_program("mactime");
    if (mactime.empty()) GTEST_SKIP() << "mactime is not installed";

    std::string const dir = make_temp_dir("consumers");
    write_file(dir + "/body", run_batch(files, {"-bodyfile"}));
    process_result const listing = run_process(mactime, {"-b", dir + "/body", "-d", "-y"}, {}, {"TZ=UTC"});
    ASSERT_EQ(listing.status, 0) << listing.err;
    std::vector<std::string> const rows = lines_of(listing.out);

    // mactime -d rows: date, size, type ("m.c." and so on), ..., quoted name.
    auto listed = [&rows](std::string const& when, std::string const& name, std::string const& kind, char type) {
        for (auto const& row : rows) {
            if (!row.starts_with(when + ",") || row.find(name) == std::string::npos ||
                row.find(kind) == std::string::npos)
                continue;
            std::size_t const size_end = row.find(',', when.size() + 1);
            if (size_end != std::string::npos && row.substr(size_end + 1, 4).find(type) != std::string::npos)
                return true;
        }
        return false;
    };
    std::size_t checked = 0;
    for (auto const& file : files) {
        if (file.find("/real/Bad/") != std::string::npos) continue;
        SCOPED_TRACE(file);
        std::string const base = fs::path(file).filename().string();
        for (std::string const& line : lines_of(run_kito({file}).out)) {
            if (line.starts_with("Last run:       ")) {
                std::string const when = iso_second(line, 16);
                if (when.empty()) continue;
                EXPECT_TRUE(listed(when, "\"" + base + " (", "; run count: ", 'c')) << when;
                ++checked;
            } else if (line.starts_with("Prev run:       ")) {
                std::string const when = iso_second(line, 16);
                EXPECT_TRUE(listed(when, "\"" + base + " (", "; not last time run - but prevtime", 'm')) << when;
                ++checked;
            }
        }
    }
    EXPECT_GE(checked, good_file_count(files));
}

TEST(Consumers, PythonCsvFindsEqualFieldCounts)
{
    auto const files = real_prefetch_files();
    if (files.empty()) GTEST_SKIP() << "no corpus";
    std::string const python = find_program("python3");
    if (python.empty()) GTEST_SKIP() << "python3 is not installed";

    char const* const script = "import csv, sys\n"
                               "f = open(sys.argv[1], newline='', encoding='utf-8', errors='surrogateescape')\n"
                               "rows = list(csv.reader(f))\n"
                               "n = len(rows[0]) if rows else 0\n"
                               "print(len(rows) - 1, n, sum(1 for r in rows if len(r) != n))\n";
    struct {
        std::vector<std::string> options;
        std::size_t columns;
    } const cases[] = {
        {{"-csv"}, 13},
        {{"-csv", "-no_whitespace"}, 13},
        {{"-csv", "-verbose"}, 19},
        {{"-csvl2t"}, 17},
        {{"-csvl2t", "-pair_datetime"}, 16},
    };
    std::string const dir = make_temp_dir("consumers");
    for (auto const& c : cases) {
        std::string const name = c.options.size() > 1 ? c.options[0] + " " + c.options[1] : c.options[0];
        SCOPED_TRACE(name);
        write_file(dir + "/table.csv", run_batch(files, c.options));
        process_result const read = run_process(python, {"-c", script, dir + "/table.csv"});
        ASSERT_EQ(read.status, 0) << read.err;
        std::size_t rows = 0, columns = 0, uneven = 1;
        std::istringstream(read.out) >> rows >> columns >> uneven;
        EXPECT_EQ(columns, c.columns);
        EXPECT_EQ(uneven, 0u);
        // Every good file gives a row; timelines give at least one per file.
        if (c.options[0] == "-csv") EXPECT_EQ(rows, good_file_count(files));
        else EXPECT_GE(rows, good_file_count(files));
    }
}

} // namespace
