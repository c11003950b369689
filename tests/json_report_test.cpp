// The JSON form below the process: its one string escaper and time formatter,
// the file references of the metrics array, and records read back.
#include <gtest/gtest.h>

#include <optional>
#include <sstream>

#include "prefetch/decode_chain.h"
#include "reports/json_report.h"
#include "support/prefetch_builder.h"

namespace {

TEST(JsonReport, StringsKeepEveryByteAndEveryUnit)
{
    struct row { std::string in, out; } const rows[] = {
        {"C:\\A \"B\"", R"("C:\\A \"B\"")"},
        {std::string("\0\t\n\r\x1f\x7f", 6), R"("\u0000\u0009\u000a\u000d\u001f\u007f")"},
        {"\xc3\x89\xe2\x82\xac\xf0\x9f\x98\x80\xef\xbf\xbf", "\"\xc3\x89\xe2\x82\xac\xf0\x9f\x98\x80\xef\xbf\xbf\""},
        // Three-byte forms of surrogates, as UTF-16 text read unit by unit makes them.
        {"\xed\xa0\x80" "A\xed\xbf\xbf", R"("\ud800A\udfff")"},
        {"\xed\xa0\xbd\xed\xb8\x80", R"("\ud83d\ude00")"},
        {"\xed\x9f\xbf", "\"\xed\x9f\xbf\""}, // U+D7FF, just below them
        // Bytes outside UTF-8: stray, overlong, past U+10FFFF, cut short.
        {"a\x80\xff", R"("a\udc80\udcff")"},
        {"\xc0\x80\xc1\xbf", R"("\udcc0\udc80\udcc1\udcbf")"},
        {"\xe0\x80\xaf", R"("\udce0\udc80\udcaf")"},
        {"\xf0\x8f\xbf\xbf", R"("\udcf0\udc8f\udcbf\udcbf")"},
        {"\xf4\x90\x80\x80", R"("\udcf4\udc90\udc80\udc80")"},
        {"\xe2\x82" "A\xe2", R"("\udce2\udc82A\udce2")"},
    };
    for (row const& r : rows) {
        SCOPED_TRACE(r.out);
        EXPECT_EQ(json_string(r.in), r.out);
    }
}

TEST(JsonReport, TimesWithTheWholeFractionOrNull)
{
    struct row { std::uint64_t filetime; char const* text; } const rows[] = {
        {0, "null"},
        {116444736000000000ULL, "null"}, // 1970-01-01 00:00:00 is no time
        {116444736010000000ULL, R"("1970-01-01T00:00:01.0000000Z")"},
        {131121092967890123ULL, R"("2016-07-04T12:34:56.7890123Z")"},
        {125962560000000001ULL, R"("2000-02-29T00:00:00.0000001Z")"},
        {441796896000000000ULL, "null"}, // 3001
        {0x8000000000000000ULL, "null"},
    };
    for (row const& r : rows) {
        SCOPED_TRACE(r.filetime);
        EXPECT_EQ(json_time(r.filetime), r.text);
    }
}

using reference = std::optional<std::pair<std::uint64_t, std::uint16_t>>;
using pf_damage = void (*)(pf_image&);

std::vector<reference> references_of(prefetch_entry const& e)
{
    std::vector<reference> refs;
    for (auto const& [offset, text] : e.file_strings) {
        auto const found = e.file_references.find(offset);
        refs.push_back(found == e.file_references.end()
                           ? reference()
                           : reference({found->second.mft_entry, found->second.mft_sequence}));
    }
    return refs;
}

// File references: low 48 bits the MFT entry, high 16 the sequence number;
// damage gives nulls, never a refused file.
TEST(JsonReport, FileReferencesFromTheMetricsArray)
{
    std::vector<std::uint64_t> const refs = {0x0001000000006436ULL, 0, 0xfffeffffffffffffULL};
    reference const ntdll = {{25654, 1}}, maximal = {{0xffffffffffffULL, 0xfffe}};
    std::vector<reference> const all = {ntdll, std::nullopt, maximal}, none(3);
    struct row { char const* what; std::uint32_t version; pf_damage damage; std::vector<reference> want; } const rows[] = {
        {"XP entries carry none", 17, nullptr, none},
        {"Vista/7", 23, nullptr, all},
        {"8", 26, nullptr, all},
        {"10", 30, nullptr, all},
        {"11", 31, nullptr, all},
        {"unknown version", 32, nullptr, none},
        {"array past the end", 23, [](pf_image& i) { i.put_u32(84, i.size() - 20); }, none},
        {"entry names no string", 23, [](pf_image& i) { i.put_u32(i.metrics_offset + 12, 2); }, {std::nullopt, std::nullopt, maximal}},
        {"name offset past the end", 30, [](pf_image& i) { i.put_u32(i.metrics_offset + 64 + 12, 0xfffffff0u); }, {ntdll, std::nullopt, std::nullopt}},
        {"two entries name one string", 26, [](pf_image& i) { i.put_u32(i.metrics_offset + 64 + 12, 0); }, {ntdll, std::nullopt, std::nullopt}},
    };
    for (row const& r : rows) {
        SCOPED_TRACE(r.what);
        pf_fields fields = typical_prefetch(r.version);
        fields.file_references = refs;
        pf_image image = build_prefetch(fields);
        if (r.damage) r.damage(image);
        container_decompressor inner;
        prefetch_entry entry;
        std::string label;
        ASSERT_TRUE(decode_prefetch_buffer(image.bytes.data(), image.size(), inner, entry, label));
        EXPECT_EQ(references_of(entry), r.want);
    }
}

std::string const pf = "NOTEPAD.EXE-D8414F97.pf", pf_path = "/cases/" + pf, label = "Win10 Prefetch";

std::string record_of(prefetch_entry const& entry, std::string const& name = pf, report_settings const& settings = {})
{
    std::ostringstream out;
    check_tally tally;
    EXPECT_TRUE(write_json_report(out, {entry, pf_path, name, label}, settings, true, tally));
    return out.str();
}

TEST(JsonReport, HashOfTheHeaderAgainstTheFileName)
{
    struct row { std::string name, members; } const rows[] = {
        {"NOTEPAD.EXE-D8414F97.pf", R"("name_hash":"D8414F97","hash_matches_name":true)"},
        {"notepad.exe-d8414f97.pf", R"("name_hash":"d8414f97","hash_matches_name":true)"},
        {"NOTEPAD.EXE-D8414F98.pf", R"("name_hash":"D8414F98","hash_matches_name":false)"},
        {"A-B-D8414F97", R"("name_hash":"D8414F97","hash_matches_name":true)"},
        {"NOTEPAD.EXE.pf", R"("name_hash":null,"hash_matches_name":null)"},
        {"NOTEPAD.EXE-D8414F9.pf", R"("name_hash":null,"hash_matches_name":null)"},
        {"NOTEPAD.EXE-D8414G97.pf", R"("name_hash":null,"hash_matches_name":null)"},
    };
    for (row const& r : rows) {
        prefetch_entry entry;
        entry.prefetch_hash = 0xd8414f97;
        EXPECT_NE(record_of(entry, r.name).find(R"("prefetch_hash":"D8414F97",)" + r.members), std::string::npos) << r.name;
    }
}

} // namespace
