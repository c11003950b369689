#pragma once
// JSON Lines for the tools examiners pipe into (jq, Elasticsearch, Splunk,
// Timesketch): a run record, one record per input file, a summary record.
// Every line is one JSON object in UTF-8 that parses on its own, and keeps
// what the other forms drop: the format version, the hashes, the NTFS file
// references, full-precision times and the reason a file was refused.
#include <array>
#include <cstdint>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "prefetch/consistency.h"
#include "reports/program_history.h"
#include "reports/report_settings.h"
#include "reports/report_texts.h"

// A quoted JSON string. Well-formed UTF-8 stands as it is; the quote, the
// backslash and control characters are escaped; the three-byte form of a
// UTF-16 surrogate becomes \uXXXX of that unit, so text read from UTF-16
// keeps its code units; any other byte that is not UTF-8 becomes \udcXX,
// U+DC00 plus the byte, as Python's "surrogateescape" writes it.
std::string json_string(std::string_view text);

// A FILETIME as a quoted ISO 8601 UTC text with all seven digits of the
// fraction, or null for a time that is not valid (zero, before 1970, after 3000).
std::string json_time(std::uint64_t filetime);

void write_json_run_record(std::ostream& out, run_facts const& facts);
// The record of the file in hand: "prefetch" when it was decoded, otherwise
// "error" with the reason the decoder gave. A "prefetch" record is counted in
// `tally`. The result is `decoded`. A file from an image has `same_bytes_at`.
bool write_json_report(std::ostream& out, report_subject const& file, report_settings const& settings, bool decoded,
                       check_tally& tally);
// The "history" record of a program found in several versions: their names,
// newest first, and the distinct runs of all of them, latest first.
void write_json_history(std::ostream& out, program_history const& program, report_settings const& settings);
// `duplicates`, the files passed over for holding bytes already reported, is
// given in the runs that compare contents (-image), and only there.
void write_json_summary(std::ostream& out, std::uint64_t files, std::uint64_t reported, check_tally const& tally,
                        std::optional<std::uint64_t> duplicates = std::nullopt);
