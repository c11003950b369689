// What a file says about itself: its path hash against its own paths, the
// SHA-256 of the input, and the findings that set its facts against each other.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <sstream>

#include "foundation/vlm_string.h"
#include "prefetch/consistency.h"
#include "support/decoded_file.h"
#include "support/prefetch_builder.h"
#include "support/run_process.h"
#include "support/temp_folder.h"

namespace {

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

TEST(PathHash, HeaderHashAgainstTheFilesPaths)
{
    std::u16string const fold = u"\\DEVICE\\HARDDISKVOLUME1\\WINDOWS\\FOLD.EXE", guid = u"{01d5f3a2c4b6e8f0-8e7d6c5b}";
    std::u16string const at_fold = steered(fold, 0x80000000u), past_fold = steered(fold, 0x80000001u);
    // The steering itself: the product 0x80000000 stays, one more folds to 0x7fffffff.
    EXPECT_EQ(windows_path_hash(17, at_fold), 0x80000000u % 1000000007u);
    EXPECT_EQ(windows_path_hash(17, past_fold), 0x7fffffffu % 1000000007u);
    struct row { // the header's hash is that of `hashed`, plus `header_offset`
        char const* what; std::uint32_t version; std::u16string exe; std::vector<std::u16string> strings;
        std::u16string hashed; int header_offset; path_hash_check want;
    } const rows[] = {
        {"XP product 0x80000000", 17, u"FOLD.EXE", {at_fold}, at_fold, 0, path_hash_check::matched},
        {"XP product past the fold", 17, u"FOLD.EXE", {at_fold, past_fold}, past_fold, 0, path_hash_check::matched},
        {"name cut at 29, other case", 23, u"DCODEDCODEDCODEDCODEDCODEDCOD",
         {u"\\DEVICE\\HARDDISKVOLUME3\\DCODEDCOD.EXE", u"\\DEVICE\\HARDDISKVOLUME3\\T\\dcodedcodedcodedcodedcodedcodedcode.exe"},
         u"\\DEVICE\\HARDDISKVOLUME3\\T\\dcodedcodedcodedcodedcodedcodedcode.exe", 0, path_hash_check::matched},
        {"volume 64, second candidate", 30, u"CALC.EXE", {u"\\VOLUME" + guid + u"\\CALC.EXE\\X.DLL",
         u"\\VOLUME" + guid + u"\\EN-US\\CALC.EXE.MUI", u"\\volume" + guid + u"\\WINDOWS\\CALC.EXE"},
         u"\\DEVICE\\HARDDISKVOLUME64\\WINDOWS\\CALC.EXE", 0, path_hash_check::matched},
        {"lone surrogate kept", 26, u"SUR.EXE", {u"\\DEVICE\\HARDDISKVOLUME2\\\xd800\\SUR.EXE"}, u"\\DEVICE\\HARDDISKVOLUME2\\\xd800\\SUR.EXE", 0, path_hash_check::matched},
        {"no volume matches", 30, u"CALC.EXE", {u"\\VOLUME" + guid + u"\\CALC.EXE"}, u"\\DEVICE\\HARDDISKVOLUME65\\CALC.EXE", 0, path_hash_check::not_matched},
        {"hash one off", 26, u"NOTEPAD.EXE", {u"\\DEVICE\\HARDDISKVOLUME2\\NOTEPAD.EXE"}, u"\\DEVICE\\HARDDISKVOLUME2\\NOTEPAD.EXE", 1, path_hash_check::not_matched},
        {"no candidate", 26, u"NOTEPAD.EXE", {u"\\NOTEPAD.EXE.MUI\\A.DLL"}, u"\\NOTEPAD.EXE.MUI\\A.DLL", 0, path_hash_check::no_candidate},
    };
    for (row const& r : rows) {
        SCOPED_TRACE(r.what);
        pf_fields fields = typical_prefetch(r.version);
        fields.exe_name = r.exe, fields.file_strings = r.strings;
        pf_image image = build_prefetch(fields);
        image.put_u32(76, windows_path_hash(r.version, r.hashed) + r.header_offset);
        decoded_file file;
        ASSERT_TRUE(file.decode(image.bytes.data(), image.bytes.size()));
        EXPECT_EQ(file.entry.path_hash, r.want);
        EXPECT_EQ(utf8_to_wide(file.entry.hash_path), r.want == path_hash_check::matched ? std::wstring(r.hashed.begin(), r.hashed.end()) : L"");
    }
}

TEST(Findings, EachOnAFileThatShowsItAndOneJustShort)
{
    std::uint64_t const t = 132000000000000000ULL, second = 10000000ULL, day = 86400 * second;
    struct row {
        char const* what; std::uint32_t version; std::optional<std::uint32_t> metrics_offset; std::uint32_t run_count;
        std::array<std::uint64_t, 8> slots; std::uint64_t modified, started; std::vector<std::string> want;
    } const rows[] = {
        {"three runs, count 2", 26, {}, 2, {t, t - day, t - 2 * day}, t, t + day, {"runs_exceed_count"}},
        {"three runs, count 3", 26, {}, 3, {t, t - day, t - 2 * day}, t, t + day, {}},
        {"newest slot also previous", 26, {}, 1, {t - day, t}, t, t + day, {}},
        {"count not stored", 30, 300, 0, {0, t - day, t - 2 * day}, t, t + day, {}},
        {"run 2 s and a tick after", 26, {}, 1, {t + 2 * second + 1}, t, t + day, {"run_after_file_modified"}},
        {"run 2 s after", 26, {}, 1, {t + 2 * second}, t, t + day, {}},
        {"last run after the start", 26, {}, 1, {t + 1}, t + 1, t, {"run_in_future"}},
        {"previous run after the start", 30, 300, 0, {0, t + 1}, t + 1, t, {"run_in_future"}},
        {"runs at the start", 30, 304, 2, {t, t}, t, t, {}},
    };
    for (row const& r : rows) {
        SCOPED_TRACE(r.what);
        pf_fields fields = typical_prefetch(r.version);
        fields.metrics_offset = r.metrics_offset, fields.run_count = r.run_count, fields.run_slots = r.slots;
        pf_image const image = build_prefetch(fields);
        decoded_file file;
        ASSERT_TRUE(file.decode(image.bytes.data(), image.bytes.size()));
        file.entry.input_modified = r.modified;
        std::vector<std::string> codes;
        for (finding const which : find_inconsistencies(file.entry, r.started)) codes.push_back(finding_code(which));
        EXPECT_EQ(codes, r.want);
    }
}

// Known answers, digests beside sha256sum's (plain, container, refused) and the
// summary, with a built file that shows every finding (its hash is Notepad's).
TEST(PathHashCli, RealFilesDigestsAndSummary)
{
    if (corpus_dir().empty() || env_or_empty("KITO_BINARY").empty()) GTEST_SKIP() << "no corpus or no kito";
    std::string const real = corpus_dir() + "/real/";
    temp_folder const folder{"path_hash"};
    pf_fields flagged = typical_prefetch(26);
    flagged.run_count = 1, flagged.run_slots = {157000000000000000ULL, 131000000000000000ULL, 130990000000000000ULL};
    write_file(folder / "FLAGGED.pf", build_prefetch(flagged).bytes);
    std::vector<std::pair<std::string, char const*>> const cases = {
        {real + "XPPro/CMD.EXE-087B4001.pf", "\\DEVICE\\HARDDISKVOLUME1\\WINDOWS\\SYSTEM32\\CMD.EXE"},
        {real + "Win2k3/CMD.EXE-087B4001.pf", "\\DEVICE\\HARDDISKVOLUME1\\WINDOWS\\SYSTEM32\\CMD.EXE"},
        {real + "Win7/CMD.EXE-4A81B364.pf", "\\DEVICE\\HARDDISKVOLUME2\\WINDOWS\\SYSTEM32\\CMD.EXE"},
        {real + "Win10/CALC.EXE-3FBEF7FD.pf", "\\DEVICE\\HARDDISKVOLUME8\\WINDOWS\\SYSTEM32\\CALC.EXE"},
        {real + "Win7/DCODEDCODEDCODEDCODEDCODEDCOD-9054DA3F.pf",
         "\\DEVICE\\HARDDISKVOLUME3\\TEMP\\222\\DCODEDCODEDCODEDCODEDCODEDCODEDCODEDCODEDCODEDCODEDCODEDCODEDCODE.EXE"},
        {real + "Vista/DLLHOST.EXE-893DDF55.pf", nullptr},
        {real + "Bad/notAPrefetch.pf", nullptr},
        {folder / "FLAGGED.pf", "\\DEVICE\\HARDDISKVOLUME2\\WINDOWS\\SYSTEM32\\NOTEPAD.EXE"},
    };
    std::string input, line, digest;
    std::vector<std::string> sums = {"-b"};
    for (auto const& [name, path] : cases) input += name + "\n", sums.push_back(name);
    process_result const run = run_kito({"-pipe", "-json", "-quiet"}, input), sha = run_tool("sha256sum", sums);
    std::istringstream lines(run.out), digests(sha.out);
    std::getline(lines, line);
    for (auto const& [name, path] : cases) {
        SCOPED_TRACE(name);
        ASSERT_TRUE(std::getline(lines, line) && std::getline(digests, digest));
        nlohmann::json const record = nlohmann::json::parse(line);
        EXPECT_EQ(record.at("sha256"), digest.substr(0, 64));
        if (record.at("record") == "error") continue;
        EXPECT_EQ(record.at("hash_matches_path"), path != nullptr);
        EXPECT_EQ(record.at("hash_path"), path != nullptr ? nlohmann::json(path) : nlohmann::json());
        EXPECT_EQ(record.at("findings").size(), name == folder / "FLAGGED.pf" ? 3u : 0u);
    }
    ASSERT_TRUE(std::getline(lines, line));
    nlohmann::json const summary = nlohmann::json::parse(line), want = nlohmann::json::parse(
        R"({"path_hash_matched":6,"path_hash_not_matched":1,"path_hash_unchecked":0,"findings":)"
        R"({"runs_exceed_count":1,"run_after_file_modified":1,"run_in_future":1}})");
    for (auto const& [key, value] : want.items()) EXPECT_EQ(summary.at(key), value) << key;
}

} // namespace
