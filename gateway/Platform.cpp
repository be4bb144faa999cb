#include "gateway/Platform.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <poll.h>
#include <stdexcept>
#include <string_view>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <system_error>
#include <tuple>

namespace fs = std::filesystem;

namespace {

using Clock = std::chrono::steady_clock;

[[noreturn]] void Fail(int error, const fs::path& path) {
    throw std::system_error(error, std::generic_category(), path.string());
}

// 0, or errno: EEXIST when there is something of that name.
int RenameToNew(const fs::path& from, const fs::path& to) {
    if (renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) {
        return 0;
    }
    const bool isUnknown = errno == EINVAL; // as on NFS, where a link does not replace either
    return isUnknown && link(from.c_str(), to.c_str()) == 0 && unlink(from.c_str()) == 0 ? 0 : errno;
}

// In the new process, where nothing may be called that takes a lock. The program gets a process group of its own and no open file of ours, and
// finds the signals as programs expect them.
[[noreturn]] void Become(char* const* arguments, const char* input, int errors) {
    sigset_t none;
    sigemptyset(&none);
    pthread_sigmask(SIG_SETMASK, &none, nullptr);
    std::signal(SIGPIPE, SIG_DFL); // which the gateway ignores
    std::signal(SIGXFSZ, SIG_DFL);
    setpgid(0, 0);
    dup2(errors, STDERR_FILENO);
    dup2(open(input, O_RDONLY), STDIN_FILENO);
    dup2(open("/dev/null", O_WRONLY), STDOUT_FILENO);
    closefrom(STDERR_FILENO + 1);
    execv(arguments[0], arguments);
    constexpr std::string_view REASON = "the program cannot be executed\n";
    std::ignore = write(STDERR_FILENO, REASON.data(), REASON.size());
    _exit(EXIT_FAILURE);
}

// Keeps the end of what can be read.
void Read(int file, std::string& text) {
    char bytes[4096];
    for (ssize_t count = 1, i = 0; count > 0 && i < 16; ++i) { // as much as a pipe holds
        count = read(file, bytes, sizeof bytes);
        text.append(bytes, static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
        text.erase(0, text.size() - std::min(text.size(), sizeof bytes));
    }
}

// A progress meter goes back to the start of its line, and begins another one here.
std::string LastLine(const std::string& text) {
    const std::string lines = text.substr(0, text.find_last_not_of(" \t\r\n") + 1);
    std::string line = lines.substr(lines.find_last_of("\r\n") + 1);
    std::replace_if(
        line.begin(), line.end(), [](char c) { return static_cast<unsigned char>(c) < ' '; }, ' ');
    return line;
}

} // namespace

OpenFile::OpenFile(int file, const fs::path& what) : m_nFile(file) {
    if (file < 0) {
        Fail(errno, what);
    }
}

void Sync(const fs::path& path) {
    if (fsync(OpenFile(open(path.c_str(), O_RDONLY | O_CLOEXEC), path).Get()) != 0) {
        Fail(errno, path);
    }
}

void CopyInto(const fs::path& file, const fs::path& directory, const std::string& part, unsigned& next) {
    fs::create_directories(directory);
    fs::copy_file(file, directory / part, fs::copy_options::overwrite_existing);
    Sync(directory / part);
    fs::path target = directory / file.filename();
    int error = RenameToNew(directory / part, target);
    for (next = std::max(next, 2U); error == EEXIST; ++next) {
        target = directory / (file.stem().string() + '~' + std::to_string(next) + file.extension().string());
        error = RenameToNew(directory / part, target);
    }
    if (error != 0) {
        Fail(error, target);
    }
    Sync(directory);
}

void RunProgram(const std::vector<std::string>& command, const fs::path& input, std::chrono::milliseconds time,
                int stop) {
    std::vector<char*> arguments(command.size() + 1); // with a null pointer at the end
    std::transform(command.begin(), command.end(), arguments.begin(),
                   [](const std::string& argument) { return const_cast<char*>(argument.c_str()); });
    int ends[2] = {-1, -1};
    std::ignore = pipe2(ends, O_CLOEXEC | O_NONBLOCK);
    const OpenFile errors(ends[0], "pipe");
    const OpenFile errorsOfProgram(ends[1], "pipe");
    fcntl(ends[1], F_SETFL, 0);
    const pid_t process = fork();
    if (process == 0) {
        Become(arguments.data(), input.c_str(), ends[1]);
    }
    const OpenFile handle(static_cast<int>(syscall(SYS_pidfd_open, process, 0)), command[0]); // also when fork failed
    setpgid(process, process);

    pollfd files[] = {{handle.Get(), POLLIN, 0}, {errors.Get(), POLLIN, 0}, {stop, POLLIN, 0}};
    auto end = Clock::now() + time;
    std::string text;
    std::string reason;
    while (files[0].revents == 0) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now()).count();
        poll(files, std::size(files), static_cast<int>(std::clamp<std::int64_t>(left, 0, 1'000'000)));
        Read(errors.Get(), text);
        if (files[2].revents != 0) {
            kill(-process, SIGTERM);
            files[2].fd = -1;
            reason = "stopped: ";
            end = Clock::now() + std::chrono::seconds(1);
        } else if (left <= 0) {
            kill(-process, SIGKILL);
            reason = reason.empty() ? "killed, for it took too long: " : reason;
            end = Clock::now() + std::chrono::hours(1); // nothing is left but to wait
        }
    }
    if (!reason.empty()) {
        kill(-process, SIGKILL); // what it has started may still run
    }
    int status = 0;
    waitpid(process, &status, 0);
    Read(errors.Get(), text);
    if (!reason.empty() || status != 0) {
        const std::string line = LastLine(text);
        throw std::runtime_error(reason + (!line.empty()       ? line
                                           : WIFEXITED(status) ? "exit status " + std::to_string(WEXITSTATUS(status))
                                                               : "signal " + std::to_string(WTERMSIG(status))));
    }
}
