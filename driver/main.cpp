// The spine of a run: arguments in, help answered, the run header framed,
// options parsed, one mode run, and an exit status of 0 or -1 out.
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <sstream>
#include <string>

#include "driver/arg_list.h"
#include "driver/foundation_adapters.h"
#include "driver/kito_user_context.h"
#include "driver/output_entry.h"
#include "driver/process_files.h"
#include "driver/run_header.h"
#include "foundation/run_statistics.h"
#include "foundation/uni_fileio.h"
#include "foundation/vlm_path_rules.h"
#include "prefetch/evidence_guard.h"
#include "reports/json_report.h"

namespace {

// Any element asks for help, values and the program path included.
bool help_requested(arg_list& list)
{
    for (char const* word : {"-h", "-help", "/?", "--help"})
        if (take_flag(word, list, true)) return true;
    return list.size() == 1;
}

// Which of the driver's modes the fields left by the option pass select.
int run_mode(kito_user_context& context, arg_list const& list, std::ostream& results)
{
    if (context.m_unallocated && !context.m_image_given) {
        std::fputs("invalid -unallocated without -image\n", stderr);
        return -1;
    }
    if (context.m_decompress_only) return run_decompress_mode(context, list);
    if (context.m_pipe_input || context.m_enum_dir_given || context.m_image_given || context.m_carve_given)
        return process_prefetch_files(context, results) ? 0 : -1;
    if (list.size() == 2) {
        context.m_file_path = expand_path_variables(list[1], /*allow_shadow_copy=*/true);
        return process_prefetch_files(context, results) ? 0 : -1;
    }
    // Anything left over, be it a second name or an option without its
    // value, means the command was not understood.
    if (!context.m_scan_volume) {
        print_usage(context.m_program_name);
        return 0;
    }
    return process_prefetch_files(context, results) ? 0 : -1;
}

// A report that did not reach its stream is never a success: the failure is
// told once, by the stream's name, and turns the status to -1.
int lost_results(std::string const& name)
{
    std::fprintf(stderr, "prob writing results to %s\n", name.c_str());
    return -1;
}

// The results file is finished before the end-of-run chores; standard
// output goes out after them, as it always has at exit, and is checked there.
int finish_results_file(std::ostream& results, uni::fileio& results_file, std::string const& results_path, int status)
{
    bool const written = results.good() && results_file.finish_output();
    // The stream is the file's own: it goes with the close.
    results_file.close();
    return written ? status : lost_results(results_path);
}

bool standard_output_written() { return std::cout.flush() && std::fflush(stdout) == 0 && !std::ferror(stdout); }

int run(arg_list& list)
{
    // Destroyed last, so its chores follow the close of the results file and
    // of the diagnostics log.
    run_statistics statistics;
    std::ostringstream header;
    kito_user_context context;

    if (help_requested(list)) {
        print_usage(list[0]);
        std::exit(0);
    }
    // Framed before the options take their words out, so the header shows
    // the command line as it was given.
    build_run_header(header, list, context.m_run_started);
    arg_list const given = list;

    if (!parse_tool_options(context, list, kito_version)) {
        std::cout << header.str() << '\n';
        return -1;
    }
    start_run_statistics(statistics, context, [](std::string const*) { return 0; });

    uni::fileio results_file;
    std::ostream* results = &std::cout;
    if (!context.m_results_path.empty()) {
        // Never truncate a Prefetch file or a container, also one reached through a link.
        bool const opened = !is_evidence_file(context.m_results_path) &&
                            results_file.open(context.m_results_path, /*write=*/true, /*truncate=*/true);
        results = opened ? results_file.output_stream() : nullptr;
        if (results == nullptr) {
            std::fprintf(stderr, "prob opening results file: %s for writing\n", context.m_results_path.c_str());
            return -1;
        }
    }
    if (context.m_fmt_json) write_json_run_record(*results, describe_run(given, context.m_run_started));
    else if (context.m_fmt_html) write_html_head(*results, context, describe_run(given, context.m_run_started));
    else *results << header.str() << '\n';
    int const status = run_mode(context, list, *results);
    if (context.m_fmt_json)
        write_json_summary(*results, context.m_files_handled, context.m_files_reported, context.m_check_tally,
                           context.m_image_given ? std::optional(context.m_duplicates) : std::nullopt);
    if (context.m_fmt_html) write_html_end(*results, context);
    if (context.m_results_path.empty()) return status;
    return finish_results_file(*results, results_file, context.m_results_path, status);
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 1) std::exit(-1);
    arg_list list;
    for (int i = 0; i < argc; ++i) list.emplace_back(argv[i] != nullptr ? argv[i] : "");
    int const status = run(list);
    // Whatever standard output still holds goes out now; if it or anything
    // before it could not, the report is lost.
    return standard_output_written() ? status : lost_results("standard output");
}
