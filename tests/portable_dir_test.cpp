#include "foundation/vlm_portable_dir.h"

#include <algorithm>
#include <filesystem>
#include <gtest/gtest.h>

#include "evidence/batch_input.h"
#include "support/run_process.h"
#include "support/test_table.h"

namespace {

namespace fs = std::filesystem;
using vlmportdir::dir_entry;
using names = std::vector<std::string>;

// root/ a.pf B.PF c.pfx noext ab*.pf  sub1/ in1.pf  sub2/ x.pf deep/ y  link -> sub1
class tree_test : public ::testing::Test {
protected:
    void SetUp() override
    {
        for (std::string name : {"a.pf", "B.PF", "c.pfx", "noext", "ab*.pf", "sub1/in1.pf", "sub2/x.pf", "sub2/deep/y"})
        {
            fs::create_directories(fs::path(m_root + "/" + name).parent_path());
            write_file(m_root + "/" + name, "x");
        }
        fs::create_directory_symlink(m_root + "/sub1", m_root + "/link");
    }
    // Paths below the root of a listing, sorted; a file's path must end in its name.
    names listing(std::string const& dir, std::string const& pattern) const
    {
        std::vector<dir_entry> entries;
        vlmportdir::list_entries(dir, pattern, entries);
        names result;
        for (dir_entry const& e : entries) {
            EXPECT_EQ(e.path.substr(0, m_root.size() + 1), m_root + "/");
            EXPECT_TRUE(e.is_dir ? e.path.ends_with('/') && e.name.empty() && e.depth == 1
                                 : e.path.ends_with("/" + e.name) && e.depth == 0) << e.path;
            result.push_back(e.path.substr(m_root.size() + 1));
        }
        std::sort(result.begin(), result.end());
        return result;
    }
    temp_folder const m_folder{"walk"};
    std::string m_root = m_folder.path();
};

TEST_F(tree_test, pattern_keeps_matching_files_and_every_folder_and_stars_expand) {
    for (json const& c : test_rows("portable_dir", "listings")) EXPECT_EQ(listing(m_root + c[0].get<std::string>(), c[1]), c[2]) << c;
    // A folder really named "*" must not expand into itself forever.
    fs::create_directories(m_root + "/star/*");
    EXPECT_EQ(listing(m_root + "/star/*/", "*.*"), names{"star/*/"});
}

// The walk: files of a folder in reverse listing order, all before any
// sub-folder; sub-folders depth-first, last listed first, down to the limit.
void expected_walk(std::string const& folder, std::uint32_t depth, std::uint32_t limit, names& order)
{
    std::vector<dir_entry> listing;
    vlmportdir::list_entries(folder, "*.*", listing);
    for (auto it = listing.rbegin(); it != listing.rend(); ++it)
        if (!it->is_dir) order.push_back(it->path);
    for (auto it = listing.rbegin(); it != listing.rend(); ++it)
        if (it->is_dir && depth + 1 <= limit) expected_walk(it->path, depth + 1, limit, order);
}

TEST_F(tree_test, walk_order_and_depth) {
    for (std::uint32_t limit : {0u, 1u, 2u, 7u}) {
        vlmportdir::stdin_stream_ex walk(nullptr);
        ASSERT_TRUE(walk.begin_enum(m_root, limit, {}));
        names seen, expected;
        for (std::string name; walk.next_file(name, true);) seen.push_back(name);
        expected_walk(m_root, 0, limit, expected);
        EXPECT_EQ(seen, expected) << limit;
        std::size_t const sizes[] = {6, 8, 9, 9}; // root files and link; sub1, sub2; deep
        EXPECT_EQ(seen.size(), sizes[std::min<std::uint32_t>(limit, 3)]) << limit;
        EXPECT_EQ(std::count(seen.begin(), seen.end(), m_root + "/sub1/in1.pf"), limit >= 1) << "link not descended";
    }
    EXPECT_FALSE(vlmportdir::stdin_stream_ex(nullptr).begin_enum("", 3, {}));
}

} // namespace
