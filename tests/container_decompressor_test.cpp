#include "prefetch/container_decompressor.h"
#include "support/container_encoder.h"
#include "support/json_lite.h"
#include "support/run_process.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <dirent.h>
#include <functional>
#include <random>
#include <string>

namespace {

byte_vec random_bytes(std::size_t size, unsigned seed)
{
    std::mt19937 engine(seed);
    byte_vec out(size);
    for (auto& b : out) b = static_cast<std::uint8_t>(engine());
    return out;
}

// Words from a small vocabulary: matches of many lengths and distances.
byte_vec text_like(std::size_t size)
{
    static char const* const words[] = {"prefetch ", "\\VOLUME{01d2}\\", "WINDOWS\\SYSTEM32\\", "NTDLL.DLL ", "a", "\0\0"};
    std::mt19937 engine(7);
    byte_vec out;
    while (out.size() < size) {
        std::string const word = words[engine() % 6];
        out.insert(out.end(), word.begin(), word.end());
    }
    out.resize(size);
    return out;
}

// Long runs and repeated patterns: overlapping matches and the u16 length escape.
byte_vec runs(std::size_t size)
{
    std::mt19937 engine(3);
    byte_vec out;
    while (out.size() < size) {
        out.insert(out.end(), 1 + engine() % 5000, static_cast<std::uint8_t>(engine()));
        for (int i = 0; i < 40; ++i) out.push_back(static_cast<std::uint8_t>("xy"[i % 2]));
    }
    out.resize(size);
    return out;
}

// The same random stretch twice: matches from far back (15 offset bits).
byte_vec far_repeat(std::size_t size)
{
    byte_vec out = random_bytes(size / 2, 11);
    byte_vec const copy = out;
    out.insert(out.end(), copy.begin(), copy.end());
    return out;
}

byte_vec text_bytes(std::string const& text) { return byte_vec(text.begin(), text.end()); }

byte_vec mam_of_tokens(std::vector<lz_token> const& tokens, std::uint32_t output_size = 0)
{
    if (output_size == 0) output_size = static_cast<std::uint32_t>(apply_tokens(tokens).size());
    return with_trailer(mam_container({huffman_block(tokens)}, output_size));
}

struct huffman_case {
    char const* name;
    std::function<byte_vec()> data;
    std::function<byte_vec(byte_vec const&)> encode;
};

void PrintTo(huffman_case const& c, std::ostream* os) { *os << c.name; }

class huffman_round_trip : public testing::TestWithParam<huffman_case> {};

TEST_P(huffman_round_trip, decodes_what_was_encoded)
{
    byte_vec const data = GetParam().data();
    container_decompressor decompressor;
    ASSERT_TRUE(decompressor.decompress_container(GetParam().encode(data)));
    EXPECT_TRUE(decompressor.table_ready());
    ASSERT_EQ(decompressor.output().size(), data.size());
    // All but the last byte; that one is a match's or stays zero.
    std::size_t const body = data.size() - 1;
    EXPECT_TRUE(std::equal(data.begin(), data.begin() + static_cast<std::ptrdiff_t>(body), decompressor.output().begin()));
    auto const tokens = lz_parse(data);
    EXPECT_EQ(decompressor.output().back(), tokens.back().length == 0 ? 0 : data.back());
}

lz_parse_options crossing_matches()
{
    lz_parse_options options;
    options.block_aligned = false;
    return options;
}

INSTANTIATE_TEST_SUITE_P(
    containers, huffman_round_trip,
    testing::Values(
        huffman_case{"random_one_block", [] { return random_bytes(3000, 1); }, [](auto& d) { return encode_mam(d); }},
        huffman_case{"random_blocks", [] { return random_bytes(150000, 2); }, [](auto& d) { return encode_mam(d); }},
        huffman_case{"text_blocks", [] { return text_like(300000); }, [](auto& d) { return encode_mam(d); }},
        huffman_case{"runs_blocks", [] { return runs(200000); }, [](auto& d) { return encode_mam(d); }},
        huffman_case{"far_matches", [] { return far_repeat(120000); }, [](auto& d) { return encode_mam(d); }},
        huffman_case{"matches_cross_blocks", [] { return runs(300000); },
                     [](auto& d) { return encode_mam(d, crossing_matches()); }},
        huffman_case{"mem0_blocks", [] { return text_like(200000); }, [](auto& d) { return encode_mem0(d); }},
        huffman_case{"mem0_padded_blocks", [] { return runs(140000); }, [](auto& d) { return encode_mem0(d, 40); }}),
    [](auto const& info) { return std::string(info.param.name); });

// Short streams whose output states one rule of the decoder.
TEST(huffman_tokens, decode_to_the_stated_bytes)
{
    auto with = [](char const* text, std::vector<lz_token> more) {
        auto tokens = lz_literals(text);
        tokens.insert(tokens.end(), more.begin(), more.end());
        return tokens;
    };
    struct token_case {
        char const* name;
        std::vector<lz_token> tokens;
        std::string expected;
    } const cases[] = {
        {"no offset bits reach 1 back", with("abc", {lz_match(3, 1)}), "abcccc"},
        {"one offset bit reaches 2 back", with("abcd", {lz_match(4, 2)}), "abcdcdcd"},
        {"one offset bit reaches 3 back", with("abcd", {lz_match(3, 3)}), "abcdbcd"},
        {"a final literal is never decoded", lz_literals("abcd"), std::string("abc\0", 4)},
        {"a final match fills the last byte", with("ab", {lz_match(3, 2), lz_literal('z'), lz_match(3, 1)}),
         "ababazzzz"},
        {"length escape byte", with("q", {lz_match(20, 1)}), std::string(21, 'q')},
        {"length escape byte 254", with("q", {lz_match(272, 1)}), std::string(273, 'q')},
        {"length escape u16", with("q", {lz_match(273, 1), lz_match(3000, 1)}), std::string(3274, 'q')},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(c.name);
        container_decompressor decompressor;
        ASSERT_TRUE(decompressor.decompress_container(mam_of_tokens(c.tokens)));
        EXPECT_EQ(std::string(decompressor.output().begin(), decompressor.output().end()), c.expected);
    }
}

// Damage in a block fails that block only: what came before stays.
TEST(huffman_damage, keeps_the_bytes_before_the_fault)
{
    auto const escape = lz_literals("abc");
    auto with_u16 = [&](std::uint16_t value, std::size_t keep) {
        auto tokens = escape;
        tokens.push_back(lz_match(300, 1));
        byte_vec block = huffman_block(tokens);
        // Four short codes stay inside the first word, so the escape bytes
        // come right behind the two words loaded up front.
        EXPECT_EQ(block.at(260), 255);
        block[261] = static_cast<std::uint8_t>(value);
        block[262] = static_cast<std::uint8_t>(value >> 8);
        block.resize(std::min(block.size(), keep));
        return mam_container({block}, 303);
    };
    struct damage_case {
        char const* name;
        byte_vec container;
        std::size_t intact;
    } const cases[] = {
        {"match before the start", mam_of_tokens({lz_literal('a'), lz_literal('b'), lz_match(3, 4)}, 5), 2},
        {"u16 length below 15", with_u16(14, 9999), 3},
        {"u16 length cut off", with_u16(300, 261), 3},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(c.name);
        container_decompressor decompressor;
        ASSERT_TRUE(decompressor.decompress_container(c.container));
        auto const& out = decompressor.output();
        EXPECT_EQ(std::string(out.begin(), out.begin() + static_cast<std::ptrdiff_t>(c.intact)),
                  std::string("abc", c.intact));
        EXPECT_TRUE(std::all_of(out.begin() + static_cast<std::ptrdiff_t>(c.intact), out.end(),
                                [](std::uint8_t b) { return b == 0; }));
    }
}

std::vector<std::uint8_t> deficient_lengths()
{
    // Symbols 0..14 with lengths 1..15 fill all but the last of 32768 entries.
    std::vector<std::uint8_t> lengths(512, 0);
    for (unsigned i = 0; i < 15; ++i) lengths[i] = static_cast<std::uint8_t>(i + 1);
    return lengths;
}

TEST(huffman_tables, deficient_first_table_leaves_zero_output)
{
    std::vector<lz_token> const tokens = {lz_literal(0), lz_literal(3), lz_literal(1), lz_literal(1)};
    container_decompressor decompressor;
    ASSERT_TRUE(decompressor.decompress_container(with_trailer(mam_container({huffman_block(tokens, deficient_lengths())}, 400))));
    EXPECT_FALSE(decompressor.table_ready());
    EXPECT_EQ(decompressor.output(), byte_vec(400, 0));
    EXPECT_FALSE(decompressor.write_output_file(make_temp_dir("containers") + "/out.bin"));
}

TEST(huffman_tables, oversubscribed_table_is_cut_and_accepted)
{
    std::vector<std::uint8_t> lengths(512, 0);
    lengths['a'] = lengths['b'] = lengths['c'] = 1; // 'c' falls behind the cut
    auto tokens = lz_literals("abba");
    tokens.push_back(lz_literal('a'));
    container_decompressor decompressor;
    ASSERT_TRUE(decompressor.decompress_container(with_trailer(mam_container({huffman_block(tokens, lengths)}, 5))));
    EXPECT_TRUE(decompressor.table_ready());
    EXPECT_EQ(decompressor.output(), text_bytes(std::string("abba\0", 5)));
}

TEST(huffman_tables, later_deficient_table_runs_on_the_old_tail)
{
    // Block 1: every byte at 8 bits, so index 32767 belongs to symbol 255.
    byte_vec const first_data = random_bytes(65536, 5);
    std::vector<lz_token> first;
    for (auto b : first_data) first.push_back(lz_literal(b));
    std::vector<std::uint8_t> bytes_at_8_bits(512, 0);
    std::fill_n(bytes_at_8_bits.begin(), 256, 8);
    byte_vec const block1 = huffman_block(first, bytes_at_8_bits);
    // Block 2 is written with 255 as the code of fifteen 1 bits, then its
    // table loses 255: the index now finds the old symbol, at 0 bits.
    auto lengths = deficient_lengths();
    lengths[255] = 15;
    byte_vec block2 = huffman_block({lz_literal(1), lz_literal(255)}, lengths);
    block2[127] &= 0x0F;
    container_decompressor decompressor;
    ASSERT_TRUE(decompressor.decompress_container(with_trailer(mam_container({block1, block2}, 65536 + 10))));
    byte_vec expected = first_data;
    expected.push_back(1);
    expected.insert(expected.end(), 8, 255);
    expected.push_back(0);
    EXPECT_EQ(decompressor.output(), expected);
}

byte_vec xpress_of(byte_vec const& data, std::uint8_t size_code)
{
    lz_parse_options options;
    options.max_distance = 8192;
    return xpress_container(plain_lz77_stream(lz_parse(data, options)), size_code);
}

byte_vec with_size(byte_vec bytes, std::size_t size)
{
    bytes.resize(size, 0);
    return bytes;
}

// Whole-container outcomes at the limits of the headers and sizes.
TEST(container_outcomes, follow_the_header_and_input_size)
{
    byte_vec const header = {'M', 'A', 'M', 0x04, 5, 0, 0, 0};
    byte_vec const table = huffman_block(lz_literals("ab"));
    byte_vec const mam_table = [&] {
        byte_vec out = header;
        out.insert(out.end(), table.begin(), table.begin() + 256);
        return out;
    }();
    struct outcome_case {
        char const* name;
        byte_vec input;
        std::uint32_t kind;
        bool ok;
        std::size_t output_size;
        bool table_ready;
    } const cases[] = {
        {"12 bytes", with_size(header, 12), container_none, false, 0, false},
        {"13-byte MAM header", with_size(header, 13), container_mam, true, 5, false},
        {"MAM any fourth byte", with_size({'M', 'A', 'M', 'X', 0x10, 0x27}, 13), container_mam, true, 10000, false},
        {"MAM of size 0", with_size({'M', 'A', 'M', 0x04}, 300), container_none, false, 0, false},
        {"MEM0 of size 0", with_size({'M', 'E', 'M', '0'}, 300), container_none, false, 0, false},
        {"header and table only", mam_table, container_mam, true, 5, false},
        {"one byte behind the table", with_size(mam_table, 265), container_mam, true, 5, true},
        {"xpress size code 15", xpress_of(text_like(5000), 15), container_xpress, true, 65536, true},
        {"xpress size code 16", xpress_of(text_like(5000), 16), container_xpress, false, 0, false},
        {"xpress size code 0, 257 bytes", with_size(xpress_of(text_like(200), 0), 257), container_xpress, false, 0,
         false},
        {"xpress size code 0, 256 bytes", with_size(xpress_of(text_like(200), 0), 256), container_xpress, true, 4096,
         false},
        {"xpress stored", xpress_container(text_like(65536), 15, 65536), container_xpress, true, 65536, true},
        {"xpress stream beyond input", with_size(xpress_of(text_like(200), 15), 20), container_xpress, false, 0,
         false},
        {"empty", {}, container_none, false, 0, false},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(c.name);
        std::uint32_t declared = 0;
        EXPECT_EQ(detect_container(declared, c.input), c.kind);
        container_decompressor decompressor;
        EXPECT_EQ(decompressor.decompress_container(c.input), c.ok);
        EXPECT_EQ(decompressor.table_ready(), c.table_ready);
        if (c.ok) {
            EXPECT_EQ(decompressor.output().size(), c.output_size);
        }
    }
    std::uint32_t declared = 77;
    EXPECT_EQ(detect_container(declared, nullptr, 100), container_none);
    EXPECT_EQ(declared, 0u);
}

TEST(plain_lz77, round_trips_into_a_65536_byte_output)
{
    std::vector<lz_token> shared = lz_literals("abcdefgh");
    // 12 and 30 bytes share one extension byte; 400 then takes a new one.
    for (auto t : {lz_match(12, 8), lz_match(30, 4), lz_match(400, 1), lz_match(9, 3), lz_match(10, 2)})
        shared.push_back(t);
    struct plain_case {
        char const* name;
        byte_vec data;
        byte_vec container;
    } const cases[] = {
        {"random", random_bytes(65536, 9), encode_xpress(random_bytes(65536, 9))},
        {"text", text_like(65536), encode_xpress(text_like(65536))},
        {"runs", runs(60000), encode_xpress(runs(60000))},
        {"shared half-byte", apply_tokens(shared), xpress_container(plain_lz77_stream(shared))},
        {"stored", random_bytes(65536, 4), xpress_container(random_bytes(65536, 4), 15, 65536)},
        {"match before the start ends the stream", text_bytes("a"),
         xpress_container(plain_lz77_stream({lz_literal('a'), lz_match(3, 2), lz_literal('b')}))},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(c.name);
        container_decompressor decompressor;
        ASSERT_TRUE(decompressor.decompress_container(c.container));
        EXPECT_EQ(decompressor.output(), with_size(c.data, 65536));
    }
}

TEST(plain_lz77, u16_length_below_22_wraps_to_that_value_plus_3)
{
    byte_vec stream = plain_lz77_stream({lz_literal('a'), lz_match(300, 1), lz_literal('b')});
    // flags(4) 'a' word(2) half-byte 255 u16
    ASSERT_EQ(stream.at(8), 255);
    stream[9] = 0;
    stream[10] = 0;
    container_decompressor decompressor;
    ASSERT_TRUE(decompressor.decompress_container(xpress_container(stream)));
    EXPECT_EQ(decompressor.output(), with_size(text_bytes("aaaab"), 65536));
}

TEST(container_output, writes_the_decoded_bytes)
{
    byte_vec const data = text_like(70000);
    container_decompressor decompressor;
    std::string const path = make_temp_dir("containers") + "/out.bin";
    EXPECT_FALSE(decompressor.write_output_file(path));
    ASSERT_TRUE(decompressor.decompress_container(encode_mam(data)));
    ASSERT_TRUE(decompressor.write_output_file(path));
    std::string const written = read_file(path);
    EXPECT_EQ(byte_vec(written.begin(), written.end()), decompressor.output());
}

// The synthetic corpus: kind, outcome and decoded size against the sidecars.
TEST(container_corpus, matches_the_sidecars)
{
    std::string const folder = corpus_dir().empty() ? "" : corpus_dir() + "/synthetic";
    DIR* dir = folder.empty() ? nullptr : opendir(folder.c_str());
    if (dir == nullptr) GTEST_SKIP() << "no corpus";
    std::vector<std::string> names;
    while (dirent* entry = readdir(dir)) {
        std::string const name = entry->d_name;
        bool const ours = name.rfind("mam_", 0) == 0 || name.rfind("mem0_", 0) == 0 || name.rfind("xpress_", 0) == 0;
        if (ours && name.size() > 3 && name.substr(name.size() - 3) == ".pf") names.push_back(name);
    }
    closedir(dir);
    ASSERT_GE(names.size(), 20u);
    for (auto const& name : names) {
        SCOPED_TRACE(name);
        json_value expect;
        ASSERT_TRUE(parse_json(read_file(folder + "/" + name.substr(0, name.size() - 3) + ".expect.json"), expect));
        std::string const container = expect.find("container")->text;
        std::string const reason = expect.find("reject_reason") ? expect.find("reject_reason")->text : "";
        std::string const raw = read_file(folder + "/" + name);
        byte_vec bytes(raw.begin(), raw.end());
        std::uint32_t declared = 0;
        std::uint32_t const kind = detect_container(declared, bytes);
        EXPECT_EQ(kind, container == "plain" ? container_none
                        : container.rfind("MEM0", 0) == 0 ? container_mem0
                        : container == "xpress"           ? container_xpress
                                                          : container_mam);
        if (kind == container_none) continue;
        // Unwrap up to two layers, as the loader does.
        bool ok = true;
        for (int layer = 0; layer < 2 && ok && detect_container(declared, bytes) != container_none; ++layer) {
            container_decompressor decompressor;
            ok = decompressor.decompress_container(bytes);
            if (ok) bytes = decompressor.output();
        }
        if (reason.find("size code") != std::string::npos) {
            EXPECT_FALSE(ok);
        } else if (json_value const* size = expect.find("decoded_size"); size && !size->is_null()) {
            ASSERT_TRUE(ok);
            EXPECT_EQ(bytes.size(), size->as_u64());
            ASSERT_GE(bytes.size(), 8u);
            EXPECT_EQ(std::string(bytes.begin() + 4, bytes.begin() + 8), "SCCA");
        } else {
            EXPECT_TRUE(ok);
            bool const scca = bytes.size() >= 8 && std::string(bytes.begin() + 4, bytes.begin() + 8) == "SCCA";
            EXPECT_FALSE(scca && detect_container(declared, bytes) == container_none);
        }
    }
}

} // namespace
