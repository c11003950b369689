// End to end over the shared corpus: every built file decodes to the values
// its sidecar names, and every real uncompressed file agrees with its own
// bytes, read here without the product's readers.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <set>

#include "driver/kito_user_context.h"
#include "prefetch/decode_chain.h"
#include "support/json_lite.h"
#include "support/run_process.h"

namespace {

namespace fs = std::filesystem;

struct loaded {
    bool ok = false;
    std::string err;
    std::unique_ptr<kito_user_context> context = std::make_unique<kito_user_context>();
};

loaded load(std::string const& path)
{
    loaded result;
    result.context->m_file_path = path;
    testing::internal::CaptureStderr();
    result.ok = load_prefetch_file(*result.context);
    result.err = testing::internal::GetCapturedStderr();
    return result;
}

// Sidecar text is a string, or {"hex": ...} for bytes that are not UTF-8.
std::string text_of(json_value const& value)
{
    json_value const* hex = value.find("hex");
    if (!hex) return value.text;
    std::string bytes;
    for (std::size_t i = 0; i + 1 < hex->text.size(); i += 2)
        bytes += static_cast<char>(std::stoi(hex->text.substr(i, 2), nullptr, 16));
    return bytes;
}

std::vector<std::string> texts_of(json_value const& list)
{
    std::vector<std::string> out;
    for (auto const& item : list.items) out.push_back(text_of(item));
    return out;
}

template <typename container> std::vector<std::uint64_t> numbers_of(container const& values)
{
    return std::vector<std::uint64_t>(values.begin(), values.end());
}

std::vector<std::uint64_t> numbers_of(json_value const& list)
{
    std::vector<std::uint64_t> out;
    for (auto const& item : list.items) out.push_back(item.as_u64());
    return out;
}

std::vector<std::string> values_of(offset_string_map const& map)
{
    std::vector<std::string> out;
    for (auto const& [key, text] : map) out.push_back(text);
    return out;
}

void expect_entry(json_value const& want, kito_user_context const& context)
{
    prefetch_entry const& e = context.m_entry;
    auto field = [&](char const* name) -> json_value const& {
        static json_value const missing;
        json_value const* v = want.find(name);
        EXPECT_NE(v, nullptr) << name;
        return v ? *v : missing;
    };
    EXPECT_EQ(context.m_version_label, text_of(field("version_label")));
    EXPECT_EQ(e.target_name, text_of(field("target_name")));
    EXPECT_EQ(e.target_path, text_of(field("target_path")));
    EXPECT_EQ(e.run_count, field("run_count").as_u64());
    EXPECT_EQ(e.last_run, field("last_run").as_u64());
    EXPECT_EQ(e.input_file_size, field("input_file_size").as_u64());
    EXPECT_EQ(numbers_of(e.prev_run_times), numbers_of(field("prev_run_times")));
    EXPECT_EQ(numbers_of(e.entry_times), numbers_of(field("entry_times")));
    EXPECT_EQ(values_of(e.file_strings), texts_of(field("file_strings")));
    std::vector<std::uint64_t> offsets;
    for (auto const& [key, text] : e.file_strings) offsets.push_back(key);
    EXPECT_EQ(offsets, numbers_of(field("file_string_offsets")));

    auto const& volumes = field("volumes").items;
    ASSERT_EQ(e.volume_paths.size(), volumes.size());
    ASSERT_EQ(e.volume_dirs.size(), volumes.size());
    ASSERT_EQ(e.volume_records.size(), volumes.size());
    for (std::size_t v = 0; v < volumes.size(); ++v) {
        SCOPED_TRACE("volume " + std::to_string(v));
        EXPECT_EQ(e.volume_paths[v], text_of(*volumes[v].find("path")));
        EXPECT_EQ(e.volume_times[v], volumes[v].find("creation_time")->as_u64());
        EXPECT_EQ(e.volume_serials[v], volumes[v].find("serial")->as_u64());
        EXPECT_EQ(values_of(e.volume_dirs[v]), texts_of(*volumes[v].find("directories")));
    }
}

TEST(CorpusDecode, SyntheticFilesMatchTheirSidecars)
{
    std::string const corpus = corpus_dir();
    if (corpus.empty()) GTEST_SKIP() << "KITO_CORPUS not set";
    std::string const dir = corpus + "/synthetic/";
    json_value index;
    ASSERT_TRUE(parse_json(read_file(dir + "index.json"), index));
    ASSERT_GT(index.items.size(), 0u);
    for (auto const& item : index.items) {
        std::string const name = item.find("file")->text;
        SCOPED_TRACE(name);
        std::string const base = name.substr(0, name.rfind(".pf"));
        json_value want;
        ASSERT_TRUE(parse_json(read_file(dir + base + ".expect.json"), want));
        loaded const got = load(dir + name);
        bool const reject = want.find("reject")->flag;
        EXPECT_EQ(got.ok, !reject);
        json_value const* err = want.find("stderr");
        std::string expected_err;
        if (err && !err->is_null()) expected_err = "prob reading file " + dir + name + "\n";
        EXPECT_EQ(got.err, expected_err);
        if (!reject && got.ok) expect_entry(want, *got.context);
    }
}

std::uint32_t u32_at(std::string const& bytes, std::size_t offset)
{
    std::uint32_t value = 0;
    for (int i = 3; i >= 0; --i) value = (value << 8) | static_cast<unsigned char>(bytes.at(offset + i));
    return value;
}

std::uint64_t u64_at(std::string const& bytes, std::size_t offset)
{
    return u32_at(bytes, offset) | std::uint64_t{u32_at(bytes, offset + 4)} << 32;
}

// The executable's name as the header holds it, ASCII in all real samples.
std::string name_at(std::string const& bytes)
{
    std::string name;
    for (std::size_t i = 16; i < 76 && bytes[i] != 0; i += 2) name += bytes[i];
    return name;
}

TEST(CorpusDecode, RealFilesAgreeWithTheirBytes)
{
    std::string const corpus = corpus_dir();
    if (corpus.empty()) GTEST_SKIP() << "KITO_CORPUS not set";
    struct layout {
        std::uint32_t version;
        char const* label;
        std::size_t run_count_at, last_run_at;
    } const layouts[] = {
        {17, "WinXP Prefetch", 144, 120}, {23, "Vista/Win7 Prefetch", 152, 128}, {26, "Win8 Prefetch", 208, 0}};
    int plain_files = 0, containers = 0;
    for (auto const& folder : fs::directory_iterator(corpus + "/real")) {
        if (folder.path().filename() == "Bad") continue;
        for (auto const& file : fs::directory_iterator(folder.path())) {
            std::string const path = file.path().string();
            SCOPED_TRACE(path);
            std::string const bytes = read_file(path);
            loaded const got = load(path);
            ASSERT_TRUE(got.ok);
            EXPECT_EQ(got.err, "");
            prefetch_entry const& e = got.context->m_entry;
            EXPECT_FALSE(e.file_strings.empty());
            EXPECT_FALSE(e.volume_paths.empty());
            // Every sample's own path is among its strings, also where the
            // header cut a long name.
            EXPECT_NE(e.target_path.find('\\'), std::string::npos) << e.target_path;
            if (bytes.compare(0, 3, "MAM") == 0) {
                ++containers;
                EXPECT_EQ(got.context->m_version_label, "Win10 Prefetch");
                continue;
            }
            ++plain_files;
            ASSERT_EQ(bytes.compare(4, 4, "SCCA"), 0);
            auto const* row = std::find_if(std::begin(layouts), std::end(layouts),
                                           [&](layout const& l) { return l.version == u32_at(bytes, 0); });
            ASSERT_NE(row, std::end(layouts));
            EXPECT_EQ(got.context->m_version_label, row->label);
            EXPECT_EQ(e.run_count, u32_at(bytes, row->run_count_at));
            EXPECT_EQ(e.target_name, name_at(bytes));
            EXPECT_EQ(e.input_file_size, bytes.size());
            if (row->version != 26) {
                EXPECT_EQ(e.last_run, u64_at(bytes, row->last_run_at));
                continue;
            }
            std::set<std::uint64_t> prev;
            std::uint64_t newest = u64_at(bytes, 128);
            for (std::size_t at = 136; at < 192; at += 8) {
                newest = std::max(newest, u64_at(bytes, at));
                if (u64_at(bytes, at) != 0) prev.insert(u64_at(bytes, at));
            }
            EXPECT_EQ(e.last_run, newest);
            EXPECT_EQ(e.prev_run_times, prev);
        }
    }
    EXPECT_EQ(plain_files, 42);
    EXPECT_EQ(containers, 6);

    loaded const bad = load(corpus + "/real/Bad/notAPrefetch.pf");
    EXPECT_FALSE(bad.ok);
    EXPECT_EQ(bad.err, "");
}

} // namespace
