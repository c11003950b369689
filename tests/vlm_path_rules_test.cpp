#include <gtest/gtest.h>

#include <sys/time.h>

#include <cstdlib>

#include "foundation/vlm_path_rules.h"
#include "foundation/vlm_string.h"
#include "foundation/vlm_time.h"
#include "support/run_process.h"
#include "support/test_table.h"

namespace {

json const table = test_table("path_rules");

TEST(split_path, backslash_wins_parent_moves_into_the_folder_and_long_prefix_goes) {
    for (auto [path, split] : {std::pair{"dir/..", "dir//..|."}, {"a\\b/c", "a|b/c"}, {"/etc", ".|/etc"},
                               {"\\a/b", ".|\\a/b"}, {"/d/e/f.pf", "/d/e|f.pf"}, {"", "|"}}) {
        std::string dir = "x", name = "y";
        std::wstring wdir = L"x", wname = L"y";
        int const ok = split_path(std::string(path), dir, name) + split_path(utf8_to_wide(path), wdir, wname);
        EXPECT_EQ(ok, *path ? 2 : 0);
        EXPECT_EQ(dir + "|" + name + " " + wide_to_utf8(wdir + L"|" + wname), split + (" " + std::string(split)));
    }
    // A long prefix stays only before a device path; a short path loses everything.
    std::wstring const tail = L"C:\\Windows\\Prefetch\\SEARCHPROTOCOLHOST.EXE-4A81B364.pf";
    std::wstring const device = L"\\\\?\\GLOBALROOT\\Device\\HarddiskVolumeShadowCopy1\\x";
    for (auto [in, out] : {std::pair{L"\\\\?\\" + tail, tail}, {device, device}, {L"\\\\?\\C:\\s", L""}}) {
        strip_long_path_prefix(in);
        EXPECT_EQ(in, out);
    }
}

TEST(expand_path_variables, expands_known_names_within_the_length_limit) {
    setenv("KITO_T_A", "value", 1);
    setenv("KITO_T_NEST", "%KITO_T_A%/n", 1);
    setenv("KITO_T_SELF", "%KITO_T_SELF%", 1);
    // {filler} stands for 502 "x", {vss} for the shadow copy device.
    std::pair<std::string, std::string> const places[] = {{"{filler}", std::string(502, 'x')},
                                                          {"{vss}", "\\\\?\\GLOBALROOT\\Device\\HarddiskVolumeShadowCopy"}};
    auto const filled = [&](std::string text) {
        for (auto const& [name, value] : places)
            if (auto at = text.find(name); at != std::string::npos) text.replace(at, name.size(), value);
        return text;
    };
    for (json const& r : table.at("variables")) EXPECT_EQ(expand_path_variables(filled(r[0]), r[1]), filled(r[2])) << r[0];
    EXPECT_EQ(shadow_copy_prefix(/*lower=*/true, /*with_root=*/false), "\\device\\harddiskvolumeshadowcopy");
}

std::vector<filter_entry> filter_of(std::string text) {
    std::vector<filter_entry> out(3); // stale entries must go
    return parse_filter(out, text) ? out : std::vector<filter_entry>{};
}

TEST(parse_filter, tokens_and_star_flags) {
    for (json const& r : table.at("filters")) {
        std::vector<std::string> got;
        for (auto const& e : filter_of(r[0]))
            got.push_back(wide_to_utf8(e.core) + (e.star_front ? "F" : "") + (e.star_back ? "B" : "") +
                          (e.is_path ? "P" : "") + (e.match_all ? "M" : ""));
        EXPECT_EQ(got, r[1]) << r[0];
    }
}

// The narrow form, as the batch calls it; this tool never runs the stream mode.
bool passes(time_range const& range, std::string const& path, std::vector<filter_entry> const& filter,
            file_info* info = nullptr) {
    return matches_filter(range, path, filter, info, /*stream_mode=*/false);
}

TEST(matches_filter, names_folders_and_signatures) {
    time_range const open_range;
    for (json const& r : table.at("matches"))
        EXPECT_EQ(passes(open_range, r[1], filter_of(r[0])), r[2]) << r[1];
    temp_folder const dir("path_rules_sig");
    std::string const file = dir / "a.bin";
    write_file(file, "xxMAMyMAM");
    filter_entry entry;
    entry.signature = {'M', 'A', 'M'};
    for (auto [path, offset, expected] : {std::tuple{file, 2ULL, true}, {file, 3ULL, false}, {file, 6ULL, true},
                                          {file, 7ULL, false}, {file, ~0ULL, false}, {dir / "none", 2ULL, false}}) {
        entry.signature_offset = offset;
        EXPECT_EQ(passes(open_range, path, {entry}), expected) << path << " @" << offset;
    }
}

TEST(matches_filter, time_range_uses_only_valid_bounds) {
    temp_folder const dir("path_rules_time");
    std::string const file = dir / "t.pf";
    write_file(file, "x");
    timeval const stamps[2] = {{1600000000, 0}, {1600000000, 0}};
    ASSERT_EQ(utimes(file.c_str(), stamps), 0);
    auto const bound = [](json const& b) { return time_bound{b[0], b[1], b[2]}; };
    for (json const& r : table.at("times")) {
        file_info info;
        std::uint32_t const kind = r[2];
        info.time_kind = kind;
        info.modified = kind != 0 ? 5000 : 0;
        std::string const path = kind != 0 ? file + ".missing" : file;
        EXPECT_EQ(passes(time_range{bound(r[0]), bound(r[1])}, path, filter_of("*"), &info), r[3]) << r;
        EXPECT_EQ(info.modified, kind != 0 ? 5000u : 1600000000u);
    }
    file_info info;
    EXPECT_TRUE(passes(time_range{{1, 0, 1700000000}, {}}, file, {}, &info)); // passes before the range
    EXPECT_FALSE(passes(time_range{{1, 0, 1}, {}}, file + ".missing", filter_of("*"), &info)); // no stat
}

} // namespace
