#include "tests/gateway/transport/TestServer.h"

#include <csignal>
#include <sstream>
#include <utility>

namespace {

const std::string PROGRAM = "exec /usr/bin/python3 " KVTEST_SOURCES "transport/server.py ";

} // namespace

TestServer::TestServer(const std::string& kind) : m_Kind(kind) {
    SetFault("");
}

void TestServer::Start() {
    m_pOutput = popen((PROGRAM + m_Kind + ' ' + m_Directory.Path() + ' ' + std::to_string(m_nPort)).c_str(), "r");
    if (m_pOutput == nullptr || fscanf(m_pOutput, "%d %d", &m_nProcess, &m_nPort) != 2) {
        throw std::runtime_error("no server: " + m_Kind);
    }
}

void TestServer::Kill() {
    if (m_nProcess != 0) {
        kill(std::exchange(m_nProcess, 0), SIGTERM);
        pclose(m_pOutput);
    }
}

void TestServer::SetFault(const std::string& fault) {
    WriteWhole(m_Directory.Path("fault"), fault);
    if (fault == "down") {
        Kill();
    } else if (m_nProcess == 0) {
        Start();
    }
}

Server TestServer::Target(const std::string& host) const {
    Server target;
    const bool later = m_Kind.ends_with("-tls");
    target.m_Url =
        (later ? m_Kind.substr(0, m_Kind.size() - 4) : m_Kind) + "://" + host + ':' + std::to_string(m_nPort) + '/';
    target.m_bRequireTls = later;
    target.m_User = "kavro";
    target.m_Password = "s3cret-word";
    target.m_CaFile = m_Directory.Path("certificate.pem");
    target.m_KnownHosts = m_Directory.Path("known_hosts");
    target.m_KeyFile = m_Directory.Path("client");
    return target;
}

std::vector<std::string> TestServer::Arrivals() const {
    std::istringstream lines(ReadWhole(m_Directory.Path("arrivals")));
    std::vector<std::string> arrivals;
    for (std::string line; std::getline(lines, line);) {
        arrivals.push_back(line.substr(line.rfind('/') + 1));
    }
    return arrivals;
}

void TestServer::Parse(const std::string& mail, const std::string& directory) {
    std::filesystem::create_directory(directory + "/data");
    if (pclose(popen((PROGRAM + "parse " + mail + ' ' + directory).c_str(), "r")) != 0) {
        throw std::runtime_error("no mail: " + mail);
    }
}
