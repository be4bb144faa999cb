#include "tests/gateway/Program.h"

#include <algorithm>
#include <iterator>
#include <sstream>
#include <utility>

#include <sys/wait.h>

std::vector<std::string> Lines(const std::string& text) {
    std::istringstream stream(text);
    std::vector<std::string> lines;
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line + (stream.eof() ? " (no end)" : ""));
    }
    return lines;
}

Place::Place(const std::vector<Spec>& specs, const std::string& gateway) {
    std::ostringstream list;
    for (const Spec& spec : specs) {
        list << (&spec == &specs.front() ? "" : ",\n") << R"({"type": "EFileSpec", "name": ")" << spec.m_Name
             << R"(", "logPath": "logs", "fileName": ")" << spec.m_FileName << R"(", "maxFileSize": )"
             << spec.m_nMaxFileSize << R"(, "numFiles": )" << spec.m_nNumFiles << R"(, "fileFormat": )"
             << spec.m_nFileFormat << R"(, "unicode": )" << spec.m_nUnicode << R"(, "deliveryMode": )"
             << spec.m_nDeliveryMode << R"(, "keepCopy": 0, "mailName": ""})";
    }
    std::filesystem::create_directory(Path("config"));
    Write("config/kvLogFile.json", R"({"version": 3, "dateFormat": "YYYY-MM-DD", "timeFormat": "HH:mm:SS.sss",
"fileSpecs": [)" + list.str() + "]}");
    if (!gateway.empty()) {
        Write("config/gateway.json", gateway);
    }
}

std::vector<std::string> Place::Rows(const std::string& prefix, const std::string& suffix,
                                     const std::string& header) const {
    std::vector<std::string> rows;
    for (int index = 0; Has(prefix + std::to_string(index) + suffix); ++index) {
        const std::vector<std::string> older = Lines(Read(prefix + std::to_string(index) + suffix));
        std::copy_if(older.rbegin(), older.rend(), std::back_inserter(rows),
                     [&](const std::string& row) { return header.empty() || row != header; });
    }
    std::reverse(rows.begin(), rows.end());
    return rows;
}

Program::Program(const Place& place, const std::vector<std::string>& arguments) {
    static int number = 0;
    m_Files = place.Path("run" + std::to_string(++number));
    std::string command = "echo $$ >" + m_Files + ".pid; exec " KVGATEWAY_EMULATOR " " KVGATEWAY_PATH;
    for (const std::string& argument : arguments) {
        command += " '" + argument + "'";
    }
    std::signal(SIGPIPE, SIG_IGN);
    m_pInput = popen((command + " >" + m_Files + ".out 2>" + m_Files + ".err").c_str(), "we");
    if (m_pInput == nullptr || !Eventually([this] { return ReadWhole(m_Files + ".pid").ends_with('\n'); })) {
        throw std::runtime_error("not started: " + command);
    }
}

Program Program::Run(const Place& place, const std::vector<std::string>& more) {
    std::vector<std::string> arguments{"run", "--config", place.Path("config"), "--directory", place.Path()};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return Program(place, arguments);
}

Program::~Program() {
    if (m_pInput != nullptr) {
        Signal(SIGKILL);
        Wait();
    }
}

bool Program::Write(const std::string& text) {
    for (std::size_t done = 0; done < text.size();) {
        const ssize_t written = write(fileno(m_pInput), text.data() + done, text.size() - done);
        if (written <= 0) {
            return false;
        }
        done += static_cast<std::size_t>(written);
    }
    return true;
}

void Program::Signal(int number) const {
    kill(std::stoi(ReadWhole(m_Files + ".pid")), number);
}

int Program::Wait() {
    const int status = pclose(std::exchange(m_pInput, nullptr));
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}
