#include "foundation/vlm_portable_dir.h"

#include <algorithm>
#include <filesystem>
#include <gtest/gtest.h>
#include <unistd.h>

#include "driver/batch_input.h"
#include "support/run_process.h"

namespace {

namespace fs = std::filesystem;
using vlmportdir::dir_entry;

// root/ a.pf B.PF c.pfx noext ab*.pf  sub1/ in1.pf  sub2/ x.pf deep/ y.pf  link -> sub1
class tree_test : public ::testing::Test {
protected:
    void SetUp() override
    {
        for (char const* name : {"a.pf", "B.PF", "c.pfx", "noext", "ab*.pf", "sub1/in1.pf", "sub2/x.pf",
                                 "sub2/deep/y.pf"}) {
            fs::create_directories(fs::path(m_root + "/" + name).parent_path());
            write_file(m_root + "/" + name, "x");
        }
        fs::create_directory_symlink(m_root + "/sub1", m_root + "/link");
    }

    // File names and folder paths (relative, with their separator) of a listing, sorted.
    std::vector<std::string> names(std::vector<dir_entry> const& entries) const
    {
        std::vector<std::string> result;
        for (dir_entry const& e : entries) result.push_back(e.is_dir ? e.path.substr(m_root.size() + 1) : e.name);
        std::sort(result.begin(), result.end());
        return result;
    }

    std::string m_root = make_temp_dir("walk");
};

TEST_F(tree_test, pattern_keeps_matching_files_and_every_folder)
{
    struct pattern_case {
        std::string pattern;
        std::vector<std::string> expected;
    };
    pattern_case const cases[] = {
        {"*.pf", {"B.PF", "a.pf", "ab*.pf", "sub1/", "sub2/"}},
        {"*.PF", {"B.PF", "a.pf", "ab*.pf", "sub1/", "sub2/"}},
        {"*.*", {"B.PF", "a.pf", "ab*.pf", "c.pfx", "link", "noext", "sub1/", "sub2/"}},
        {"", {"B.PF", "a.pf", "ab*.pf", "c.pfx", "link", "noext", "sub1/", "sub2/"}},
        {"a.*", {"a.pf", "sub1/", "sub2/"}},
        // A star inside a longer part is an ordinary character.
        {"ab*.pf", {"ab*.pf", "sub1/", "sub2/"}},
        {"noext", {"noext", "sub1/", "sub2/"}},
    };
    for (pattern_case const& c : cases) {
        SCOPED_TRACE("pattern " + c.pattern);
        std::vector<dir_entry> out;
        vlmportdir::list_entries(m_root + "/", c.pattern, out);
        EXPECT_EQ(names(out), c.expected);
    }
}

TEST_F(tree_test, entries_carry_separator_depth_and_link_as_file)
{
    std::vector<dir_entry> with, without;
    vlmportdir::list_entries(m_root + "/", "*.*", with);
    vlmportdir::list_entries(m_root, "*.*", without);
    EXPECT_EQ(names(with), names(without)) << "a root without its separator lists the same";

    for (dir_entry const& e : with) {
        SCOPED_TRACE(e.path);
        EXPECT_FALSE(e.long_form);
        if (e.is_dir) {
            EXPECT_EQ(e.path.back(), '/');
            EXPECT_TRUE(e.name.empty());
            EXPECT_EQ(e.depth, 1u);
        } else {
            EXPECT_EQ(e.path, m_root + "/" + e.name);
            EXPECT_EQ(e.depth, 0u);
        }
    }
    auto link = std::find_if(with.begin(), with.end(), [](dir_entry const& e) { return e.name == "link"; });
    ASSERT_NE(link, with.end());
    EXPECT_FALSE(link->is_dir) << "a link to a folder is a file entry";

    std::vector<dir_entry> folders;
    EXPECT_TRUE(vlmportdir::list_directory(m_root + "/", folders, 5, true, true));
    EXPECT_EQ(names(folders), (std::vector<std::string>{"sub1/", "sub2/"}));
    EXPECT_EQ(folders[0].depth, 6u);

    fs::create_directory(m_root + "/empty");
    std::vector<dir_entry> none;
    EXPECT_FALSE(vlmportdir::list_directory(m_root + "/empty/", none, 0, false, true));
    EXPECT_TRUE(none.empty());
}

TEST_F(tree_test, bare_name_gets_backslash_and_lists_nothing)
{
    fs::path const saved = fs::current_path();
    fs::current_path(m_root);
    std::vector<dir_entry> bare, slashed;
    vlmportdir::list_entries("sub2", "*.*", bare);
    vlmportdir::list_entries("sub2/", "*.*", slashed);
    fs::current_path(saved);
    EXPECT_TRUE(bare.empty());
    EXPECT_EQ(slashed.size(), 2u) << "x.pf and deep/";
}

TEST_F(tree_test, star_components_expand_level_by_level)
{
    std::vector<dir_entry> out;
    vlmportdir::list_entries(m_root + "/*/", "*.pf", out);
    std::vector<std::string> files;
    for (dir_entry const& e : out)
        if (!e.is_dir) files.push_back(e.path.substr(m_root.size() + 1));
    std::sort(files.begin(), files.end());
    EXPECT_EQ(files, (std::vector<std::string>{"sub1/in1.pf", "sub2/x.pf"}));

    vlmportdir::list_entries(m_root + "/*/*/", "*.pf", out);
    ASSERT_EQ(out.size(), 1u);
    EXPECT_EQ(out[0].path, m_root + "/sub2/deep/y.pf");

    // A folder really named "*" must not expand into itself forever.
    fs::create_directories(m_root + "/star/*");
    vlmportdir::list_entries(m_root + "/star/*/", "*.*", out);
    EXPECT_EQ(out.size(), 1u);
}

// The walk: files of a folder in reverse listing order, all before any
// sub-folder; sub-folders depth-first, last listed first, down to the limit.
void expected_walk(std::string const& folder, std::uint32_t depth, std::uint32_t limit,
                   std::vector<std::string>& order)
{
    std::vector<dir_entry> listing;
    vlmportdir::list_entries(folder, "*.*", listing);
    for (auto it = listing.rbegin(); it != listing.rend(); ++it)
        if (!it->is_dir) order.push_back(it->path);
    for (auto it = listing.rbegin(); it != listing.rend(); ++it)
        if (it->is_dir && depth + 1 <= limit) expected_walk(it->path, depth + 1, limit, order);
}

TEST_F(tree_test, walk_order_and_depth)
{
    for (std::uint32_t limit : {0u, 1u, 2u, 7u}) {
        SCOPED_TRACE("depth limit " + std::to_string(limit));
        vlmportdir::stdin_stream_ex walk(nullptr);
        ASSERT_TRUE(walk.begin_enum(m_root, limit, {}));
        std::vector<std::string> seen;
        for (std::string name; walk.next_file(name, true);) seen.push_back(name);

        std::vector<std::string> expected;
        expected_walk(m_root, 0, limit, expected);
        EXPECT_EQ(seen, expected);
        std::size_t const sizes[] = {6, 8, 9, 9}; // root files and link; sub1, sub2; deep
        EXPECT_EQ(seen.size(), sizes[std::min<std::uint32_t>(limit, 3)]);
        EXPECT_EQ(std::count(seen.begin(), seen.end(), m_root + "/sub1/in1.pf"), limit >= 1 ? 1 : 0)
            << "the link to sub1 is not descended";
    }
    vlmportdir::stdin_stream_ex walk(nullptr);
    EXPECT_FALSE(walk.begin_enum("", 3, {}));
}

} // namespace
