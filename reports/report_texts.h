#pragma once
// Texts that the JSON and HTML forms share: the run's facts, UTF-8 sequences,
// times in ISO 8601, hashes, container names and the reasons a file was refused.
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "prefetch/prefetch_entry.h"

// What the head of a report says about the run.
struct run_facts {
    std::string version;
    std::uint64_t started = 0; // FILETIME
    std::string host;
    std::string system;
    std::vector<std::string> arguments; // the command line as given, program first
};

// Length of the UTF-8 sequence that `text` begins with, and its code point;
// 0 when the first byte begins no well-formed sequence. The three-byte forms
// of surrogates, which the wide-text conversion writes for unpaired UTF-16
// units, are let through: each caller decides how to show them.
std::size_t utf8_sequence(std::string_view text, std::uint32_t& code_point);

// A FILETIME as ISO 8601 UTC with all seven digits of the fraction
// ("2019-03-14T12:30:45.1234567Z"); empty for a time that is not valid
// (zero, before 1970, after 3000).
std::string iso_time(std::uint64_t filetime);

// A hash as eight upper-case hex digits, as Windows writes it in file names.
std::string hash_text(std::uint32_t hash);

// The container layers unwrapped, outermost first, joined by "/" ("MAM");
// empty for a plain file.
std::string container_names(std::vector<std::uint32_t> const& kinds);

// Why a file was refused, in the examiner's words.
char const* failure_reason(decode_failure failure);
