// End to end over the shared corpus: every built file decodes to the values
// its sidecar names, and every real file agrees with its own bytes, read here
// without the product's readers.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <set>

#include "driver/kito_user_context.h"
#include "driver/output_entry.h"
#include "support/load_capture.h"
#include "support/json_lite.h"
#include "support/run_process.h"

namespace {

using numbers = std::vector<std::uint64_t>;
using strings = std::vector<std::string>;

json_value const& at(json_value const& object, char const* key)
{
    EXPECT_NE(object.find(key), nullptr) << key;
    return member_of(object, key);
}

void expect_entry(json_value const& want, kito_user_context const& context)
{
    prefetch_entry const& e = context.m_entry;
    EXPECT_EQ(context.m_version_label, sidecar_text(at(want, "version_label")));
    EXPECT_EQ(e.target_name, sidecar_text(at(want, "target_name")));
    EXPECT_EQ(e.target_path, sidecar_text(at(want, "target_path")));
    EXPECT_EQ(e.run_count, at(want, "run_count").as_u64());
    EXPECT_EQ(e.last_run, at(want, "last_run").as_u64());
    EXPECT_EQ(e.input_file_size, at(want, "input_file_size").as_u64());
    EXPECT_EQ(numbers(e.prev_run_times.begin(), e.prev_run_times.end()), numbers_of(at(want, "prev_run_times")));
    EXPECT_EQ(numbers(e.entry_times.begin(), e.entry_times.end()), numbers_of(at(want, "entry_times")));
    numbers offsets;
    strings texts;
    for (auto const& [key, text] : e.file_strings) offsets.push_back(key), texts.push_back(text);
    EXPECT_EQ(texts, sidecar_texts(at(want, "file_strings")));
    EXPECT_EQ(offsets, numbers_of(at(want, "file_string_offsets")));
    auto const& volumes = at(want, "volumes").items;
    ASSERT_EQ(e.volume_paths.size(), volumes.size());
    ASSERT_EQ(e.volume_dirs.size(), volumes.size());
    ASSERT_EQ(e.volume_records.size(), volumes.size());
    for (std::size_t v = 0; v < volumes.size(); ++v) {
        SCOPED_TRACE("volume " + std::to_string(v));
        EXPECT_EQ(e.volume_paths[v], sidecar_text(at(volumes[v], "path")));
        EXPECT_EQ(e.volume_times[v], at(volumes[v], "creation_time").as_u64());
        EXPECT_EQ(e.volume_serials[v], at(volumes[v], "serial").as_u64());
        strings dirs;
        for (auto const& [key, text] : e.volume_dirs[v]) dirs.push_back(text);
        EXPECT_EQ(dirs, sidecar_texts(at(volumes[v], "directories")));
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

// Well-formed UTF-8 in the strict sense: no stray continuation bytes, no
// overlong forms, no surrogates; what a garbage volume record would break.
bool is_utf8(std::string const& text)
{
    for (std::size_t i = 0; i < text.size();) {
        auto const lead = static_cast<unsigned char>(text[i]);
        int const extra = lead < 0x80 ? 0 : (lead >> 5) == 6 ? 1 : (lead >> 4) == 14 ? 2 : (lead >> 3) == 30 ? 3 : -1;
        if (extra < 0 || i + extra >= text.size() + (extra == 0)) return false;
        std::uint32_t code = extra == 0 ? lead : lead & (0x3F >> extra);
        for (int k = 1; k <= extra; ++k) {
            auto const next = static_cast<unsigned char>(text[i + k]);
            if ((next & 0xC0) != 0x80) return false;
            code = code << 6 | (next & 0x3F);
        }
        std::uint32_t const least[] = {0, 0x80, 0x800, 0x10000};
        if (code < least[extra] || code > 0x10FFFF || (code >= 0xD800 && code < 0xE000)) return false;
        i += static_cast<std::size_t>(extra) + 1;
    }
    return true;
}

TEST(CorpusDecode, RealFilesAgreeWithTheirBytes)
{
    std::string const corpus = corpus_dir();
    if (corpus.empty()) GTEST_SKIP() << "KITO_CORPUS not set";
    struct layout {
        std::uint32_t version;
        char const* label;
        bool newest_slot; // the largest of the eight slots at 128..184 is the last run
        std::size_t last_run_at;
    } const layouts[] = {{17, "WinXP Prefetch", false, 120}, {23, "Vista/Win7 Prefetch", false, 128},
                         {26, "Win8 Prefetch", true, 128}, {31, "Win11 Prefetch", true, 128}};
    int plain_files = 0, containers = 0, two_volume_win11 = 0;
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
            for (std::size_t v = 0; v < e.volume_paths.size(); ++v) {
                EXPECT_TRUE(is_utf8(e.volume_paths[v])) << e.volume_paths[v];
                EXPECT_EQ(e.volume_paths[v].rfind("\\", 0), 0u) << e.volume_paths[v];
                for (auto const& [ordinal, dir] : e.volume_dirs[v]) EXPECT_TRUE(is_utf8(dir)) << dir;
            }
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
            // Windows 10 and 11 moved the run count by the metrics offset.
            std::size_t run_count_at = row->version == 17 ? 144 : row->version == 23 ? 152 : 208;
            if (row->version == 31) {
                ASSERT_EQ(le_at(bytes, 84, 4), 296u);
                run_count_at = 200;
                two_volume_win11 += e.volume_paths.size() == 2;
            }
            EXPECT_GT(e.run_count, 0u);
            EXPECT_EQ(e.run_count, le_at(bytes, run_count_at, 4));
            std::string name; // ASCII in all real samples
            for (std::size_t i = 16; i < 76 && bytes[i] != 0; i += 2) name += bytes[i];
            EXPECT_EQ(e.target_name, name);
            EXPECT_EQ(e.input_file_size, bytes.size());
            std::set<std::uint64_t> prev;
            std::uint64_t newest = le_at(bytes, row->last_run_at, 8);
            for (std::size_t slot = 136; row->newest_slot && slot < 192; slot += 8) {
                newest = std::max(newest, le_at(bytes, slot, 8));
                if (le_at(bytes, slot, 8) != 0) prev.insert(le_at(bytes, slot, 8));
            }
            EXPECT_NE(newest, 0u);
            EXPECT_EQ(e.last_run, newest);
            EXPECT_EQ(e.prev_run_times, prev);
        }
    }
    EXPECT_EQ(plain_files, 46);
    EXPECT_EQ(containers, 6);
    EXPECT_EQ(two_volume_win11, 2);
    kito_user_context bad;
    std::string err;
    EXPECT_FALSE(load(corpus + "/real/Bad/notAPrefetch.pf", bad, err));
    EXPECT_EQ(err, "");
}

} // namespace
