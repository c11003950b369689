#pragma once
// One program's run history across the versions of its Prefetch file that an
// image holds (the live file, older copies in snapshots, deleted ones): no
// single file keeps more than eight runs, their union may keep many more.
// A program is one executable name and Prefetch hash on one partition of one
// image. Only names and run times are kept: at most nine times per version.
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "prefetch/prefetch_entry.h"

struct program_version {
    std::string display_name;
    std::uint64_t last_run = 0;
    std::uint64_t modified = 0;   // the Prefetch file's, which breaks a tie of last runs
    std::set<std::uint64_t> runs; // last run and previous runs, zeros left out
};

struct program_history {
    std::string image_path;
    std::uint64_t partition_offset = 0;
    std::string executable;
    std::string executable_path;
    std::uint32_t prefetch_hash = 0;
    // The newest version first: the one with the latest last run, then the
    // latest modified time; versions equal in both stay in the order found.
    std::vector<program_version> versions;

    // The distinct run times of all versions.
    std::set<std::uint64_t> all_runs() const;
};

class history_book {
public:
    // A decoded file read from an image; other files are passed over.
    void add(prefetch_entry const& entry, std::string const& display_name);
    // The programs found in two or more versions, in the order first found;
    // the book is empty after.
    std::vector<program_history> take_histories();

private:
    using program_key = std::tuple<std::string, std::uint64_t, std::string, std::uint32_t>;
    std::map<program_key, std::size_t> m_index;
    std::vector<program_history> m_programs;
};
