// Writes the sample Prefetch files into the folder named by the first argument;
// with "--seeds" also their damaged variants, for use as a fuzzing corpus.
#include <cstdio>
#include <filesystem>
#include <string>

#include "support/prefetch_builder.h"
#include "support/run_process.h"

int main(int argc, char** argv)
{
    if (argc < 2) {
        std::fprintf(stderr, "usage: make_samples <folder> [--seeds]\n");
        return 1;
    }
    std::error_code error;
    std::filesystem::create_directories(argv[1], error);
    bool ok = true;
    for (pf_sample const& sample : sample_files(argc > 2 && std::string(argv[2]) == "--seeds"))
        ok = write_file(std::string(argv[1]) + "/" + sample.name, sample.bytes) && ok;
    return ok ? 0 : 1;
}
