// The built kito as a user meets it, one case a row of the tables in tests/cases/*.json: the command
// line, standard input and the files the case sets up; then the status, every byte of standard output
// and error (inline, or "@name" for a golden file in tests/cases/golden), the files the run writes, and
// the files it must leave as they were. Before comparing, the case's folder, the samples, the corpus and
// the kito binary are written back as {dir}, {samples}, {corpus} and {kito}, and each mask of the table
// and of the row (a regular expression and its replacement) covers what changes from run to run.
#include <gtest/gtest.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <filesystem>
#include <nlohmann/json.hpp>
#include <regex>

#include "support/run_process.h"

namespace {

namespace fs = std::filesystem;
using json = nlohmann::json;

struct process_case {
    std::string table, name;
    json row, masks;
};

void PrintTo(process_case const& c, std::ostream* os) { *os << c.table << ": " << c.name; }

std::string const cases_dir = env_or_empty("KITO_SOURCE") + "/tests/cases";

std::vector<process_case> load_cases()
{
    std::vector<process_case> all;
    std::vector<fs::path> tables;
    for (auto const& entry : fs::directory_iterator(cases_dir))
        if (entry.path().extension() == ".json") tables.push_back(entry.path());
    std::sort(tables.begin(), tables.end());
    for (auto const& table : tables) {
        json const t = json::parse(read_file(table.string()));
        for (json const& row : t.at("cases"))
            all.push_back({table.stem().string(), row.at("name"), row, t.value("masks", json::array())});
    }
    return all;
}

class process_cases : public testing::TestWithParam<process_case> {
protected:
    void SetUp() override
    {
        if (env_or_empty("KITO_BINARY").empty()) GTEST_SKIP() << "KITO_BINARY not set";
        if (GetParam().row.value("corpus", false) && corpus_dir().empty()) GTEST_SKIP() << "no corpus";
    }
    temp_folder const folder{"case"};
    // Placeholders and what they stand for, longest first so that none hides another.
    std::vector<std::pair<std::string, std::string>> const places = {
        {"{dir}", folder.path()}, {"{samples}", env_or_empty("KITO_SAMPLES")},
        {"{corpus}", corpus_dir()}, {"{kito}", env_or_empty("KITO_BINARY")}};

    std::string filled(std::string text) const
    {
        for (auto const& [name, value] : places)
            for (std::size_t at; (at = text.find(name)) != std::string::npos;) text.replace(at, name.size(), value);
        return text;
    }
    // A text, or a list of texts that follow each other.
    static std::string expected(json const& row, char const* key)
    {
        std::string whole;
        for (std::string const text : row.contains(key) && row[key].is_array() ? row[key] : json::array({row.value(key, "")}))
            whole += text.starts_with("@") ? read_file(cases_dir + "/golden/" + text.substr(1)) : text;
        return whole;
    }
    std::string normalized(std::string text) const
    {
        for (auto const& [name, value] : places)
            for (std::size_t at = 0; !value.empty() && (at = text.find(value, at)) != std::string::npos; at += name.size())
                text.replace(at, value.size(), name);
        for (json const& masks : {GetParam().masks, GetParam().row.value("masks", json::array())})
            for (json const& mask : masks) text = std::regex_replace(text, std::regex(mask.at(0).get<std::string>()), mask.at(1).get<std::string>());
        return text;
    }
    // Each file's bytes, or where a link points, as a text to compare.
    static std::string state_of(std::string const& path)
    {
        std::error_code error;
        return fs::is_symlink(path, error) ? "link to " + fs::read_symlink(path, error).string() : read_file(path);
    }
};

TEST_P(process_cases, run)
{
    json const& row = GetParam().row;
    json const files = row.value("files", json::object()), written = row.value("written", json::object());
    // Files are made by name, each with the times of 2014-06-02 08:00:00: only the change time is the run's.
    for (auto const& [name, content] : files.items()) {
        std::string const path = folder / name, text = filled(content);
        fs::create_directories(fs::path(path).parent_path());
        if (text.starts_with("->")) fs::create_symlink(text.substr(2), path);
        else if (text.starts_with("=>")) fs::create_hard_link(text.substr(2), path);
        else if (text == "|fifo") ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
        else if (text.starts_with("@")) fs::copy_file(text.substr(1), path);
        else write_file(path, text);
    }
    std::vector<std::pair<std::string, std::string>> kept;
    for (std::string const name : row.value("unchanged", json::array())) kept.emplace_back(filled(name), state_of(filled(name)));
    for (auto const& [name, content] : files.items()) {
        timespec const times[2] = {{1401696000, 0}, {1401696000, 0}};
        utimensat(AT_FDCWD, (folder / name).c_str(), times, AT_SYMLINK_NOFOLLOW);
    }

    // Under timeout, so that a run that blocks fails its case instead of hanging the suite; through
    // the shell where standard output goes elsewhere or standard error joins it.
    std::vector<std::string> args = {"60", env_or_empty("KITO_BINARY")};
    for (std::string const arg : row.value("args", json::array())) args.push_back(filled(arg));
    std::string const redirect = row.contains("stdout_to") ? " > " + filled(row["stdout_to"]) : row.value("merged", false) ? " 2>&1" : "";
    if (!redirect.empty()) args.insert(args.begin(), {"-c", "exec /usr/bin/timeout \"$@\"" + redirect, "sh"});
    std::vector<std::string> env = {"TZ=UTC"};
    for (std::string const e : row.value("env", json::array())) env.push_back(filled(e));
    process_result const p = run_process(redirect.empty() ? "/usr/bin/timeout" : "/bin/sh", args, filled(row.value("stdin", "")), env, folder.path());

    EXPECT_EQ(p.status, row.value("status", 0));
    EXPECT_EQ(normalized(p.out), expected(row, "stdout"));
    EXPECT_EQ(normalized(p.err), expected(row, "stderr"));
    for (auto const& [name, content] : written.items())
        EXPECT_EQ(normalized(state_of(filled(name))), expected(written, name.c_str())) << name;
    for (auto const& [path, before] : kept) EXPECT_EQ(state_of(path), before) << path << " was changed";
}

INSTANTIATE_TEST_SUITE_P(cases, process_cases, testing::ValuesIn(load_cases()), [](auto const& info) {
    std::string name = info.param.table + "_" + info.param.name;
    for (char& c : name) c = std::isalnum(static_cast<unsigned char>(c)) ? c : '_';
    return name;
});

} // namespace
