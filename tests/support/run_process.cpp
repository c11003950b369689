#include "support/run_process.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <iterator>

// Standard input, output and error go through files in a temporary folder:
// no pipe can fill up and stall the child, however much it writes.
process_result run_process(std::string const& program, std::vector<std::string> const& args,
                           std::string const& input, std::vector<std::string> const& env,
                           std::string const& working_dir)
{
    temp_folder const dir("run");
    std::string const in = dir / "in", out = dir / "out", err = dir / "err";
    write_file(in, input);
    process_result result;
    pid_t const pid = fork();
    if (pid == 0) {
        int const fds[3] = {open(in.c_str(), O_RDONLY), open(out.c_str(), O_WRONLY | O_CREAT, 0600),
                            open(err.c_str(), O_WRONLY | O_CREAT, 0600)};
        for (int i = 0; i < 3; ++i) dup2(fds[i], i);
        if (!working_dir.empty() && chdir(working_dir.c_str()) != 0) _exit(127);
        for (auto const& e : env) putenv(const_cast<char*>(e.c_str()));
        std::vector<char*> argv{const_cast<char*>(program.c_str())};
        for (auto const& a : args) argv.push_back(const_cast<char*>(a.c_str()));
        argv.push_back(nullptr);
        execv(program.c_str(), argv.data());
        _exit(127);
    }
    int status = 0;
    waitpid(pid, &status, 0);
    result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    result.out = read_file(out);
    result.err = read_file(err);
    return result;
}

process_result run_kito(std::vector<std::string> const& args, std::string const& input,
                        std::string const& working_dir)
{
    return run_process(env_or_empty("KITO_BINARY"), args, input, {"TZ=UTC"}, working_dir);
}

process_result run_tool(std::string const& program, std::vector<std::string> args, std::string const& input)
{
    args.insert(args.begin(), {"TZ=UTC", program});
    return run_process("/usr/bin/env", args, input);
}

std::string env_or_empty(char const* name)
{
    char const* value = std::getenv(name);
    return value ? value : "";
}

std::string corpus_dir()
{
    std::string const dir = env_or_empty("KITO_CORPUS");
    struct stat st {};
    return !dir.empty() && stat(dir.c_str(), &st) == 0 && S_ISDIR(st.st_mode) ? dir : std::string();
}

bool write_file(std::string const& path, std::string const& bytes)
{
    std::ofstream out(path, std::ios::binary);
    out << bytes;
    out.close();
    return !out.fail();
}

bool write_file(std::string const& path, std::vector<std::uint8_t> const& bytes)
{
    return write_file(path, std::string(bytes.begin(), bytes.end()));
}

std::string read_file(std::string const& path)
{
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

std::size_t count_of(std::string const& text, std::string const& part)
{
    std::size_t count = 0;
    for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++count;
    return count;
}

std::string table_bytes(std::string const& text)
{
    std::string out;
    for (std::size_t i = 0; i < text.size(); ++i)
        if (text.compare(i, 2, "\\x") == 0) out += char(std::stoi(text.substr(i + 2, 2), nullptr, 16)), i += 3;
        else out += text[i];
    return out;
}

std::u16string table_units(std::string const& text)
{
    std::u16string out;
    for (std::size_t i = 0; i < text.size(); ++i)
        if (text.compare(i, 2, "\\u") == 0) out += char16_t(std::stoi(text.substr(i + 2, 4), nullptr, 16)), i += 5;
        else out += char16_t(static_cast<unsigned char>(text[i]));
    return out;
}
