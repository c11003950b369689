// -image as an examiner runs it, over the images of tests/make_images.sh (a bare NTFS volume, MBR and
// GPT disks, the MBR disk as E01 segments, VMDK, VHD and split raw, damaged ones, a volume with
// shadow copies), as the runs of tests/data/image_cli.json, against the files read from disk, what
// the sleuthkit tools say and what the shadow-copy volume's manifest says each state holds.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>

#include "support/run_process.h"
#include "support/temp_folder.h"
#include "support/test_table.h"

namespace {

using json = nlohmann::json;
using strings = std::vector<std::string>;

std::string const images = env_or_empty("KITO_IMAGES");

// The records of a -json run of the kinds given, in their order.
std::vector<json> records_of(std::string const& out, strings const& kinds = {"prefetch", "error"})
{
    std::vector<json> found;
    std::istringstream lines(out);
    for (std::string line; std::getline(lines, line);) {
        json record = json::parse(line, nullptr, false);
        EXPECT_FALSE(record.is_discarded()) << line;
        if (std::find(kinds.begin(), kinds.end(), record.value("record", "")) != kinds.end()) found.push_back(record);
    }
    return found;
}
std::vector<json> file_records(std::string const& out) { return records_of(out); }

// Whether the kito under test knows an option: its name stands in the program as a string of its own.
bool binary_knows(std::string const& option)
{
    return read_file(env_or_empty("KITO_BINARY")).find(option + '\0') != std::string::npos;
}

// The Prefetch files of the shadow-copy volume's manifest in the order kito reports them: the live
// volume, then the stores read, newest first; allocated before deleted. Each with its display name
// and its store (0: the live volume).
std::vector<json> places(json const& manifest, json const& run, std::string const& prefix)
{
    std::vector<json> out;
    json const& states = manifest.at("states");
    for (std::size_t state = states.size(); state-- > 0;) {
        bool const live = state + 1 == states.size();
        json const& stores = run.at("stores");
        if (!live && std::find(stores.begin(), stores.end(), state + 1) == stores.end()) continue;
        for (std::string const source : {"allocated", "deleted"}) {
            if (source == "deleted" && !run.at("deleted")) continue;
            for (json file : states[state].at("files")) {
                std::string const name = file.at("name");
                if (file.at("source") != source || !name.ends_with(".pf")) continue;
                file["store"] = live ? 0 : state + 1;
                file["display"] = prefix + (live ? "" : "vss" + std::to_string(state + 1) + ":") +
                                  (source == "deleted" ? "deleted:" : "") + "/Windows/Prefetch/" + name;
                out.push_back(file);
            }
        }
    }
    return out;
}

// The value behind `label` and a tab in istat's $STANDARD_INFORMATION block.
std::string istat_value(std::string const& istat, std::string const& label)
{
    std::size_t const block = istat.find("$STANDARD_INFORMATION Attribute Values:");
    std::size_t const at = istat.find("\n" + label + ":\t", block);
    if (block == std::string::npos || at == std::string::npos) return "missing " + label;
    std::size_t const start = at + label.size() + 3;
    return istat.substr(start, istat.find('\n', start) - start);
}

std::string filled(std::string text)
{
    for (std::size_t at; (at = text.find("{images}")) != std::string::npos;) text.replace(at, 8, images);
    return text;
}

// Whether some record holds every member of `wanted` ({images} filled in).
bool some_record_has(std::vector<json> const& records, json const& wanted)
{
    json const filled_in = json::parse(filled(wanted.dump()));
    return std::any_of(records.begin(), records.end(), [&](json const& record) {
        return std::all_of(filled_in.items().begin(), filled_in.items().end(),
                           [&](auto const& member) { return record.value(member.key(), json()) == member.value(); });
    });
}

// "2021-03-01 05:06:07.123456700 (UTC)", as istat writes a time, in the form of -json.
std::string json_form(std::string const& istat_time)
{
    return istat_time.size() < 27 ? istat_time : istat_time.substr(0, 10) + "T" + istat_time.substr(11, 16) + "Z";
}

class image_cli_test : public ::testing::Test {
protected:
    void SetUp() override
    {
        if (env_or_empty("KITO_BINARY").empty() || images.empty()) GTEST_SKIP() << "KITO_BINARY or KITO_IMAGES not set";
        if (std::filesystem::exists(images + "/SKIP")) GTEST_SKIP() << read_file(images + "/SKIP");
    }
    json const data = test_table("image_cli");
};

TEST_F(image_cli_test, listings_forms_and_bad_images)
{
    for (json const& row : data.at("runs")) {
        strings args;
        for (std::string const arg : row.at("args")) args.push_back(filled(arg));
        SCOPED_TRACE(row.at("args").dump());
        process_result const p = run_kito(args);
        EXPECT_EQ(p.status, row.value("status", 0)) << p.err;
        for (std::string const part : row.value("stdout_has", json::array())) EXPECT_NE(p.out.find(filled(part)), std::string::npos) << p.out;
        for (std::string const part : row.value("stderr_has", json::array())) EXPECT_NE(p.err.find(filled(part)), std::string::npos) << p.err;
        json const counts = row.value("stdout_counts", json::object());
        for (auto const& [part, count] : counts.items()) EXPECT_EQ(count_of(p.out, part), count) << part;
        if (row.contains("records_have")) {
            std::vector<json> const all = records_of(p.out, {"prefetch", "error", "history", "summary"});
            for (json const& wanted : row["records_have"]) EXPECT_TRUE(some_record_has(all, wanted)) << wanted;
        }
        if (!row.contains("paths")) continue;
        strings seen, expected;
        for (json const& record : file_records(p.out))
            seen.push_back((record["record"] == "error" ? "!" : "") + record["path"].get<std::string>());
        for (std::string const path : row["paths"]) expected.push_back(filled(path));
        EXPECT_EQ(seen, expected);
    }
}

TEST_F(image_cli_test, reports_match_the_files_on_disk_with_ntfs_times_and_places)
{
    std::string const image = images + "/disk.E01";
    std::vector<json> const records = file_records(run_kito({"-image", image, "-json"}).out);
    ASSERT_EQ(records.size(), 6u);
    for (json record : records) {
        if (record["record"] == "error") continue;
        std::string const name = record["file_name"];
        SCOPED_TRACE(name);
        json const& place = record["image"];
        std::string const sector = std::to_string(place["partition_offset"].get<std::uint64_t>() / 512);
        // The place as the sleuthkit tools find it again from the name.
        std::string const in_volume = place["path_in_volume"];
        EXPECT_EQ(record["path"], image + "@" + sector + ":" + in_volume);
        EXPECT_EQ(place["path"], image);
        EXPECT_EQ(place["source"], "allocated");
        EXPECT_TRUE(place["shadow_copy"].is_null());
        process_result const found = run_tool("ifind", {"-o", sector, "-n", in_volume, image});
        EXPECT_EQ(found.out, std::to_string(place["mft_entry"].get<std::uint64_t>()) + "\n");
        std::string const istat = run_tool("istat", {"-o", sector, image, found.out.substr(0, found.out.size() - 1)}).out;
        EXPECT_NE(istat.find("Sequence: " + std::to_string(place["mft_sequence"].get<int>()) + "\n"), std::string::npos);
        // Times as the script set them, to the 100 ns, and as istat reads them.
        for (auto const& [key, time] : data.at("times").at(name).items()) EXPECT_EQ(record[key], time) << key;
        for (auto const& [key, label] : data.at("istat_labels").items()) EXPECT_EQ(record[key], json_form(istat_value(istat, label))) << key;
        // The rest of the report is that of the same file read from disk.
        std::vector<json> own = file_records(run_kito({env_or_empty("KITO_SAMPLES") + "/" + name, "-json"}).out);
        ASSERT_EQ(own.size(), 1u);
        for (std::string const key : data.at("image_only")) record.erase(key), own[0].erase(key);
        EXPECT_EQ(record, own[0]);
    }
}

// A program's history holds every run that any of its versions keeps, each once: the union of the
// runs of the two files as read from disk.
TEST_F(image_cli_test, history_runs_are_the_union_of_the_versions_runs)
{
    std::set<std::uint64_t> runs;
    for (std::string const& file : {env_or_empty("KITO_SAMPLES") + "/CALC.EXE-77FDF17F.pf", images + "/CALC-older.pf"})
        for (json const& record : file_records(run_kito({file, "-json"}).out)) {
            runs.insert(record["last_run_filetime"].get<std::uint64_t>());
            for (std::uint64_t const run : record["previous_runs_filetime"]) runs.insert(run);
        }
    std::vector<json> const history = records_of(run_kito({"-image", images + "/versions.raw", "-json"}).out, {"history"});
    ASSERT_EQ(history.size(), 1u);
    EXPECT_EQ(history[0]["runs_filetime"], json(std::vector<std::uint64_t>(runs.rbegin(), runs.rend())));
    EXPECT_EQ(history[0]["runs"].size(), runs.size());
    EXPECT_EQ(runs.size(), 8u) << "six runs in one file, seven in the other, five of them shared";
}

TEST_F(image_cli_test, shadow_copies_and_deleted_entries_give_each_content_once_with_its_history)
{
    if (!binary_knows("-vss") || !binary_knows("-deleted")) GTEST_SKIP() << "this kito has no -vss or -deleted";
    json const manifest = json::parse(read_file(images + "/vss-manifest.json"));
    json const& table = data.at("shadow_copies");
    std::string const versions = env_or_empty("KITO_SAMPLES") + "/../sample-versions/";
    std::map<std::string, json> own_reports; // by version
    for (json const& run : table.at("runs")) {
        SCOPED_TRACE(run.dump());
        std::string const image = images + "/" + run.at("image").get<std::string>();
        strings args = {"-image", image, "-json"};
        for (std::string const arg : run.at("args")) args.push_back(arg);
        process_result const p = run_kito(args);
        EXPECT_EQ(p.status, 0) << p.err;
        for (std::string const part : run.at("stderr_has")) EXPECT_NE(p.err.find(part), std::string::npos) << p.err;
        // Each content once, at its first place, with the other places; contents no version has are
        // the reused clusters of a deleted entry, which do not decode.
        std::map<std::string, json> first; // by SHA-256
        strings expected, seen;
        std::uint64_t duplicates = 0;
        for (json place : places(manifest, run, image + "@" + std::to_string(run.at("sector").get<int>()) + ":")) {
            std::string const display = place["display"];
            if (place["version"].is_null()) expected.push_back("!" + display);
            else if (first.contains(place["sha256"])) first[place["sha256"]]["same_bytes_at"].push_back(display), ++duplicates;
            else place["same_bytes_at"] = json::array(), first[place["sha256"]] = place, expected.push_back(display);
        }
        // By executable: the versions found and all their runs, keyed by FILETIME (of this era all of 18
        // digits, so that the keys sort as the times do).
        std::map<std::string, json> programs;
        for (json record : file_records(p.out)) {
            seen.push_back((record["record"] == "error" ? "!" : "") + record["path"].get<std::string>());
            if (record["record"] == "error" || !first.contains(record["sha256"])) continue;
            json const& place = first[record["sha256"]];
            EXPECT_EQ(record["path"], place["display"]);
            EXPECT_EQ(record["same_bytes_at"], place["same_bytes_at"]) << record["path"];
            EXPECT_EQ(record["image"]["source"], place["source"]) << record["path"];
            json shadow_copy;
            if (int const store = place["store"]; store > 0)
                shadow_copy = manifest["stores"][store - 1], shadow_copy.erase("saved_blocks"),
                shadow_copy["created"] = table.at("created")[store - 1];
            EXPECT_EQ(record["image"]["shadow_copy"], shadow_copy) << record["path"];
            json& program = programs[record["executable"]];
            program["versions"][std::to_string(place["runs"][0].get<std::uint64_t>())] = place["display"];
            for (json const& time : place["runs"]) program["runs"][std::to_string(time.get<std::uint64_t>())] = time;
            // The rest of the report is that of the same version read from disk.
            std::string const version = place["version"];
            if (!own_reports.contains(version)) own_reports[version] = file_records(run_kito({versions + version, "-json"}).out).at(0);
            json own = own_reports[version];
            for (std::string const key : table.at("not_compared")) record.erase(key), own.erase(key);
            EXPECT_EQ(record, own);
        }
        EXPECT_EQ(seen, expected);
        // One history per program found in two or more versions: every run of every version, newest first.
        std::erase_if(programs, [](auto const& program) { return program.second["versions"].size() < 2; });
        for (json const& history : records_of(p.out, {"history"})) {
            json const& program = programs[history["executable"]];
            strings newest_first;
            for (json const& name : program["versions"]) newest_first.insert(newest_first.begin(), name);
            EXPECT_EQ(history["versions"], newest_first);
            std::vector<std::uint64_t> runs;
            for (json const& time : program["runs"]) runs.insert(runs.begin(), time.get<std::uint64_t>());
            EXPECT_EQ(history["runs_filetime"], runs);
        }
        EXPECT_EQ(records_of(p.out, {"history"}).size(), programs.size());
        EXPECT_EQ(records_of(p.out, {"summary"}).at(0)["duplicates"], duplicates);
    }
}

TEST_F(image_cli_test, decompress_to_unpacks_the_containers_of_an_image)
{
    temp_folder const folder{"image-unpack"};
    std::string const target = folder.path() + "/out";
    process_result const p = run_kito({"-image", images + "/disk.E01", "-decompress_to", target});
    EXPECT_EQ(p.status, 0) << p.err;
    // Windows 10 and 11 samples are containers; the older ones are plain and refused.
    for (std::string const name : {"MSPAINT.EXE-8F2A1C3D.pf", "WORDPAD.EXE-2B4E7D19.pf"}) {
        std::string const reference = folder.path() + "/" + name;
        EXPECT_EQ(run_kito({env_or_empty("KITO_SAMPLES") + "/" + name, "-decompress_to", reference}).status, 0);
        EXPECT_EQ(read_file(target + "/" + name), read_file(reference)) << name;
    }
    EXPECT_FALSE(std::filesystem::exists(target + "/CALC.EXE-77FDF17F.pf"));
    EXPECT_NE(p.err.find("Prob decoding file " + images + "/disk.E01@2048:/Windows/Prefetch/CALC"), std::string::npos);
}

// Free clusters: exactly the deleted files whose bytes the volume still holds,
// where they lay, each with the report of the file before it was deleted; the
// file still in the folder once, as a file of the folder.
TEST_F(image_cli_test, unallocated_finds_the_intact_deleted_files)
{
    std::map<std::string, json> before, found;
    for (json record : file_records(run_kito({"-image", images + "/freed-before.raw", "-json"}).out))
        before[record["file_name"]] = record;
    std::istringstream intact(read_file(images + "/freed.expect"));
    std::map<std::uint64_t, std::string> wanted, seen;
    std::string name;
    for (std::uint64_t offset = 0; intact >> name >> offset;) wanted[offset] = name;
    ASSERT_FALSE(wanted.empty());
    for (json record : file_records(run_kito({"-image", images + "/freed.raw", "-unallocated", "-json"}).out)) {
        if (!record.contains("carved")) {
            EXPECT_EQ(record["file_name"], "NOTEPAD.EXE-336351A9.pf");
            continue;
        }
        std::uint64_t const offset = record["carved"]["offset"];
        EXPECT_EQ(record["path"], images + "/freed.raw@0:carved@" + std::to_string(offset));
        EXPECT_EQ(record["image"]["source"], "unallocated");
        EXPECT_TRUE(record["image"]["mft_entry"].is_null());
        json original = before[seen[offset] = wanted[offset]];
        for (std::string const key : data.at("carved_only")) record.erase(key), original.erase(key);
        EXPECT_EQ(record, original) << offset;
    }
    EXPECT_EQ(seen, wanted);
}

} // namespace

namespace {

// The image libraries load with their module, only for an image: a kito
// without the module beside it still reads files, and says why it can't
// read an image.
TEST_F(image_cli_test, a_kito_without_its_image_module_reads_files_but_no_image)
{
    temp_folder const alone{"without-module"};
    std::string const kito = alone / "kito";
    std::filesystem::copy_file(env_or_empty("KITO_BINARY"), kito);
    process_result const file = run_process(kito, {env_or_empty("KITO_SAMPLES") + "/CMD.EXE-4A81B364.pf", "-csv"});
    EXPECT_EQ(file.status, 0) << file.err;
    EXPECT_NE(file.out.find("CMD.EXE-4A81B364.pf,CMD.EXE,"), std::string::npos) << file.out;
    process_result const image = run_process(kito, {"-image", images + "/disk.raw", "-csv"});
    EXPECT_NE(image.status, 0);
    EXPECT_NE(image.err.find("prob opening image " + images + "/disk.raw (image support not loaded: "), std::string::npos)
        << image.err;
    std::filesystem::remove(kito);
}

} // namespace
