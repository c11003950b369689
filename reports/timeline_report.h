#pragma once
// Timeline rows in the seventeen-column log2timeline CSV layout: one row per
// distinct instant among a file's four times, one more per previous run.
#include <cstdint>
#include <ostream>
#include <string>

#include "foundation/vlm_time_text.h"
#include "reports/field_output.h"

struct timeline_record {
    time_quad times;
    std::string timezone = "UTC";
    std::string source;
    std::string sourcetype;
    std::string type_override; // stands for every row's type text when set
    std::string user;
    std::string host;
    std::string short_text;
    std::string desc;
    std::uint32_t version = 2;
    std::string filename;
    std::string inode;
    std::string notes;
    std::string format;
    std::string extra;
    std::string date_format = "yyyy-mm-dd";
    std::string time_format = "hh:mm:ss.xxx";
    vlm::date_time_layout layout{};
    std::string separator = ",";
    char substitute_from = ',';
    char substitute_to = ' ';
    bool no_padding = false;
    bool paired = false;
};

// The file's rows, then those of each previous run, newest first; true.
bool write_timeline_report(std::ostream& out, report_subject const& file, report_settings const& settings,
                           report_state& state);
// Writes the header first when header_pending is set (and clears it), then
// the rows of the record, in ascending time. Makes the record's texts safe
// for the separator in place.
bool write_timeline_record(bool& header_pending, std::ostream& out, timeline_record& record);
// The column names joined by the separator, without the line end.
void write_timeline_header(std::ostream& out, std::string const& separator, bool paired);
