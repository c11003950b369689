#include "prefetch/container_decompressor.h"
#include "support/container_encoder.h"
#include "support/run_process.h"

#include <gtest/gtest.h>

#include <algorithm>
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
    static std::string const words[] = {"prefetch ", "\\VOLUME{01d2}\\", "WINDOWS\\SYSTEM32\\", "NTDLL.DLL ", "a"};
    std::mt19937 engine(7);
    byte_vec out;
    for (std::string const* word = words; out.size() < size; word = &words[engine() % 5])
        out.insert(out.end(), word->begin(), word->end());
    out.resize(size);
    return out;
}

// Long runs between short patterns: overlapping matches and the u16 length escape.
byte_vec runs(std::size_t size)
{
    std::mt19937 engine(3);
    byte_vec out;
    while (out.size() < size) {
        out.insert(out.end(), 1 + engine() % 5000, static_cast<std::uint8_t>(engine()));
        for (int i = 0; i < 40; ++i) out.push_back("xy"[i % 2]);
    }
    out.resize(size);
    return out;
}

byte_vec bytes(std::string const& text) { return byte_vec(text.begin(), text.end()); }
byte_vec with_size(byte_vec data, std::size_t size) { return data.resize(size, 0), data; }

std::vector<lz_token> tokens(std::string const& text, std::vector<lz_token> more = {})
{
    more.insert(more.begin(), text.size(), lz_token{});
    for (std::size_t i = 0; i < text.size(); ++i) more[i].literal = static_cast<std::uint8_t>(text[i]);
    return more;
}

byte_vec mam_of(std::vector<lz_token> const& t, std::uint32_t size = 0)
{
    return huffman_container({huffman_block(t)}, size != 0 ? size : static_cast<std::uint32_t>(apply_tokens(t).size()));
}

// Symbols 0..14 at lengths 1..15 fill all but the last of the 32768 table entries.
std::vector<std::uint8_t> deficient_lengths()
{
    std::vector<std::uint8_t> lengths(512, 0);
    for (unsigned i = 0; i < 15; ++i) lengths[i] = static_cast<std::uint8_t>(i + 1);
    return lengths;
}

// Block 1 has every byte of `first` (65536 bytes) at 8 bits, so index 32767
// belongs to 255. Block 2 codes 255 as fifteen 1 bits, then its table loses
// 255: the index now finds the old symbol, at 0 bits, to the end.
byte_vec later_deficient_table(byte_vec const& first)
{
    auto const literals = tokens(std::string(first.begin(), first.end()));
    std::vector<std::uint8_t> at_8_bits(256, 8), with_255 = deficient_lengths();
    at_8_bits.resize(512, 0);
    with_255[255] = 15;
    byte_vec later = huffman_block({lz_literal(1), lz_literal(255)}, with_255);
    later[127] &= 0x0F;
    return huffman_container({huffman_block(literals, at_8_bits), later}, 65546);
}

// Literals 'a' to 'n' at 1 to 14 bits, then 'z' and the match of 3 bytes one
// back at 15 bits each: a complete code whose two longest codes are the last
// two entries of the table.
std::vector<std::uint8_t> lengths_to_15_bits()
{
    std::vector<std::uint8_t> lengths(512, 0);
    for (unsigned i = 0; i < 14; ++i) lengths['a' + i] = static_cast<std::uint8_t>(i + 1);
    lengths['z'] = lengths[256] = 15;
    return lengths;
}

std::vector<lz_token> every_length_escape()
{
    std::vector<lz_token> t = tokens("0123456789abcdefghijklmnopqrstuvwxyz");
    // 3 to 17 in the symbol; 18 to 272 as an escape byte; 273 on as 255 and a u16.
    for (std::uint32_t length : {3u, 17u, 18u, 19u, 100u, 271u, 272u, 273u, 274u, 1000u, 30000u, 65535u})
        for (std::uint32_t distance : {1u, 2u, 7u, 8u, 9u, 36u})
            t.push_back(lz_match(length, distance)), t.push_back(lz_literal(static_cast<std::uint8_t>(length)));
    return t;
}

// The tokens in blocks cut where the decoder ends them, all with these code lengths.
byte_vec blocks_of(std::vector<lz_token> const& t, std::vector<std::uint8_t> const& lengths = {}, int mem0_padding = -1)
{
    auto const blocks = huffman_blocks(t, lengths);
    EXPECT_FALSE(std::any_of(blocks.begin(), blocks.end(), [](byte_vec const& b) { return b.empty(); }));
    return huffman_container(blocks, static_cast<std::uint32_t>(apply_tokens(t).size()), mem0_padding);
}

TEST(huffman_round_trip, decodes_what_was_encoded_but_the_last_byte)
{
    byte_vec const half = random_bytes(65000, 2), text = text_like(300000), run = runs(300000);
    byte_vec far = half; // then the same again, 15 offset bits back
    far.insert(far.end(), half.begin(), half.end());
    std::mt19937 engine(11);
    std::vector<lz_token> long_codes = tokens("z");
    for (int i = 0; i < 40000; ++i) {
        unsigned const pick = engine() % 16;
        long_codes.push_back(pick == 15 ? lz_match(3, 1) : pick == 14 ? lz_literal('z') : lz_literal('a' + pick));
    }
    // Blocks of exactly 65536 bytes, ending on a literal and on a match.
    byte_vec const random = random_bytes(65536 - 100, 9);
    std::vector<lz_token> on_literal = tokens(std::string(random.begin(), random.end()) + std::string(100, 'x'));
    std::vector<lz_token> on_match = tokens(std::string(random.begin(), random.end()), {lz_match(100, 7000)});
    for (auto* t : {&on_literal, &on_match}) {
        auto const more = tokens(std::string(5000, 'y'), {lz_match(300, 5000), lz_literal('e')});
        t->insert(t->end(), more.begin(), more.end());
    }
    auto const escapes = every_length_escape();
    struct { char const* name; byte_vec data, container; } const cases[] = {
        {"random, then far back", far, encode_mam(far)},
        {"text in blocks", text, encode_mam(text)},
        {"runs, matches across blocks", run, encode_mam(run, {65535, false})},
        {"MEM0 padded blocks", text, encode_mem0(text, 40)},
        {"15-bit codes", apply_tokens(long_codes), blocks_of(long_codes, lengths_to_15_bits())},
        {"every length escape", apply_tokens(escapes), blocks_of(escapes)},
        {"every length escape, MEM0", apply_tokens(escapes), blocks_of(escapes, {}, 3)},
        {"block ends at 65536 on a literal", apply_tokens(on_literal), blocks_of(on_literal)},
        {"block ends at 65536 on a match", apply_tokens(on_match), blocks_of(on_match)},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(c.name);
        container_decompressor decompressor;
        ASSERT_TRUE(decompressor.decompress_container(c.container));
        ASSERT_EQ(decompressor.output().size(), c.data.size());
        // The stream ends one byte short: a final literal is never decoded.
        auto const got = std::mismatch(decompressor.output().begin(), decompressor.output().end() - 1, c.data.begin()).first;
        EXPECT_EQ(got - decompressor.output().begin(), static_cast<std::ptrdiff_t>(c.data.size() - 1));
        // The same object again, as a batch reuses it, for a second container.
        decompressor.reset();
        ASSERT_TRUE(decompressor.decompress_container(mam_of(tokens("again"))));
        EXPECT_EQ(decompressor.output(), bytes({"agai\0", 5}));
    }
}

// Streams whose output shows one rule of the decoder; only a built table (or a
// Plain LZ77 stream, which has none) lets it be written out. Plain LZ77 always
// fills 65536 bytes.
TEST(streams, decode_to_the_stated_bytes)
{
    temp_folder const folder("containers");
    std::string const path = folder / "out.bin";
    std::vector<std::uint8_t> over(512, 0);
    over['a'] = over['b'] = over['c'] = 1; // 'c' falls behind the cut
    byte_vec const first = random_bytes(65536, 5);
    byte_vec tail = first;
    for (std::uint8_t b : {1, 255, 255, 255, 255, 255, 255, 255, 255, 0}) tail.push_back(b);
    // 12 and 30 bytes share one half-byte; 400 then takes a new one.
    auto const shared = tokens("abcdefgh", {lz_match(12, 8), lz_match(30, 4), lz_match(400, 1), lz_match(10, 2)});
    byte_vec wrapped = plain_lz77_stream({lz_literal('a'), lz_match(300, 1), lz_literal('b')});
    wrapped.at(9) = wrapped.at(10) = 0; // flags, 'a', match word, half-byte, 255, then a u16 of 0 reads as 3
    byte_vec const text = text_like(65536), run = runs(60000), random = random_bytes(65536, 4);
    // Literals go on behind the bad match, so that it lies far from the input's end too.
    auto far_before_start = tokens(std::string(100, 'k') + std::string(100, 'l'), {lz_match(3, 5000)});
    for (int i = 0; i < 100; ++i) far_before_start.push_back(lz_literal('m'));
    struct { char const* name; byte_vec container; byte_vec expected; bool table_ready; } const cases[] = {
        {"no offset bits reach 1 back", mam_of(tokens("abc", {lz_match(3, 1)})), bytes("abcccc"), true},
        {"one offset bit reaches 3 back", mam_of(tokens("abcd", {lz_match(3, 3)})), bytes("abcdbcd"), true},
        {"a final literal is never decoded", mam_of(tokens("abcd")), bytes({"abc\0", 4}), true},
        {"a final match fills the last byte", mam_of(tokens("ab", {lz_match(3, 2), lz_literal('z'), lz_match(3, 1)})),
         bytes("ababazzzz"), true},
        {"length escape byte 254", mam_of(tokens("q", {lz_match(272, 1)})), bytes(std::string(273, 'q')), true},
        {"length escape u16", mam_of(tokens("q", {lz_match(273, 1), lz_match(3000, 1)})),
         bytes(std::string(3274, 'q')), true},
        {"match before the start", mam_of(tokens("ab", {lz_match(3, 4)}), 5), bytes({"ab\0\0\0", 5}), true},
        {"match before the start, far from both ends", mam_of(far_before_start, 1000),
         with_size(bytes(std::string(100, 'k') + std::string(100, 'l')), 1000), true},
        {"a failed block leaves nothing behind its last match",
         mam_of(tokens("abcdefghij", {lz_match(3, 8), lz_match(3, 40)}), 40), with_size(bytes("abcdefghijcde"), 40), true},
        {"deficient first table leaves zeros",
         huffman_container({huffman_block(tokens({"\0\3", 2}), deficient_lengths())}, 400), byte_vec(400, 0), false},
        {"oversubscribed table is cut", huffman_container({huffman_block(tokens("abbaa"), over)}, 5),
         bytes({"abba\0", 5}), true},
        {"later deficient table runs on the old tail", later_deficient_table(first), tail, true},
        {"plain: text", encode_xpress(text), text, true},
        {"plain: runs", encode_xpress(run), with_size(run, 65536), true},
        {"plain: shared half-byte", xpress_container(plain_lz77_stream(shared)), with_size(apply_tokens(shared), 65536), true},
        {"plain: stored", xpress_container(random, 15, 65536), random, true},
        {"plain: u16 length below 22", xpress_container(wrapped), with_size(bytes("aaaab"), 65536), true},
        {"plain: match before the start ends the stream",
         xpress_container(plain_lz77_stream({lz_literal('a'), lz_match(3, 2), lz_literal('b')})), with_size(bytes("a"), 65536), true},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(c.name);
        container_decompressor decompressor;
        ASSERT_TRUE(decompressor.decompress_container(c.container));
        EXPECT_EQ(decompressor.output(), c.expected);
        EXPECT_EQ(decompressor.table_ready(), c.table_ready);
        ASSERT_EQ(decompressor.write_output_file(path), c.table_ready);
        if (c.table_ready) { EXPECT_EQ(bytes(read_file(path)), c.expected); }
    }
}

// Exact-size copies, so that a read or write past either end is one past the
// allocation (and caught where the tests run under AddressSanitizer).
TEST(huffman_bounds, rounds_stay_inside_input_and_output)
{
    // `lead` literals, then rounds of a literal and a match of `length` bytes.
    auto const rounds_of = [](std::size_t lead, int rounds, std::uint32_t length) {
        std::vector<lz_token> t = tokens(std::string(lead, 'w'));
        for (int i = 0; i < rounds; ++i) t.push_back(lz_literal(static_cast<std::uint8_t>(i))), t.push_back(lz_match(length, length + 1));
        return t;
    };
    // Every round at its largest: a literal and a 17-byte match, up to the end.
    auto const widest = rounds_of(17, 3000, 17);
    byte_vec const text = text_like(200000);
    byte_vec const text_container = encode_mam(text);
    // Without the four zero bytes behind the last block, its words end with the input.
    byte_vec const cut_text(text_container.begin(), text_container.end() - 4);
    // Rounds of a literal and a 16-byte match, whose piece is written whole:
    // cut at every phase of their 17 bytes.
    auto const piece_rounds = rounds_of(17, 2000, 16);
    byte_vec const widest_data = apply_tokens(widest), piece_data = apply_tokens(piece_rounds);
    struct bounds_case { std::string name; byte_vec data, input; std::size_t decoded_at_least; };
    std::vector<bounds_case> all = {
        {"widest rounds to the output's end", widest_data, mam_of(widest), widest_data.size() - 1},
        {"widest rounds cut by the declared size", with_size(widest_data, 30000), mam_of(widest, 30000), 29999},
        {"input ends with the words", text, cut_text, text.size() - 64},
    };
    for (std::uint32_t size = 30000; size < 30017; ++size)
        all.push_back({"16-byte rounds cut at " + std::to_string(size), with_size(piece_data, size), mam_of(piece_rounds, size), size - 1});
    for (auto const& c : all) {
        SCOPED_TRACE(c.name);
        byte_vec const input(c.input.begin(), c.input.end());
        ASSERT_EQ(input.capacity(), input.size());
        container_decompressor decompressor;
        ASSERT_TRUE(decompressor.decompress_container(input));
        auto const& out = decompressor.output();
        ASSERT_EQ(out.size(), c.data.size());
        auto const decoded = std::mismatch(out.begin(), out.end(), c.data.begin()).first - out.begin();
        EXPECT_GE(static_cast<std::size_t>(decoded), c.decoded_at_least);
        EXPECT_TRUE(std::all_of(out.begin() + decoded, out.end(), [](std::uint8_t b) { return b == 0; }));
    }
}

// Decoding in steps, pausing inside blocks and between them, makes what one
// go makes: the output, how much was made and taken, and whether a block
// failed; and each step leaves at least the bytes asked for final.
TEST(decoding_in_steps, makes_what_one_go_makes)
{
    byte_vec const text = text_like(300000);
    struct steps_case { std::string name; byte_vec input; };
    std::vector<steps_case> all = {
        {"MAM of text", encode_mam(text)},
        {"MEM0 of runs", encode_mem0(runs(200000), 3)},
        {"every length escape", blocks_of(every_length_escape())},
        {"MEM0 of text, blocks padded", encode_mem0(text_like(150000), 9)},
        {"symbols of no bits", later_deficient_table(random_bytes(65536, 5))},
    };
    // Damage: bytes changed anywhere behind the header.
    for (unsigned seed = 1; seed <= 6; ++seed) {
        byte_vec damaged = all[0].input;
        std::mt19937 engine(seed);
        for (int i = 0; i < 3; ++i)
            damaged.at(8 + engine() % (damaged.size() - 8)) ^= static_cast<std::uint8_t>(1 + engine() % 255);
        all.push_back({"damaged " + std::to_string(seed), damaged});
    }
    for (auto const& c : all) {
        SCOPED_TRACE(c.name);
        container_decompressor whole;
        ASSERT_TRUE(whole.decompress_container(c.input));
        std::uint32_t const size = static_cast<std::uint32_t>(whole.output().size());
        for (std::uint32_t step : {1u, 7u, 4096u, 65535u, 65536u, 100000u}) {
            SCOPED_TRACE("step " + std::to_string(step));
            container_decompressor stepped;
            ASSERT_TRUE(stepped.decompress_container(c.input.data(), static_cast<std::int32_t>(c.input.size()), step));
            std::uint32_t asked = step;
            for (int guard = 0; stepped.final_end() < size && guard < 400000; ++guard) {
                ASSERT_GE(stepped.final_end(), std::min(asked, size));
                // The bytes already final are those of the whole output.
                std::uint32_t const final_end = stepped.final_end();
                ASSERT_TRUE(std::equal(stepped.output().begin(), stepped.output().begin() + final_end,
                                       whole.output().begin()));
                asked = final_end + step;
                stepped.decode_to(asked);
            }
            EXPECT_EQ(stepped.output(), whole.output());
            EXPECT_EQ(stepped.produced(), whole.produced());
            EXPECT_EQ(stepped.consumed(), whole.consumed());
            EXPECT_EQ(stepped.block_failed(), whole.block_failed());
        }
    }
}

} // namespace
