// -image as an examiner runs it, over the images that tests/make_images.sh
// makes once a run: a bare NTFS volume, an MBR disk with two volumes, that
// disk as E01 segments, VMDK, VHD and split raw, and damaged ones. The
// reports are held against the same files read from disk, against the times
// the script set, and against what the sleuthkit tools say of the files.
#include <gtest/gtest.h>

#include <filesystem>
#include <nlohmann/json.hpp>
#include <sstream>

#include "support/run_process.h"
#include "support/temp_folder.h"

namespace {

using json = nlohmann::json;
using strings = std::vector<std::string>;

std::string const images = env_or_empty("KITO_IMAGES");
std::string const samples = env_or_empty("KITO_SAMPLES");

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

// The day of the month the script gave each sample's times.
int day_of(std::string const& name)
{
    strings const order = {"CALC.EXE-77FDF17F.pf", "CMD.EXE-4A81B364.pf", "MSPAINT.EXE-8F2A1C3D.pf",
                           "WORDPAD.EXE-2B4E7D19.pf"};
    return static_cast<int>(std::find(order.begin(), order.end(), name) - order.begin()) + 1;
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

class image_cli_test : public ::testing::Test {
protected:
    void SetUp() override
    {
        if (env_or_empty("KITO_BINARY").empty() || images.empty()) GTEST_SKIP() << "KITO_BINARY or KITO_IMAGES not set";
        if (std::filesystem::exists(images + "/SKIP")) GTEST_SKIP() << read_file(images + "/SKIP");
    }
};

TEST_F(image_cli_test, every_prefetch_file_in_name_order_and_nothing_else)
{
    // "!" marks a file that is listed but refused.
    strings const first = {"2048:/Windows/Prefetch/CALC.EXE-77FDF17F.pf", "2048:/Windows/Prefetch/CMD.EXE-4A81B364.pf",
                           "2048:/Windows/Prefetch/MSPAINT.EXE-8F2A1C3D.pf"};
    strings disk = first;
    disk.insert(disk.end(), {"!34816:/windows/PREFETCH/00-NOT-PREFETCH.pf", "!34816:/windows/PREFETCH/01-HUGE.pf",
                             "34816:/windows/PREFETCH/WORDPAD.EXE-2B4E7D19.pf"});
    strings bare = first;
    for (std::string& name : bare) name.replace(0, 4, "0");
    strings damaged = bare;
    damaged[1] = "!" + damaged[1];
    struct row {
        char const* image;
        strings args, expected;
    } const rows[] = {
        {"volume.raw", {}, bare},
        {"disk.raw", {}, disk},
        {"disk.E01", {}, disk},
        {"disk.vmdk", {}, disk},
        {"disk.vhd", {}, disk},
        {"disk.split.001", {}, disk},
        {"gpt.raw", {}, first},
        {"disk.E01", {"-filter", "c*"}, {first[0], first[1]}},
        {"disk.E01", {"-cmd_start_time", "2021-03-02", "-cmd_stop_time", "2021-03-03"}, {first[1], first[2]}},
        {"damaged-entry.raw", {}, damaged},
    };
    for (row const& r : rows) {
        SCOPED_TRACE(std::string(r.image) + " " + (r.args.empty() ? "" : r.args[0]));
        std::string const image = images + "/" + r.image;
        strings args = {"-image", image, "-json"};
        args.insert(args.end(), r.args.begin(), r.args.end());
        process_result const p = run_kito(args);
        strings seen;
        for (json const& record : file_records(p.out))
            seen.push_back((record["record"] == "error" ? "!" : "") + record["path"].get<std::string>());
        strings expected;
        for (std::string const& name : r.expected)
            expected.push_back(name[0] == '!' ? "!" + image + "@" + name.substr(1) : image + "@" + name);
        EXPECT_EQ(seen, expected);
        EXPECT_EQ(p.status, 0) << p.err;
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
        process_result const found = run_tool("ifind", {"-o", sector, "-n", in_volume, image});
        EXPECT_EQ(found.out, std::to_string(place["mft_entry"].get<std::uint64_t>()) + "\n");
        std::string const istat = run_tool("istat", {"-o", sector, image, found.out.substr(0, found.out.size() - 1)}).out;
        EXPECT_NE(istat.find("Sequence: " + std::to_string(place["mft_sequence"].get<int>()) + "\n"), std::string::npos);
        EXPECT_EQ(place["path"], image);
        // Times as set, to the 100 ns, and as istat reads them.
        std::string const day = std::to_string(day_of(name));
        EXPECT_EQ(record["file_modified"], "2021-03-0" + day + "T05:06:07.1234567Z");
        EXPECT_EQ(record["file_accessed"], "2022-04-0" + day + "T06:07:08.7654321Z");
        EXPECT_EQ(record["file_created"], "2020-0" + day + "-02T03:04:05.1234567Z");
        char const* labels[][2] = {{"file_created", "Created"}, {"file_modified", "File Modified"},
                                   {"file_changed", "MFT Modified"}, {"file_accessed", "Accessed"}};
        for (auto const& [key, label] : labels) EXPECT_EQ(record[key], json_form(istat_value(istat, label))) << key;
        // The rest of the report is that of the same file read from disk.
        std::vector<json> const own = file_records(run_kito({samples + "/" + name, "-json"}).out);
        ASSERT_EQ(own.size(), 1u);
        json expected = own[0];
        for (char const* key : {"path", "file_modified", "file_accessed", "file_changed", "file_created", "image"}) {
            record.erase(key);
            expected.erase(key);
        }
        EXPECT_EQ(record, expected);
    }
}

TEST_F(image_cli_test, text_and_delimited_forms_show_the_ntfs_times)
{
    std::string const image = images + "/volume.raw";
    strings const filter = {"-image", image, "-filter", "CALC*"};
    // modified 2021-03-01 05:06:07, accessed 2022-04-01 06:07:08, created 2020-01-02 03:04:05 (UTC).
    struct row {
        char const* form;
        strings expected;
    } const rows[] = {
        {"", {"Analyzing file: " + image + "@0:/Windows/Prefetch/CALC.EXE-77FDF17F.pf\n",
              "modified:       2021-03-01 05:06:07\naccessed:       2022-04-01 06:07:08\n"}},
        {"-csv", {",2021-03-01, 05:06:07.123,2022-04-01, 06:07:08.765,"}},
        {"-bodyfile", {"|1648793228|1614575167|", "|1577934245\n"}},
    };
    for (row const& r : rows) {
        SCOPED_TRACE(r.form);
        strings args = filter;
        if (*r.form != '\0') args.push_back(r.form);
        process_result const p = run_kito(args);
        for (std::string const& part : r.expected) EXPECT_NE(p.out.find(part), std::string::npos) << p.out;
        EXPECT_EQ(p.status, 0);
    }
    // Every line of the bodyfile, previous runs too, has the NTFS created time.
    std::string const body = run_kito({"-image", image, "-filter", "CALC*", "-bodyfile"}).out;
    EXPECT_EQ(count_of(body, "|1577934245\n"), count_of(body, "|0||0|0|1976|")) << body;
}

TEST_F(image_cli_test, bad_images_say_what_is_missing)
{
    struct row {
        char const* image;
        std::string message;
        int status;
        std::size_t reports;
    } const rows[] = {
        {"no-such.E01", "prob opening image $", 255, 0},
        {"not-an-image.txt", "no NTFS volume in image $\n", 255, 0},
        {"zeros.raw", "no NTFS volume in image $\n", 255, 0},
        {"no-prefetch.raw", "no Prefetch folder in image $\n", 255, 0},
        {"truncated.E01", "prob opening image $: segment $ is truncated\n", 255, 0},
        {"gap/disk.E01", "prob opening image $: segment " + images + "/gap/disk.E02 is missing\n", 255, 0},
        {"damaged-entry.raw", "prob reading file $@0:/Windows/Prefetch/CMD.EXE-4A81B364.pf: damaged MFT entry\n", 0, 2},
        {"disk.E01", "prob reading file $@34816:/windows/PREFETCH/01-HUGE.pf: larger than 16 MiB\n", 0, 4},
    };
    for (row const& r : rows) {
        SCOPED_TRACE(r.image);
        std::string const image = images + "/" + r.image;
        std::string message = r.message;
        for (std::size_t at; (at = message.find('$')) != std::string::npos;) message.replace(at, 1, image);
        process_result const p = run_kito({"-image", image, "-csv"});
        EXPECT_NE(p.err.find(message), std::string::npos) << p.err;
        EXPECT_EQ(p.status, r.status);
        EXPECT_EQ(count_of(p.out, ".pf,"), r.reports) << p.out;
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
        EXPECT_EQ(run_kito({samples + "/" + name, "-decompress_to", reference}).status, 0);
        EXPECT_EQ(read_file(target + "/" + name), read_file(reference)) << name;
    }
    EXPECT_FALSE(std::filesystem::exists(target + "/CALC.EXE-77FDF17F.pf"));
    EXPECT_NE(p.err.find("Prob decoding file " + images + "/disk.E01@2048:/Windows/Prefetch/CALC"), std::string::npos);
}

} // namespace
