#include "driver/output_entry.h"

#include <cstdio>

#include "foundation/problem_messages.h"
#include "prefetch/decode_chain.h"
#include "reports/bodyfile_report.h"
#include "reports/csv_report.h"
#include "reports/html_report.h"
#include "reports/json_report.h"
#include "reports/text_report.h"
#include "reports/timeline_report.h"

namespace {

report_state state_of(kito_user_context& context) { return {context.m_header_pending, context.m_column_list}; }

// What the writers read of the options, copied for each file: the context's
// fields may change between files (tests and the fuzz target set them freely).
report_settings settings_of(kito_user_context const& options)
{
    report_settings s;
    s.date_format = options.m_date_format;
    s.time_format = options.m_time_format;
    s.date_time_layout = options.m_date_time_layout;
    s.separator = options.m_separator;
    s.value_substitute_from = options.m_value_substitute_from;
    s.value_substitute_to = options.m_value_substitute_to;
    s.no_padding = options.m_no_padding;
    s.blank_before_time = options.m_blank_before_time;
    s.base16 = options.m_base16;
    s.delimited_form = options.m_fmt_csv || options.m_fmt_timeline || options.m_fmt_csvgen || options.m_fmt_bodyfile;
    s.pair_datetime = options.m_pair_datetime;
    s.verbose = options.m_verbose;
    s.user_name = options.m_user_name;
    s.host_name = options.m_host_name;
    s.user_name_given = options.m_user_name_given;
    s.host_name_given = options.m_host_name_given;
    s.program_name = options.m_program_name;
    s.run_started = options.m_run_started;
    s.show_prev_runs = options.m_show_prev_runs;
    s.show_prefetch_path = options.m_show_prefetch_path;
    return s;
}

report_subject subject_of(kito_user_context const& context)
{
    return {context.m_entry, context.m_file_path, context.m_file_base_name, context.m_version_label};
}

// The writer's part of a file: whatever escapes it, or escaped decoding, is
// logged and the file counts as failed, but one bad file never ends a batch.
bool write_decoded(std::ostream& out, kito_user_context& context, bool decoded, bool threw)
{
    try {
        if (!threw) return write_prefetch_report(out, context, decoded);
    } catch (...) {
    }
    try {
        context.diag_printf("output_prefetch_entry: exception caught");
        context.m_entry.failure = decode_failure::exception;
        write_json_report(out, context, /*decoded=*/false);
        write_html_report(out, context, /*decoded=*/false);
    } catch (...) {
    }
    return false;
}

bool counted_report(std::ostream& out, kito_user_context& context, bool decoded, bool threw)
{
    bool const reported = write_decoded(out, context, decoded, threw);
    if (reported) ++context.m_files_reported;
    return reported;
}

} // namespace

// What the form chosen prints, in the order write_prefetch_report chooses it.
decode_wants wants_of(kito_user_context const& options)
{
    if (options.m_fmt_json || options.m_fmt_html) return {};
    bool const text = !options.m_fmt_csv && !options.m_fmt_timeline && !options.m_fmt_bodyfile;
    bool const names = text || (options.m_fmt_csv ? verbose_columns(settings_of(options)) : options.m_fmt_timeline);
    // Every form that prints the names prints the volumes too.
    return {.digest = false, .file_names = names, .volume_directories = text, .path_hash = false, .volumes = names};
}

void decode_input(decoded_input& input, evidence_item const& item, input_reader const& read, decode_buffers& buffers)
{
    // A place that held an earlier file keeps only the memory of its lists.
    prefetch_entry room = emptied(std::move(input.entry));
    input = decoded_input{};
    input.entry = std::move(room);
    problem_capture const capture(input.messages);
    try {
        input.decoded = read(item, buffers, input.entry, input.version_label);
    } catch (...) {
        input.threw = true;
    }
}

bool report_decoded_input(std::ostream& out, kito_user_context& context, decoded_input& input)
{
    ++context.m_files_handled;
    context.m_entry = std::move(input.entry);
    if (!input.version_label.empty()) context.m_version_label = input.version_label;
    std::fputs(input.messages.c_str(), stderr);
    bool const reported = counted_report(out, context, input.decoded, input.threw);
    // Nothing reads a file's entry after its report: letting it go keeps the
    // files alive at once to those in flight. The memory of its lists goes
    // back to the input's place, for the file decoded there next.
    input.entry = emptied(std::move(context.m_entry));
    context.m_entry = prefetch_entry{};
    return reported;
}

bool write_text_report(std::ostream& out, kito_user_context& context)
{
    if (context.m_fmt_csv || context.m_fmt_timeline || context.m_fmt_bodyfile) return false;
    return write_text_report(out, subject_of(context), settings_of(context));
}

bool write_csv_report(std::ostream& out, kito_user_context& context)
{
    report_state state = state_of(context);
    return context.m_fmt_csv && write_csv_report(out, subject_of(context), settings_of(context), state);
}

bool write_timeline_report(std::ostream& out, kito_user_context& context)
{
    report_state state = state_of(context);
    return context.m_fmt_timeline && write_timeline_report(out, subject_of(context), settings_of(context), state);
}

bool write_bodyfile_report(std::ostream& out, kito_user_context& context)
{
    report_state state = state_of(context);
    return context.m_fmt_bodyfile && write_bodyfile_report(out, subject_of(context), state);
}

bool write_json_report(std::ostream& out, kito_user_context& context, bool decoded)
{
    return context.m_fmt_json &&
           write_json_report(out, subject_of(context), settings_of(context), decoded, context.m_check_tally);
}

bool write_html_report(std::ostream& out, kito_user_context& context, bool decoded)
{
    return context.m_fmt_html && write_html_report(out, subject_of(context), settings_of(context), decoded,
                                                   context.m_html_page, context.m_check_tally);
}

void write_json_history(std::ostream& out, program_history const& program, kito_user_context& context)
{
    write_json_history(out, program, settings_of(context));
}

void write_html_history(std::ostream& out, program_history const& program, kito_user_context& context)
{
    write_html_history(out, program, context.m_html_page);
}

void write_html_head(std::ostream& out, kito_user_context& context, run_facts const& facts)
{
    html_tags tags;
    if (context.m_host_name_given) tags.emplace_back("Evidence host", context.m_host_name);
    if (context.m_user_name_given) tags.emplace_back("Evidence user", context.m_user_name);
    write_html_head(out, facts, tags);
}

void write_html_end(std::ostream& out, kito_user_context& context)
{
    std::uint64_t const files = context.m_files_handled, reported = context.m_files_reported;
    check_tally const& checks = context.m_check_tally;
    std::vector<html_count> counts = {{"Files", files},
                                      {"Reported", reported},
                                      {"Failed", files - reported},
                                      {"Path hash matches a path", checks.path_hash_matched},
                                      {"Path hash matches with /prefetch:N", checks.path_hash_matched_prefetch_flag},
                                      {"Path hash matches no path", checks.path_hash_not_matched},
                                      {"Path hash of a hosting program", checks.path_hash_hosting_program},
                                      {"Path hash not checked", checks.path_hash_unchecked}};
    if (context.m_image_given)
        counts.insert(counts.begin() + 3, {"Duplicates (bytes reported at another place)", context.m_duplicates});
    for (finding const which : all_findings)
        counts.push_back(
            {std::string("Finding ") + finding_code(which), checks.with_finding[static_cast<std::size_t>(which)]});
    write_html_end(out, context.m_html_page, counts);
}

bool write_prefetch_report(std::ostream& out, kito_user_context& context, bool decoded)
{
    // The JSON and HTML forms report a refused file as well, with its reason.
    if (context.m_fmt_json) return write_json_report(out, context, decoded);
    if (context.m_fmt_html) return write_html_report(out, context, decoded);
    if (!decoded) return false;
    if (context.m_fmt_csv) return write_csv_report(out, context);
    if (context.m_fmt_timeline) return write_timeline_report(out, context);
    if (context.m_fmt_bodyfile) return write_bodyfile_report(out, context);
    return write_text_report(out, context);
}

bool output_prefetch_entry(std::ostream& out, kito_user_context& context)
{
    ++context.m_files_handled;
    bool decoded = false, threw = false;
    try {
        context.m_buffers.wants = wants_of(context);
        decoded = load_prefetch_file(context);
    } catch (...) {
        threw = true;
    }
    return counted_report(out, context, decoded, threw);
}

bool load_prefetch_file(kito_user_context& context)
{
    return load_prefetch_file(context.m_file_path, context.m_buffers, context.m_entry, context.m_version_label);
}

bool decode_prefetch_buffer(std::uint8_t const* data, std::uint32_t size, kito_user_context& context)
{
    return decode_prefetch_buffer(data, size, context.m_buffers.inner, context.m_entry, context.m_version_label);
}

void reset_decoded_entry(kito_user_context& context) { context.m_entry = prefetch_entry{}; }
