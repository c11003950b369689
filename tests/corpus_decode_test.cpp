// The shared corpus decoded in process against each synthetic file's sidecar:
// whether the load succeeds and what it says on standard error, then every
// decoded fact. Real files load without a word; the one under Bad/ is refused.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <nlohmann/json.hpp>

#include "support/decoded_file.h"
#include "support/run_process.h"

namespace {

using json = nlohmann::json;
using numbers = std::vector<std::uint64_t>;
using strings = std::vector<std::string>;

// Sidecar text is a string, or {"hex": ...} for bytes that are not UTF-8.
std::string text_of(json const& value)
{
    if (value.is_string()) return value;
    std::string const hex = value.at("hex");
    std::string out;
    for (std::size_t i = 0; i + 1 < hex.size(); i += 2) out += static_cast<char>(std::stoul(hex.substr(i, 2), nullptr, 16));
    return out;
}

strings texts_of(json const& list)
{
    strings out;
    for (json const& item : list) out.push_back(text_of(item));
    return out;
}

strings values_of(offset_string_map const& map)
{
    strings out;
    for (auto const& [offset, text] : map) out.emplace_back(text);
    return out;
}

// The names, file references and volumes of an entry, as plain values.
auto sections_of(prefetch_entry const& e)
{
    std::vector<std::pair<std::uint64_t, std::string>> const names(e.file_strings.begin(), e.file_strings.end());
    std::vector<std::tuple<std::uint64_t, std::uint64_t, std::uint16_t>> references;
    for (auto const& [offset, reference] : e.file_references)
        references.emplace_back(offset, reference.mft_entry, reference.mft_sequence);
    std::vector<strings> dirs;
    for (offset_string_map const& list : e.volume_dirs) dirs.push_back(values_of(list));
    return std::tuple(names, references, e.volume_paths, e.volume_times, e.volume_serials, dirs);
}

// What the forms ask of decoding: all of it (-json, -html); names and
// volumes without the digest and the path hash (the text report, -csv
// -verbose, -csvl2t); neither names nor volumes (-csv, -bodyfile), which
// decompresses a container only as far as the executable's path.
struct form_wants {
    char const* name;
    decode_wants wants;
    bool sections; // the names and the volumes are decoded
};
std::vector<form_wants> const forms = {
    {"every part", {}, true},
    {"names and volumes", {.digest = false, .file_names = true, .volume_directories = true, .path_hash = false}, true},
    {"neither names nor volumes",
     {.digest = false, .file_names = false, .volume_directories = false, .path_hash = false, .volumes = false},
     false},
};

TEST(corpus_decode, synthetic_files_as_their_sidecars_say)
{
    std::string const corpus = corpus_dir();
    if (corpus.empty()) GTEST_SKIP() << "KITO_CORPUS not set";
    std::string const dir = corpus + "/synthetic/";
    json const index = json::parse(read_file(dir + "index.json"));
    ASSERT_GT(index.size(), 0u);
    for (json const& item : index) for (form_wants const& form : forms) {
        std::string const name = item.at("file");
        SCOPED_TRACE(name + ", " + form.name);
        json const want = json::parse(read_file(dir + name.substr(0, name.rfind(".pf")) + ".expect.json"));
        decoded_file file;
        file.buffers.wants = form.wants;
        bool const ok = file.load(dir + name), reject = want.at("reject");
        EXPECT_EQ(ok, !reject);
        EXPECT_EQ(file.err, want.at("stderr").is_null() ? "" : "prob reading file " + dir + name + "\n");
        if (reject || !ok) continue;
        prefetch_entry const& e = file.entry;
        std::string container; // "MAM(MEM0)" is the kinds MAM and MEM0, outermost first
        for (std::uint32_t kind : e.container_kinds)
            container += (container.empty() ? "" : "/") + std::string(kind == container_mam ? "MAM" : kind == container_mem0 ? "MEM0" : "xpress");
        std::string want_container = want.at("container");
        std::erase(want_container, ')');
        std::replace(want_container.begin(), want_container.end(), '(', '/');
        EXPECT_EQ(container.empty() ? "plain" : container, want_container);
        EXPECT_EQ(std::tuple(file.label, e.target_name, e.target_path, e.run_count, e.last_run, e.decoded_size, e.input_file_size),
                  std::tuple(want.at("version_label").get<std::string>(), text_of(want.at("target_name")), text_of(want.at("target_path")),
                             want.at("run_count").get<std::uint32_t>(), want.at("last_run").get<std::uint64_t>(),
                             want.at("decoded_size").get<std::uint32_t>(), want.at("input_file_size").get<std::uint64_t>()));
        EXPECT_EQ(numbers(e.prev_run_times.begin(), e.prev_run_times.end()), want.at("prev_run_times").get<numbers>());
        if (!form.sections) continue;
        EXPECT_EQ(numbers(e.entry_times.begin(), e.entry_times.end()), want.at("entry_times").get<numbers>());
        EXPECT_EQ(values_of(e.file_strings), texts_of(want.at("file_strings")));
        numbers offsets;
        for (auto const& [offset, text] : e.file_strings) offsets.push_back(offset);
        EXPECT_EQ(offsets, want.at("file_string_offsets").get<numbers>());
        json const& volumes = want.at("volumes");
        ASSERT_EQ(e.volume_paths.size(), volumes.size());
        for (std::size_t v = 0; v < volumes.size(); ++v) {
            EXPECT_EQ(std::tuple(e.volume_paths[v], e.volume_times[v], e.volume_serials[v], values_of(e.volume_dirs[v])),
                      std::tuple(text_of(volumes[v].at("path")), volumes[v].at("creation_time").get<std::uint64_t>(),
                                 volumes[v].at("serial").get<std::uint32_t>(), texts_of(volumes[v].at("directories")))) << v;
        }
    }
    // The real files, the Windows 10 ones several blocks long: each form's
    // decode shows what the whole one shows.
    for (auto const& file : std::filesystem::recursive_directory_iterator(corpus + "/real")) {
        if (!file.is_regular_file()) continue;
        SCOPED_TRACE(file.path().string());
        decoded_file whole;
        EXPECT_EQ(whole.load(file.path().string()), file.path().parent_path().filename() != "Bad");
        EXPECT_EQ(whole.err, "");
        prefetch_entry const& w = whole.entry;
        for (form_wants const& form : forms) {
            decoded_file decoded;
            decoded.buffers.wants = form.wants;
            decoded.load(file.path().string());
            prefetch_entry const& e = decoded.entry;
            EXPECT_EQ(std::tuple(decoded.label, e.failure, e.target_name, e.target_path, e.run_count, e.last_run, e.prev_run_times),
                      std::tuple(whole.label, w.failure, w.target_name, w.target_path, w.run_count, w.last_run, w.prev_run_times)) << form.name;
            if (!form.sections) continue;
            EXPECT_EQ(sections_of(e), sections_of(w)) << form.name;
        }
    }
}

// A batch decodes each file into the place of one reported before, which
// keeps only the memory of its lists: every corpus file, synthetic and real,
// damaged ones too, shows in a batch behind another the record it shows alone.
TEST(corpus_decode, a_file_after_another_shows_what_it_shows_alone)
{
    std::string const corpus = corpus_dir();
    if (corpus.empty()) GTEST_SKIP() << "KITO_CORPUS not set";
    std::vector<std::string> paths;
    for (auto const& file : std::filesystem::recursive_directory_iterator(corpus))
        if (file.is_regular_file() && file.path().extension() == ".pf") paths.push_back(file.path().string());
    std::sort(paths.begin(), paths.end());
    ASSERT_GT(paths.size(), 1u);
    std::string list;
    for (std::string const& path : paths) list += path + "\n";
    // The records of -json between the run's first line and its summary: a
    // file's every decoded value, or why it failed.
    auto const records = [](std::string const& out) {
        std::vector<std::string> lines;
        for (std::size_t at = 0, end; (end = out.find('\n', at)) != std::string::npos; at = end + 1)
            lines.push_back(out.substr(at, end - at));
        return lines.size() < 2 ? lines : std::vector<std::string>(lines.begin() + 1, lines.end() - 1);
    };
    std::vector<std::string> alone;
    std::string alone_messages; // standard error of each run alone, one after the other
    for (std::string const& path : paths) {
        process_result const run = run_kito({"-pipe", "-json", "-quiet"}, path + "\n");
        std::vector<std::string> const record = records(run.out);
        ASSERT_EQ(record.size(), 1u) << path;
        alone.push_back(record[0]);
        alone_messages += run.err;
    }
    for (std::string const threads : {"1", "2"}) {
        process_result const run = run_kito({"-pipe", "-json", "-quiet", "-threads", threads}, list);
        EXPECT_EQ(records(run.out), alone) << threads << " threads";
        EXPECT_EQ(run.err, alone_messages) << threads << " threads";
    }
}

} // namespace
