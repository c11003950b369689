#pragma once
// The chain for one input file as the run calls it, over the one context:
// each entry point here picks out what the decoder or the writer works from.
#include <cstdint>
#include <functional>
#include <ostream>
#include <string>

#include "driver/kito_user_context.h"
#include "evidence/evidence_item.h"
#include "reports/report_texts.h"

// Reads an item's bytes into the buffers and decodes them into the entry and
// version label, touching nothing else.
using input_reader = std::function<bool(evidence_item const&, decode_buffers&, prefetch_entry&, std::string&)>;

// One input decoded apart from the context, on any thread: all that its
// report then needs.
struct decoded_input {
    prefetch_entry entry;
    std::string version_label; // empty unless decoding reached the layout, which always has one
    bool decoded = false;
    bool threw = false;   // something escaped decoding
    std::string messages; // what reading it said, for standard error
};

// Decode context.m_file_path and write one report. Never lets an exception pass.
bool output_prefetch_entry(std::ostream& out, kito_user_context& context);
// What the run's form prints of a file, and so what decoding must do.
decode_wants wants_of(kito_user_context const& options);
// Decodes the item with `read`, catching everything, its messages kept.
void decode_input(decoded_input& input, evidence_item const& item, input_reader const& read, decode_buffers& buffers);
// The report of a decoded input over the context, with its messages first, as
// output_prefetch_entry would have made it; the caller has set the file's path.
bool report_decoded_input(std::ostream& out, kito_user_context& context, decoded_input& input);
// The writer the format options choose, over the entry decoded last; `decoded`
// says whether decoding succeeded (only the JSON and HTML forms report a failure).
bool write_prefetch_report(std::ostream& out, kito_user_context& context, bool decoded);
bool load_prefetch_file(kito_user_context& context);
bool decode_prefetch_buffer(std::uint8_t const* data, std::uint32_t size, kito_user_context& context);
void reset_decoded_entry(kito_user_context& context);

// Each writer writes nothing and gives false unless its format is the one chosen.
bool write_text_report(std::ostream& out, kito_user_context& context);
bool write_csv_report(std::ostream& out, kito_user_context& context);
bool write_timeline_report(std::ostream& out, kito_user_context& context);
bool write_bodyfile_report(std::ostream& out, kito_user_context& context);
bool write_json_report(std::ostream& out, kito_user_context& context, bool decoded);
bool write_html_report(std::ostream& out, kito_user_context& context, bool decoded);
// The history of a program found in several versions, in the form chosen.
void write_json_history(std::ostream& out, program_history const& program, kito_user_context& context);
void write_html_history(std::ostream& out, program_history const& program, kito_user_context& context);
// The HTML page's head and run section, with the examiner's tags; and its end,
// with the run's counts.
void write_html_head(std::ostream& out, kito_user_context& context, run_facts const& facts);
void write_html_end(std::ostream& out, kito_user_context& context);
