#include "prefetch/consistency.h"

#include "foundation/vlm_time.h"

namespace {

// Windows writes the file after the program has started, so a genuine file's
// modified time is at or after its last run; the file system keeps whole
// seconds, hence the margin.
constexpr std::uint64_t modified_margin = 2 * vlm::ticks_per_second;

bool valid_time(std::uint64_t filetime) { return vlm::time(filetime, vlm::filetime).valid != 0; }

// Distinct valid times among the last run and the previous runs; the newest
// slot may be both.
std::size_t valid_run_times(prefetch_entry const& e)
{
    std::size_t count = valid_time(e.last_run) && !e.prev_run_times.contains(e.last_run) ? 1 : 0;
    for (std::uint64_t const run : e.prev_run_times) count += valid_time(run) ? 1 : 0;
    return count;
}

bool holds(finding which, prefetch_entry const& e, std::uint64_t run_started)
{
    switch (which) {
    case finding::runs_exceed_count: return e.run_count_known && e.run_count < valid_run_times(e);
    case finding::run_after_file_modified:
        return valid_time(e.last_run) && e.input_modified != 0 && e.last_run - modified_margin > e.input_modified;
    case finding::run_in_future:
        // Compared as stored: a value too large to show as a date is later still.
        return e.last_run > run_started || (!e.prev_run_times.empty() && *e.prev_run_times.rbegin() > run_started);
    }
    return false;
}

} // namespace

char const* finding_code(finding which)
{
    switch (which) {
    case finding::runs_exceed_count: return "runs_exceed_count";
    case finding::run_after_file_modified: return "run_after_file_modified";
    case finding::run_in_future: return "run_in_future";
    }
    return "";
}

std::vector<finding> find_inconsistencies(prefetch_entry const& entry, std::uint64_t run_started)
{
    std::vector<finding> found;
    for (finding const which : all_findings)
        if (holds(which, entry, run_started)) found.push_back(which);
    return found;
}

void count_checks(check_tally& tally, prefetch_entry const& entry, std::vector<finding> const& found)
{
    switch (entry.path_hash) {
    case path_hash_check::matched:
        ++(entry.hash_prefetch_flag != 0 ? tally.path_hash_matched_prefetch_flag : tally.path_hash_matched);
        break;
    case path_hash_check::not_matched:
        ++(entry.hash_hosting_program ? tally.path_hash_hosting_program : tally.path_hash_not_matched);
        break;
    case path_hash_check::no_candidate: ++tally.path_hash_unchecked; break;
    }
    for (finding const which : found) ++tally.with_finding[static_cast<std::size_t>(which)];
}
