#include <gtest/gtest.h>

#include <sys/time.h>

#include <cstdlib>

#include "driver/cmd_params.h"
#include "foundation/vlm_path_rules.h"
#include "foundation/vlm_string.h"
#include "support/run_process.h"

namespace {

TEST(split_path, backslash_wins_and_parent_moves_into_the_folder) {
    struct row {
        std::string path, dir, name;
    } const rows[] = {
        {"dir/..", "dir//..", "."}, {"a\\..", "a\\..", "."}, {"a\\b/c", "a", "b/c"},
        {"/etc", ".", "/etc"},      {"\\a/b", ".", "\\a/b"},   {"/d/e/f.pf", "/d/e", "f.pf"},
    };
    for (auto const& r : rows) {
        SCOPED_TRACE(r.path);
        std::string dir, name;
        EXPECT_TRUE(split_path(r.path, dir, name));
        EXPECT_EQ(dir, r.dir);
        EXPECT_EQ(name, r.name);
        std::wstring wdir, wname;
        EXPECT_TRUE(split_path(utf8_to_wide(r.path), wdir, wname));
        EXPECT_EQ(wide_to_utf8(wdir), r.dir);
        EXPECT_EQ(wide_to_utf8(wname), r.name);
    }
    std::string dir = "x", name = "y";
    EXPECT_FALSE(split_path(std::string(), dir, name));
    EXPECT_EQ(dir + name, "");

    std::string base, ext;
    for (auto [path, expected] : {std::pair{"/p/a.b.pf", "/p|a.b|pf"}, {"/p/.pf", "/p||pf"}, {"noext", ".|noext|"}}) {
        EXPECT_TRUE(split_name_extension(path, dir, base, ext));
        EXPECT_EQ(dir + "|" + base + "|" + ext, expected);
    }
}

TEST(expand_path_variables, expands_known_names_within_the_length_limit) {
    setenv("KITO_T_A", "value", 1);
    setenv("KITO_T_NEST", "%KITO_T_A%/n", 1);
    setenv("KITO_T_SELF", "%KITO_T_SELF%", 1);
    std::string const vss = "\\\\?\\GLOBALROOT\\Device\\HarddiskVolumeShadowCopy";
    std::string const filler(502, 'x');
    struct row {
        std::string path;
        bool shadow;
        std::string expected;
    } const rows[] = {
        {"%KITO_T_NEST%/x", true, "value/n/x"},
        {"%kito_t_a%/%KITO_T_A%", true, "%kito_t_a%/value"},
        // The unknown name consumes its closing "%", so "%KITO_T_A" is no reference.
        {"50%off%KITO_T_A%", true, "50%off%KITO_T_A%"},
        {"%KITO_T_A%" + filler, true, "value" + filler},
        {"%KITO_T_A%" + filler + "y", true, "%KITO_T_A%" + filler + "y"},
        {"%VSS%1\\%KITO_T_A%", true, vss + "1\\value"},
        {"%vss%1", false, "%vss%1"},
    };
    for (auto const& r : rows) {
        SCOPED_TRACE(r.path);
        EXPECT_EQ(expand_path_variables(r.path, r.shadow), r.expected);
    }
    // A value naming itself must not hang the run.
    EXPECT_EQ(expand_path_variables("%KITO_T_SELF%", true), "%KITO_T_SELF%");

    EXPECT_EQ(shadow_copy_prefix(true, false), "\\device\\harddiskvolumeshadowcopy");
}

TEST(strip_long_path_prefix, keeps_device_paths_and_drops_short_ones) {
    std::wstring const long_tail = L"C:\\Windows\\Prefetch\\SEARCHPROTOCOLHOST.EXE-4A81B364.pf";
    struct row {
        std::wstring in, out;
    } const rows[] = {
        {L"\\\\?\\" + long_tail, long_tail},
        {L"\\\\?\\GLOBALROOT\\Device\\HarddiskVolumeShadowCopy1\\x", L"\\\\?\\GLOBALROOT\\Device\\HarddiskVolumeShadowCopy1\\x"},
        {L"\\\\?\\C:\\short", L""},
        {L"/mnt/evidence/windows/prefetch/CMD.EXE-4A81B364.pf", L"/mnt/evidence/windows/prefetch/CMD.EXE-4A81B364.pf"},
    };
    for (auto const& r : rows) {
        SCOPED_TRACE(wide_to_utf8(r.in));
        std::wstring path = r.in;
        strip_long_path_prefix(path);
        EXPECT_EQ(path, r.out);
    }
}

TEST(parse_filter, tokens_and_star_flags) {
    struct row {
        std::string text;
        std::vector<std::string> cores; // core, then flags: F front, B back, P path, M match_all
    } const rows[] = {
        {"x|*|y", {"*M"}},          {"*.PF", {".pfF"}},         {"*partial*", {"partialFB"}},
        {"**a", {"aF"}},            {"a*b", {"ab"}},            {"abc* | *.pf", {"abcB", ".pfF"}},
        {"abc*|*.pf,x", {"abc|.pf", "x"}}, {"/Windows/Prefetch", {"/windows/prefetchP"}}, {"*:stream", {"*M"}},
    };
    for (auto const& r : rows) {
        SCOPED_TRACE(r.text);
        std::vector<filter_entry> out(3);
        std::string text = r.text;
        EXPECT_TRUE(parse_filter(out, text));
        std::vector<std::string> got;
        for (auto const& e : out)
            got.push_back(wide_to_utf8(e.core) + (e.star_front ? "F" : "") + (e.star_back ? "B" : "") +
                          (e.is_path ? "P" : "") + (e.match_all ? "M" : ""));
        EXPECT_EQ(got, r.cores);
    }
    // A stream part of "*" marks the first entry, whichever token carried it.
    std::vector<filter_entry> out;
    std::string text = "A.PF|b.pf:*";
    ASSERT_TRUE(parse_filter(out, text));
    EXPECT_EQ(text, "a.pf|b.pf:*");
    ASSERT_EQ(out.size(), 2u);
    EXPECT_TRUE(out[0].stream_match_all);
    EXPECT_FALSE(out[1].stream_match_all);
    EXPECT_TRUE(out[1].has_stream);
    EXPECT_EQ(out[1].core, L"b.pf");
}

std::vector<filter_entry> filter_of(std::string text) {
    std::vector<filter_entry> out;
    parse_filter(out, text);
    return out;
}

TEST(matches_filter, names_and_folders) {
    cmd_params options(0);
    struct row {
        std::string filter, path;
        bool expected;
    } const rows[] = {
        {"*", "/any/thing", true},            {"*.pf", "/p/c.exe-12345678.pf", true},
        {"*.pf", "X.PF", true},               {"*.pf", "/p/x.pfx", false},
        {"*.pf", "/p/a.pf.pf", false},        {"*partial*", "/p/MyPARTIALfile", true},
        {"*partial*", "/p/part", false},      {"abc*", "/p/ABCdef.pf", true},
        {"abc*", "/p/xabc", false},           {"a*b", "/p/ab", true},
        {"a*b", "/p/axb", false},             {"abc*|*.pf", "/p/q.pf", true},
        {"abc*|*.pf,x", "/p/q.pf", false},    {"abc*|*.pf,x", "/p/X", true},
        {"/windows/prefetch", "/mnt/Windows/Prefetch/A.PF", true},
        {"/windows/prefetch", "C:\\Windows\\Prefetch\\a.pf", true},
        {"/windows/prefetch", "/mnt/windows/prefetch/sub/a.pf", true},
        {"/windows/prefetch", "/mnt/windows/prefetch2/a.pf", false},
        {"/windows/prefetch|*.pf", "/mnt/other/a.pf", true}, {"*.pf", "", false},
    };
    for (auto const& r : rows) {
        SCOPED_TRACE(r.filter + " on " + r.path);
        EXPECT_EQ(matches_filter(options, r.path, filter_of(r.filter), nullptr, false), r.expected);
    }
}

TEST(matches_filter, signature_at_an_offset) {
    std::string const dir = make_temp_dir("path_rules_sig");
    std::string const file = dir + "/a.bin";
    write_file(file, "xxMAMyMAM");
    cmd_params options(0);
    struct row {
        std::string path;
        std::uint64_t offset;
        bool expected;
    } const rows[] = {
        {file, 2, true}, {file, 3, false}, {file, 6, true}, {file, 7, false},
        {file, ~0ull, false}, {dir + "/missing.bin", 2, false},
    };
    for (auto const& r : rows) {
        SCOPED_TRACE(r.path + " @" + std::to_string(r.offset));
        filter_entry entry;
        entry.signature = {'M', 'A', 'M'};
        entry.signature_offset = r.offset;
        EXPECT_EQ(matches_filter(options, r.path, {entry}, nullptr, false), r.expected);
    }
}

TEST(matches_filter, time_range_uses_only_valid_bounds) {
    std::string const file = make_temp_dir("path_rules_time") + "/t.pf";
    write_file(file, "x");
    timeval const stamps[2] = {{1600000000, 0}, {1600000000, 0}};
    ASSERT_EQ(utimes(file.c_str(), stamps), 0);
    struct row {
        bool start_valid;
        std::uint32_t start;
        bool stop_valid;
        std::uint32_t stop;
        bool expected;
    } const rows[] = {
        {true, 1599999999, false, 0, true}, {true, 1600000001, false, 0, false},
        {false, 0, true, 1600000000, true}, {false, 0, true, 1599999999, false},
        // Cleared bounds are no limit, whatever their fields still hold.
        {false, 1700000000, true, 1600000000, true}, {true, 1500000000, false, 1, true},
    };
    for (auto const& r : rows) {
        SCOPED_TRACE(std::to_string(r.start) + ".." + std::to_string(r.stop));
        cmd_params options(0);
        options.m_start_bound = {r.start_valid, 0, r.start};
        options.m_stop_bound = {r.stop_valid, 0, r.stop};
        file_info info;
        EXPECT_EQ(matches_filter(options, file, filter_of("*"), &info, false), r.expected);
        if (r.start_valid || r.stop_valid) {
            EXPECT_EQ(info.modified, 1600000000u);
        }
        // The narrow form passes an empty filter before looking at the range.
        EXPECT_TRUE(matches_filter(options, file, {}, &info, false));
    }
    cmd_params options(0);
    options.m_stop_bound = {true, 0, 4000000000u};
    file_info info;
    EXPECT_FALSE(matches_filter(options, file + ".missing", filter_of("*"), &info, false));
    // A record already filled in filetime ticks is compared against the filetime bounds.
    info = {};
    info.modified = 132000000000000000ull;
    info.time_kind = 1;
    options.m_stop_bound = {true, 131999999999999999ull, 4000000000u};
    EXPECT_FALSE(matches_filter(options, file, filter_of("*"), &info, false));
    options.m_stop_bound.filetime = 132000000000000000ull;
    EXPECT_TRUE(matches_filter(options, file, filter_of("*"), &info, false));
}

TEST(join_arguments, quotes_arguments_holding_a_blank) {
    std::string out = "stale";
    EXPECT_TRUE(join_arguments(out, {"kito", "C:\\my dir\\a.pf", "-csv"}, '\''));
    EXPECT_EQ(out, "kito 'C:\\my dir\\a.pf' -csv");
}

} // namespace
