// -html as the examiner's browser meets it: headless Chromium loads the page
// of a corpus batch with its script on and not one console message, with a
// table row and a timeline row per file and a mark per stored run; hostile
// names stand in the page as text and add no element; tidy finds nothing.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <nlohmann/json.hpp>
#include <set>

#include "reports/html_report.h"
#include "support/prefetch_builder.h"
#include "support/run_process.h"
#include "support/test_table.h"

namespace {

namespace fs = std::filesystem;
using json = nlohmann::json;

bool browser_and_tidy_present()
{
    return run_tool("chromium", {"--version"}).status == 0 && run_tool("tidy", {"-v"}).status == 0;
}

// The page, written into `work`, as Chromium has it once its script ran, and a screenshot of it
// where `shot` names one: each load without a console message, script error or refused load (they
// land on standard error), and tidy finds nothing in the page.
std::string dom_of(temp_folder const& work, std::string const& page, std::string const& shot = {})
{
    static int profile = 0;
    write_file(work / "page.html", page);
    std::string dom;
    for (std::string const& mode : {std::string("--dump-dom"), "--screenshot=" + shot}) {
        if (mode == "--screenshot=") break;
        process_result const browser = run_tool("chromium", {"--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
            "--disable-background-networking", "--disable-component-update", "--disable-sync", "--enable-logging=stderr", "--v=0",
            "--user-data-dir=" + work / ("profile" + std::to_string(++profile)), "--hide-scrollbars", "--window-size=1400,1000", mode, "file://" + work / "page.html"});
        EXPECT_EQ(browser.status, 0) << mode;
        EXPECT_EQ(count_of(browser.err, ":CONSOLE"), 0u) << browser.err;
        if (dom.empty()) dom = browser.out;
    }
    process_result const tidy = run_tool("tidy", {"-errors", "-q", work / "page.html"});
    EXPECT_EQ(tidy.status, 0) << tidy.err;
    return dom;
}

// The run and last-run marks of each timeline row, by the number of the
// table row it draws (f1, f2, ... in the order the files were reported).
std::map<int, std::size_t> marks_by_row(std::string const& dom)
{
    std::map<int, std::size_t> marks;
    std::string const open = "<g class=\"tl-row\" data-row=\"f";
    for (std::size_t at = dom.find(open); at != std::string::npos; at = dom.find(open, at + 1)) {
        std::string const row = dom.substr(at, dom.find("</g>", at) - at);
        marks[std::stoi(row.substr(open.size()))] = count_of(row, "class=\"run\"") + count_of(row, "class=\"last\"");
    }
    return marks;
}

TEST(HtmlPage, CorpusBatchShowsEveryFileAndEveryStoredRun)
{
    if (!browser_and_tidy_present()) GTEST_SKIP() << "chromium or tidy not installed";
    if (corpus_dir().empty()) GTEST_SKIP() << "corpus absent";
    std::set<std::string> names; // in name order
    for (auto const& entry : fs::recursive_directory_iterator(corpus_dir() + "/real"))
        if (entry.is_regular_file()) names.insert(entry.path());
    std::string list;
    for (std::string const& name : names) list += name + "\n";

    // The JSON form of the same batch tells the runs stored, file by file.
    std::vector<std::size_t> runs;
    std::size_t failed = 0, path_matched = 0, path_not_matched = 0, hosting = 0;
    std::istringstream records(run_kito({"-pipe", "-json"}, list).out);
    for (std::string line; std::getline(records, line);) {
        auto const record = json::parse(line);
        if (record["record"] == "error") ++failed;
        if (record["record"] != "prefetch") continue;
        path_matched += record["hash_matches_path"] == true && record["hash_prefetch_flag"].is_null();
        hosting += record["hash_hosting_program"] == true;
        path_not_matched += record["hash_matches_path"] == false && record["hash_hosting_program"] == false;
        auto const& previous = record["previous_runs"];
        runs.push_back(!record["last_run"].is_null() + std::count_if(previous.begin(), previous.end(), [](auto const& t) { return !t.is_null(); }));
    }
    ASSERT_GT(runs.size(), 20u);
    ASSERT_GT(failed, 0u);

    temp_folder work("html");
    process_result const page = run_kito({"-pipe", "-html"}, list);
    ASSERT_EQ(page.status, 0) << page.err;
    // A picture for a person to look at, beside the built kito.
    std::string const shot = fs::path(env_or_empty("KITO_BINARY")).parent_path() / "html-report.png";
    std::string const dom = dom_of(work, page.out, shot);
    EXPECT_GT(fs::file_size(shot), 10000u);
    EXPECT_EQ(count_of(dom, "<tr class=\"file\""), runs.size());
    EXPECT_EQ(count_of(dom, "<g class=\"tl-row\""), runs.size());
    // The path-hash column agrees with the JSON form, file by file in count.
    EXPECT_EQ(count_of(dom, "<span class=\"ok\">matches</span>"), path_matched);
    EXPECT_EQ(count_of(dom, "<span class=\"warn\">no path</span>"), path_not_matched);
    EXPECT_EQ(count_of(dom, "<span class=\"hosting\">hosting program</span>"), hosting);
    std::map<int, std::size_t> const marks = marks_by_row(dom);
    for (std::size_t i = 0; i < runs.size(); ++i) EXPECT_EQ(marks.count(i + 1) ? marks.at(i + 1) : 99, runs[i]) << "row " << i + 1;
    std::size_t const failed_list = dom.find("id=\"failed\"");
    ASSERT_NE(failed_list, std::string::npos);
    EXPECT_EQ(count_of(dom.substr(failed_list, dom.find("</section>", failed_list) - failed_list), "<li>"), failed);
}

json const data = test_table("html_cli");

TEST(HtmlPage, HostileStringsStandAsTextAndAddNoElement)
{
    if (!browser_and_tidy_present()) GTEST_SKIP() << "chromium or tidy not installed";
    temp_folder work("html-hostile");
    fs::create_directory(work / "pf");
    // Each string is the program's name, a loaded file, a volume's device path and one of its directories.
    for (json const& text : data.at("hostile")) {
        pf_fields fields = typical_prefetch(30);
        fields.exe_name = fields.file_strings[2] = fields.volumes[0].device_path = table_units(text.at("evidence"));
        fields.volumes[0].directories[0] = fields.exe_name;
        write_file(work / "pf" + "/" + table_bytes(text.at("disk_name")), build_prefetch(fields).bytes);
    }
    // Bytes that are not UTF-8 come from the command line: the examiner's tag
    // shows them in the run section and in the command. -html wins over -csv.
    process_result const page = run_kito({"-enumdir", work / "pf", "-csv", "-html", "-hostname", "<i>\xFF"});
    ASSERT_EQ(page.status, 0) << page.err;
    std::string const dom = dom_of(work, page.out);
    std::size_t const files = data.at("hostile").size();
    EXPECT_EQ(count_of(dom, "<script"), 1u);
    EXPECT_EQ(std::pair(count_of(dom, "<svg"), count_of(dom, "</svg>")), std::pair(std::size_t{1}, std::size_t{1}));
    EXPECT_EQ(count_of(dom, "<b>"), 0u);
    EXPECT_EQ(count_of(dom, "<tr class=\"file\""), files);
    EXPECT_EQ(count_of(dom, "<g class=\"tl-row\""), files);
    for (json const& text : data.at("hostile")) {
        SCOPED_TRACE(text.at("evidence_shown").get<std::string>());
        EXPECT_GE(count_of(dom, text.at("evidence_shown")), 4u);
        EXPECT_EQ(count_of(dom, "/pf/" + text.at("disk_name_shown").get<std::string>()), 1u);
    }
    EXPECT_EQ(count_of(dom, "&lt;i&gt;<mark class=\"esc\">\\xFF</mark>"), 2u);
}

// The escapes without a browser.
TEST(HtmlEscape, TextAndAttributeForms)
{
    for (json const& row : data.at("escapes")) {
        SCOPED_TRACE(row.at("attribute").get<std::string>());
        EXPECT_EQ(html_text(table_bytes(row.at("input"))), row.at("text"));
        EXPECT_EQ(html_attribute(table_bytes(row.at("input"))), row.at("attribute"));
    }
}

} // namespace
