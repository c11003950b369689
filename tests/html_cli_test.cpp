// -html as the examiner's browser meets it: headless Chromium loads the page
// of a corpus batch with its script on and not one console message, with a
// table row and a timeline row per file and a mark per stored run; hostile
// names stand in the page as text and add no element; tidy finds nothing.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <nlohmann/json.hpp>

#include "reports/html_report.h"
#include "support/prefetch_builder.h"
#include "support/run_process.h"
#include "support/temp_folder.h"

namespace {

namespace fs = std::filesystem;

bool browser_and_tidy_present()
{
    return run_tool("chromium", {"--version"}).status == 0 && run_tool("tidy", {"-v"}).status == 0;
}

// The page as Chromium has it once its script ran, or a screenshot of it.
// Console messages, script errors and refused loads land on standard error.
process_result browse(temp_folder const& work, std::string const& page, std::string const& screenshot = {})
{
    static int profile = 0;
    std::vector<std::string> args{"--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
                                  "--disable-background-networking", "--disable-component-update", "--disable-sync",
                                  "--user-data-dir=" + work / ("profile" + std::to_string(++profile)),
                                  "--enable-logging=stderr", "--v=0", "--hide-scrollbars"};
    if (screenshot.empty()) args.push_back("--dump-dom");
    else args.insert(args.end(), {"--window-size=1400,1000", "--screenshot=" + screenshot});
    args.push_back("file://" + page);
    return run_tool("chromium", args);
}

void expect_loads_quietly(process_result const& browser)
{
    EXPECT_EQ(browser.status, 0);
    EXPECT_EQ(count_of(browser.err, ":CONSOLE"), 0u) << browser.err;
}

void expect_tidy_clean(std::string const& page)
{
    process_result const tidy = run_tool("tidy", {"-errors", "-q", page});
    EXPECT_EQ(tidy.status, 0) << tidy.err;
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
    std::vector<std::string> names;
    for (auto const& entry : fs::recursive_directory_iterator(corpus_dir() + "/real"))
        if (entry.is_regular_file()) names.push_back(entry.path());
    std::sort(names.begin(), names.end());
    std::string list;
    for (std::string const& name : names) list += name + "\n";

    // The JSON form of the same batch tells the runs stored, file by file.
    std::vector<std::size_t> runs;
    std::size_t failed = 0;
    std::istringstream records(run_kito({"-pipe", "-json"}, list).out);
    for (std::string line; std::getline(records, line);) {
        auto const record = nlohmann::json::parse(line);
        if (record["record"] == "error") ++failed;
        if (record["record"] != "prefetch") continue;
        auto const& previous = record["previous_runs"];
        runs.push_back(!record["last_run"].is_null() + std::count_if(previous.begin(), previous.end(), [](auto const& t) { return !t.is_null(); }));
    }
    ASSERT_GT(runs.size(), 20u);
    ASSERT_GT(failed, 0u);

    temp_folder work("html");
    process_result const page = run_kito({"-pipe", "-html"}, list);
    ASSERT_EQ(page.status, 0) << page.err;
    write_file(work / "page.html", page.out);
    process_result const browser = browse(work, work / "page.html");
    expect_loads_quietly(browser);
    std::string const& dom = browser.out;
    EXPECT_EQ(count_of(dom, "<tr class=\"file\""), runs.size());
    EXPECT_EQ(count_of(dom, "<g class=\"tl-row\""), runs.size());
    std::map<int, std::size_t> const marks = marks_by_row(dom);
    for (std::size_t i = 0; i < runs.size(); ++i) EXPECT_EQ(marks.count(i + 1) ? marks.at(i + 1) : 99, runs[i]) << "row " << i + 1;
    std::size_t const failed_list = dom.find("id=\"failed\"");
    ASSERT_NE(failed_list, std::string::npos);
    EXPECT_EQ(count_of(dom.substr(failed_list, dom.find("</section>", failed_list) - failed_list), "<li>"), failed);
    expect_tidy_clean(work / "page.html");

    // A picture for a person to look at, beside the built kito.
    std::string const shot = fs::path(env_or_empty("KITO_BINARY")).parent_path() / "html-report.png";
    expect_loads_quietly(browse(work, work / "page.html", shot));
    EXPECT_GT(fs::file_size(shot), 10000u);
}

// A string of the file and how the browser's DOM serializes it as text.
struct hostile_text {
    std::u16string evidence;
    std::string evidence_shown;
    std::string disk_name;
    std::string disk_name_shown;
};

std::string const esc = "<mark class=\"esc\">";

hostile_text const hostile[] = {
    {u"<script>alert(1)</script>", "&lt;script&gt;alert(1)&lt;/script&gt;", "<script>.pf", "&lt;script&gt;.pf"},
    {u"</svg><b>x</b>",            "&lt;/svg&gt;&lt;b&gt;x&lt;/b&gt;",       "q\"'&.pf",     "q\"'&amp;.pf"},
    {u"\"'&amp;",                  "\"'&amp;amp;",                           "\xED\xA0\x80.pf", esc + "\\uD800</mark>.pf"},
    {{u'A', char16_t(0xD800), u'B'}, "A" + esc + "\\uD800</mark>B",          "n\nl.pf",      "n" + esc + "\\u000A</mark>l.pf"},
    {u"L\r\nE",                    "L" + esc + "\\u000D</mark>" + esc + "\\u000A</mark>E", "&lt;.pf", "&amp;lt;.pf"},
    {u"\x202Etxt.exe",             esc + "\\u202E</mark>txt.exe",            "plain.pf",     "plain.pf"},
};

TEST(HtmlPage, HostileStringsStandAsTextAndAddNoElement)
{
    if (!browser_and_tidy_present()) GTEST_SKIP() << "chromium or tidy not installed";
    temp_folder work("html-hostile");
    fs::create_directory(work / "pf");
    // Each string is the program's name, a loaded file, a volume's device path and one of its directories.
    for (hostile_text const& text : hostile) {
        pf_fields fields = typical_prefetch(30);
        fields.exe_name = fields.file_strings[2] = fields.volumes[0].device_path = text.evidence;
        fields.volumes[0].directories[0] = text.evidence;
        write_file(work / "pf" + "/" + text.disk_name, build_prefetch(fields).bytes);
    }
    // Bytes that are not UTF-8 come from the command line: the examiner's tag
    // shows them in the run section and in the command. -html wins over -csv.
    process_result const page = run_kito({"-enumdir", work / "pf", "-csv", "-html", "-hostname", "<i>\xFF"});
    ASSERT_EQ(page.status, 0) << page.err;
    write_file(work / "page.html", page.out);
    process_result const browser = browse(work, work / "page.html");
    expect_loads_quietly(browser);
    std::string const& dom = browser.out;
    std::size_t const files = std::size(hostile);
    EXPECT_EQ(count_of(dom, "<script"), 1u);
    EXPECT_EQ(std::pair(count_of(dom, "<svg"), count_of(dom, "</svg>")), std::pair(std::size_t{1}, std::size_t{1}));
    EXPECT_EQ(count_of(dom, "<b>"), 0u);
    EXPECT_EQ(count_of(dom, "<tr class=\"file\""), files);
    EXPECT_EQ(count_of(dom, "<g class=\"tl-row\""), files);
    for (hostile_text const& text : hostile) {
        SCOPED_TRACE(text.evidence_shown);
        EXPECT_GE(count_of(dom, text.evidence_shown), 4u);
        EXPECT_EQ(count_of(dom, "/pf/" + text.disk_name_shown), 1u);
    }
    EXPECT_EQ(count_of(dom, "&lt;i&gt;" + esc + "\\xFF</mark>"), 2u);
    expect_tidy_clean(work / "page.html");
}

// The escapes without a browser: one row per kind of text a page cannot take as it is.
TEST(HtmlEscape, TextAndAttributeForms)
{
    struct row { std::string input, text, attribute; } const rows[] = {
        {"a<b>&\"'",           "a&lt;b&gt;&amp;&quot;&#39;",   "a&lt;b&gt;&amp;&quot;&#39;"},
        {"\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80", "\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80", "\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80"},
        {"x\xED\xA0\x80",       "x" + esc + "\\uD800</mark>",   "x\\uD800"},
        {"\xFF\xC0\x80",        esc + "\\xFF</mark>" + esc + "\\xC0</mark>" + esc + "\\x80</mark>", "\\xFF\\xC0\\x80"},
        {"a\tb\x7F",            "a" + esc + "\\u0009</mark>b" + esc + "\\u007F</mark>", "a\\u0009b\\u007F"},
        {"\xC2\x85\xE2\x80\xAE\xEF\xBF\xBF", esc + "\\u0085</mark>" + esc + "\\u202E</mark>" + esc + "\\uFFFF</mark>", "\\u0085\\u202E\\uFFFF"},
        {"",                    "<em class=\"none\">(empty)</em>", ""},
    };
    for (row const& r : rows) {
        SCOPED_TRACE(r.attribute);
        EXPECT_EQ(html_text(r.input), r.text);
        EXPECT_EQ(html_attribute(r.input), r.attribute);
    }
}

} // namespace
