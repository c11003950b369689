// Kept apart from the rest of the chain so that decoding alone can be linked
// without the report writers.
#include "driver/kito_user_context.h"
#include "prefetch/decode_chain.h"
#include "reports/bodyfile_report.h"
#include "reports/csv_report.h"
#include "reports/text_report.h"
#include "reports/timeline_report.h"

bool write_prefetch_report(std::ostream& out, kito_user_context& context)
{
    if (context.m_fmt_csv) return write_csv_report(out, context);
    if (context.m_fmt_timeline) return write_timeline_report(out, context);
    if (context.m_fmt_bodyfile) return write_bodyfile_report(out, context);
    return write_text_report(out, context);
}

bool output_prefetch_entry(std::ostream& out, kito_user_context& context)
{
    // One bad file must never end a batch: whatever escapes decoding or
    // writing is logged and the file counts as failed.
    try {
        return load_prefetch_file(context) && write_prefetch_report(out, context);
    } catch (...) {
        try {
            context.diag_printf("output_prefetch_entry: exception caught");
        } catch (...) {
        }
        return false;
    }
}
