// End to end over the shared corpus: every built file decodes to the values
// its sidecar names, and every real file agrees with its own bytes, read here
// without the product's readers.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <set>

#include "driver/kito_user_context.h"
#include "prefetch/decode_chain.h"
#include "support/load_capture.h"
#include "support/json_lite.h"
#include "support/run_process.h"

namespace {

using numbers = std::vector<std::uint64_t>;
using strings = std::vector<std::string>;

json_value const& at(json_value const& object, char const* key)
{
    static json_value const missing;
    json_value const* v = object.find(key);
    EXPECT_NE(v, nullptr) << key;
    return v ? *v : missing;
}

// Sidecar text is a string, or {"hex": ...} for bytes that are not UTF-8.
std::string text_of(json_value const& value)
{
    json_value const* hex = value.find("hex");
    std::string bytes = hex ? "" : value.text;
    for (std::size_t i = 0; hex && i + 1 < hex->text.size(); i += 2) bytes += static_cast<char>(std::stoi(hex->text.substr(i, 2), nullptr, 16));
    return bytes;
}

template <typename read> auto items_of(json_value const& list, read f)
{
    std::vector<decltype(f(list))> out;
    for (auto const& item : list.items) out.push_back(f(item));
    return out;
}
strings texts_of(json_value const& list) { return items_of(list, text_of); }
numbers numbers_of(json_value const& list) { return items_of(list, std::mem_fn(&json_value::as_u64)); }

void expect_entry(json_value const& want, kito_user_context const& context)
{
    prefetch_entry const& e = context.m_entry;
    EXPECT_EQ(context.m_version_label, text_of(at(want, "version_label")));
    EXPECT_EQ(e.target_name, text_of(at(want, "target_name")));
    EXPECT_EQ(e.target_path, text_of(at(want, "target_path")));
    EXPECT_EQ(e.run_count, at(want, "run_count").as_u64());
    EXPECT_EQ(e.last_run, at(want, "last_run").as_u64());
    EXPECT_EQ(e.input_file_size, at(want, "input_file_size").as_u64());
    EXPECT_EQ(numbers(e.prev_run_times.begin(), e.prev_run_times.end()), numbers_of(at(want, "prev_run_times")));
    EXPECT_EQ(numbers(e.entry_times.begin(), e.entry_times.end()), numbers_of(at(want, "entry_times")));
    numbers offsets;
    strings texts;
    for (auto const& [key, text] : e.file_strings) offsets.push_back(key), texts.push_back(text);
    EXPECT_EQ(texts, texts_of(at(want, "file_strings")));
    EXPECT_EQ(offsets, numbers_of(at(want, "file_string_offsets")));
    auto const& volumes = at(want, "volumes").items;
    ASSERT_EQ(e.volume_paths.size(), volumes.size());
    ASSERT_EQ(e.volume_dirs.size(), volumes.size());
    ASSERT_EQ(e.volume_records.size(), volumes.size());
    for (std::size_t v = 0; v < volumes.size(); ++v) {
        SCOPED_TRACE("volume " + std::to_string(v));
        EXPECT_EQ(e.volume_paths[v], text_of(at(volumes[v], "path")));
        EXPECT_EQ(e.volume_times[v], at(volumes[v], "creation_time").as_u64());
        EXPECT_EQ(e.volume_serials[v], at(volumes[v], "serial").as_u64());
        strings dirs;
        for (auto const& [key, text] : e.volume_dirs[v]) dirs.push_back(text);
        EXPECT_EQ(dirs, texts_of(at(volumes[v], "directories")));
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
        std::string const name = at(item, "file").text;
        SCOPED_TRACE(name);
        json_value want;
        ASSERT_TRUE(parse_json(read_file(dir + name.substr(0, name.rfind(".pf")) + ".expect.json"), want));
        kito_user_context context;
        std::string err;
        bool const ok = load(dir + name, context, err), reject = at(want, "reject").flag;
        EXPECT_EQ(ok, !reject);
        EXPECT_EQ(err, at(want, "stderr").is_null() ? "" : "prob reading file " + dir + name + "\n");
        if (!reject && ok) expect_entry(want, context);
    }
}

std::uint64_t le_at(std::string const& bytes, std::size_t offset, int width)
{
    std::uint64_t value = 0;
    for (int i = width - 1; i >= 0; --i) value = (value << 8) | static_cast<unsigned char>(bytes.at(offset + i));
    return value;
}

TEST(CorpusDecode, RealFilesAgreeWithTheirBytes)
{
    std::string const corpus = corpus_dir();
    if (corpus.empty()) GTEST_SKIP() << "KITO_CORPUS not set";
    struct layout {
        std::uint32_t version;
        char const* label;
        std::size_t run_count_at, last_run_at;
    } const layouts[] = {{17, "WinXP Prefetch", 144, 120}, {23, "Vista/Win7 Prefetch", 152, 128}, {26, "Win8 Prefetch", 208, 0}};
    int plain_files = 0, containers = 0;
    for (auto const& folder : std::filesystem::directory_iterator(corpus + "/real")) {
        if (folder.path().filename() == "Bad") continue;
        for (auto const& file : std::filesystem::directory_iterator(folder.path())) {
            std::string const path = file.path().string(), bytes = read_file(path);
            SCOPED_TRACE(path);
            kito_user_context context;
            std::string err;
            ASSERT_TRUE(load(path, context, err));
            EXPECT_EQ(err, "");
            prefetch_entry const& e = context.m_entry;
            EXPECT_FALSE(e.file_strings.empty() || e.volume_paths.empty());
            // Each sample's path is among its strings, also where the header cut a long name.
            EXPECT_NE(e.target_path.find('\\'), std::string::npos) << e.target_path;
            if (bytes.compare(0, 3, "MAM") == 0) {
                ++containers;
                EXPECT_EQ(context.m_version_label, "Win10 Prefetch");
                continue;
            }
            ++plain_files;
            ASSERT_EQ(bytes.compare(4, 4, "SCCA"), 0);
            auto const* row = std::find_if(std::begin(layouts), std::end(layouts), [&](layout const& l) { return l.version == le_at(bytes, 0, 4); });
            ASSERT_NE(row, std::end(layouts));
            EXPECT_EQ(context.m_version_label, row->label);
            EXPECT_EQ(e.run_count, le_at(bytes, row->run_count_at, 4));
            std::string name; // ASCII in all real samples
            for (std::size_t i = 16; i < 76 && bytes[i] != 0; i += 2) name += bytes[i];
            EXPECT_EQ(e.target_name, name);
            EXPECT_EQ(e.input_file_size, bytes.size());
            std::set<std::uint64_t> prev;
            std::uint64_t newest = le_at(bytes, row->version == 26 ? 128 : row->last_run_at, 8);
            for (std::size_t slot = 136; row->version == 26 && slot < 192; slot += 8) {
                newest = std::max(newest, le_at(bytes, slot, 8));
                if (le_at(bytes, slot, 8) != 0) prev.insert(le_at(bytes, slot, 8));
            }
            EXPECT_EQ(e.last_run, newest);
            EXPECT_EQ(e.prev_run_times, prev);
        }
    }
    EXPECT_EQ(plain_files, 42);
    EXPECT_EQ(containers, 6);
    kito_user_context bad;
    std::string err;
    EXPECT_FALSE(load(corpus + "/real/Bad/notAPrefetch.pf", bad, err));
    EXPECT_EQ(err, "");
}

} // namespace
