#pragma once

#include "gateway/transport/Settings.h"
#include "tests/TempDir.h"

#include <cstdio>
#include <string>
#include <sys/types.h>
#include <vector>

// server.py, with a directory of its own, which outlives the program.
class TestServer {
public:
    explicit TestServer(const std::string& kind);
    ~TestServer() { Kill(); }
    TestServer(const TestServer&) = delete;
    TestServer& operator=(const TestServer&) = delete;

    // "": none; "down": the program is killed; otherwise as server.py says.
    void SetFault(const std::string& fault);

    bool IsForMails() const { return m_Kind.starts_with("smtp"); }
    bool IsOpen() const { return m_Kind == "smtp" || m_Kind == "ftp" || m_Kind == "http"; } // knows no encryption
    Server Target(const std::string& host = "127.0.0.1") const; // with all that is needed to log in and to trust it
    std::vector<std::string> Arrivals() const;                  // in order
    std::string Path(const std::string& name) const { return m_Directory.Path("data/" + name); } // of what has come

    // Takes a mail apart into the directory "data" of `directory`, as the servers do.
    static void Parse(const std::string& mail, const std::string& directory);

private:
    void Start();
    void Kill();

    TempDir m_Directory;
    std::string m_Kind;
    int m_nPort = 0;
    pid_t m_nProcess = 0;
    FILE* m_pOutput = nullptr;
};
