// Kept apart from the rest of the chain so that decoding alone can be linked
// without the report writers.
#include "driver/kito_user_context.h"
#include "prefetch/decode_chain.h"
#include "reports/bodyfile_report.h"
#include "reports/csv_report.h"
#include "reports/json_report.h"
#include "reports/text_report.h"
#include "reports/timeline_report.h"

namespace {

bool decode_and_write(std::ostream& out, kito_user_context& context)
{
    // One bad file must never end a batch: whatever escapes decoding or
    // writing is logged and the file counts as failed.
    try {
        return write_prefetch_report(out, context, load_prefetch_file(context));
    } catch (...) {
        try {
            context.diag_printf("output_prefetch_entry: exception caught");
            context.m_entry.failure = decode_failure::exception;
            if (context.m_fmt_json) write_json_report(out, context, false);
        } catch (...) {
        }
        return false;
    }
}

} // namespace

bool write_prefetch_report(std::ostream& out, kito_user_context& context, bool decoded)
{
    // The JSON form reports a refused file as well, with its reason.
    if (context.m_fmt_json) return write_json_report(out, context, decoded);
    if (!decoded) return false;
    if (context.m_fmt_csv) return write_csv_report(out, context);
    if (context.m_fmt_timeline) return write_timeline_report(out, context);
    if (context.m_fmt_bodyfile) return write_bodyfile_report(out, context);
    return write_text_report(out, context);
}

bool output_prefetch_entry(std::ostream& out, kito_user_context& context)
{
    ++context.m_files_handled;
    bool const reported = decode_and_write(out, context);
    if (reported) ++context.m_files_reported;
    return reported;
}
