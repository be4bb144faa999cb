#include "gateway/Platform.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <memory>
#include <poll.h>
#include <spawn.h>
#include <stdexcept>
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

// Starts the program in a process group of its own, with these standard files and no other open one, and with signals as
// programs expect them.
pid_t Start(const std::vector<std::string>& command, int input, int output, int errors) {
    std::vector<char*> arguments(command.size() + 1); // with a null pointer at the end
    std::transform(command.begin(), command.end(), arguments.begin(),
                   [](const std::string& argument) { return const_cast<char*>(argument.c_str()); });
    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    posix_spawn_file_actions_adddup2(&files, input, STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&files, output, STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&files, errors, STDERR_FILENO);
    posix_spawn_file_actions_addclosefrom_np(&files, STDERR_FILENO + 1);
    sigset_t signals;
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    sigemptyset(&signals);
    posix_spawnattr_setsigmask(&attributes, &signals);
    sigaddset(&signals, SIGPIPE); // these two the gateway ignores
    sigaddset(&signals, SIGXFSZ);
    posix_spawnattr_setsigdefault(&attributes, &signals);
    pid_t process = 0;
    const int error = posix_spawn(&process, arguments[0], &files, &attributes, arguments.data(), environ);
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&files);
    if (error != 0) {
        Fail(error, command[0]);
    }
    return process;
}

// Reads what is there; keeps its end.
void Read(int file, std::string& text) {
    char bytes[4096];
    for (ssize_t count = 1, i = 0; count > 0 && i < 16; ++i) { // as much as a pipe holds
        count = read(file, bytes, sizeof bytes);
        text.append(bytes, static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
        text.erase(0, text.size() - std::min(text.size(), sizeof bytes));
    }
}

// A progress meter's carriage return begins a new line here.
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
    int ends[2] = {-1, -1};
    std::ignore = pipe2(ends, O_CLOEXEC);
    const OpenFile errors(ends[0], "pipe");
    auto errorsOfProgram = std::make_unique<OpenFile>(ends[1], "pipe");
    fcntl(errors.Get(), F_SETFL, O_NONBLOCK);
    const OpenFile in(open(input.c_str(), O_RDONLY | O_CLOEXEC), input);
    const OpenFile out(open("/dev/null", O_WRONLY | O_CLOEXEC), "/dev/null");
    const pid_t process = Start(command, in.Get(), out.Get(), errorsOfProgram->Get());
    errorsOfProgram.reset(); // so that its end shows at ours

    pollfd files[] = {{errors.Get(), POLLIN, 0}, {stop, POLLIN, 0}};
    auto end = Clock::now() + time;
    std::string text;
    std::string reason;
    int status = 0;
    pid_t ended = 0;
    while ((ended = waitpid(process, &status, WNOHANG)) == 0) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now()).count();
        // The pipe hangs up when the program ends, unless one that it has started holds it open, or it has closed it.
        poll(files, std::size(files), static_cast<int>(std::clamp<std::int64_t>(left, 0, files[0].fd < 0 ? 5 : 100)));
        Read(errors.Get(), text);
        files[0].fd = (files[0].revents & POLLHUP) != 0 ? -1 : files[0].fd;
        if (files[1].revents != 0) {
            kill(-process, SIGTERM);
            files[1] = {-1, 0, 0};
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
    if (ended < 0) {
        Fail(ECHILD, command[0]); // how it has ended is not known
    }
    Read(errors.Get(), text);
    if (!reason.empty() || status != 0) {
        const std::string line = LastLine(text);
        throw std::runtime_error(reason + (!line.empty()       ? line
                                           : WIFEXITED(status) ? "exit status " + std::to_string(WEXITSTATUS(status))
                                                               : "signal " + std::to_string(WTERMSIG(status))));
    }
}
