// Writes the sample Prefetch files into the folder named by the first argument;
// with "--seeds" also their damaged variants, for use as a fuzzing corpus; with "--versions" instead
// several versions of each program and runs.json, the run times of each version.
#include <cstdio>
#include <filesystem>
#include <string>

#include "support/prefetch_builder.h"
#include "support/run_process.h"

int main(int argc, char** argv)
{
    if (argc < 2) {
        std::fprintf(stderr, "usage: make_samples <folder> [--seeds|--versions]\n");
        return 1;
    }
    std::error_code error;
    std::filesystem::create_directories(argv[1], error);
    std::string const mode = argc > 2 ? argv[2] : "", folder = std::string(argv[1]) + "/";
    bool ok = true;
    if (mode != "--versions") {
        for (pf_sample const& sample : sample_files(mode == "--seeds")) ok = write_file(folder + sample.name, sample.bytes) && ok;
        return ok ? 0 : 1;
    }
    std::string runs = "{";
    for (pf_version const& version : program_versions()) {
        ok = write_file(folder + version.file.name, version.file.bytes) && ok;
        runs += std::string(runs.size() > 1 ? ",\n" : "\n") + " \"" + version.file.name + "\": [";
        for (std::size_t i = 0; i < version.runs.size(); ++i) runs += (i ? ", " : "") + std::to_string(version.runs[i]);
        runs += "]";
    }
    return write_file(folder + "runs.json", runs + "\n}\n") && ok ? 0 : 1;
}
