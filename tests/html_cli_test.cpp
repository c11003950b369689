// -html as the examiner's browser meets it: headless Chromium loads the page
// of a corpus batch with its script on and not one console message, with a
// table row and a timeline row per file and a mark per stored run; a drag
// across the axis leaves the files with a run in the window, and the strip
// counts their runs step by step; details built on opening hold every loaded
// file, reference and directory; hostile names stand in the page as text and
// add no element; tidy finds nothing.
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

// The page with a script of the test run behind its own, as a person's clicks
// and drags would: the policy of this copy alone lets inline script run.
std::string driven(std::string page, std::string const& driver)
{
    std::size_t const policy = page.find("script-src 'sha256-");
    page.replace(policy, page.find('\'', policy + 19) + 1 - policy, "script-src 'unsafe-inline'");
    return page.insert(page.rfind("</body>"), "<script>" + driver + "</script>\n");
}

// The value of an attribute in the DOM's text of an element, from its start.
std::string attribute(std::string const& dom, std::size_t element, std::string const& name)
{
    std::size_t const at = dom.find(" " + name + "=\"", element), from = at + name.size() + 3;
    return at > dom.find('>', element) ? std::string() : dom.substr(from, dom.find('"', from) - from);
}

// The ids of the table rows the script shows.
std::set<std::string> shown_rows(std::string const& dom)
{
    std::set<std::string> ids;
    for (std::size_t at = dom.find("<tr class=\"file on"); at != std::string::npos; at = dom.find("<tr class=\"file on", at + 1))
        ids.insert(attribute(dom, at, "id"));
    return ids;
}

// A corpus batch, its list and, file by file as reported, its records in the JSON form.
struct corpus_batch {
    std::string list;
    std::vector<json> files;
    std::size_t failed = 0;
};

corpus_batch corpus()
{
    corpus_batch b;
    std::set<std::string> names; // in name order
    for (auto const& entry : fs::recursive_directory_iterator(corpus_dir() + "/real"))
        if (entry.is_regular_file()) names.insert(entry.path());
    for (std::string const& name : names) b.list += name + "\n";
    std::istringstream records(run_kito({"-pipe", "-json"}, b.list).out);
    for (std::string line; std::getline(records, line);) {
        auto record = json::parse(line);
        b.failed += record["record"] == "error";
        if (record["record"] == "prefetch") b.files.push_back(std::move(record));
    }
    return b;
}

// A file's stored runs to the millisecond, as the page's script reads them.
std::vector<std::string> run_times(json const& record)
{
    std::vector<std::string> times;
    if (!record["last_run"].is_null()) times.push_back(record["last_run"].get<std::string>().substr(0, 23));
    for (json const& t : record["previous_runs"])
        if (!t.is_null()) times.push_back(t.get<std::string>().substr(0, 23));
    return times;
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

json const data = test_table("html_cli");

TEST(HtmlPage, CorpusBatchShowsEveryFileAndEveryStoredRun)
{
    if (!browser_and_tidy_present()) GTEST_SKIP() << "chromium or tidy not installed";
    if (corpus_dir().empty()) GTEST_SKIP() << "corpus absent";
    corpus_batch const batch = corpus();
    ASSERT_GT(batch.files.size(), 20u);
    ASSERT_GT(batch.failed, 0u);
    std::size_t path_matched = 0, path_not_matched = 0, hosting = 0;
    for (json const& record : batch.files) {
        path_matched += record["hash_matches_path"] == true && record["hash_prefetch_flag"].is_null();
        hosting += record["hash_hosting_program"] == true;
        path_not_matched += record["hash_matches_path"] == false && record["hash_hosting_program"] == false;
    }

    temp_folder work("html");
    process_result const page = run_kito({"-pipe", "-html"}, batch.list);
    ASSERT_EQ(page.status, 0) << page.err;
    // A picture for a person to look at, beside the built kito.
    std::string const shot = fs::path(env_or_empty("KITO_BINARY")).parent_path() / "html-report.png";
    std::string const dom = dom_of(work, page.out, shot);
    EXPECT_GT(fs::file_size(shot), 10000u);
    EXPECT_EQ(shown_rows(dom).size(), batch.files.size());
    EXPECT_EQ(count_of(dom, "<g class=\"tl-row\""), batch.files.size());
    // The path-hash column agrees with the JSON form, file by file in count.
    EXPECT_EQ(count_of(dom, "<span class=\"ok\">matches</span>"), path_matched);
    EXPECT_EQ(count_of(dom, "<span class=\"warn\">no path</span>"), path_not_matched);
    EXPECT_EQ(count_of(dom, "<span class=\"hosting\">hosting program</span>"), hosting);
    std::map<int, std::size_t> const marks = marks_by_row(dom);
    for (std::size_t i = 0; i < batch.files.size(); ++i)
        EXPECT_EQ(marks.count(i + 1) ? marks.at(i + 1) : 99, run_times(batch.files[i]).size()) << "row " << i + 1;
    std::size_t const failed_list = dom.find("id=\"failed\"");
    ASSERT_NE(failed_list, std::string::npos);
    EXPECT_EQ(count_of(dom.substr(failed_list, dom.find("</section>", failed_list) - failed_list), "<li>"), batch.failed);
}

// Drags across the axis (then, where the table says so, the whole span again) and every file's details
// opened: the rows, the strip and the details agree with the JSON form.
TEST(HtmlPage, ZoomStripAndOpenedDetailsAgreeWithTheFiles)
{
    if (!browser_and_tidy_present()) GTEST_SKIP() << "chromium or tidy not installed";
    if (corpus_dir().empty()) GTEST_SKIP() << "corpus absent";
    corpus_batch const batch = corpus();
    temp_folder work("html-zoom");
    std::string const page = run_kito({"-pipe", "-html"}, batch.list).out;
    for (json const& drive : data.at("zoom")) {
        SCOPED_TRACE(drive.at("about").get<std::string>());
        std::string const dom = dom_of(work, driven(page, drive.at("driver")));
        std::size_t const svg = dom.find("<svg id=\"timeline\"");
        std::string const from = attribute(dom, svg, "data-from").substr(0, 23), to = attribute(dom, svg, "data-to").substr(0, 23);
        std::set<std::string> in_window;
        std::vector<std::string> runs; // in the window
        for (std::size_t i = 0; i < batch.files.size(); ++i)
            for (std::string const& t : run_times(batch.files[i]))
                if (from <= t && t < to) in_window.insert("f" + std::to_string(i + 1)), runs.push_back(t);
        EXPECT_EQ(shown_rows(dom), in_window);
        EXPECT_EQ(in_window.size() < batch.files.size(), drive.at("zoomed").get<bool>());
        EXPECT_GT(in_window.size(), 0u);
        std::size_t counted = 0;
        for (std::size_t at = dom.find("<rect class=\"bin\""); at != std::string::npos; at = dom.find("<rect class=\"bin\"", at + 1)) {
            std::string const step_from = attribute(dom, at, "data-from").substr(0, 23), step_to = attribute(dom, at, "data-to").substr(0, 23);
            std::size_t const count = std::stoul(attribute(dom, at, "data-count"));
            EXPECT_EQ(count, std::count_if(runs.begin(), runs.end(), [&](auto const& t) { return step_from <= t && t < step_to; })) << step_from;
            counted += count;
        }
        EXPECT_EQ(counted, runs.size());
        // The script builds what the page's writer once wrote: the same text form of each string.
        auto const text = [](json const& s) { return html_text(s.get<std::string>()); };
        for (std::size_t i = 0; i < batch.files.size(); ++i) {
            std::size_t const more = dom.find("<tr class=\"more\"", dom.find("id=\"f" + std::to_string(i + 1) + "\""));
            std::string const details = dom.substr(more, dom.find("</td></tr>", more) - more), row = "row " + std::to_string(i + 1);
            std::string files;
            for (json const& f : batch.files[i]["files"])
                files += "<li>" + text(f["path"]) + (f["mft_entry"].is_null() ? "" : " <span class=\"ref\">MFT " + f["mft_entry"].dump() + "-" + f["mft_sequence"].dump() + "</span>") + "</li>";
            EXPECT_NE(details.find(" loaded files</summary><ol class=\"list\">" + files + "</ol>"), std::string::npos) << row;
            for (json const& v : batch.files[i]["volumes"]) {
                std::string directories;
                for (json const& d : v["directories"]) directories += "<li>" + text(d) + "</li>";
                EXPECT_NE(details.find("<span class=\"path\">" + text(v["device_path"]) + "</span>, serial " + v["serial"].get<std::string>()), std::string::npos) << row;
                EXPECT_NE(details.find(" directories</summary><ol class=\"list\">" + directories + "</ol>"), std::string::npos) << row;
            }
        }
    }
}

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
        fields.file_references = {0, 0, 0x0002000000000007ULL};
        write_file(work / "pf" + "/" + table_bytes(text.at("disk_name")), build_prefetch(fields).bytes);
    }
    // Bytes that are not UTF-8 come from the command line: the examiner's tag
    // shows them in the run section and in the command. -html wins over -csv.
    process_result const page = run_kito({"-enumdir", work / "pf", "-csv", "-html", "-hostname", "<i>\xFF"});
    ASSERT_EQ(page.status, 0) << page.err;
    std::string const dom = dom_of(work, driven(page.out, data.at("open_all")));
    std::size_t const files = data.at("hostile").size();
    EXPECT_EQ(count_of(dom, "<script"), 2u); // the page's and the test's
    EXPECT_EQ(std::pair(count_of(dom, "<svg"), count_of(dom, "</svg>")), std::pair(std::size_t{1}, std::size_t{1}));
    EXPECT_EQ(count_of(dom, "<b>"), 0u);
    EXPECT_EQ(shown_rows(dom).size(), files);
    EXPECT_EQ(count_of(dom, "<g class=\"tl-row\""), files);
    for (json const& text : data.at("hostile")) {
        SCOPED_TRACE(text.at("evidence_shown").get<std::string>());
        // The program's name, the loaded file with its reference, the volume and its directory.
        EXPECT_GE(count_of(dom, text.at("evidence_shown")), 4u);
        EXPECT_EQ(count_of(dom, "<li>" + text.at("evidence_shown").get<std::string>() + " <span class=\"ref\">MFT 7-2</span></li>"), 1u);
        EXPECT_EQ(count_of(dom, "/pf/" + text.at("disk_name_shown").get<std::string>()), 1u);
    }
    EXPECT_EQ(count_of(dom, "&lt;i&gt;<mark class=\"esc\">\\xFF</mark>"), 2u);
}

// The page's table of recurring items stops at each of its bounds: the count with short items, the bytes with long ones.
TEST(HtmlStringTable, StopsAtItsBounds)
{
    for (std::size_t const length : {std::size_t{1}, std::size_t{1000}}) {
        html_string_table table;
        for (std::size_t i = 0; i < 2 * html_strings_kept; ++i) table.add(std::to_string(i) + std::string(length, 'x'));
        EXPECT_EQ(table.numbers.size() == html_strings_kept, length == 1);
        EXPECT_LE(table.bytes, html_string_bytes_kept);
        EXPECT_GT(table.bytes, length == 1 ? 0 : html_string_bytes_kept - 2 * length);
    }
    EXPECT_FALSE(html_string_table{}.add(std::string(html_string_length_kept + 1, 'x')));
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
