#pragma once

#include "tests/TempDir.h"

#include <string>
#include <sys/types.h>
#include <vector>

// A program that runs until it is stopped, and ends with this one in any case.
class ChildProcess {
public:
    explicit ChildProcess(const std::vector<std::string>& command);
    ~ChildProcess() { Kill(); }
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    void Kill(); // SIGKILL, and waits for its end
    int Wait();  // its exit status

private:
    pid_t m_nProcess;
};

int FreePort();

// The command line of server.py with these arguments.
std::vector<std::string> ServerCommand(const std::vector<std::string>& arguments);

// Runs a command to its end and gives what it prints.
std::string Output(const std::string& command);

// A server ("smtp", "ftp", "http") behind a proxy that can be switched off, in a directory of its own.
class TestServer {
public:
    explicit TestServer(const std::string& kind, const std::vector<std::string>& more = {});

    // "": none; "down"; otherwise as server.py says.
    void SetFault(const std::string& fault);

    int Port() const { return m_nPort; }
    std::string Path(const std::string& name) const { return m_Directory.Path("data/" + name); }
    std::vector<std::string> Arrivals() const; // in order

private:
    void StartProxy();

    TempDir m_Directory;
    int m_nServerPort = FreePort();
    int m_nPort = FreePort();
    std::unique_ptr<ChildProcess> m_pServer;
    std::unique_ptr<ChildProcess> m_pProxy;
};
