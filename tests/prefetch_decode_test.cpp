// Decoding of plain Prefetch buffers built field by field, for what the shared
// corpus does not reach: damaged volume sections, reset and loading limits.
#include <gtest/gtest.h>

#include <cstdio>
#include <functional>
#include <random>

#include "prefetch/byte_reader.h"
#include "prefetch/evidence_guard.h"
#include "prefetch/prefetch_header.h"
#include "support/container_encoder.h"
#include "support/decoded_file.h"
#include "support/prefetch_builder.h"
#include "support/run_process.h"
#include "support/test_table.h"

namespace {

json const table = test_table("prefetch_decode");

using strings = std::vector<std::string>;

strings values_of(offset_string_map const& map)
{
    strings out;
    for (auto const& [key, text] : map) out.emplace_back(text);
    return out;
}

bool decode(pf_image const& image, decoded_file& file) { return file.decode(image.bytes.data(), image.size()); }

// The one door to input bytes: a read that does not lie wholly inside reads
// nothing, also where offset + count would wrap around.
TEST(ByteReader, ReadsOnlyWhatLiesWhollyInside)
{
    std::uint8_t const bytes[6] = {1, 2, 3, 4, 5, 6};
    byte_view const buf{bytes, sizeof bytes};
    for (json const& r : table.at("reads")) EXPECT_EQ(buf.has(r[0], r[1]), r[2]) << r;
    EXPECT_FALSE((byte_view{nullptr, 6}.has(0, 1)));
    std::uint32_t u32 = 7;
    std::uint16_t u16 = 7;
    EXPECT_TRUE(read_u32(buf, 2, u32) && u32 == 0x06050403u);
    EXPECT_FALSE(read_u16(buf, 5, u16) || u16 != 7);
}

// A string ends at its first zero unit, found four units at a time: every
// place of the zero (each lane of a word, the tail, none), every start
// (odd ones too) and a unit cut by the buffer's end, against a unit walk.
TEST(ByteReader, StringsEndAtTheFirstWholeZeroUnit)
{
    for (std::size_t size = 0; size <= 21; ++size)
        for (std::size_t zero = 0; zero <= size; ++zero)
            for (std::uint64_t start = 0; start <= 3 && start <= size; ++start) {
                // Units with a zero byte in either half, never both but at `zero`.
                std::vector<std::uint8_t> bytes(size);
                for (std::size_t i = 0; i < size; ++i) bytes[i] = i % 3 == 0 ? 0 : static_cast<std::uint8_t>(i);
                if (zero + 1 < size) bytes[zero] = bytes[zero + 1] = 0;
                std::uint64_t end = start;
                while (end + 1 < size && (bytes[end] | bytes[end + 1]) != 0) end += 2;
                bool terminated = false;
                byte_view const units = read_units_to_zero(byte_view{bytes.data(), size}, start, terminated);
                SCOPED_TRACE(testing::Message() << size << " bytes, zero at " << zero << ", from " << start);
                EXPECT_EQ(units.data, bytes.data() + start);
                EXPECT_EQ(units.size, end - start);
                EXPECT_EQ(terminated, end + 1 < size);
            }
}

// Texts by key in one buffer: in key order whatever the order they came in,
// the first of equal keys kept, found by key, unharmed by the buffer's growth.
TEST(OffsetStringMap, KeepsTextsInKeyOrderFirstOfEqualKeysWins)
{
    offset_string_map map{{30, "thirty"}, {10, "ten"}, {20, ""}, {10, "again"}};
    EXPECT_FALSE(map.emplace(20, "again"));
    EXPECT_TRUE(map.emplace_with(40, [](std::string& text) { text.append(5000, 'x'); }));
    EXPECT_TRUE(map.emplace(5, "five"));
    std::vector<std::pair<std::uint64_t, std::string>> const pairs(map.begin(), map.end());
    EXPECT_EQ(pairs, (std::vector<std::pair<std::uint64_t, std::string>>{
                         {5, "five"}, {10, "ten"}, {20, ""}, {30, "thirty"}, {40, std::string(5000, 'x')}}));
    EXPECT_EQ((*map.find(30)).second, "thirty");
    EXPECT_TRUE(map.find(25) == map.end() && map.find(41) == map.end());
    offset_string_map const copy = map;
    map.clear();
    EXPECT_TRUE(map.empty() && values_of(copy).size() == 5 && values_of(copy)[1] == "ten");
}

// Only the marks of a Prefetch file and of the three containers count, each whole and in its place.
TEST(EvidenceGuard, KnowsTheMarksWholeAndInPlace)
{
    for (json const& r : table.at("heads")) {
        std::string const head = bytes_of(r[0]);
        byte_view const view{reinterpret_cast<std::uint8_t const*>(head.data()), head.size()};
        EXPECT_EQ(begins_like_evidence(view), r[1]) << head;
    }
}

TEST(PrefetchDecode, AcceptanceLooksAtSizeAndSignatureOnly)
{
    for (json const& r : table.at("accepts")) {
        std::vector<std::uint8_t> bytes(4096, 0xff);
        std::string const signature = r[1];
        std::copy_n(signature.begin(), 4, bytes.begin() + 4);
        EXPECT_EQ(is_prefetch_buffer(bytes.data(), r[0]), r[2]) << r;
    }
    EXPECT_FALSE(is_prefetch_buffer(nullptr, 4096));
}

TEST(PrefetchDecode, DamageDegradesRatherThanRejects)
{
    strings const a = {"\\VOL1\\A", "\\VOL1\\B"}, c = {"\\VOL2\\C", "\\VOL2\\D"};
    struct row {
        char const* name;
        std::function<void(pf_fields&)> change;
        std::function<void(pf_image&)> damage;
        strings paths;
        std::vector<strings> dirs;
        std::string target = "\\VOL1\\NOTEPAD.EXE";
    } const rows[] = {
        {"sound", {}, {}, {"\\VOL1", "\\VOL2"}, {a, c}},
        // 192 bytes of 96-byte records read as 104-byte ones hold one volume.
        {"record size follows the version word", {}, [](pf_image& i) { i.put_u32(0, 26); }, {"\\VOL1"}, {a}},
        // A path offset is added to the section offset in 32 bits: a huge one points back into the strings.
        {"path offset wraps round", {}, [](pf_image& i) { i.put_u32(i.volumes_offset + 96, i.strings_offset - i.volumes_offset), i.put_u32(i.volumes_offset + 128, 0); },
         {"\\VOL1", "\\VOL1\\NOTEPAD.EXE"}, {a, {}}},
        {"negative first path offset", {}, [](pf_image& i) { i.put_u32(i.volumes_offset, 0xfffffff0); }, {}, {}},
        {"volumes offset at the last bytes", {}, [](pf_image& i) { i.put_u32(108, i.size() - 2); }, {}, {}},
        {"padding counts from the file start", [](pf_fields& f) { f.volumes_shift = 4; }, {}, {"\\VOL1", "\\VOL2"}, {a, c}},
        {"zero length words up to the end", [](pf_fields& f) { f.volumes[1].directories.clear(); },
         [](pf_image& i) { i.put_u32(i.volumes_offset + 128, 1), i.bytes.resize(i.size() + 6, 0); }, {"\\VOL1", "\\VOL2"}, {a, {}}},
        // The name is looked for unit by unit: its bytes at an odd offset of the first string are no match.
        {"name found on whole units only", [](pf_fields& f) { f.exe_name = u"AB", f.file_strings = {u"\x4100\x4200\x4300", u"xxABxx"}; }, {},
         {"\\VOL1", "\\VOL2"}, {a, c}, "xxABxx"},
        // An empty name is in every string; the empty first string leaves the path unknown.
        {"empty name, empty first string", [](pf_fields& f) { f.exe_name.clear(), f.file_strings.insert(f.file_strings.begin(), u""); }, {},
         {"\\VOL1", "\\VOL2"}, {a, c}, "unk"},
    };
    for (auto const& r : rows) {
        SCOPED_TRACE(r.name);
        pf_fields fields = typical_prefetch(30);
        fields.file_strings = {u"\\VOL1\\NOTEPAD.EXE"};
        fields.volumes = {{u"\\VOL1", 111, 1, std::vector<std::uint8_t>(20, 0xab), {u"\\VOL1\\A", u"\\VOL1\\B"}},
                          {u"\\VOL2", 222, 2, std::vector<std::uint8_t>(20, 0xcd), {u"\\VOL2\\C", u"\\VOL2\\D"}}};
        if (r.change) r.change(fields);
        pf_image image = build_prefetch(fields);
        if (r.damage) r.damage(image);
        decoded_file file;
        ASSERT_TRUE(decode(image, file));
        auto const& e = file.entry;
        EXPECT_EQ(e.target_path, r.target);
        EXPECT_EQ(e.volume_paths, r.paths);
        std::vector<strings> dirs;
        for (auto const& map : e.volume_dirs) dirs.push_back(values_of(map));
        EXPECT_EQ(dirs, r.dirs);
        std::size_t const n = r.paths.size();
        std::uint64_t const times[] = {111, 222};
        std::uint32_t const serials[] = {1, 2};
        EXPECT_EQ(e.volume_times, std::vector<std::uint64_t>(times, times + n));
        EXPECT_EQ(e.volume_serials, std::vector<std::uint32_t>(serials, serials + n));
        ASSERT_EQ(e.volume_records.size(), n);
        for (std::size_t v = 0; v < n; ++v)
            EXPECT_TRUE(std::equal(e.volume_records[v].begin(), e.volume_records[v].end(), image.bytes.begin() + image.volumes_offset + v * image.record_size)) << v;
    }
}

// Only the first 16 MiB are decoded: a string that crosses that limit has no
// zero unit in what was read, and is dropped.
TEST(PrefetchDecode, LoadReadsSixteenMebibytes)
{
    constexpr std::uint32_t limit = 0x1000000;
    pf_fields fields = typical_prefetch(23);
    fields.file_strings.clear();
    fields.volumes.clear();
    pf_image image = build_prefetch(fields);
    image.bytes.resize(limit + 64, 0);
    image.put_u32(88, 1);
    image.put_u32(100, limit - 6);
    for (std::uint32_t i = 0; i < 4; ++i) image.put_u16(limit - 6 + 2 * i, 'A' + i);
    temp_folder const folder("decode");
    std::string const path = folder / "big.pf";
    write_file(path, image.bytes);
    decoded_file file, whole;
    ASSERT_TRUE(file.load(path));
    EXPECT_EQ(file.err, "");
    EXPECT_TRUE(file.entry.file_strings.empty());
    EXPECT_EQ(file.entry.input_file_size, limit + 64u);
    EXPECT_EQ(file.entry.run_count, 7u);
    std::remove(path.c_str());
    // The same bytes handed over whole do hold the string.
    ASSERT_TRUE(decode(image, whole));
    EXPECT_EQ(values_of(whole.entry.file_strings), strings{"ABCD"});
}

// A form that shows neither names nor volumes decompresses a container only
// as far as the executable's path. What it shows is what a whole decode
// gives, wherever the path lies (in the first block, astride a block's end,
// past the strings' end or nowhere) and however the container is damaged.
TEST(PrefetchDecode, ContainerDecodedInPartShowsWhatAWholeOneShows)
{
    decode_wants const shown_alone{.digest = false, .file_names = false, .volume_directories = false,
                                   .path_hash = false, .volumes = false};
    auto const decode_with = [](byte_vec const& bytes, decode_wants wants, decoded_file& file) {
        file.buffers.file_bytes = bytes;
        file.buffers.wants = wants;
        return decode_input_bytes(file.buffers, file.entry, file.label);
    };
    std::u16string const folder = u"\\DEVICE\\HARDDISKVOLUME2\\PROGRAM FILES\\SOME VENDOR\\";
    // Some 330 bytes a string: a block of output holds about 200 of them.
    for (std::size_t path_at : std::vector<std::size_t>{0, 150, 198, 199, 200, 201, 390, 399, 1000}) {
        SCOPED_TRACE("path at string " + std::to_string(path_at));
        pf_fields fields = typical_prefetch(30);
        fields.file_strings.clear();
        for (std::size_t i = 0; i < 400; ++i) {
            std::u16string name = folder + u"COMPONENT" + std::u16string(100, u'X');
            for (std::size_t n = i; n > 0; n /= 10) name += static_cast<char16_t>(u'0' + n % 10);
            fields.file_strings.push_back(name + (i == path_at ? u"\\NOTEPAD.EXE" : u".DLL"));
        }
        byte_vec const container = encode_mam(build_prefetch(fields).bytes);
        std::vector<byte_vec> inputs = {container};
        std::mt19937 engine(static_cast<unsigned>(path_at));
        for (int damaged = 0; damaged < 4; ++damaged) {
            byte_vec copy = container;
            for (int i = 0; i < 2; ++i) copy[8 + engine() % (copy.size() - 8)] ^= static_cast<std::uint8_t>(1 + engine() % 255);
            inputs.push_back(copy);
        }
        for (byte_vec const& input : inputs) {
            decoded_file part, whole;
            bool const part_ok = decode_with(input, shown_alone, part);
            ASSERT_EQ(part_ok, decode_with(input, decode_wants{}, whole));
            EXPECT_EQ(part.entry.failure, whole.entry.failure);
            EXPECT_EQ(part.entry.target_path, whole.entry.target_path);
            EXPECT_EQ(part.entry.target_name, whole.entry.target_name);
            EXPECT_EQ(part.entry.run_count, whole.entry.run_count);
            EXPECT_EQ(part.entry.last_run, whole.entry.last_run);
            EXPECT_EQ(part.entry.prev_run_times, whole.entry.prev_run_times);
            EXPECT_EQ(part.label, whole.label);
        }
        // Undamaged, the path is found where it lies, and what follows it is left alone.
        decoded_file part;
        ASSERT_TRUE(decode_with(container, shown_alone, part));
        EXPECT_EQ(part.entry.target_path.find("SOME VENDOR") != std::string::npos, path_at < 400);
        if (path_at <= 150) {
            EXPECT_LT(part.buffers.outer.final_end(), part.buffers.outer.output().size() / 2);
        }
    }
}

} // namespace
