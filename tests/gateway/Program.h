#pragma once

#include "tests/Workplace.h"

#include <gmock/gmock.h>

#include <cstdio>
#include <regex>
#include <utility>

#include <sys/wait.h>
#include <unistd.h>

// The lines of a text; a last one without an end is marked.
inline std::vector<std::string> Lines(const std::string& text) {
    std::istringstream stream(text);
    std::vector<std::string> lines;
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line + (stream.eof() ? " (no end)" : ""));
    }
    return lines;
}

// The lines of a file beside this one, split at " => ". Empty ones and comments are left out.
inline std::vector<std::vector<std::string>> Table(const std::string& name) {
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

// What is in a directory: names, and bytes of files.
inline std::map<std::string, std::string> Contents(const std::string& directory) {
    std::map<std::string, std::string> contents;
    std::error_code missing;
    for (const auto& entry : std::filesystem::directory_iterator(directory, missing)) {
        contents[entry.path().filename()] = entry.is_directory() ? "" : ReadWhole(entry.path());
    }
    return contents;
}

// The rows of the set "PREFIX<index>SUFFIX", from the oldest file to the newest, without lines equal to `header`.
inline std::vector<std::string> Rows(const std::string& prefix, const std::string& suffix,
                                     const std::string& header = "none") {
    std::vector<std::string> rows;
    for (int index = 0; std::filesystem::exists(prefix + std::to_string(index) + suffix); ++index) {
        const std::vector<std::string> older = Lines(ReadWhole(prefix + std::to_string(index) + suffix));
        std::remove_copy(older.rbegin(), older.rend(), std::back_inserter(rows), header);
    }
    std::reverse(rows.begin(), rows.end());
    return rows;
}

// A new working directory with a configuration in "config".
class Place : public Workplace {
public:
    // `gateway`: gateway.json, empty for none.
    explicit Place(const std::vector<SpecItems>& specs, const std::string& gateway = "") {
        WriteSection({specs.begin(), specs.end()});
        std::filesystem::create_directory("config");
        std::filesystem::rename("kvLogFile.json", "config/kvLogFile.json");
        if (!gateway.empty()) {
            WriteWhole("config/gateway.json", gateway);
        }
    }
};

inline const std::string GATEWAY = KVGATEWAY_EMULATOR " " KVGATEWAY_PATH " ";
inline const std::string RUN = GATEWAY + "run --config config ";
inline const std::string CHECK = GATEWAY + "check --config config ";

// A command of the shell's as a child process, killed in the end if it still runs.
class Program {
public:
    // Its standard input is a pipe, its output and errors go to files in the working directory.
    explicit Program(const std::string& command) {
        static int number = 0;
        m_Files = std::filesystem::absolute("run" + std::to_string(++number));
        const std::string line = "echo $$ >" + m_Files + ".pid; exec " + command;
        std::signal(SIGPIPE, SIG_IGN);
        m_pInput = popen((line + " >" + m_Files + ".out 2>" + m_Files + ".err").c_str(), "we");
        if (m_pInput == nullptr || !Eventually([this] { return ReadWhole(m_Files + ".pid").ends_with('\n'); })) {
            throw std::runtime_error("not started: " + command);
        }
    }
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;
    ~Program() {
        if (m_pInput != nullptr) {
            Signal(SIGKILL);
            Wait();
        }
    }

    bool Write(const std::string& text) { // as much as the program takes, false when it takes no more
        return std::fwrite(text.data(), 1, text.size(), m_pInput) == text.size() && std::fflush(m_pInput) == 0;
    }
    void Signal(int number) const { kill(std::stoi(ReadWhole(m_Files + ".pid")), number); }
    int Wait() { // ends the input; the exit status, or -signal
        const int status = pclose(std::exchange(m_pInput, nullptr));
        return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    }
    std::string Errors() const { return ReadWhole(m_Files + ".err"); }
    bool Says(const std::string& text) const { // waits for it
        return Eventually([&] { return Errors().find(text) != std::string::npos; });
    }
    std::string Output() const { return ReadWhole(m_Files + ".out"); }

private:
    std::string m_Files;
    std::FILE* m_pInput;
};

// Runs the command to the end of the input, and to this exit status. What it has said.
inline std::string RunToEnd(const std::string& command, const std::string& input = "", int status = 0) {
    Program program(command);
    program.Write(input);
    EXPECT_EQ(program.Wait(), status) << program.Errors();
    return program.Errors() + program.Output();
}
