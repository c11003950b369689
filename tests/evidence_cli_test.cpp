// The built kito where an examiner's run can go wrong without a word: a
// report that cannot be written, an option that names the evidence itself,
// and containers that declare more output than any Prefetch file has.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "prefetch/evidence_guard.h"
#include "support/container_encoder.h"
#include "support/prefetch_builder.h"
#include "support/run_process.h"
#include "support/temp_folder.h"

namespace {

// A Windows 11 file and the same file as a MAM container, side by side.
class evidence : public testing::Test {
protected:
    void SetUp() override
    {
        if (env_or_empty("KITO_BINARY").empty()) GTEST_SKIP() << "KITO_BINARY not set";
        write_file(plain, build_prefetch(typical_prefetch(31)).bytes);
        write_file(packed, encode_mam(build_prefetch(typical_prefetch(31)).bytes));
    }
    // Runs kito with standard output sent to `stdout_path`.
    static process_result run_to(std::string const& stdout_path, std::vector<std::string> args)
    {
        args.insert(args.begin(), {"-c", "exec \"$@\" > " + stdout_path, "sh", env_or_empty("KITO_BINARY")});
        return run_process("/bin/sh", args, "", {"TZ=UTC"});
    }
    temp_folder folder{"evidence"};
    std::string dir = folder.path(), plain = folder / "NOTEPAD.EXE-D8414F97.pf", packed = folder / "packed.pf";
};

// Only the marks of a Prefetch file and of the three containers count, each
// whole and in its place.
TEST(evidence_guard, knows_the_marks_whole_and_in_place)
{
    using namespace std::literals;
    std::pair<std::string_view, bool> const heads[] = {
        {"\x11\0\0\0SCCA"sv, true}, {"MAM\x04"sv, true}, {"MEM0"sv, true}, {"\x81\x81xpress"sv, true},
        {"\x11\0\0\0SCC"sv, false}, {"SCCA\0\0\0\0"sv, false}, {"MA"sv, false}, {"MEM"sv, false},
        {"\x81\x81xpres"sv, false}, {"\x81\x81xpresS"sv, false}, {""sv, false}};
    for (auto const& [head, evidence] : heads) {
        byte_view const view{reinterpret_cast<std::uint8_t const*>(head.data()), head.size()};
        EXPECT_EQ(begins_like_evidence(view), evidence) << head;
    }
}

TEST_F(evidence, a_report_that_cannot_be_written_fails_the_run_once)
{
    struct row {
        std::string stdout_path;
        std::vector<std::string> args;
        std::string message;
    } const rows[] = {
        {"/dev/null", {plain, "-out", "/dev/full"}, "prob writing results to /dev/full\n"},
        {"/dev/full", {plain}, "prob writing results to standard output\n"},
        {"/dev/full", {plain, "-csv"}, "prob writing results to standard output\n"},
        {"/dev/full", {"-pipe", "-bodyfile"}, "prob writing results to standard output\n"},
        // The usage screen goes to standard error; the header alone is lost.
        {"/dev/full", {plain, "extra.pf"}, "prob writing results to standard output\n"},
    };
    for (auto const& r : rows) {
        SCOPED_TRACE(r.args.back());
        process_result const p = run_to(r.stdout_path, r.args);
        EXPECT_EQ(p.status, 255);
        EXPECT_EQ(count_of(p.err, r.message), 1u) << p.err;
    }
    // The same runs with somewhere to write succeed and say nothing of it.
    process_result const fine = run_to("/dev/null", {plain, "-csv"});
    EXPECT_EQ(fine.status, 0);
    EXPECT_EQ(fine.err.find("prob writing"), std::string::npos);
}

TEST_F(evidence, options_never_write_over_a_prefetch_file_or_container)
{
    std::string const link = dir + "/link.pf", hard = dir + "/hard.pf";
    ASSERT_EQ(symlink(packed.c_str(), link.c_str()), 0);
    ASSERT_EQ(::link(plain.c_str(), hard.c_str()), 0);
    std::string const refused_out = "prob opening file %s for output, aborting\n";
    struct row {
        std::vector<std::string> args;
        int status;
        std::string err; // %s stands for the named file
    } const rows[] = {
        {{plain, "-out", plain}, 255, refused_out},
        {{plain, "-outfile", packed}, 255, refused_out},
        {{plain, "-out", link}, 255, refused_out},
        {{plain, "-append", "-out", plain}, 255, refused_out},
        // A log is simply not kept.
        {{plain, "-diags", packed, "-quiet"}, 0, ""},
        // Unpacking onto the input itself, by its name or by another link to it, is a failed write.
        {{packed, "-decompress_to", packed}, 255, ""},
        {{link, "-decompress_to", packed}, 255, ""},
        {{"-enumdir", dir + "/", "-decompress_to", dir}, 255, ""},
    };
    std::string const plain_bytes = read_file(plain), packed_bytes = read_file(packed);
    for (auto const& r : rows) {
        SCOPED_TRACE(r.args[1] + " " + r.args[2]);
        process_result const p = run_kito(r.args);
        EXPECT_EQ(p.status, r.status);
        std::string err = r.err;
        if (std::size_t const at = err.find("%s"); at != std::string::npos) err.replace(at, 2, r.args.back());
        EXPECT_EQ(p.err.substr(0, err.size()), err);
        EXPECT_EQ(read_file(plain), plain_bytes);
        EXPECT_EQ(read_file(hard), plain_bytes);
        EXPECT_EQ(read_file(packed), packed_bytes);
        struct stat facts {};
        EXPECT_TRUE(lstat(link.c_str(), &facts) == 0 && S_ISLNK(facts.st_mode));
    }
    // An ordinary file under a Prefetch-like name is still a results file.
    process_result const report = run_kito({packed, "-out", dir + "/report.pf"});
    EXPECT_EQ(report.status, 0);
    EXPECT_NE(read_file(dir + "/report.pf").find("target file:    NOTEPAD.EXE, run 7 times"), std::string::npos);
}

// Unpacking keeps to the decompressor's own limit; the decoding of reports keeps
// to the loader's, which the corpus run of json_cli_test pins.
TEST_F(evidence, a_container_may_declare_sixteen_mebibytes_and_no_more)
{
    constexpr std::uint32_t limit = 0x1000000;
    for (std::uint32_t const declared : {limit, limit + 1}) {
        SCOPED_TRACE(declared);
        byte_vec container = encode_mam(build_prefetch(typical_prefetch(31)).bytes);
        for (int i = 0; i < 4; ++i) container[4 + i] = static_cast<std::uint8_t>(declared >> (8 * i));
        write_file(packed, container);
        std::string const unpacked = folder / std::to_string(declared);
        process_result const unpack = run_kito({packed, "-decompress_to", unpacked, "-quiet"});
        EXPECT_EQ(unpack.status, declared == limit ? 0 : 255);
        EXPECT_EQ(read_file(unpacked).size(), declared == limit ? limit : 0);
        std::string const said = declared == limit ? "\x1b[2K\r    \rSuccess\n" : "Prob decoding file " + packed + " \n";
        EXPECT_EQ(unpack.err.substr(0, said.size()), said);
    }
}

} // namespace
