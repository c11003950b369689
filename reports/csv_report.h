#pragma once
// One delimited line per file under one header line per run: the compact
// -csv form, or the padded table of a batch without options.
#include <ostream>

#include "reports/report_settings.h"

// Whether the table has the volume and module columns (file names included).
bool verbose_columns(report_settings const& settings);
// Writes the header first while it is pending (the columns are made then),
// then the file's line; true.
bool write_csv_report(std::ostream& out, report_subject const& file, report_settings const& settings,
                      report_state& state);
