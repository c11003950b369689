// Decompression throughput, counted in bytes of output.
#include "prefetch/container_decompressor.h"
#include "support/container_encoder.h"

#include <benchmark/benchmark.h>

#include <dirent.h>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

namespace {

std::vector<byte_vec> corpus_containers()
{
    std::string const folder = std::string(KITO_CORPUS) + "/real/Win10";
    std::vector<byte_vec> containers;
    DIR* dir = opendir(folder.c_str());
    if (dir == nullptr) return containers;
    while (dirent* entry = readdir(dir)) {
        std::string const name = entry->d_name;
        if (name.size() < 3 || name.substr(name.size() - 3) != ".pf") continue;
        std::ifstream in(folder + "/" + name, std::ios::binary);
        byte_vec bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
        std::uint32_t size = 0;
        if (detect_container(size, bytes) != container_none) containers.push_back(std::move(bytes));
    }
    closedir(dir);
    return containers;
}

// 4 MiB shaped like a Prefetch file's string section: UTF-16 paths from a few
// folders, with numbers between them.
byte_vec large_container()
{
    static char const* const folders[] = {"\\VOLUME{01d2c3a4b5e6f708-1234ABCD}\\WINDOWS\\SYSTEM32\\",
                                          "\\VOLUME{01d2c3a4b5e6f708-1234ABCD}\\PROGRAM FILES\\APP\\",
                                          "\\VOLUME{01d2c3a4b5e6f708-1234ABCD}\\USERS\\EXAMINER\\APPDATA\\"};
    std::mt19937 engine(42);
    byte_vec data;
    while (data.size() < (4u << 20)) {
        std::string path = folders[engine() % 3];
        for (int i = 0, n = 3 + static_cast<int>(engine() % 9); i < n; ++i)
            path += static_cast<char>('A' + engine() % 26);
        path += ".DLL";
        for (char c : path) {
            data.push_back(static_cast<std::uint8_t>(c));
            data.push_back(0);
        }
        for (int i = 0; i < 8; ++i) data.push_back(static_cast<std::uint8_t>(engine()));
    }
    return encode_mam(data);
}

void decompress_all(benchmark::State& state, std::vector<byte_vec> const& containers)
{
    if (containers.empty()) {
        state.SkipWithError("no containers");
        return;
    }
    std::int64_t produced = 0;
    for (auto _ : state) {
        for (auto const& container : containers) {
            container_decompressor decompressor;
            decompressor.decompress_container(container);
            benchmark::DoNotOptimize(decompressor.output().data());
            produced += static_cast<std::int64_t>(decompressor.output().size());
        }
    }
    state.SetBytesProcessed(produced);
}

void corpus_mam(benchmark::State& state)
{
    static std::vector<byte_vec> const containers = corpus_containers();
    decompress_all(state, containers);
}

// As a batch decodes: one object, reset for each container, keeps its storage.
void corpus_mam_reused(benchmark::State& state)
{
    static std::vector<byte_vec> const containers = corpus_containers();
    if (containers.empty()) {
        state.SkipWithError("no containers");
        return;
    }
    container_decompressor decompressor;
    std::int64_t produced = 0;
    for (auto _ : state) {
        for (auto const& container : containers) {
            decompressor.reset();
            decompressor.decompress_container(container);
            benchmark::DoNotOptimize(decompressor.output().data());
            produced += static_cast<std::int64_t>(decompressor.output().size());
        }
    }
    state.SetBytesProcessed(produced);
}

void encoder_made_mam(benchmark::State& state)
{
    static std::vector<byte_vec> const containers = {large_container()};
    decompress_all(state, containers);
}

void encoder_made_xpress(benchmark::State& state)
{
    static std::vector<byte_vec> const containers = [] {
        byte_vec data;
        std::mt19937 engine(5);
        while (data.size() < 65536)
            data.insert(data.end(), {'C', 0, ':', 0, '\\', 0, static_cast<std::uint8_t>(engine() % 8)});
        data.resize(65536);
        return std::vector<byte_vec>{encode_xpress(data)};
    }();
    decompress_all(state, containers);
}

} // namespace

BENCHMARK(corpus_mam);
BENCHMARK(corpus_mam_reused);
BENCHMARK(encoder_made_mam);
BENCHMARK(encoder_made_xpress);
BENCHMARK_MAIN();
