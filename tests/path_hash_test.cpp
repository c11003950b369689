// What a file says about itself: its path hash against its own paths, as the
// -json and -html forms show it, the SHA-256 of the input, and the findings
// that set its facts against each other.
// The rows are those of tests/data/path_hash.json.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <sstream>

#include "foundation/vlm_string.h"
#include "prefetch/consistency.h"
#include "reports/html_report.h"
#include "reports/json_report.h"
#include "support/decoded_file.h"
#include "support/prefetch_builder.h"
#include "support/run_process.h"
#include "support/test_table.h"

namespace {

using json = nlohmann::json;
json const data = test_table("path_hash");

// The two hashes over a path's UTF-16LE bytes, as Windows computes them,
// written apart from the product's.
std::uint32_t windows_path_hash(std::uint32_t version, std::u16string const& path, std::uint32_t* product = nullptr)
{
    std::uint32_t h = version == 17 ? 0 : 314159;
    for (char16_t const unit : path)
        for (std::uint32_t const byte : {unit & 0xffu, unsigned(unit) >> 8}) h = h * 37 + byte;
    if (product != nullptr) *product = h * 314159269u;
    if (version != 17) return h;
    h *= 314159269u;
    return (h > 0x80000000u ? std::uint32_t(0x100000000ull - h) : h) % 1000000007u;
}

// `path` with four units added that bring XP's product before the fold
// (sum * 314159269) to `wanted`: eight base-37 digits, each byte 0x20 + digit.
std::u16string steered(std::u16string path, std::uint32_t wanted)
{
    std::uint32_t inverse = 314159269u; // odd, so it has one modulo 2^32
    for (int i = 0; i < 5; ++i) inverse *= 2 - 314159269u * inverse;
    std::uint32_t base = 0;
    windows_path_hash(17, path + u"\x2020\x2020\x2020\x2020", &base);
    std::uint64_t rest = std::uint32_t((wanted - base) * inverse);
    std::uint8_t digits[8];
    for (int i = 7; i >= 0; --i, rest /= 37) digits[i] = std::uint8_t(0x20 + rest % 37);
    for (int i = 0; i < 8; i += 2) path += char16_t(digits[i] | digits[i + 1] << 8);
    return path;
}

std::u16string const fold = u"\\DEVICE\\HARDDISKVOLUME1\\WINDOWS\\FOLD.EXE";
std::u16string const at_fold = steered(fold, 0x80000000u), past_fold = steered(fold, 0x80000001u);
// A path of the table, where {at_fold} and {past_fold} stand for the steered ones.
std::u16string units(std::string const& text)
{
    return text == "{at_fold}" ? at_fold : text == "{past_fold}" ? past_fold : table_units(text);
}

// What the -json record, the -json summary and the -html page show of a
// decoded file's path hash: the summary count it adds to, and its cell.
void expect_shown(report_subject const& file, json const& row)
{
    std::ostringstream record, summary, page;
    check_tally tally, page_tally;
    html_page_state state;
    write_json_report(record, file, {}, true, tally);
    write_json_summary(summary, 1, 1, tally);
    write_html_report(page, file, {}, true, state, page_tally);
    // A record may hold a lone surrogate, which the parser refuses: its members are looked for as text.
    std::string const flag = row.contains("flag") ? row["flag"].dump() : "null";
    EXPECT_NE(record.str().find("\"hash_prefetch_flag\":" + flag + ",\"hash_hosting_program\":" +
                                row.value("hosting", json(false)).dump() + ","),
              std::string::npos);
    std::string const kind = row.contains("flag") ? "flagged" : row.value("hosting", false) ? "hosting" : row.at("want");
    json const& shown = data.at("shown").at(kind);
    json const counts = json::parse(summary.str());
    for (auto const& [key, value] : counts.items()) {
        if (key.starts_with("path_hash_")) {
            EXPECT_EQ(value, key == shown[0] ? 1 : 0) << key;
        }
    }
    std::string cell = shown[1];
    if (std::size_t const at = cell.find("{flag}"); at != std::string::npos) cell.replace(at, 6, flag);
    EXPECT_TRUE(cell.empty() || page.str().find(cell) != std::string::npos) << cell;
}

TEST(PathHash, HeaderHashAgainstTheFilesPaths)
{
    // The steering itself: the product 0x80000000 stays, one more folds to 0x7fffffff.
    EXPECT_EQ(windows_path_hash(17, at_fold), 0x80000000u % 1000000007u);
    EXPECT_EQ(windows_path_hash(17, past_fold), 0x7fffffffu % 1000000007u);
    std::map<std::string, path_hash_check> const checks = {
        {"matched", path_hash_check::matched}, {"not_matched", path_hash_check::not_matched}, {"no_candidate", path_hash_check::no_candidate}};
    for (json const& row : data.at("header_hash")) {
        SCOPED_TRACE(row.at("what").get<std::string>());
        pf_fields fields = typical_prefetch(row.at("version"));
        fields.exe_name = units(row.at("exe")), fields.file_strings.clear();
        for (std::string const path : row.at("strings")) fields.file_strings.push_back(units(path));
        std::u16string const hashed = units(row.at("hashed"));
        pf_image image = build_prefetch(fields);
        image.put_u32(76, windows_path_hash(row.at("version"), hashed) + row.value("header_offset", 0u));
        decoded_file file;
        ASSERT_TRUE(file.decode(image.bytes.data(), image.bytes.size()));
        EXPECT_EQ(file.entry.path_hash, checks.at(row.at("want")));
        EXPECT_EQ(utf8_to_wide(file.entry.hash_path), row.at("want") == "matched" ? std::wstring(hashed.begin(), hashed.end()) : L"");
        EXPECT_EQ(file.entry.hash_prefetch_flag, row.value("flag", 0u));
        EXPECT_EQ(file.entry.hash_hosting_program, row.value("hosting", false));
        expect_shown({file.entry, "/cases/x.pf", "x.pf", file.label}, row);
    }
}

TEST(Findings, EachOnAFileThatShowsItAndOneJustShort)
{
    for (json const& row : data.at("findings")) {
        SCOPED_TRACE(row.at("what").get<std::string>());
        pf_fields fields = typical_prefetch(row.at("version"));
        if (row.contains("metrics_offset")) fields.metrics_offset = row["metrics_offset"].get<std::uint32_t>();
        fields.run_count = row.at("run_count"), fields.run_slots = {};
        auto const slots = row.at("slots").get<std::vector<std::uint64_t>>();
        std::copy(slots.begin(), slots.end(), fields.run_slots.begin());
        pf_image const image = build_prefetch(fields);
        decoded_file file;
        ASSERT_TRUE(file.decode(image.bytes.data(), image.bytes.size()));
        file.entry.input_modified = row.at("modified");
        std::vector<std::string> codes;
        for (finding const which : find_inconsistencies(file.entry, row.at("started"))) codes.push_back(finding_code(which));
        EXPECT_EQ(codes, row.at("want"));
    }
}

// Known answers, digests beside sha256sum's (plain, container, refused) and the summary.
TEST(PathHashCli, RealFilesDigestsAndSummary)
{
    if (corpus_dir().empty() || env_or_empty("KITO_BINARY").empty()) GTEST_SKIP() << "no corpus or no kito";
    temp_folder const folder{"path_hash"};
    pf_fields flagged = typical_prefetch(26);
    flagged.run_count = 1, flagged.run_slots = {157000000000000000ULL, 131000000000000000ULL, 130990000000000000ULL};
    write_file(folder / "FLAGGED.pf", build_prefetch(flagged).bytes);
    std::string input, line, digest;
    std::vector<std::string> sums = {"-b"};
    for (json const& row : data.at("cli"))
        sums.push_back((row.contains("built") ? folder.path() : corpus_dir() + "/real") + "/" + row.at("file").get<std::string>()), input += sums.back() + "\n";
    process_result const run = run_kito({"-pipe", "-json", "-quiet"}, input), sha = run_tool("sha256sum", sums);
    std::istringstream lines(run.out), digests(sha.out);
    std::getline(lines, line);
    for (json const& row : data.at("cli")) {
        SCOPED_TRACE(row.at("file").get<std::string>());
        ASSERT_TRUE(std::getline(lines, line) && std::getline(digests, digest));
        json const record = json::parse(line);
        EXPECT_EQ(record.at("sha256"), digest.substr(0, 64));
        EXPECT_EQ(record.at("record") == "error", row.value("error", false));
        if (row.value("error", false)) continue;
        EXPECT_EQ(record.at("hash_matches_path"), !row.at("hash_path").is_null());
        EXPECT_EQ(record.at("hash_path"), row.at("hash_path"));
        EXPECT_EQ(record.at("hash_hosting_program"), row.value("hosting", false));
        EXPECT_EQ(record.at("findings").size(), row.at("findings"));
    }
    ASSERT_TRUE(std::getline(lines, line));
    json const summary = json::parse(line);
    for (auto const& [key, value] : data.at("cli_summary").items()) EXPECT_EQ(summary.at(key), value) << key;
}

} // namespace
