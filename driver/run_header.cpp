#include "driver/run_header.h"

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/sysmacros.h>
#include <sys/utsname.h>
#include <unistd.h>

#include "foundation/vlm_path_rules.h"
#include "foundation/vlm_time.h"
#include "foundation/vlm_time_text.h"

namespace {

char const* const usage_lines[] = {
    "-----------------------------------------------------------------------------\n\n",
    nullptr, // the banner
    "Usage:\n",
    "\n",
    "   kito <filename> [options]   = parse individual file\n",
    "   find /home -name *.pf -type f | %s -pipe\n",
    "   ls /home/prefetch_dir/*.pf | %s -pipe > results\n",
    "   kito -enumdir <location pf files> -num_subdirs <#> [options]\n",
    "\n",
    " Basic options\n",
    "  -csv                       = output in comma separated value format\n",
    "  -csvl2t                    = log2timeline output\n",
    "  -bodyfile                  = sleuthkit output\n",
    "  -verbose                   = force module listing to be in output\n",
    "\n",
    " Additional options\n",
    "  -pipe                      = pipe files into app for processing\n",
    "  -hostname <name>           = csv output will contain this hostname\n",
    "  -dateformat mm/dd/yyyy     = \"yyyy-mm-dd\" is the default\n",
    "  -timeformat hh:mm:ss       = \"hh:mm:ss.xxx\" is the default\n",
    "  -pair_datetime             = combine date/time into 1 field for csv\n",
    "  -no_whitespace             = remove whitespace between csv delimiter\n",
    "  -csv_separator \"|\"         = use a pipe character for csv separator\n",
    "  -kito_path                 = include prefetch path in output\n",
    "  -filter <*partial*|*.ext>  = filters stdin data from -pipe option\n",
    "\n",
};

// Magic numbers statfs reports for NFS, SMB, FUSE (sshfs and friends) and CIFS.
// Compared on the low 32 bits, since some kernels sign-extend the CIFS magic.
bool is_network_fs(std::uint32_t type)
{
    return type == 0x517B || type == 0x6969 || type == 0x65735546 || type == 0xFF534D42;
}

std::string fields_without_semicolons(char const* text)
{
    std::string field(text);
    for (char& c : field)
        if (c == ';') c = ' ';
    return field + ";";
}

// Where the running program file lies: on a network share, or on a device
// that the block layer reaches through USB. Either tells the examiner that
// the tool ran from removable or remote media.
void describe_program_location(bool& on_network, bool& on_usb)
{
    on_network = on_usb = false;
    char exe[PATH_MAX];
    ssize_t const length = readlink("/proc/self/exe", exe, sizeof exe - 1);
    if (length <= 0) return;
    exe[length] = '\0';
    struct statfs fs_facts {};
    if (statfs(exe, &fs_facts) == 0) on_network = is_network_fs(static_cast<std::uint32_t>(fs_facts.f_type));
    struct stat file_facts {};
    if (stat(exe, &file_facts) != 0) return;
    char device_link[128];
    std::snprintf(device_link, sizeof device_link, "%s/%ld:%ld", "/sys/dev/block",
                  static_cast<long>(major(file_facts.st_dev)), static_cast<long>(minor(file_facts.st_dev)));
    char resolved[PATH_MAX];
    if (realpath(device_link, resolved) != nullptr) on_usb = std::string(resolved).find("usb") != std::string::npos;
}

std::string host_name()
{
    char host[256] = {};
    return gethostname(host, sizeof host - 1) == 0 ? std::string(host) : std::string("<unk>");
}

} // namespace

void print_usage(std::string const& program)
{
    for (char const* line : usage_lines) {
        if (line == nullptr) std::fprintf(stderr, "%s\n\n", kito_banner);
        else if (std::string(line).find("%s") != std::string::npos) std::fprintf(stderr, line, program.c_str());
        else std::fputs(line, stderr);
    }
    std::fflush(stderr);
}

std::string describe_system()
{
    std::string text;
    std::string machine;
    struct utsname names {};
    if (uname(&names) == 0) {
        text = fields_without_semicolons(names.sysname) + fields_without_semicolons(names.version) +
               fields_without_semicolons(names.release);
        machine = names.machine;
        for (char& c : machine)
            if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    } else {
        text = "Linux;;;";
    }
    text += machine.find("64") != std::string::npos ? "64" : "32";

    bool on_network = false, on_usb = false;
    describe_program_location(on_network, on_usb);
    if (on_network || on_usb) {
        text += "; ";
        if (on_network) text += "<~>";
        if (on_usb) text += ":=";
    }
    return text;
}

void build_run_header(std::ostream& stream, arg_list const& list, std::uint64_t run_started)
{
    // The header has its own date lookup: the value of -dateformat as it
    // stands, even one the option pass will refuse for the reports.
    std::string date_format = "mm/dd/yyyy";
    peek_value("-dateformat", date_format, list, 1);
    std::string date_text, time_text;
    vlm::format_time_text(date_text, time_text, vlm::time(run_started, vlm::filetime), date_format, "hh:mm:ss");

    std::string command;
    join_arguments(command, list, '\'');

    stream << kito_banner << '\n';
    stream << "run time: " << date_text << ' ' << time_text << " [UTC]; host: " << host_name()
           << "; system: " << describe_system() << '\n';
    stream << "\"command: " << (find_option("-pipe", list, 1) ? "<filelist> ... | " : "") << command << "\"\n";
}

run_facts describe_run(arg_list const& list, std::uint64_t run_started)
{
    std::string const version = kito_version;
    return {version.substr(version.find(' ') + 1), run_started, host_name(), describe_system(), list};
}
