// The JSON form below the process: its one string escaper and time formatter,
// the file references of the metrics array, and records read back.
#include <gtest/gtest.h>

#include <sstream>

#include "prefetch/decode_chain.h"
#include "reports/json_report.h"
#include "support/prefetch_builder.h"
#include "support/test_table.h"

namespace {

json const table = test_table("json_report");

TEST(JsonReport, StringsKeepEveryByteAndEveryUnit)
{
    for (json const& r : table.at("strings")) {
        SCOPED_TRACE(r[1]);
        EXPECT_EQ(json_string(bytes_of(r[0])), bytes_of(r[1]));
    }
}

TEST(JsonReport, TimesWithTheWholeFractionOrNull)
{
    for (json const& r : table.at("times")) {
        SCOPED_TRACE(r[0]);
        EXPECT_EQ(json_time(r[0]), r[1]);
    }
}

// Each string's reference as [MFT entry, sequence number], or null.
json references_of(prefetch_entry const& e)
{
    json refs = json::array();
    for (auto const& [offset, text] : e.file_strings) {
        auto const found = e.file_references.find(offset);
        refs.push_back(found == e.file_references.end() ? json() : json{found->second.mft_entry, found->second.mft_sequence});
    }
    return refs;
}

TEST(JsonReport, FileReferencesFromTheMetricsArray)
{
    std::vector<std::uint64_t> const refs = {0x0001000000006436ULL, 0, 0xfffeffffffffffffULL};
    for (json const& r : table.at("references")) {
        SCOPED_TRACE(r[0]);
        pf_fields fields = typical_prefetch(r[1]);
        fields.file_references = refs;
        pf_image image = build_prefetch(fields);
        if (json const& d = r[2]; !d.is_null())
            image.put_u32(d.value("at", image.metrics_offset + d.value("metrics_at", 0u)),
                          d.contains("from_end") ? image.size() - d["from_end"].get<std::uint32_t>() : d["value"].get<std::uint32_t>());
        container_decompressor inner;
        prefetch_entry entry;
        std::string label;
        ASSERT_TRUE(decode_prefetch_buffer(image.bytes.data(), image.size(), inner, entry, label));
        EXPECT_EQ(references_of(entry), r[3]);
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
    for (json const& r : table.at("hashes")) {
        prefetch_entry entry;
        entry.prefetch_hash = 0xd8414f97;
        EXPECT_NE(record_of(entry, r[0]).find(R"("prefetch_hash":"D8414F97",)" + r[1].get<std::string>()), std::string::npos) << r[0];
    }
}

} // namespace
