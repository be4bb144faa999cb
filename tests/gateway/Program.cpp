#include "tests/gateway/Program.h"

#include <algorithm>
#include <iterator>
#include <regex>
#include <utility>

#include <sys/wait.h>

namespace fs = std::filesystem;

std::vector<std::string> Lines(const std::string& text) {
    std::istringstream stream(text);
    std::vector<std::string> lines;
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line + (stream.eof() ? " (no end)" : ""));
    }
    return lines;
}

std::vector<std::vector<std::string>> Table(const std::string& name) {
    const std::regex between(" => ");
    std::vector<std::vector<std::string>> rows;
    for (const std::string& line : Lines(ReadWhole(KVTEST_SOURCES + name))) {
        if (!line.empty() && !line.starts_with('#')) {
            rows.emplace_back(std::sregex_token_iterator(line.begin(), line.end(), between, -1),
                              std::sregex_token_iterator());
        }
    }
    return rows;
}

Place::Place(const std::vector<SpecItems>& specs, const std::string& gateway) {
    WriteSection({specs.begin(), specs.end()});
    fs::create_directory("config");
    fs::rename("kvLogFile.json", "config/kvLogFile.json");
    if (!gateway.empty()) {
        WriteWhole("config/gateway.json", gateway);
    }
}

std::vector<std::string> Rows(const std::string& prefix, const std::string& suffix, const std::string& header) {
    std::vector<std::string> rows;
    for (int index = 0; fs::exists(prefix + std::to_string(index) + suffix); ++index) {
        const std::vector<std::string> older = Lines(ReadWhole(prefix + std::to_string(index) + suffix));
        std::copy_if(older.rbegin(), older.rend(), std::back_inserter(rows),
                     [&](const std::string& row) { return header.empty() || row != header; });
    }
    std::reverse(rows.begin(), rows.end());
    return rows;
}

Program::Program(const std::string& command) {
    static int number = 0;
    m_Files = fs::absolute("run" + std::to_string(++number));
    const std::string line = "echo $$ >" + m_Files + ".pid; exec " + command;
    std::signal(SIGPIPE, SIG_IGN);
    m_pInput = popen((line + " >" + m_Files + ".out 2>" + m_Files + ".err").c_str(), "we");
    if (m_pInput == nullptr || !Eventually([this] { return ReadWhole(m_Files + ".pid").ends_with('\n'); })) {
        throw std::runtime_error("not started: " + command);
    }
}

Program Program::Gateway(const std::string& arguments) {
    return Program(KVGATEWAY_EMULATOR " " KVGATEWAY_PATH " " + arguments);
}

Program::~Program() {
    if (m_pInput != nullptr) {
        Signal(SIGKILL);
        Wait();
    }
}

bool Program::Write(const std::string& text) {
    return std::fwrite(text.data(), 1, text.size(), m_pInput) == text.size() && std::fflush(m_pInput) == 0;
}

void Program::Signal(int number) const {
    kill(std::stoi(ReadWhole(m_Files + ".pid")), number);
}

int Program::Wait() {
    const int status = pclose(std::exchange(m_pInput, nullptr));
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}
