#pragma once
// What stands out when a decoded file's own facts are held against each other
// and against the moment of the run: signs of a file that was edited, planted
// or copied without its times. Each finding is a hint to look closer, not a
// verdict.
#include <array>
#include <cstdint>
#include <vector>

#include "prefetch/prefetch_entry.h"

enum class finding {
    runs_exceed_count,       // more valid run times stored than the run count says
    run_after_file_modified, // last run over 2 s after the file's modified time
    run_in_future,           // a stored run time later than the start of the run
};
constexpr std::array<finding, 3> all_findings = {finding::runs_exceed_count, finding::run_after_file_modified,
                                                 finding::run_in_future};

// The short code that reports show: "runs_exceed_count", ...
char const* finding_code(finding which);

// The findings of the entry, in the order of all_findings. run_started is the
// start of the run as a FILETIME.
std::vector<finding> find_inconsistencies(prefetch_entry const& entry, std::uint64_t run_started);

// What a run counts of its decoded files' checks, for the summaries. Each
// decoded file counts in exactly one of the path-hash counts.
struct check_tally {
    std::uint64_t path_hash_matched = 0;               // by a path's own hash
    std::uint64_t path_hash_matched_prefetch_flag = 0; // by a path's hash plus N of "/prefetch:N"
    std::uint64_t path_hash_not_matched = 0;           // other than hosting programs: the ones to look at
    std::uint64_t path_hash_hosting_program = 0;
    std::uint64_t path_hash_unchecked = 0;                         // no path names the program
    std::array<std::uint64_t, all_findings.size()> with_finding{}; // files, by finding
    // Carving runs only: signatures found whose header failed.
    bool carving = false;
    std::uint64_t carve_rejected = 0;
};
void count_checks(check_tally& tally, prefetch_entry const& entry, std::vector<finding> const& found);
