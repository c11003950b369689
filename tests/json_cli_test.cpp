// -json as its consumers meet it: every line of a batch over the whole corpus
// parses with Python's json module and with jq, the values agree with the
// sidecars and with the real files' own bytes, and text keeps its code units.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <map>
#include <set>

#include "support/json_lite.h"
#include "support/prefetch_builder.h"
#include "support/run_process.h"
#include "support/temp_folder.h"

namespace {

namespace fs = std::filesystem;
using strings = std::vector<std::string>;

strings lines_of(std::string const& text)
{
    strings lines;
    for (std::size_t start = 0, end; start < text.size(); start = end + 1)
        lines.push_back(text.substr(start, (end = std::min(text.find('\n', start), text.size())) - start));
    return lines;
}

std::vector<json_value> records_of(std::string const& out)
{
    std::vector<json_value> records;
    for (std::string const& line : lines_of(out)) EXPECT_TRUE(parse_json(line, records.emplace_back())) << line;
    return records;
}

// A member as text: a string's bytes, a number's digits, or the literal.
std::string text(json_value const& object, char const* key)
{
    json_value const& v = member_of(object, key);
    if (v.type == json_value::kind::boolean) return v.flag ? "true" : "false";
    return v.is_null() ? "null" : v.text;
}

// Prints each line's record kind, with "!" when one of its strings holds an
// unpaired high surrogate; fails at the first line that is not UTF-8 and JSON.
char const python_reader[] = R"(
import json, sys
def strings(v):
    if isinstance(v, str): yield v
    elif isinstance(v, (dict, list)):
        for x in (v.items() if isinstance(v, dict) else enumerate(v)): yield from strings(x[0]); yield from strings(x[1])
lines = sys.stdin.buffer.read().split(b'\n')
assert lines.pop() == b''
for line in lines:
    value = json.loads(line.decode('utf-8'))
    print(value['record'] + ('!' if any(0xd800 <= ord(c) <= 0xdbff for s in strings(value) for c in s) else ''))
)";

// Each line goes to both readers on its own. jq before 1.7 refuses an escaped
// high surrogate without its low half, which JSON allows; 1.7 reads U+FFFD.
// `refused` tells, line by line, whether jq refused it.
void expect_every_line_parses(std::string const& out, std::vector<json_value> const& records, std::vector<bool>& refused)
{
    refused.assign(records.size(), false);
    process_result const python = run_tool("python3", {"-c", python_reader}, out);
    process_result const jq = run_tool("jq", {"-R", "-r", "try (fromjson | .record) catch \"unparsed\""}, out);
    if (python.status == 127 || jq.status == 127) GTEST_SKIP() << "python3 or jq missing";
    EXPECT_EQ(std::pair(python.status, jq.status), std::pair(0, 0)) << python.err << jq.err;
    int major = 0, minor = 0;
    std::sscanf(run_tool("jq", {"--version"}).out.c_str(), "jq-%d.%d", &major, &minor);
    strings const by_python = lines_of(python.out), by_jq = lines_of(jq.out);
    EXPECT_EQ(std::pair(by_python.size(), by_jq.size()), std::pair(records.size(), records.size()));
    for (std::size_t i = 0; i < records.size() && i < by_python.size() && i < by_jq.size(); ++i) {
        std::string const record = text(records[i], "record");
        bool const lone = by_python[i] == record + "!";
        refused[i] = by_jq[i] == "unparsed";
        EXPECT_TRUE(lone || by_python[i] == record) << i << by_python[i];
        EXPECT_EQ(by_jq[i], lone && major == 1 && minor < 7 ? "unparsed" : record) << i;
    }
}

// The sidecars' reasons for a refused file, in the words of the error records.
std::map<std::string, std::string> const reason_for = {
    {"empty file", "empty file"},
    {"buffer shorter than 228 bytes", "not a Prefetch file"},
    {"no SCCA signature", "not a Prefetch file"},
    {"container output has no SCCA", "not a Prefetch file"},
    {"third container layer is not unwrapped", "not a Prefetch file"},
    {"first table deficient: zero output", "not a Prefetch file"}, // the declared size in zeros
    {"kind 4 size code below 15", "container does not decompress"},
    {"kind 4 size code above 15", "container does not decompress"},
    {"declared container output above 16 MiB", "container declares more than 16 MiB"},
    {"strings_offset past the end", "strings section past the end"},
    {"volumes_offset past the end", "volumes section past the end"},
};

void expect_sidecar(json_value const& want, json_value const& got)
{
    if (want.find("reject")->flag) {
        EXPECT_EQ(text(got, "error"), reason_for.at(text(want, "reject_reason")));
        return;
    }
    std::string container = text(want, "container"); // "MAM(MEM0)" is written "MAM/MEM0"
    std::replace(container.begin(), container.end(), '(', '/');
    std::erase(container, ')');
    EXPECT_EQ(text(got, "container"), container == "plain" ? "null" : container);
    for (auto const& [mine, theirs] : {std::pair{"label", "version_label"}, {"executable", "target_name"},
                                       {"executable_path", "target_path"}})
        EXPECT_EQ(text(got, mine), sidecar_text(member_of(want, theirs))) << mine;
    for (auto const& [mine, theirs] : {std::pair{"run_count", "run_count"}, {"last_run_filetime", "last_run"},
                                       {"decoded_size", "decoded_size"}, {"file_size", "input_file_size"}})
        EXPECT_EQ(text(got, mine), text(want, theirs)) << mine;
    std::vector<std::uint64_t> previous = numbers_of(member_of(want, "prev_run_times"));
    std::reverse(previous.begin(), previous.end());
    EXPECT_EQ(numbers_of(member_of(got, "previous_runs_filetime")), previous);
    strings files;
    for (json_value const& file : member_of(got, "files").items) files.push_back(text(file, "path"));
    EXPECT_EQ(files, sidecar_texts(member_of(want, "file_strings")));
    auto const& volumes = member_of(want, "volumes").items;
    ASSERT_EQ(member_of(got, "volumes").items.size(), volumes.size());
    for (std::size_t v = 0; v < volumes.size(); ++v) {
        json_value const& mine = member_of(got, "volumes").items[v];
        std::uint64_t const serial = member_of(volumes[v], "serial").as_u64();
        char serial_text[16];
        std::snprintf(serial_text, sizeof serial_text, "%04x-%04x", unsigned(serial >> 16), unsigned(serial & 0xffff));
        EXPECT_EQ(text(mine, "device_path") + text(mine, "created_filetime") + text(mine, "serial"),
                  sidecar_text(member_of(volumes[v], "path")) + text(volumes[v], "creation_time") + serial_text);
        EXPECT_EQ(sidecar_texts(member_of(mine, "directories")), sidecar_texts(member_of(volumes[v], "directories")));
    }
}

// What a real file's own bytes say, read here without the product's readers:
// one row per layout, with the offsets of the last run and the run count.
struct layout {
    std::uint32_t version;
    char const* label;
    bool newest_slot; // the largest of the eight slots at 128..184 is the last run
    std::size_t last_run_at, run_count_at;
} const layouts[] = {{17, "WinXP Prefetch", false, 120, 144}, {23, "Vista/Win7 Prefetch", false, 128, 152},
                     {26, "Win8 Prefetch", true, 128, 208}, {31, "Win11 Prefetch", true, 128, 200}};

struct real_counts { int plain = 0, containers = 0, two_volume_win11 = 0; };

// A real file agrees with its name and, where it is stored plain, with its header bytes.
void expect_real(std::string const& path, json_value const& got, std::string const& line, real_counts& counts)
{
    std::string const name = fs::path(path).filename().string(), bytes = read_file(path);
    if (path.find("/Bad/") != std::string::npos) {
        EXPECT_EQ(text(got, "error"), "not a Prefetch file");
        return;
    }
    EXPECT_EQ(text(got, "name_hash") + " " + text(got, "hash_matches_name"), name.substr(name.rfind('-') + 1, 8) + " true");
    // A garbage volume record would show as escaped surrogates; the path is among the strings.
    EXPECT_EQ(line.find("\\ud"), std::string::npos);
    auto const& volumes = member_of(got, "volumes").items;
    EXPECT_FALSE(member_of(got, "files").items.empty() || volumes.empty());
    EXPECT_NE(text(got, "executable_path").find('\\'), std::string::npos);
    for (json_value const& volume : volumes) EXPECT_EQ(text(volume, "device_path").rfind('\\', 0), 0u);
    if (bytes.compare(0, 3, "MAM") == 0) {
        ++counts.containers;
        EXPECT_EQ(text(got, "container") + " " + text(got, "label"), "MAM Win10 Prefetch");
        return;
    }
    ++counts.plain;
    auto const le = [&bytes](std::size_t at, int width) {
        std::uint64_t value = 0;
        for (int i = width - 1; i >= 0; --i) value = value << 8 | static_cast<std::uint8_t>(bytes.at(at + i));
        return value;
    };
    ASSERT_EQ(bytes.compare(4, 4, "SCCA"), 0);
    auto const* row = std::find_if(std::begin(layouts), std::end(layouts), [&](layout const& l) { return l.version == le(0, 4); });
    ASSERT_NE(row, std::end(layouts));
    if (row->version == 31) {
        EXPECT_EQ(le(84, 4), 296u); // Windows 11 moved the run count with the metrics offset
        counts.two_volume_win11 += volumes.size() == 2;
    }
    std::string executable; // ASCII in all real samples
    for (std::size_t i = 16; i < 76 && bytes[i] != 0; i += 2) executable += bytes[i];
    std::set<std::uint64_t> previous;
    std::uint64_t newest = le(row->last_run_at, 8);
    for (std::size_t slot = 136; row->newest_slot && slot < 192; slot += 8) {
        newest = std::max(newest, le(slot, 8));
        if (le(slot, 8) != 0) previous.insert(le(slot, 8));
    }
    EXPECT_TRUE(newest != 0 && le(row->run_count_at, 4) != 0);
    char hash[12];
    std::snprintf(hash, sizeof hash, "%08X", unsigned(le(76, 4)));
    EXPECT_EQ(text(got, "label") + "|" + text(got, "format_version") + "|" + text(got, "prefetch_hash") + "|" +
                  text(got, "decoded_size") + "|" + text(got, "file_size") + "|" + text(got, "executable") + "|" +
                  text(got, "run_count") + "|" + text(got, "last_run_filetime"),
              std::string(row->label) + "|" + std::to_string(row->version) + "|" + hash + "|" +
                  std::to_string(bytes.size()) + "|" + std::to_string(bytes.size()) + "|" + executable + "|" +
                  std::to_string(le(row->run_count_at, 4)) + "|" + std::to_string(newest));
    EXPECT_EQ(numbers_of(member_of(got, "previous_runs_filetime")), std::vector<std::uint64_t>(previous.rbegin(), previous.rend()));
}

TEST(json_cli, whole_corpus_in_one_batch_with_bad_files)
{
    temp_folder const folder{"json"};
    std::string const corpus = corpus_dir(), dir = folder.path();
    if (corpus.empty() || env_or_empty("KITO_BINARY").empty()) GTEST_SKIP() << "no corpus or no kito";
    strings names;
    for (auto const& entry : fs::recursive_directory_iterator(corpus))
        if (entry.path().extension() == ".pf") names.push_back(entry.path().string());
    std::sort(names.begin(), names.end());
    write_file(dir + "/empty.pf", "");
    write_file(dir + "/bad\xff.pf", build_prefetch(typical_prefetch(23)).bytes); // not UTF-8: its facts cannot be asked for
    for (char const* bad : {"/missing.pf", "/empty.pf", "/bad\xff.pf", ""}) names.push_back(dir + bad);
    std::string input;
    for (std::string const& name : names) input += name + "\n";

    process_result const run = run_kito({"-pipe", "-json", "-quiet"}, input);
    EXPECT_EQ(run.status, 255); // the last name, a folder, fails
    strings const lines = lines_of(run.out);
    std::vector<json_value> const records = records_of(run.out);
    ASSERT_EQ(records.size(), names.size() + 2);
    std::size_t reported = 0;
    real_counts counts;
    for (std::size_t i = 0; i < names.size(); ++i) {
        json_value const& got = records[i + 1];
        SCOPED_TRACE(names[i]);
        reported += text(got, "record") == "prefetch";
        json_value want;
        std::string const sidecar = names[i].substr(0, names[i].size() - 3) + ".expect.json";
        if (names[i].find("/real/") != std::string::npos) expect_real(names[i], got, lines[i + 1], counts);
        else if (parse_json(read_file(sidecar), want)) expect_sidecar(want, got);
        else EXPECT_EQ(text(got, "error"), names[i].ends_with("empty.pf") ? "empty file" : "cannot be read");
        if (names[i].ends_with("Win7/CMD.EXE-4A81B364.pf")) {
            json_value const& ntdll = member_of(got, "files").items.at(0);
            EXPECT_EQ(text(ntdll, "path") + " " + text(ntdll, "mft_entry") + " " + text(ntdll, "mft_sequence"),
                      "\\DEVICE\\HARDDISKVOLUME2\\WINDOWS\\SYSTEM32\\NTDLL.DLL 25654 1");
        }
    }
    EXPECT_EQ(text(records.back(), "record") + text(records.back(), "files") + "/" + text(records.back(), "failed"),
              "summary" + std::to_string(names.size()) + "/" + std::to_string(names.size() - reported));
    EXPECT_GT(reported, 110u);
    EXPECT_EQ(std::tuple(counts.plain, counts.containers, counts.two_volume_win11), std::tuple(46, 6, 2));

    std::vector<bool> refused_by_jq;
    expect_every_line_parses(run.out, records, refused_by_jq);
    if (IsSkipped()) return;
    // The README's jq line for Timesketch: one event for each valid run time
    // of the lines that jq reads.
    std::string const readme = read_file(env_or_empty("KITO_SOURCE") + "/README.md");
    std::size_t const start = readme.find("jq -cR '") + 8, end = readme.find("' > ws01-timesketch.jsonl");
    ASSERT_LT(start, end);
    std::size_t run_times = 0;
    for (std::size_t i = 0; i < records.size(); ++i) {
        if (refused_by_jq[i] || text(records[i], "record") != "prefetch") continue;
        run_times += text(records[i], "last_run") != "null";
        for (json_value const& time : member_of(records[i], "previous_runs").items) run_times += !time.is_null();
    }
    std::vector<json_value> const events = records_of(run_tool("jq", {"-cR", readme.substr(start, end - start)}, run.out).out);
    EXPECT_EQ(events.size(), run_times);
    for (json_value const& event : events) {
        EXPECT_EQ(text(event, "datetime").size(), std::size("2014-06-01T10:20:30.1234567Z") - 1);
        EXPECT_EQ(text(event, "timestamp_desc").rfind("Prefetch ", 0), 0u);
    }
}

// UTF-16 text, read unit by unit with NUL and lone surrogates, comes back from
// Python's json.loads as the same units; a path's stray bytes through surrogateescape.
TEST(json_cli, text_survives_python_unit_for_unit_and_byte_for_byte)
{
    temp_folder const folder{"json"};
    std::string const dir = folder.path(), good = dir + "/odd.pf", stray = dir + "/caf\xe9\xff.pf";
    if (env_or_empty("KITO_BINARY").empty()) GTEST_SKIP() << "no kito";
    std::u16string const directory = {u'\\', 0xd800, u'"', u'\\', 0, u'\n', u'\r', 0xdc00, 0xd83d, 0xde00, u'\u00e9'};
    std::u16string const file = {u'F', 0xdbff, 0xd800, u'\t', 0x7f};
    pf_fields fields = typical_prefetch(30);
    fields.volumes[0].directories = {directory};
    fields.file_strings[2] = file;
    write_file(good, build_prefetch(fields).bytes);
    // A path that is not UTF-8 is read, but the file system is not asked for its facts.
    write_file(stray, build_prefetch(fields).bytes);
    process_result const run = run_kito({"-pipe", "-json", "-hostname", stray}, good + "\n" + stray + "\n");
    char const script[] = R"(
import json, sys
run, record, error = [json.loads(line) for line in sys.stdin.read().split('\n')[:3]]
for text in (record['volumes'][0]['directories'][0], record['files'][2]['path']):
    print(text.encode('utf-16-le', 'surrogatepass').hex())
for text in (run['arguments'][4], error['path'], error['host']):
    print(text.encode('utf-8', 'surrogateescape').hex())
)";
    process_result const python = run_tool("python3", {"-c", script}, run.out);
    if (python.status == 127) GTEST_SKIP() << "python3 missing";
    std::string want;
    char hex[8];
    for (std::u16string const& units : {directory, file}) {
        for (char16_t u : units) std::snprintf(hex, sizeof hex, "%02x%02x", u & 0xff, u >> 8), want += hex;
        want += "\n";
    }
    for (int i = 0; i < 3; ++i) {
        for (unsigned char c : stray) std::snprintf(hex, sizeof hex, "%02x", c), want += hex;
        want += "\n";
    }
    EXPECT_EQ(python.out, want) << python.err;
}

// -json keeps -longform from being forced, wins over the other format words,
// yields to an explicit -longform, frames no batch with separators, and tags
// every record with -hostname and -username.
TEST(json_cli, option_interplay)
{
    temp_folder const folder{"json"};
    std::string const dir = folder.path(), a = dir + "/a.pf";
    if (env_or_empty("KITO_BINARY").empty()) GTEST_SKIP() << "no kito";
    write_file(a, build_prefetch(typical_prefetch(26)).bytes);
    struct row { strings args; std::string first_line; std::size_t records; } const rows[] = {
        {{a, "-json"}, "{\"record\":\"run\"", 3},
        {{a, "-csv", "-json", "-bodyfile"}, "{\"record\":\"run\"", 3},
        {{a, "-json", "-longform"}, "kito - ver: 1.39", 0},
        {{"-pipe", "-json", "-v", "-hostname", "WS01", "-username", "jo"}, "{\"record\":\"run\"", 4},
    };
    for (row const& r : rows) {
        SCOPED_TRACE(r.args.back());
        process_result const run = run_kito(r.args, a + "\n" + dir + "/none.pf\n");
        EXPECT_EQ(run.out.substr(0, r.first_line.size()), r.first_line);
        if (r.records == 0) continue;
        std::vector<json_value> const records = records_of(run.out);
        ASSERT_EQ(records.size(), r.records);
        if (r.records == 4) {
            EXPECT_EQ(text(records[1], "host") + text(records[2], "user"), "WS01jo");
        }
    }
}

} // namespace
