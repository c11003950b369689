#pragma once
// Runs the built kito (or any program) with arguments and standard input, and
// hands back standard output, standard error and the exit status separately.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "support/temp_folder.h"

struct process_result {
    std::string out;
    std::string err;
    int status = -1; // exit status as the shell sees it, or -1 if it did not exit
};

process_result run_process(std::string const& program, std::vector<std::string> const& args,
                           std::string const& input = {}, std::vector<std::string> const& env = {},
                           std::string const& working_dir = {});

// The kito under test (KITO_BINARY), with TZ fixed to UTC.
process_result run_kito(std::vector<std::string> const& args, std::string const& input = {},
                        std::string const& working_dir = {});

// A program found on PATH, under TZ=UTC; status 127 when it is not installed.
process_result run_tool(std::string const& program, std::vector<std::string> args, std::string const& input = {});

// Environment variables set by ctest; empty when unset.
std::string env_or_empty(char const* name);
// The shared corpus folder, or empty when it is absent.
std::string corpus_dir();
bool write_file(std::string const& path, std::string const& bytes);
bool write_file(std::string const& path, std::vector<std::uint8_t> const& bytes);
std::string read_file(std::string const& path);
// How often `part` occurs in `text`, overlaps included.
std::size_t count_of(std::string const& text, std::string const& part);
// A text of such a table as bytes (\xHH one byte) or as UTF-16 (\uXXXX one unit);
// the rest stands as it is, one unit a byte for UTF-16.
std::string table_bytes(std::string const& text);
std::u16string table_units(std::string const& text);
