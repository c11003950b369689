#pragma once
// Lines of the sleuthkit bodyfile, so that a timeline tool can merge the run
// times of a Prefetch file with file system data.
#include <cstdint>
#include <ostream>
#include <string>

#include "reports/field_output.h"

struct bodyfile_record {
    std::string md5;
    std::string name;
    std::uint64_t inode = 0;
    std::string mode_text;
    std::uint64_t uid = 0;
    std::uint64_t gid = 0;
    std::uint64_t size = 0;
    time_quad times = unix_seconds_quad(); // slots hold Unix seconds
    std::string timezone = "UTC";

    static time_quad unix_seconds_quad()
    {
        time_quad quad;
        quad.time_kind = vlm::unix_time;
        return quad;
    }
};

// A FILETIME as the whole Unix seconds of a bodyfile column. 0, and values
// with the top bit set, give 0; a value before 1970 wraps around.
std::uint64_t bodyfile_seconds(std::uint64_t filetime);

// The file's line, then one per previous run, newest first; true. The
// bodyfile has no options of its own.
bool write_bodyfile_report(std::ostream& out, report_subject const& file, report_state& state);
// Writes the header first when header_pending is set (and clears it), then
// one line; a "|" in the name becomes ";" in the record itself.
bool write_bodyfile_record(bool& header_pending, std::ostream& out, bodyfile_record& record);
// The column names, without the line end.
void write_bodyfile_header(std::ostream& out);
