// -image as an examiner runs it, over the images of tests/make_images.sh (a bare NTFS volume, MBR and
// GPT disks, the MBR disk as E01 segments, VMDK, VHD and split raw, damaged ones), as the runs of
// tests/data/image_cli.json, against the files read from disk and what the sleuthkit tools say.
#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <nlohmann/json.hpp>
#include <sstream>

#include "support/run_process.h"
#include "support/test_table.h"

namespace {

using json = nlohmann::json;
using strings = std::vector<std::string>;

std::string const images = env_or_empty("KITO_IMAGES");

// The prefetch and error records of a -json run, in their order.
std::vector<json> file_records(std::string const& out)
{
    std::vector<json> found;
    std::istringstream lines(out);
    for (std::string line; std::getline(lines, line);) {
        json record = json::parse(line, nullptr, false);
        EXPECT_FALSE(record.is_discarded()) << line;
        if (record.value("record", "") == "prefetch" || record.value("record", "") == "error") found.push_back(record);
    }
    return found;
}

// "2021-03-01 05:06:07.123456700 (UTC)", as istat writes a time, in the form of -json.
std::string json_form(std::string const& istat_time)
{
    return istat_time.size() < 27 ? istat_time : istat_time.substr(0, 10) + "T" + istat_time.substr(11, 16) + "Z";
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
