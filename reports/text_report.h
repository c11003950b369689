#pragma once
// The report for a reader: the file's times, the program and its runs, then
// every file and directory it touched, numbered, volume by volume.
#include <ostream>

#include "reports/report_settings.h"

// Writes the whole report and flushes it; true.
bool write_text_report(std::ostream& out, report_subject const& file, report_settings const& settings);
