#include "tests/gateway/Program.h"

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstring>
#include <iterator>
#include <sstream>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

Place::Place(const std::vector<std::string>& specs, const std::string& gateway) {
    std::string list;
    for (const std::string& spec : specs) {
        list += (list.empty() ? "" : ",\n") + (R"({"type": "EFileSpec", )" + spec + "}");
    }
    std::filesystem::create_directory(Path("config"));
    Write("config/kvLogFile.json", R"({"version": 3, "dateFormat": "YYYY-MM-DD", "timeFormat": "HH:mm:SS.sss",
"fileSpecs": [)" + list + "]}");
    if (!gateway.empty()) {
        Write("config/gateway.json", gateway);
    }
}

std::vector<std::string> Place::Rows(const std::string& prefix, const std::string& suffix,
                                     const std::string& header) const {
    int count = 0;
    while (Has(prefix + std::to_string(count) + suffix)) {
        ++count;
    }
    std::vector<std::string> rows;
    for (int index = count - 1; index >= 0; --index) {
        std::istringstream lines(Read(prefix + std::to_string(index) + suffix));
        for (std::string line; std::getline(lines, line);) {
            if (header.empty() || line != header) {
                rows.push_back(line + (lines.eof() ? " (no end)" : ""));
            }
        }
    }
    return rows;
}

Program::Program(const Place& place, const std::vector<std::string>& arguments) {
    static std::atomic<int> number{0};
    const std::string base = place.Path("run" + std::to_string(++number));
    m_Errors = base + ".err";
    m_Output = base + ".out";
    int pipe[2];
    if (pipe2(pipe, O_CLOEXEC) != 0) {
        throw std::runtime_error("no pipe");
    }
    std::signal(SIGPIPE, SIG_IGN);
    m_nInput = pipe[1];
    std::istringstream emulator(KVGATEWAY_EMULATOR); // no words, unless the program is another processor's
    std::vector<std::string> command{std::istream_iterator<std::string>(emulator), {}};
    command.emplace_back(KVGATEWAY_PATH);
    command.insert(command.end(), arguments.begin(), arguments.end());
    std::vector<char*> argv;
    for (std::string& word : command) {
        argv.push_back(word.data());
    }
    argv.push_back(nullptr);
    m_nProcess = fork();
    if (m_nProcess == 0) {
        dup2(pipe[0], STDIN_FILENO);
        dup2(open(m_Output.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600), STDOUT_FILENO);
        dup2(open(m_Errors.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600), STDERR_FILENO);
        execvp(argv[0], argv.data());
        _exit(127);
    }
    close(pipe[0]);
}

Program Program::Run(const Place& place, const std::vector<std::string>& more) {
    std::vector<std::string> arguments{"run", "--config", place.Path("config"), "--directory", place.Path()};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return Program(place, arguments);
}

Program::~Program() {
    if (m_nProcess > 0) {
        kill(m_nProcess, SIGKILL);
        Wait();
    }
}

bool Program::Write(const std::string& text) {
    for (std::size_t done = 0; done < text.size();) {
        const ssize_t written = write(m_nInput, text.data() + done, text.size() - done);
        if (written <= 0) {
            return false;
        }
        done += static_cast<std::size_t>(written);
    }
    return true;
}

void Program::EndInput() {
    if (m_nInput >= 0) {
        close(m_nInput);
        m_nInput = -1;
    }
}

int Program::Wait() {
    EndInput();
    int status = 0;
    if (m_nProcess <= 0 || waitpid(m_nProcess, &status, 0) != m_nProcess) {
        return -1000;
    }
    m_nProcess = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}
