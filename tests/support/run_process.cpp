#include "support/run_process.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>
#include <sstream>

namespace {

void set_nonblocking(int fd) { fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) | O_NONBLOCK); }

} // namespace

process_result run_process(std::string const& program, std::vector<std::string> const& args,
                           std::string const& input, std::vector<std::string> const& env,
                           std::string const& working_dir)
{
    int in_pipe[2], out_pipe[2], err_pipe[2];
    process_result result;
    if (pipe(in_pipe) != 0 || pipe(out_pipe) != 0 || pipe(err_pipe) != 0) return result;
    pid_t const pid = fork();
    if (pid == 0) {
        dup2(in_pipe[0], 0);
        dup2(out_pipe[1], 1);
        dup2(err_pipe[1], 2);
        for (int fd : {in_pipe[0], in_pipe[1], out_pipe[0], out_pipe[1], err_pipe[0], err_pipe[1]}) close(fd);
        if (!working_dir.empty() && chdir(working_dir.c_str()) != 0) _exit(127);
        for (auto const& e : env) putenv(const_cast<char*>(e.c_str()));
        std::vector<char*> argv;
        argv.push_back(const_cast<char*>(program.c_str()));
        for (auto const& a : args) argv.push_back(const_cast<char*>(a.c_str()));
        argv.push_back(nullptr);
        execv(program.c_str(), argv.data());
        _exit(127);
    }
    close(in_pipe[0]);
    close(out_pipe[1]);
    close(err_pipe[1]);
    set_nonblocking(in_pipe[1]);
    std::size_t written = 0;
    if (input.empty()) {
        close(in_pipe[1]);
        in_pipe[1] = -1;
    }
    bool out_open = true, err_open = true;
    char chunk[65536];
    while (out_open || err_open) {
        pollfd fds[3] = {{out_open ? out_pipe[0] : -1, POLLIN, 0},
                         {err_open ? err_pipe[0] : -1, POLLIN, 0},
                         {in_pipe[1], POLLOUT, 0}};
        if (poll(fds, 3, -1) < 0 && errno != EINTR) break;
        if (in_pipe[1] >= 0 && (fds[2].revents & (POLLOUT | POLLERR | POLLHUP))) {
            ssize_t const n = write(in_pipe[1], input.data() + written, input.size() - written);
            if (n > 0) written += static_cast<std::size_t>(n);
            if (n < 0 && errno != EAGAIN) written = input.size();
            if (written >= input.size()) {
                close(in_pipe[1]);
                in_pipe[1] = -1;
            }
        }
        for (int i = 0; i < 2; ++i) {
            if (!(fds[i].revents & (POLLIN | POLLHUP | POLLERR))) continue;
            ssize_t const n = read(i == 0 ? out_pipe[0] : err_pipe[0], chunk, sizeof chunk);
            if (n > 0) (i == 0 ? result.out : result.err).append(chunk, static_cast<std::size_t>(n));
            else if (n == 0 || errno != EAGAIN) (i == 0 ? out_open : err_open) = false;
        }
    }
    if (in_pipe[1] >= 0) close(in_pipe[1]);
    close(out_pipe[0]);
    close(err_pipe[0]);
    int status = 0;
    waitpid(pid, &status, 0);
    result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return result;
}

process_result run_kito(std::vector<std::string> const& args, std::string const& input,
                        std::string const& working_dir)
{
    return run_process(env_or_empty("KITO_BINARY"), args, input, {"TZ=UTC"}, working_dir);
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
    if (dir.empty() || stat(dir.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) return {};
    return dir;
}

std::string make_temp_dir(std::string const& tag)
{
    std::string pattern = "/tmp/kito-" + tag + "-XXXXXX";
    char* made = mkdtemp(pattern.data());
    return made ? std::string(made) : std::string();
}

void write_file(std::string const& path, std::string const& bytes)
{
    std::ofstream(path, std::ios::binary) << bytes;
}

std::string read_file(std::string const& path)
{
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}
