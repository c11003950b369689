// Decoding rules of plain Prefetch buffers, driven through the test-side
// builder: acceptance, the per-version header table, the run-time slots, the
// file strings with the executable-path search, and the volumes section with
// every kind of damage that must degrade rather than reject.
#include <gtest/gtest.h>

#include <cstdio>
#include <functional>
#include <memory>

#include "driver/kito_user_context.h"
#include "prefetch/decode_chain.h"
#include "prefetch/prefetch_header.h"
#include "support/prefetch_builder.h"
#include "support/run_process.h"

namespace {

using strings = std::vector<std::string>;

std::string ascii(std::u16string const& text) { return std::string(text.begin(), text.end()); }

struct decoded {
    bool ok = false;
    std::unique_ptr<kito_user_context> context = std::make_unique<kito_user_context>();
    prefetch_entry const& entry() const { return context->m_entry; }
};

decoded decode(pf_image const& image)
{
    decoded result;
    result.ok = decode_prefetch_buffer(image.bytes.data(), image.size(), *result.context);
    return result;
}

strings values_of(offset_string_map const& map)
{
    strings out;
    for (auto const& [key, text] : map) out.push_back(text);
    return out;
}

TEST(PrefetchHeader, AcceptanceLooksAtSizeAndSignatureOnly)
{
    struct row {
        std::size_t size;
        char const* signature;
        bool accepted;
    } const rows[] = {{228, "SCCA", true}, {227, "SCCA", false}, {4096, "SCCA", true},
                      {228, "SCCB", false}, {228, "scca", false}};
    for (auto const& r : rows) {
        SCOPED_TRACE(std::to_string(r.size) + " " + r.signature);
        std::vector<std::uint8_t> bytes(r.size, 0xff); // version, sizes and offsets all nonsense
        std::copy_n(r.signature, 4, bytes.begin() + 4);
        EXPECT_EQ(is_prefetch_buffer(bytes.data(), static_cast<std::int32_t>(r.size)), r.accepted);
        kito_user_context context;
        // A buffer that passes is still refused later when its section offsets lie outside.
        EXPECT_FALSE(decode_prefetch_buffer(bytes.data(), static_cast<std::uint32_t>(r.size), context));
    }
    EXPECT_FALSE(is_prefetch_buffer(nullptr, 4096));
    std::vector<std::uint8_t> bytes(300, 0);
    std::copy_n("SCCA", 4, bytes.begin() + 4);
    EXPECT_FALSE(is_prefetch_buffer(bytes.data(), -1));
}

// One row per layout: run count and last run come from the version's own
// offsets, and a declared size below 228 takes them away but nothing else.
TEST(PrefetchHeader, VersionTable)
{
    constexpr std::uint64_t xp_last = 130500000000000000ULL;
    constexpr std::uint64_t newest = 131000000000000001ULL, older = 130900000000000000ULL;
    struct row {
        std::uint32_t version, metrics_offset;
        char const* label;
        std::uint32_t run_count;
        std::uint64_t last_run;
        bool run_info, harvest;
    } const rows[] = {
        {17, 152, "WinXP Prefetch", 7, xp_last, true, false},
        {23, 240, "Vista/Win7 Prefetch", 7, xp_last, true, false},
        {26, 304, "Win8 Prefetch", 7, newest, true, true},
        {30, 304, "Win10 Prefetch", 7, newest, true, true},
        {30, 296, "Win10 Prefetch", 7, newest, true, true},
        {30, 300, "Win10 Prefetch", 0, 0, false, true},
        {31, 304, "Prefetch", 0, 0, false, false},
    };
    for (auto const& r : rows) {
        for (bool small_declared_size : {false, true}) {
            SCOPED_TRACE(std::to_string(r.version) + "/" + std::to_string(r.metrics_offset) +
                         (small_declared_size ? " declared 100" : ""));
            pf_fields fields = typical_prefetch(r.version);
            fields.metrics_offset = r.metrics_offset;
            fields.last_run = xp_last;
            // The newest time sits in slot 136, not 128: it is last run and a previous run.
            fields.run_slots = {older, newest, older, 0, 0, 0, 0, older - 5};
            if (small_declared_size) fields.declared_size = 100;
            decoded const d = decode(build_prefetch(fields));
            ASSERT_TRUE(d.ok);
            bool const run_info = r.run_info && !small_declared_size;
            EXPECT_EQ(d.context->m_version_label, r.label);
            EXPECT_EQ(d.entry().run_count, run_info ? r.run_count : 0u);
            EXPECT_EQ(d.entry().last_run, run_info ? r.last_run : 0u);
            std::set<std::uint64_t> entry_times{130900000000000000ULL, 130800000000000000ULL}; // volumes
            if (run_info) entry_times.insert(r.last_run);
            EXPECT_EQ(d.entry().entry_times, entry_times);
            std::set<std::uint64_t> const harvested{older - 5, older, newest};
            EXPECT_EQ(d.entry().prev_run_times, r.harvest ? harvested : std::set<std::uint64_t>{});
            EXPECT_EQ(d.entry().file_strings.size(), 3u);
            EXPECT_EQ(d.entry().volume_paths.size(), 2u);
        }
    }
}

TEST(PrefetchHeader, RunTimeSlots)
{
    constexpr std::uint64_t t = 131000000000000000ULL, far_future = 0xfffffffffffffff0ULL;
    struct row {
        char const* name;
        std::array<std::uint64_t, 8> slots;
        std::uint64_t last_run;
        std::set<std::uint64_t> prev_runs;
    } const rows[] = {
        {"all zero", {}, 0, {}},
        {"only slot 128", {t}, t, {}},
        {"only slot 184", {0, 0, 0, 0, 0, 0, 0, t}, t, {t}},
        {"equal slots show once", {0, t, t, t - 1}, t, {t - 1, t}},
        {"far future slot wins", {t, far_future}, far_future, {far_future}},
    };
    for (auto const& r : rows) {
        SCOPED_TRACE(r.name);
        pf_fields fields = typical_prefetch(26);
        fields.run_slots = r.slots;
        fields.volumes.clear();
        decoded const d = decode(build_prefetch(fields));
        ASSERT_TRUE(d.ok);
        EXPECT_EQ(d.entry().last_run, r.last_run);
        EXPECT_EQ(d.entry().entry_times, std::set<std::uint64_t>{r.last_run}); // a zero last run goes in too
        EXPECT_EQ(d.entry().prev_run_times, r.prev_runs);
    }
}

TEST(PrefetchHeader, ExecutableName)
{
    pf_fields fields = typical_prefetch(30);
    fields.exe_name = u"DCODEDCODEDCODEDCODEDCODEDCODE";
    fields.file_strings = {u"\\VOLUME\\OTHER.DLL"};
    fields.volumes.clear();
    pf_image image = build_prefetch(fields);
    image.put_u16(76, 'X'); // the hash behind a full name is not a 31st unit
    decoded d = decode(image);
    EXPECT_EQ(d.entry().target_name, "DCODEDCODEDCODEDCODEDCODEDCODE");
    EXPECT_EQ(d.entry().target_path, "DCODEDCODEDCODEDCODEDCODEDCODE");

    image.put_u16(16, 0);
    d = decode(image);
    EXPECT_EQ(d.entry().target_name, "");
    EXPECT_EQ(d.entry().target_path, "\\VOLUME\\OTHER.DLL"); // an empty name is in every string
}

// File strings: how many are taken, under which keys, and which of them is
// the executable's path.
TEST(SectionTables, FileStringsAndExecutablePath)
{
    std::u16string const ntdll = u"\\DEVICE\\HARDDISKVOLUME2\\WINDOWS\\SYSTEM32\\NTDLL.DLL";
    std::u16string const notepad = u"\\DEVICE\\HARDDISKVOLUME2\\WINDOWS\\SYSTEM32\\NOTEPAD.EXE";
    struct row {
        char const* name;
        std::u16string exe_name;
        std::vector<std::u16string> strings;
        std::optional<std::uint32_t> metrics_count;
        bool terminate_last;
        std::size_t taken;
        std::string target_path;
    } const rows[] = {
        {"path found", u"NOTEPAD.EXE", {ntdll, notepad}, {}, true, 2, ascii(notepad)},
        {"case differs", u"NOTEPAD.EXE", {ntdll, u"\\WINDOWS\\notepad.exe"}, {}, true, 2, "NOTEPAD.EXE"},
        {"first containing string wins", u"NOTEPAD.EXE", {u"\\X\\NOTEPAD.EXE\\A.DAT", notepad}, {}, true, 2,
         "\\X\\NOTEPAD.EXE\\A.DAT"},
        {"empty name, empty first string", u"", {u"", notepad}, {}, true, 2, "unk"},
        {"metrics count 3 of 5", u"B", {u"A", u"B", u"C", u"D", u"E"}, 3, true, 3, "B"},
        {"metrics count 0 reads to the end", u"E", {u"A", u"B", u"C", u"D", u"E"}, 0, true, 5, "E"},
        {"metrics count too large", u"Z", {u"A", u"B", u"C"}, 99, true, 3, "Z"},
        {"empty string has its own key", u"B", {u"A", u"", u"B"}, {}, true, 3, "B"},
        {"unterminated last string dropped", u"C", {u"A", u"B", u"C"}, {}, false, 2, "C"},
        {"no strings", u"CMD.EXE", {}, {}, true, 0, "CMD.EXE"},
    };
    for (auto const& r : rows) {
        SCOPED_TRACE(r.name);
        pf_fields fields = typical_prefetch(23);
        fields.exe_name = r.exe_name;
        fields.file_strings = r.strings;
        fields.metrics_count = r.metrics_count;
        fields.terminate_last_string = r.terminate_last;
        fields.volumes.clear();
        pf_image image = build_prefetch(fields);
        // The buffer ends with the last string, so that a count that is too
        // large finds nothing more behind it.
        std::uint32_t end = image.strings_offset;
        if (!r.strings.empty())
            end = image.string_offsets.back() + 2 * static_cast<std::uint32_t>(r.strings.back().size() + r.terminate_last);
        image.bytes.resize(end);
        image.put_u32(100, image.strings_offset);
        image.put_u32(108, image.size());
        decoded const d = decode(image);
        ASSERT_TRUE(d.ok);
        std::vector<std::uint64_t> keys;
        strings texts;
        for (auto const& [key, text] : d.entry().file_strings) keys.push_back(key), texts.push_back(text);
        ASSERT_EQ(keys.size(), r.taken);
        for (std::size_t i = 0; i < r.taken; ++i) {
            EXPECT_EQ(keys[i], image.string_offsets[i]);
            EXPECT_EQ(texts[i], ascii(r.strings[i]));
        }
        EXPECT_EQ(d.entry().target_path, r.target_path);
    }
}

pf_fields volume_base(std::uint32_t version)
{
    pf_fields fields = typical_prefetch(version);
    fields.file_strings = {u"\\VOL1\\NOTEPAD.EXE"};
    fields.volumes = {{u"\\VOL1", 111, 1, std::vector<std::uint8_t>(20, 0xab), {u"\\VOL1\\A", u"\\VOL1\\B"}, {}, 0, true},
                    {u"\\VOL2", 222, 2, std::vector<std::uint8_t>(20, 0xcd), {u"\\VOL2\\C", u"\\VOL2\\D"}, {}, 0, true}};
    return fields;
}

// The volumes section: count from the first record, record size by version,
// padding, directory strings, and every damage that ends a list early.
TEST(SectionTables, VolumesDegrade)
{
    using dir_lists = std::vector<strings>;
    dir_lists const both = {{"\\VOL1\\A", "\\VOL1\\B"}, {"\\VOL2\\C", "\\VOL2\\D"}};
    struct row {
        char const* name;
        std::uint32_t version;
        std::function<void(pf_fields&)> change_fields;
        std::function<void(pf_image&)> damage;
        strings paths;
        dir_lists dirs;
    } const rows[] = {
        {"sound v17", 17, {}, {}, {"\\VOL1", "\\VOL2"}, both},
        {"header count ignored v23", 23, {}, [](pf_image& i) { i.put_u32(112, 9); }, {"\\VOL1", "\\VOL2"}, both},
        {"sound v26", 26, {}, {}, {"\\VOL1", "\\VOL2"}, both},
        {"sound v30", 30, {}, {}, {"\\VOL1", "\\VOL2"}, both},
        {"unknown version uses 40-byte records", 31, {}, {}, {"\\VOL1", "\\VOL2"}, both},
        // 192 bytes of v30 records read as 104-byte records: one volume.
        {"record size follows the version word", 30, {}, [](pf_image& i) { i.put_u32(0, 26); }, {"\\VOL1"},
         {both[0]}},
        {"first path offset below record size", 30, {}, [](pf_image& i) { i.put_u32(i.volumes_offset, 50); }, {}, {}},
        {"later path offset zero", 30, {}, [](pf_image& i) { i.put_u32(i.volumes_offset + 96, 0); }, {"\\VOL1"},
         {both[0]}},
        {"later path past the end", 30, {}, [](pf_image& i) { i.put_u32(i.volumes_offset + 96, i.size()); },
         {"\\VOL1"}, {both[0]}},
        {"path offset wraps round", 30, {},
         [](pf_image& i) { i.put_u32(i.volumes_offset + 96, 0u - i.volumes_offset + i.path_offsets[0]); },
         {"\\VOL1", "\\VOL1"}, {both[0], both[0]}},
        {"directory count 0", 30, {}, [](pf_image& i) { i.put_u32(i.volumes_offset + 32, 0); },
         {"\\VOL1", "\\VOL2"}, {{}, both[1]}},
        {"directory count above the strings", 30, {}, [](pf_image& i) { i.put_u32(i.volumes_offset + 96 + 32, 7); },
         {"\\VOL1", "\\VOL2"}, both},
        {"directory past the end of the buffer", 30, {}, [](pf_image& i) { i.put_u16(i.dir_offsets[0] + 18, 0x7fff); },
         {"\\VOL1", "\\VOL2"}, {{"\\VOL1\\A"}, both[1]}},
        {"zero length words skipped", 30, [](pf_fields& s) { s.volumes[0].zero_words_before_dirs = 3; }, {},
         {"\\VOL1", "\\VOL2"}, both},
        {"zero length words up to the end", 30, [](pf_fields& s) { s.volumes[1].directories.clear(); },
         [](pf_image& i) { i.put_u32(i.volumes_offset + 96 + 32, 1), i.bytes.resize(i.size() + 6, 0); },
         {"\\VOL1", "\\VOL2"}, {both[0], {}}},
        {"padding counts from the buffer start", 30, [](pf_fields& s) { s.volumes_shift = 4; }, {},
         {"\\VOL1", "\\VOL2"}, both},
        {"path ending on a multiple of 8", 30,
         [](pf_fields& s) { s.volumes[0].device_path = u"\\V1", s.volumes[0].directories = {u"\\V1\\A"}; }, {},
         {"\\V1", "\\VOL2"}, {{"\\V1\\A"}, both[1]}},
        {"unterminated last path", 30,
         [](pf_fields& s) { s.volumes[1] = {u"\\VOL2", 222, 2, {}, {}, {}, 0, false}; }, {}, {"\\VOL1", "\\VOL2"},
         {both[0], {}}},
        {"negative first path offset", 30, {}, [](pf_image& i) { i.put_u32(i.volumes_offset, 0xfffffff0); }, {}, {}},
        {"volumes offset at the last bytes", 30, {},
         [](pf_image& i) { i.put_u32(108, i.size() - 2); }, {}, {}},
    };
    for (auto const& r : rows) {
        SCOPED_TRACE(r.name);
        pf_fields fields = volume_base(r.version);
        if (r.change_fields) r.change_fields(fields);
        pf_image image = build_prefetch(fields);
        if (r.damage) r.damage(image);
        decoded const d = decode(image);
        ASSERT_TRUE(d.ok);
        auto const& e = d.entry();
        EXPECT_EQ(e.volume_paths, r.paths);
        ASSERT_EQ(e.volume_dirs.size(), r.dirs.size());
        ASSERT_EQ(e.volume_records.size(), r.paths.size());
        for (std::size_t v = 0; v < r.dirs.size(); ++v) EXPECT_EQ(values_of(e.volume_dirs[v]), r.dirs[v]) << v;
        EXPECT_EQ(e.volume_times.size(), r.paths.size());
        EXPECT_EQ(e.volume_serials.size(), r.paths.size());
    }
}

TEST(SectionTables, VolumeRecordAndTimes)
{
    pf_fields fields = volume_base(30);
    fields.volumes[1].creation_time = fields.last_run = fields.run_slots[0];
    fields.volumes[1].serial = 0xdeadbeef;
    pf_image const image = build_prefetch(fields);
    decoded const d = decode(image);
    ASSERT_TRUE(d.ok);
    EXPECT_EQ(d.entry().entry_times, (std::set<std::uint64_t>{111, fields.last_run}));
    EXPECT_EQ(d.entry().volume_serials, (std::vector<std::uint32_t>{1, 0xdeadbeef}));
    ASSERT_EQ(d.entry().volume_records.size(), 2u);
    EXPECT_TRUE(std::equal(d.entry().volume_records[1].begin(), d.entry().volume_records[1].end(),
                           image.bytes.begin() + image.volumes_offset + 96));
}

TEST(SectionTables, OffsetsPastTheEndReject)
{
    struct row {
        char const* name;
        std::size_t field;
        int delta; // from the buffer size
        bool ok;
    } const rows[] = {{"strings at the end", 100, 0, true}, {"strings past the end", 100, 1, false},
                      {"volumes at the end", 108, 0, true}, {"volumes past the end", 108, 1, false}};
    for (auto const& r : rows) {
        SCOPED_TRACE(r.name);
        pf_image image = build_prefetch(typical_prefetch(30));
        image.put_u32(r.field, image.size() + static_cast<std::uint32_t>(r.delta));
        decoded const d = decode(image);
        EXPECT_EQ(d.ok, r.ok);
        if (!r.ok) continue;
        bool const strings_moved = r.field == 100;
        EXPECT_EQ(d.entry().target_path, strings_moved ? "NOTEPAD.EXE" : "\\DEVICE\\HARDDISKVOLUME2\\WINDOWS\\SYSTEM32\\NOTEPAD.EXE");
        EXPECT_EQ(d.entry().file_strings.size(), strings_moved ? 0u : 3u);
        EXPECT_EQ(d.entry().volume_paths.size(), strings_moved ? 2u : 0u);
    }
}

TEST(DecodeChain, ResetClearsEverythingButTheLabel)
{
    decoded d = decode(build_prefetch(typical_prefetch(26)));
    ASSERT_TRUE(d.ok);
    d.context->m_entry.input_file_size = 5;
    reset_decoded_entry(*d.context);
    auto const& e = d.entry();
    EXPECT_EQ(d.context->m_version_label, "Win8 Prefetch");
    EXPECT_TRUE(e.target_name.empty() && e.target_path.empty() && e.file_strings.empty() && e.volume_paths.empty() &&
                e.volume_dirs.empty() && e.volume_records.empty() && e.entry_times.empty() &&
                e.prev_run_times.empty());
    EXPECT_EQ(e.run_count + e.last_run + e.input_file_size, 0u);
}

std::string stderr_of_load(std::string const& path, bool& ok, kito_user_context& context)
{
    context.m_file_path = path;
    testing::internal::CaptureStderr();
    ok = load_prefetch_file(context);
    return testing::internal::GetCapturedStderr();
}

TEST(DecodeChain, LoadFailures)
{
    std::string const dir = make_temp_dir("decode");
    write_file(dir + "/empty.pf", "");
    write_file(dir + "/garbage.pf", std::string(400, 'g'));
    pf_image const good = build_prefetch(typical_prefetch(17));
    std::string const bad_utf8 = dir + "/\xff.pf";
    write_file(bad_utf8, std::string(good.bytes.begin(), good.bytes.end()));
    struct row {
        std::string path, message;
    } const rows[] = {
        {dir + "/empty.pf", "prob reading file " + dir + "/empty.pf\n"},
        {dir + "/missing.pf", "prob reading file " + dir + "/missing.pf\n"},
        {"", "prob reading file \n"},
        {dir + "/garbage.pf", ""},
        {bad_utf8, ""}, // readable, but the file system cannot be asked for it
    };
    for (auto const& r : rows) {
        SCOPED_TRACE(r.path);
        kito_user_context context;
        bool ok = true;
        EXPECT_EQ(stderr_of_load(r.path, ok, context), r.message);
        EXPECT_FALSE(ok);
    }
}

// Only the first 16 MiB are decoded: a string that crosses that limit has no
// zero unit in what was read, and is dropped.
TEST(DecodeChain, LoadReadsSixteenMebibytes)
{
    constexpr std::uint32_t limit = 0x1000000;
    pf_fields fields = typical_prefetch(23);
    fields.file_strings.clear();
    fields.volumes.clear();
    pf_image image = build_prefetch(fields);
    image.bytes.resize(limit + 64, 0);
    image.put_u32(88, 1);
    image.put_u32(100, limit - 6);
    for (std::uint32_t i = 0; i < 3; ++i) image.put_u16(limit - 6 + 2 * i, 'A' + i);
    image.put_u16(limit, 'D');
    std::string const path = make_temp_dir("decode") + "/big.pf";
    write_file(path, std::string(image.bytes.begin(), image.bytes.end()));

    kito_user_context context;
    bool ok = false;
    EXPECT_EQ(stderr_of_load(path, ok, context), "");
    ASSERT_TRUE(ok);
    EXPECT_TRUE(context.m_entry.file_strings.empty());
    EXPECT_EQ(context.m_entry.input_file_size, limit + 64u);
    EXPECT_EQ(context.m_entry.run_count, 7u);
    std::remove(path.c_str());

    // The same bytes handed over whole do hold the string.
    kito_user_context whole;
    ASSERT_TRUE(decode_prefetch_buffer(image.bytes.data(), image.size(), whole));
    EXPECT_EQ(values_of(whole.m_entry.file_strings), strings{"ABCD"});
}

} // namespace
