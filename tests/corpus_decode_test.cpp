// The shared corpus decoded in process, for what the JSON records of
// json_cli_test cannot show: whether the load succeeds, what it says on
// standard error, the entry times and the offset of each file string.
#include <gtest/gtest.h>

#include <filesystem>

#include "support/decoded_file.h"
#include "support/json_lite.h"
#include "support/run_process.h"

namespace {

using numbers = std::vector<std::uint64_t>;

TEST(CorpusDecode, OutcomeMessagesEntryTimesAndStringOffsets)
{
    std::string const corpus = corpus_dir();
    if (corpus.empty()) GTEST_SKIP() << "KITO_CORPUS not set";
    std::string const dir = corpus + "/synthetic/";
    json_value index;
    ASSERT_TRUE(parse_json(read_file(dir + "index.json"), index));
    ASSERT_GT(index.items.size(), 0u);
    for (auto const& item : index.items) {
        std::string const name = member_of(item, "file").text;
        SCOPED_TRACE(name);
        json_value want;
        ASSERT_TRUE(parse_json(read_file(dir + name.substr(0, name.rfind(".pf")) + ".expect.json"), want));
        decoded_file file;
        bool const ok = file.load(dir + name), reject = member_of(want, "reject").flag;
        EXPECT_EQ(ok, !reject);
        EXPECT_EQ(file.err, member_of(want, "stderr").is_null() ? "" : "prob reading file " + dir + name + "\n");
        if (reject || !ok) continue;
        prefetch_entry const& e = file.entry;
        EXPECT_EQ(numbers(e.entry_times.begin(), e.entry_times.end()), numbers_of(member_of(want, "entry_times")));
        numbers offsets;
        for (auto const& [offset, text] : e.file_strings) offsets.push_back(offset);
        EXPECT_EQ(offsets, numbers_of(member_of(want, "file_string_offsets")));
    }
    // Real files load without a word; the one under Bad/ is refused, also in silence.
    for (auto const& file : std::filesystem::recursive_directory_iterator(corpus + "/real")) {
        if (!file.is_regular_file()) continue;
        decoded_file decoded;
        EXPECT_EQ(decoded.load(file.path().string()), file.path().parent_path().filename() != "Bad") << file.path();
        EXPECT_EQ(decoded.err, "") << file.path();
    }
}

} // namespace
