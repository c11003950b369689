#pragma once
// One self-contained HTML5 page per run, for a person to read and to hand on
// with a case file: the run, an execution timeline, a sortable table of the
// files with their details, and the files that failed. Styles, script and
// drawing are inline; the page loads nothing and runs no script but its own.
//
// The page is written as the files come, in one pass: the head and the run
// first, then one table row per file with its details as data, then the end.
// Of a decoded file only the strings of the page's table (below) are kept
// after its row; the script lays out the timeline from the times each row
// carries and builds a file's details when they are opened.
#include <cstdint>
#include <ostream>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "prefetch/consistency.h"
#include "reports/program_history.h"
#include "reports/report_settings.h"
#include "reports/report_texts.h"

// The failed files named at the end of the page; past this many, only their
// count is given (the -json form reports each with its reason).
inline constexpr std::size_t html_failed_listed = 10000;

struct html_failed_file {
    std::string path;
    std::string reason;
};

// The items of the details that recur from file to file (the same libraries,
// with the same file references on one host, and folders in every program's
// list) are written once and then named by their number in the page's table.
// The table is bounded: at most html_strings_kept items whose keys (the text
// and the reference) are at most html_string_length_kept bytes each and
// html_string_bytes_kept bytes in all; past that an item is written in full
// wherever it stands.
inline constexpr std::size_t html_strings_kept = 1 << 16;
inline constexpr std::size_t html_string_length_kept = 1024;
inline constexpr std::size_t html_string_bytes_kept = 8 << 20;

struct html_string_table {
    std::unordered_map<std::string, std::uint32_t> numbers;
    std::size_t bytes = 0;
    // Takes `key` in with the next number, if it is new and fits the bounds.
    bool add(std::string const& key);
};

// What the page carries from one file to the next.
struct html_page_state {
    std::uint64_t rows = 0; // numbers each row's element ids
    html_string_table strings;
    std::vector<html_failed_file> failed;
    std::uint64_t failed_unlisted = 0;
};

// A count of the run's summary, by its label.
struct html_count {
    std::string label;
    std::uint64_t value = 0;
};

// Text for the page. Well-formed UTF-8 stands, and the markup characters
// become character references. What a page cannot show faithfully is shown
// as a visible escape: control characters, unpaired UTF-16 surrogates,
// noncharacters and the direction controls that could reorder a name on
// screen as "\uXXXX", bytes that are not UTF-8 as "\xXX". In html_text each
// escape stands in a <mark class="esc">, so that it cannot be taken for the
// same characters in the name; html_attribute writes it bare, for attribute
// values and the page title, where no element can stand.
std::string html_text(std::string_view text);
std::string html_attribute(std::string_view text);

// The page up to the first file: head, styles, the run and the table's heading.
// `tags` are the examiner's labels of the evidence (host, user), shown with the run.
using html_tags = std::vector<std::pair<std::string, std::string>>;
void write_html_head(std::ostream& out, run_facts const& facts, html_tags const& tags);
// The row and details of the file in hand, or, when it was not decoded, a
// place in the list of failed files. The result is `decoded`.
// A decoded file's checks are counted in `tally`.
bool write_html_report(std::ostream& out, report_subject const& file, report_settings const& settings, bool decoded,
                       html_page_state& state, check_tally& tally);
// A table row for the history of a program found in several versions, with
// its versions in the details; the timeline marks apart the runs that only
// older versions keep.
void write_html_history(std::ostream& out, program_history const& program, html_page_state& state);
// The rest of the page: the failed files, the summary and the script.
void write_html_end(std::ostream& out, html_page_state const& state, std::vector<html_count> const& counts);
