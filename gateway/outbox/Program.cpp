#include "gateway/outbox/Program.h"

#include "gateway/outbox/DurableFiles.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <stdexcept>
#include <string_view>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

namespace {

using Clock = std::chrono::steady_clock;

// In a process group of its own, and with the signals as any program expects them.
pid_t Spawn(const std::vector<std::string>& command, const std::filesystem::path& input, int errors) {
    std::vector<char*> arguments;
    for (const std::string& argument : command) {
        arguments.push_back(const_cast<char*>(argument.c_str()));
    }
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    posix_spawn_file_actions_addopen(&files, STDIN_FILENO, input.c_str(), O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&files, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_adddup2(&files, errors, STDERR_FILENO);
    posix_spawn_file_actions_addclosefrom_np(&files, STDERR_FILENO + 1);
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    sigset_t signals;
    sigemptyset(&signals);
    posix_spawnattr_setsigmask(&attributes, &signals);
    sigaddset(&signals, SIGPIPE); // which the gateway ignores
    sigaddset(&signals, SIGXFSZ);
    posix_spawnattr_setsigdefault(&attributes, &signals);
    pid_t process = 0;
    const int error = posix_spawn(&process, arguments[0], &files, &attributes, arguments.data(), environ);
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&files);
    if (error != 0) {
        throw std::system_error(error, std::generic_category(), command[0]);
    }
    return process;
}

// Keeps the end of what can be read. False at the end of the file.
bool Read(int file, std::string& text) {
    char bytes[4096];
    const ssize_t count = read(file, bytes, sizeof bytes);
    text.append(bytes, static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
    text.erase(0, text.size() - std::min(text.size(), sizeof bytes));
    return count > 0 || (count < 0 && errno == EAGAIN);
}

// A progress meter goes back to the start of its line, and begins another one here.
std::string LastLine(const std::string& text) {
    const std::size_t end = text.find_last_not_of(" \t\r\n") + 1;
    const std::size_t begin = text.substr(0, end).find_last_of("\r\n") + 1;
    std::string line = text.substr(begin, end - begin);
    std::replace_if(
        line.begin(), line.end(), [](char c) { return static_cast<unsigned char>(c) < ' '; }, ' ');
    return line;
}

} // namespace

void RunProgram(const std::vector<std::string>& command, const std::filesystem::path& input,
                std::chrono::milliseconds time, int stop) {
    int ends[2] = {-1, -1};
    std::ignore = pipe2(ends, O_CLOEXEC);
    const OpenFile errors(ends[0], "pipe");
    auto errorsOfProgram = std::make_unique<OpenFile>(ends[1], "pipe");
    fcntl(errors.Get(), F_SETFL, O_NONBLOCK);
    const pid_t process = Spawn(command, input, errorsOfProgram->Get());
    errorsOfProgram.reset();

    const OpenFile handle(static_cast<int>(syscall(SYS_pidfd_open, process, 0)), command[0]);
    pollfd files[] = {{handle.Get(), POLLIN, 0}, {errors.Get(), POLLIN, 0}, {stop, POLLIN, 0}};
    auto end = Clock::now() + time;
    std::string text;
    std::string reason;
    while (files[0].revents == 0) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now()).count();
        poll(files, std::size(files), static_cast<int>(std::clamp<std::int64_t>(left, 0, 1'000'000)));
        if (files[1].revents != 0 && !Read(errors.Get(), text)) {
            files[1].fd = -1;
        }
        if (files[2].revents != 0) {
            kill(-process, SIGTERM);
            files[2].fd = -1;
            reason = "stopped";
            end = Clock::now() + std::chrono::seconds(1);
        } else if (left <= 0) {
            kill(-process, SIGKILL);
            reason = reason.empty() ? "killed, because it took too long" : reason;
            end = Clock::now() + std::chrono::hours(1); // nothing is left but to wait
        }
    }
    if (!reason.empty()) {
        kill(-process, SIGKILL); // what it has started may still run
    }
    int status = 0;
    waitpid(process, &status, 0);
    for (int i = 0; i < 16; ++i) { // as much as a pipe holds
        Read(errors.Get(), text);
    }
    if (reason.empty() && status != 0) {
        reason = WIFEXITED(status) ? "exit status " + std::to_string(WEXITSTATUS(status))
                                   : "ended by signal " + std::to_string(WTERMSIG(status));
    }
    if (!reason.empty()) {
        const std::string line = LastLine(text);
        throw std::runtime_error(line.empty() ? reason : line);
    }
}
