// -json as its consumers meet it: every line of a batch over the whole corpus
// parses with Python's json module and with jq, the values agree with the
// sidecars and with the files' own bytes, and text keeps its code units.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <map>
#include <regex>

#include "support/json_lite.h"
#include "support/prefetch_builder.h"
#include "support/run_process.h"

namespace {

namespace fs = std::filesystem;
using strings = std::vector<std::string>;

// A tool found on PATH; status 127 when it is not installed.
process_result run_tool(std::string const& tool, strings args, std::string const& input = {})
{
    args.insert(args.begin(), tool);
    return run_process("/usr/bin/env", args, input);
}

strings lines_of(std::string const& text)
{
    strings lines;
    for (std::size_t start = 0, end; start < text.size(); start = end + 1) {
        end = text.find('\n', start);
        if (end == std::string::npos) end = text.size();
        lines.push_back(text.substr(start, end - start));
    }
    return lines;
}

std::vector<json_value> records_of(std::string const& out)
{
    std::vector<json_value> records;
    EXPECT_TRUE(out.empty() || out.back() == '\n');
    for (std::string const& line : lines_of(out)) EXPECT_TRUE(parse_json(line, records.emplace_back())) << line;
    return records;
}

std::string text(json_value const& object, char const* key)
{
    json_value const* v = object.find(key);
    return v == nullptr ? "<absent>" : v->is_null() ? "null" : v->type == json_value::kind::boolean ? (v->flag ? "true" : "false") : v->text;
}

json_value const& at(json_value const& object, char const* key)
{
    static json_value const missing;
    json_value const* v = object.find(key);
    EXPECT_NE(v, nullptr) << key;
    return v ? *v : missing;
}

// Sidecar text is a string, or {"hex": ...} for bytes that are not UTF-8.
std::string sidecar_text(json_value const& value)
{
    json_value const* hex = value.find("hex");
    std::string bytes = hex ? "" : value.text;
    for (std::size_t i = 0; hex && i + 1 < hex->text.size(); i += 2)
        bytes += static_cast<char>(std::stoi(hex->text.substr(i, 2), nullptr, 16));
    return bytes;
}

template <typename read> auto items_of(json_value const& list, read f)
{
    std::vector<decltype(f(list))> out;
    for (auto const& item : list.items) out.push_back(f(item));
    return out;
}
strings texts_of(json_value const& list) { return items_of(list, sidecar_text); }
strings numbers_of(json_value const& list) { return items_of(list, [](json_value const& v) { return v.text; }); }

// Prints each line's record kind, with "!" when one of its strings holds an
// unpaired high surrogate; fails on the first line that does not parse.
char const python_reader[] = R"(
import json, sys
def strings(v):
    if isinstance(v, str): yield v
    elif isinstance(v, dict):
        for k, x in v.items(): yield k; yield from strings(x)
    elif isinstance(v, list):
        for x in v: yield from strings(x)
lines = sys.stdin.buffer.read().split(b'\n')
assert lines.pop() == b''
for line in lines:
    value = json.loads(line.decode('utf-8'))
    lone = any(0xd800 <= ord(c) <= 0xdbff for s in strings(value) for c in s)
    print(value['record'] + ('!' if lone else ''))
)";

// jq before 1.7 refuses an escaped high surrogate without its low half,
// although JSON allows it; 1.7 reads it as U+FFFD.
bool jq_refuses_lone_surrogates()
{
    int major = 0, minor = 0;
    std::sscanf(run_tool("jq", {"--version"}).out.c_str(), "jq-%d.%d", &major, &minor);
    return major == 1 && minor < 7;
}

// Every line goes to both readers on its own. Python must read each one;
// jq may leave out only the lines that Python finds an unpaired high surrogate in.
void expect_every_line_parses(std::string const& out)
{
    std::vector<json_value> const records = records_of(out);
    process_result const python = run_tool("python3", {"-c", python_reader}, out);
    process_result const jq = run_tool("jq", {"-R", "-r", "try (fromjson | .record) catch \"unparsed\""}, out);
    if (python.status == 127 || jq.status == 127) GTEST_SKIP() << "python3 or jq missing";
    ASSERT_EQ(python.status, 0) << python.err;
    ASSERT_EQ(jq.status, 0) << jq.err;
    strings const by_python = lines_of(python.out), by_jq = lines_of(jq.out);
    ASSERT_EQ(by_python.size(), records.size());
    ASSERT_EQ(by_jq.size(), records.size());
    bool const old_jq = jq_refuses_lone_surrogates();
    for (std::size_t i = 0; i < records.size(); ++i) {
        SCOPED_TRACE("line " + std::to_string(i + 1));
        std::string const record = text(records[i], "record");
        bool const lone = by_python[i] == record + "!";
        EXPECT_TRUE(lone || by_python[i] == record) << by_python[i];
        EXPECT_EQ(by_jq[i], lone && old_jq ? "unparsed" : record);
    }
}

std::string file_bytes(pf_fields const& fields)
{
    std::vector<std::uint8_t> const bytes = build_prefetch(fields).bytes;
    return {bytes.begin(), bytes.end()};
}

class json_cli : public testing::Test {
protected:
    void SetUp() override
    {
        if (env_or_empty("KITO_BINARY").empty()) GTEST_SKIP() << "KITO_BINARY not set";
    }
    std::string dir = make_temp_dir("json");
};

// The failure reasons of the sidecars, in the words of the error records.
std::map<std::string, std::string> const reason_for = {
    {"empty file", "empty file"},
    {"buffer shorter than 228 bytes", "not a Prefetch file"},
    {"no SCCA signature", "not a Prefetch file"},
    {"container output has no SCCA", "not a Prefetch file"},
    {"third container layer is not unwrapped", "not a Prefetch file"},
    // The first block fails and leaves the declared size in zeros.
    {"first table deficient: zero output", "not a Prefetch file"},
    {"kind 4 size code below 15", "container does not decompress"},
    {"kind 4 size code above 15", "container does not decompress"},
    {"declared container output above 16 MiB", "container declares more than 16 MiB"},
    {"strings_offset past the end", "strings section past the end"},
    {"volumes_offset past the end", "volumes section past the end"},
};

std::string serial_text(std::uint64_t serial)
{
    char text[16];
    std::snprintf(text, sizeof text, "%04x-%04x", unsigned(serial >> 16), unsigned(serial & 0xffff));
    return text;
}

void expect_sidecar(json_value const& want, json_value const& got)
{
    if (want.find("reject")->flag) {
        std::string const reason = text(want, "reject_reason");
        ASSERT_TRUE(reason_for.count(reason)) << reason;
        EXPECT_EQ(text(got, "error"), reason_for.at(reason));
        return;
    }
    ASSERT_EQ(text(got, "record"), "prefetch");
    std::string container = text(want, "container"); // "MAM(MEM0)" is written "MAM/MEM0"
    std::replace(container.begin(), container.end(), '(', '/');
    std::erase(container, ')');
    EXPECT_EQ(text(got, "container"), container == "plain" ? "null" : container);
    for (auto const& [mine, theirs] : {std::pair{"label", "version_label"}, {"executable", "target_name"},
                                      {"executable_path", "target_path"}})
        EXPECT_EQ(text(got, mine), sidecar_text(at(want, theirs))) << mine;
    for (auto const& [mine, theirs] : {std::pair{"run_count", "run_count"}, {"last_run_filetime", "last_run"},
                                      {"decoded_size", "decoded_size"}, {"file_size", "input_file_size"}})
        EXPECT_EQ(text(got, mine), text(want, theirs)) << mine;
    strings previous = numbers_of(at(want, "prev_run_times"));
    std::reverse(previous.begin(), previous.end());
    EXPECT_EQ(numbers_of(at(got, "previous_runs_filetime")), previous);
    EXPECT_EQ(items_of(at(got, "files"), [](json_value const& f) { return f.find("path")->text; }),
              texts_of(at(want, "file_strings")));
    auto const& volumes = at(want, "volumes").items;
    ASSERT_EQ(at(got, "volumes").items.size(), volumes.size());
    for (std::size_t v = 0; v < volumes.size(); ++v) {
        json_value const& mine = at(got, "volumes").items[v];
        EXPECT_EQ(text(mine, "device_path"), sidecar_text(at(volumes[v], "path")));
        EXPECT_EQ(text(mine, "created_filetime"), text(volumes[v], "creation_time"));
        EXPECT_EQ(text(mine, "serial"), serial_text(at(volumes[v], "serial").as_u64()));
        EXPECT_EQ(texts_of(at(mine, "directories")), texts_of(at(volumes[v], "directories")));
    }
}

// A real file agrees with its own name and, when it is stored plain, with its header bytes.
void expect_real(std::string const& path, json_value const& got)
{
    std::string const name = fs::path(path).filename().string(), bytes = read_file(path);
    if (bytes.size() < 228 || (bytes.compare(4, 4, "SCCA") != 0 && bytes.compare(0, 3, "MAM") != 0)) {
        EXPECT_EQ(text(got, "error"), "not a Prefetch file");
        return;
    }
    std::string const hash = name.substr(name.rfind('-') + 1, 8);
    EXPECT_EQ(text(got, "name_hash"), hash);
    EXPECT_EQ(text(got, "hash_matches_name"), "true");
    if (bytes.compare(0, 3, "MAM") == 0) {
        EXPECT_EQ(text(got, "container"), "MAM");
        return;
    }
    auto const u32 = [&bytes](std::size_t at) {
        return std::uint32_t(std::uint8_t(bytes[at])) | std::uint32_t(std::uint8_t(bytes[at + 1])) << 8 |
               std::uint32_t(std::uint8_t(bytes[at + 2])) << 16 | std::uint32_t(std::uint8_t(bytes[at + 3])) << 24;
    };
    char header_hash[12];
    std::snprintf(header_hash, sizeof header_hash, "%08X", u32(76));
    EXPECT_EQ(text(got, "prefetch_hash"), header_hash);
    EXPECT_EQ(text(got, "format_version"), std::to_string(u32(0)));
    EXPECT_EQ(text(got, "decoded_size"), std::to_string(bytes.size()));
}

TEST_F(json_cli, whole_corpus_in_one_batch_with_bad_files)
{
    std::string const corpus = corpus_dir();
    if (corpus.empty()) GTEST_SKIP() << "no corpus";
    strings names;
    for (auto const& entry : fs::recursive_directory_iterator(corpus))
        if (entry.path().extension() == ".pf") names.push_back(entry.path().string());
    std::sort(names.begin(), names.end());
    write_file(dir + "/empty.pf", "");
    write_file(dir + "/\xff.pf", file_bytes(typical_prefetch(23)));
    for (std::string const bad : {"/missing.pf", "/empty.pf", "/\xff.pf", ""}) names.push_back(dir + bad);
    std::string input;
    for (std::string const& name : names) input += name + "\n";

    process_result const run = run_kito({"-pipe", "-json", "-quiet"}, input);
    EXPECT_EQ(run.status, 255); // the last name, a folder, fails
    expect_every_line_parses(run.out);
    std::vector<json_value> const records = records_of(run.out);
    ASSERT_EQ(records.size(), names.size() + 2);
    EXPECT_EQ(text(records.front(), "record"), "run");
    json_value const& summary = records.back();
    // Records by path. The reader here makes the escape of the stray byte 0xff,
    // \udcff, into the three-byte form of that unit; it is turned back.
    std::map<std::string, json_value const*> by_path;
    std::size_t reported = 0;
    for (std::size_t i = 1; i + 1 < records.size(); ++i) {
        std::string path = text(records[i], "path");
        if (std::size_t const at = path.find("\xed\xb3\xbf"); at != std::string::npos) path.replace(at, 3, "\xff");
        by_path[path] = &records[i];
        reported += text(records[i], "record") == "prefetch";
    }
    EXPECT_EQ(text(summary, "record") + text(summary, "files") + text(summary, "reported") + text(summary, "failed"),
              "summary" + std::to_string(names.size()) + std::to_string(reported) +
                  std::to_string(names.size() - reported));

    std::size_t sidecars = 0;
    for (std::string const& name : names) {
        SCOPED_TRACE(name);
        ASSERT_TRUE(by_path.count(name));
        json_value const& got = *by_path[name];
        std::string const sidecar = name.substr(0, name.size() - 3) + ".expect.json";
        json_value want;
        if (fs::exists(sidecar) && parse_json(read_file(sidecar), want)) ++sidecars, expect_sidecar(want, got);
        else if (name.find("/real/") != std::string::npos) expect_real(name, got);
    }
    EXPECT_GT(sidecars, 80u);
    struct row { std::string name, error; } const bad_files[] = {
        {"/missing.pf", "cannot be read"}, {"/empty.pf", "empty file"}, {"/\xff.pf", "cannot be read"}, {"", "cannot be read"}};
    for (row const& r : bad_files) EXPECT_EQ(text(*by_path[dir + r.name], "error"), r.error) << r.name;
}

TEST_F(json_cli, file_references_of_a_real_windows_7_file)
{
    std::string const corpus = corpus_dir();
    if (corpus.empty()) GTEST_SKIP() << "no corpus";
    std::vector<json_value> const records = records_of(run_kito({corpus + "/real/Win7/CMD.EXE-4A81B364.pf", "-json"}).out);
    ASSERT_EQ(records.size(), 3u);
    json_value const& first = at(records[1], "files").items.at(0);
    EXPECT_EQ(text(first, "path") + " " + text(first, "mft_entry") + " " + text(first, "mft_sequence"),
              "\\DEVICE\\HARDDISKVOLUME2\\WINDOWS\\SYSTEM32\\NTDLL.DLL 25654 1");
}

// UTF-16 text read unit by unit, NUL and lone surrogates included, comes
// back from Python's json.loads as the same code units.
TEST_F(json_cli, strings_keep_their_code_units_through_python)
{
    std::u16string const directory = {u'\\', 0xd800, u'"', u'\\', 0, u'\n', u'\r', 0xdc00, 0xd83d, 0xde00, u'\u00e9'};
    std::u16string const file = {u'F', 0xdbff, 0xd800, u'\t', 0x7f};
    pf_fields fields = typical_prefetch(30);
    fields.volumes[0].directories = {directory};
    fields.file_strings[2] = file;
    write_file(dir + "/odd.pf", file_bytes(fields));
    process_result const run = run_kito({dir + "/odd.pf", "-json"});
    ASSERT_EQ(run.status, 0);
    char const script[] = R"(
import json, sys
record = json.loads(sys.stdin.read().split('\n')[1])
for text in (record['volumes'][0]['directories'][0], record['files'][2]['path']):
    print(text.encode('utf-16-le', 'surrogatepass').hex())
)";
    process_result const python = run_tool("python3", {"-c", script}, run.out);
    if (python.status == 127) GTEST_SKIP() << "python3 missing";
    auto const hex = [](std::u16string const& units) {
        std::string text;
        char unit[8];
        for (char16_t u : units) std::snprintf(unit, sizeof unit, "%02x%02x", u & 0xff, u >> 8), text += unit;
        return text + "\n";
    };
    EXPECT_EQ(python.out, hex(directory) + hex(file)) << python.err;
}

// Bytes of a Linux path that are not UTF-8 come back through Python's surrogateescape.
TEST_F(json_cli, path_bytes_come_back_through_surrogateescape)
{
    std::string const path = dir + "/caf\xe9\xff-D8414F97.pf";
    write_file(path, file_bytes(typical_prefetch(17)));
    process_result const run = run_kito({path, "-json"});
    char const script[] = R"(
import json, sys
lines = sys.stdin.read().split('\n')
print(json.loads(lines[0])['arguments'][1].encode('utf-8', 'surrogateescape').hex())
print(json.loads(lines[1])['path'].encode('utf-8', 'surrogateescape').hex())
)";
    process_result const python = run_tool("python3", {"-c", script}, run.out);
    if (python.status == 127) GTEST_SKIP() << "python3 missing";
    std::string want;
    char byte[4];
    for (unsigned char c : path) std::snprintf(byte, sizeof byte, "%02x", c), want += byte;
    EXPECT_EQ(python.out, want + "\n" + want + "\n") << python.err;
}

// -json keeps -longform from being forced, wins over the other format words,
// yields to an explicit -longform, frames no batch with separators, and tags
// every record with -hostname and -username.
TEST_F(json_cli, option_interplay)
{
    write_file(dir + "/a.pf", file_bytes(typical_prefetch(26)));
    std::string const a = dir + "/a.pf";
    struct row { strings args; std::string input, first_line; } const rows[] = {
        {{a, "-json"}, "", "{\"record\":\"run\""},
        {{a, "-csv", "-json", "-bodyfile"}, "", "{\"record\":\"run\""},
        {{a, "-json", "-longform"}, "", "kito - ver: 1.39"},
        {{"-pipe", "-enumdir", dir, "-json", "-v"}, a + "\n", "{\"record\":\"run\""},
    };
    for (row const& r : rows) {
        SCOPED_TRACE(r.args.back());
        process_result const run = run_kito(r.args, r.input);
        EXPECT_EQ(run.out.substr(0, r.first_line.size()), r.first_line);
        EXPECT_EQ(run.status, 0);
        if (r.first_line[0] == '{') {
            EXPECT_EQ(records_of(run.out).size(), 3u);
        }
    }
    process_result const tagged =
        run_kito({"-pipe", "-json", "-hostname", "WS01", "-username", "jo", "-quiet"}, a + "\n" + dir + "/none.pf\n");
    std::vector<json_value> const records = records_of(tagged.out);
    ASSERT_EQ(records.size(), 4u);
    for (std::size_t i : {1, 2}) EXPECT_EQ(text(records[i], "host") + text(records[i], "user"), "WS01jo");
    EXPECT_EQ(tagged.err, "prob reading file " + dir + "/none.pf\n");
}

// The README's jq line for Timesketch gives one event for each valid run time.
TEST_F(json_cli, readme_timesketch_line)
{
    std::string const corpus = corpus_dir(), readme = read_file(env_or_empty("KITO_SOURCE") + "/README.md");
    if (corpus.empty()) GTEST_SKIP() << "no corpus";
    std::size_t const start = readme.find("jq -cR '"), end = readme.find("' > ws01-timesketch.jsonl");
    ASSERT_TRUE(start != std::string::npos && end != std::string::npos && start < end);
    std::string const program = readme.substr(start + 8, end - start - 8);
    process_result const run = run_kito({"-enumdir", corpus + "/real", "-num_subdirs", "1", "-json", "-hostname", "WS01"});
    process_result const jq = run_tool("jq", {"-cR", program}, run.out);
    if (jq.status == 127) GTEST_SKIP() << "jq missing";
    ASSERT_EQ(jq.status, 0) << jq.err;
    std::size_t run_times = 0;
    for (json_value const& record : records_of(run.out)) {
        if (text(record, "record") != "prefetch") continue;
        run_times += text(record, "last_run") != "null";
        for (json_value const& time : at(record, "previous_runs").items) run_times += !time.is_null();
    }
    std::vector<json_value> const events = records_of(jq.out);
    EXPECT_EQ(events.size(), run_times);
    EXPECT_GT(run_times, 100u);
    std::regex const iso("[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{7}Z");
    for (json_value const& event : events) {
        EXPECT_TRUE(std::regex_match(text(event, "datetime"), iso)) << text(event, "datetime");
        EXPECT_EQ(text(event, "timestamp_desc").rfind("Prefetch ", 0), 0u);
        EXPECT_NE(text(event, "message").find(" ran (run count "), std::string::npos);
        EXPECT_EQ(text(event, "hostname"), "WS01");
    }
}

} // namespace
