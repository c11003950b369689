#pragma once
// The texts that frame a run: the banner, the usage screen, and the header
// that stands at the top of every results stream, whatever the format.
#include <cstdint>
#include <ostream>
#include <string>

#include "driver/arg_list.h"
#include "reports/report_texts.h"

// The version comes from the build (the project's version in CMakeLists.txt),
// so that the program, its man page and its package all say the same.
#ifndef KITO_VERSION
#error "KITO_VERSION is set by the build"
#endif
inline constexpr char kito_banner[] = "kito - ver: " KITO_VERSION;
inline constexpr char kito_version[] = "ver: " KITO_VERSION;

// The usage screen on standard error; `program` fills the two -pipe examples.
void print_usage(std::string const& program);

// Three lines: banner; run time, host and system; the command as it was
// given. `run_started` is the FILETIME the context recorded at start-up.
// Nothing here depends on the option pass, so the same text serves a run
// whose options fail.
void build_run_header(std::ostream& stream, arg_list const& list, std::uint64_t run_started);

// The same facts for the head of the JSON and HTML forms, with the arguments as a list.
run_facts describe_run(arg_list const& list, std::uint64_t run_started);

// "sysname;version;release;64" (or 32), then "; " and the marks "<~>" for a
// program file on a network file system and ":=" for one on a USB device.
std::string describe_system();
