// Real consumers read kito's output: Python's csv module the CSV forms, Python's json module and jq every
// line of -json, and the README's jq line for Timesketch. (The bodyfile of the corpus is a golden file.)
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <iterator>
#include <sstream>

#include "support/prefetch_builder.h"
#include "support/run_process.h"
#include "support/test_table.h"

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

TEST_F(Consumers, PythonCsvFindsEqualFieldCounts)
{
    std::string const table = dir + "/table.csv";
    std::string const script = "import csv, sys\nrows = list(csv.reader(open(sys.argv[1], newline='', encoding='utf-8', "
                               "errors='surrogateescape')))\nprint(len(rows) - 1, *sorted({len(r) for r in rows}))\n";
    for (json const& c : test_rows("consumers", "csv")) {
        auto const [options, columns] = c.get<std::pair<std::vector<std::string>, std::size_t>>();
        run_batch(files, options, table);
        process_result const read = run_tool("python3", {"-c", script, table});
        if (read.status == 127) GTEST_SKIP() << "python3 is not installed";
        std::istringstream counts(read.out);
        std::vector<std::size_t> const n{std::istream_iterator<std::size_t>(counts), {}};
        // Rows under the header, then each distinct width: one width; a CSV row per good file, a timeline at least one.
        EXPECT_TRUE(n.size() == 2 && n[1] == columns && (options[1] == "-csv" ? n[0] == good : n[0] >= good))
            << c << ": " << read.out << read.err;
    }
}

std::vector<std::string> lines_of(std::string const& text)
{
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
}

// Prints each line's record kind, with "!" when one of its strings holds an unpaired high surrogate,
// and then the number of run times the lines hold; fails at the first line that is not UTF-8 and JSON.
char const python_reader[] = R"(
import json, sys
def strings(v):
    if isinstance(v, str): yield v
    elif isinstance(v, (dict, list)):
        for x in (v.items() if isinstance(v, dict) else enumerate(v)): yield from strings(x[0]); yield from strings(x[1])
lines, times = sys.stdin.buffer.read().split(b'\n'), 0
assert lines.pop() == b''
for line in lines:
    value = json.loads(line.decode('utf-8'))
    lone = any(0xd800 <= ord(c) <= 0xdbff for s in strings(value) for c in s)
    print(value['record'] + ('!' if lone else ''))
    if value['record'] == 'prefetch' and not lone: times += sum(t is not None for t in [value['last_run']] + value['previous_runs'])
print(times)
)";

// The whole corpus and four names that fail in one -json batch. jq before 1.7 refuses an escaped high
// surrogate without its low half, which JSON allows; 1.7 reads U+FFFD.
TEST_F(Consumers, EveryJsonLineParsesAndTheReadmeLineMakesOneEventARunTime)
{
    std::vector<std::string> names;
    for (auto const& item : std::filesystem::recursive_directory_iterator(corpus_dir()))
        if (item.path().extension() == ".pf") names.push_back(item.path().string());
    std::sort(names.begin(), names.end());
    write_file(dir + "/empty.pf", "");
    write_file(dir + "/bad\xff.pf", build_prefetch(typical_prefetch(23)).bytes); // not UTF-8
    for (char const* bad : {"/missing.pf", "/empty.pf", "/bad\xff.pf", ""}) names.push_back(dir + bad);
    std::string input;
    for (std::string const& name : names) input += name + "\n";
    process_result const run = run_kito({"-pipe", "-json", "-quiet"}, input);
    EXPECT_EQ(run.status, 255); // the last name, a folder, fails
    process_result const python = run_tool("python3", {"-c", python_reader}, run.out);
    process_result const jq = run_tool("jq", {"-R", "-r", "try (fromjson | .record) catch \"unparsed\""}, run.out);
    if (python.status == 127 || jq.status == 127) GTEST_SKIP() << "python3 or jq missing";
    ASSERT_EQ(std::pair(python.status, jq.status), std::pair(0, 0)) << python.err << jq.err;
    int major = 0, minor = 0;
    std::sscanf(run_tool("jq", {"--version"}).out.c_str(), "jq-%d.%d", &major, &minor);
    std::vector<std::string> by_python = lines_of(python.out), by_jq = lines_of(jq.out);
    std::size_t const run_times = std::stoul(by_python.back());
    by_python.pop_back();
    ASSERT_EQ(std::pair(by_python.size(), by_jq.size()), std::pair(names.size() + 2, names.size() + 2));
    EXPECT_EQ(std::count_if(by_python.begin(), by_python.end(), [](auto const& r) { return r.starts_with("prefetch"); }), 120);
    for (std::size_t i = 0; i < by_jq.size(); ++i) {
        std::string const record = by_python[i].substr(0, by_python[i].find('!'));
        EXPECT_EQ(by_jq[i], by_python[i].ends_with("!") && major == 1 && minor < 7 ? "unparsed" : record) << i;
    }
    std::string const readme = read_file(env_or_empty("KITO_SOURCE") + "/README.md");
    std::size_t const start = readme.find("jq -cR '") + 8, end = readme.find("' > ws01-timesketch.jsonl");
    ASSERT_LT(start, end);
    std::vector<std::string> const events = lines_of(run_tool("jq", {"-cR", readme.substr(start, end - start)}, run.out).out);
    EXPECT_EQ(events.size(), run_times);
    for (std::string const& line : events) {
        json const event = json::parse(line);
        EXPECT_EQ(event.at("datetime").get<std::string>().size(), std::size("2014-06-01T10:20:30.1234567Z") - 1);
        EXPECT_TRUE(event.at("timestamp_desc").get<std::string>().starts_with("Prefetch ")) << line;
    }
}

} // namespace
