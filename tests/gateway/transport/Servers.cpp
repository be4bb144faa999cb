#include "tests/gateway/transport/Servers.h"

#include <arpa/inet.h>
#include <array>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <sstream>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace {

sockaddr_in Loopback(int port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

void WaitUntilListening(int port) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (std::chrono::steady_clock::now() < end) {
        const int probe = socket(AF_INET, SOCK_STREAM, 0);
        const sockaddr_in address = Loopback(port);
        const int connected = connect(probe, reinterpret_cast<const sockaddr*>(&address), sizeof address);
        close(probe);
        if (connected == 0) {
            return;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    throw std::runtime_error("no server on port " + std::to_string(port));
}

} // namespace

ChildProcess::ChildProcess(const std::vector<std::string>& command) : m_nProcess(0) {
    std::vector<char*> arguments;
    for (const auto& argument : command) {
        arguments.push_back(const_cast<char*>(argument.c_str()));
    }
    arguments.push_back(nullptr);
    m_nProcess = fork();
    if (m_nProcess == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        execv(arguments[0], arguments.data());
        _exit(127);
    }
}

void ChildProcess::Kill() {
    if (m_nProcess > 0) {
        kill(m_nProcess, SIGKILL);
        Wait();
    }
}

int ChildProcess::Wait() {
    int status = -1;
    waitpid(m_nProcess, &status, 0);
    m_nProcess = 0;
    return status;
}

int FreePort() {
    const int probe = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address = Loopback(0);
    socklen_t length = sizeof address;
    bind(probe, reinterpret_cast<const sockaddr*>(&address), length);
    getsockname(probe, reinterpret_cast<sockaddr*>(&address), &length);
    close(probe);
    return ntohs(address.sin_port);
}

std::vector<std::string> ServerCommand(const std::vector<std::string>& arguments) {
    const std::string here = __FILE__;
    std::vector<std::string> command{"/usr/bin/python3", here.substr(0, here.rfind('/')) + "/server.py"};
    command.insert(command.end(), arguments.begin(), arguments.end());
    return command;
}

std::string Output(const std::string& command) {
    std::string output;
    FILE* const pipe = popen(command.c_str(), "r");
    std::array<char, 4096> buffer{};
    while (const std::size_t length = fread(buffer.data(), 1, buffer.size(), pipe)) {
        output.append(buffer.data(), length);
    }
    if (pclose(pipe) != 0) {
        throw std::runtime_error("failed: " + command);
    }
    return output;
}

TestServer::TestServer(const std::string& kind, const std::vector<std::string>& more) {
    std::filesystem::create_directory(Path(""));
    SetFault("");
    std::vector<std::string> arguments{kind, std::to_string(m_nServerPort), m_Directory.Path("data")};
    arguments.insert(arguments.end(), more.begin(), more.end());
    m_pServer = std::make_unique<ChildProcess>(ServerCommand(arguments));
    WaitUntilListening(m_nServerPort);
    StartProxy();
}

void TestServer::StartProxy() {
    m_pProxy = std::make_unique<ChildProcess>(
        ServerCommand({"proxy", std::to_string(m_nPort), std::to_string(m_nServerPort), m_Directory.Path("data")}));
    WaitUntilListening(m_nPort);
}

void TestServer::SetFault(const std::string& fault) {
    const bool wasDown = ReadWhole(m_Directory.Path("fault")) == "down";
    WriteWhole(m_Directory.Path("fault"), fault);
    if (fault == "down") {
        m_pProxy.reset();
    } else if (wasDown) {
        StartProxy();
    }
}

std::vector<std::string> TestServer::Arrivals() const {
    std::istringstream lines(ReadWhole(m_Directory.Path("arrivals")));
    std::vector<std::string> arrivals;
    for (std::string line; std::getline(lines, line);) {
        arrivals.push_back(line.substr(line.rfind('/') + 1));
    }
    return arrivals;
}
