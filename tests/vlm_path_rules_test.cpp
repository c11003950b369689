#include <gtest/gtest.h>

#include <sys/time.h>

#include <cstdlib>

#include "foundation/vlm_path_rules.h"
#include "foundation/vlm_string.h"
#include "foundation/vlm_time.h"
#include "support/run_process.h"

namespace {

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
    std::string const vss = "\\\\?\\GLOBALROOT\\Device\\HarddiskVolumeShadowCopy", filler(502, 'x');
    struct { std::string path; bool shadow; std::string expected; } const rows[] = {
        {"%KITO_T_NEST%/x", true, "value/n/x"}, {"%kito_t_a%/%KITO_T_A%", true, "%kito_t_a%/value"},
        {"50%off%KITO_T_A%", true, "50%off%KITO_T_A%"}, // the unknown name consumes its closing "%"
        {"%KITO_T_A%" + filler, true, "value" + filler},
        {"%KITO_T_A%" + filler + "y", true, "%KITO_T_A%" + filler + "y"},
        {"%VSS%1\\%KITO_T_A%", true, vss + "1\\value"}, {"%vss%1", false, "%vss%1"},
        {"%KITO_T_SELF%", true, "%KITO_T_SELF%"}, // a value naming itself must not hang the run
    };
    for (auto const& r : rows) EXPECT_EQ(expand_path_variables(r.path, r.shadow), r.expected) << r.path;
    EXPECT_EQ(shadow_copy_prefix(/*lower=*/true, /*with_root=*/false), "\\device\\harddiskvolumeshadowcopy");
}

std::vector<filter_entry> filter_of(std::string text) {
    std::vector<filter_entry> out(3); // stale entries must go
    return parse_filter(out, text) ? out : std::vector<filter_entry>{};
}

TEST(parse_filter, tokens_and_star_flags) {
    struct { std::string text; std::vector<std::string> cores; } const rows[] = { // flags: Front Back Path M=all
        {"x|*|y", {"*M"}}, {"*.PF", {".pfF"}}, {"*partial*", {"partialFB"}}, {"**a", {"aF"}}, {"a*b", {"ab"}},
        {"abc* | *.pf", {"abcB", ".pfF"}}, {"abc*|*.pf,x", {"abc|.pf", "x"}},
        {"/Windows/Prefetch", {"/windows/prefetchP"}}, {"*:stream", {"*M"}},
    };
    for (auto const& r : rows) {
        std::vector<std::string> got;
        for (auto const& e : filter_of(r.text))
            got.push_back(wide_to_utf8(e.core) + (e.star_front ? "F" : "") + (e.star_back ? "B" : "") +
                          (e.is_path ? "P" : "") + (e.match_all ? "M" : ""));
        EXPECT_EQ(got, r.cores) << r.text;
    }
}

// The narrow form, as the batch calls it; this tool never runs the stream mode.
bool passes(time_range const& range, std::string const& path, std::vector<filter_entry> const& filter,
            file_info* info = nullptr) {
    return matches_filter(range, path, filter, info, /*stream_mode=*/false);
}

TEST(matches_filter, names_folders_and_signatures) {
    time_range const open_range;
    struct { std::string filter, path; bool expected; } const rows[] = {
        {"*", "/any/thing", true}, {"*.pf", "X.PF", true}, {"*.pf", "/p/x.pfx", false}, {"*.pf", "/p/a.pf.pf", false},
        {"*partial*", "/p/MyPARTIALfile", true}, {"*partial*", "/p/part", false}, {"abc*", "/p/ABCdef.pf", true},
        {"abc*", "/p/xabc", false}, {"a*b", "/p/ab", true}, {"a*b", "/p/axb", false}, {"abc*|*.pf", "/p/q.pf", true},
        {"abc*|*.pf,x", "/p/q.pf", false}, {"abc*|*.pf,x", "/p/X", true}, {"*.pf", "", false},
        {"/windows/prefetch", "/m/Windows/Prefetch/A.PF", true}, {"/windows/prefetch", "/w/windows/prefetch/s/a", true},
        {"/windows/prefetch", "C:\\Windows\\Prefetch\\a.pf", true},
        {"/windows/prefetch", "/mnt/windows/prefetch2/a.pf", false}, {"/windows/prefetch|*.pf", "/o/a.pf", true},
    };
    for (auto const& r : rows)
        EXPECT_EQ(passes(open_range, r.path, filter_of(r.filter)), r.expected) << r.path;
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
    // Bounds as {valid, filetime, unix seconds}: a cleared bound is no limit, whatever it holds. Kind 0 rows ask
    // stat; the others hand in a filled record of a missing file, whose kind picks the form of the bounds.
    struct { time_bound start, stop; std::uint32_t kind; bool expected; } const rows[] = {
        {{1, 0, 1599999999}, {}, 0, true}, {{1, 0, 1600000001}, {}, 0, false}, {{}, {1, 0, 1600000000}, 0, true},
        {{}, {1, 0, 1599999999}, 0, false}, {{0, 0, 1700000000}, {1, 0, 1600000000}, 0, true},
        {{1, 0, 1500000000}, {0, 0, 1}, 0, true}, {{1, 4000, 6000}, {}, vlm::filetime, true},
        {{1, 4000, 6000}, {}, vlm::unix_time, false}, {{1, 0, 0}, {}, 16, false}, // 16: more than 32 bits
    };
    for (auto const& r : rows) {
        file_info info;
        info.time_kind = r.kind;
        info.modified = r.kind != 0 ? 5000 : 0;
        std::string const path = r.kind != 0 ? file + ".missing" : file;
        EXPECT_EQ(passes(time_range{r.start, r.stop}, path, filter_of("*"), &info), r.expected)
            << r.start.unix_seconds << " " << r.stop.unix_seconds << " " << r.kind;
        EXPECT_EQ(info.modified, r.kind != 0 ? 5000u : 1600000000u);
    }
    file_info info;
    EXPECT_TRUE(passes(time_range{{1, 0, 1700000000}, {}}, file, {}, &info)); // passes before the range
    EXPECT_FALSE(passes(time_range{{1, 0, 1}, {}}, file + ".missing", filter_of("*"), &info)); // no stat
}

} // namespace
