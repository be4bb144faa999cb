#include "gateway/Console.h"

#include <cstdio>
#include <mutex>

#include <unistd.h>

namespace {

std::mutex g_Mutex;
std::string g_Progress;

constexpr const char* CLEAR_LINE = "\r\x1b[K";

// In one piece. A stderr that takes nothing any more is no reason to stop logging.
void Write(const std::string& text) {
    std::fwrite(text.data(), 1, text.size(), stderr);
}

} // namespace

void Console::Print(const std::string& line) {
    const std::lock_guard lock(g_Mutex);
    Write(g_Progress.empty() ? line + '\n' : CLEAR_LINE + line + '\n' + g_Progress);
}

void Console::Say(const std::string& line) {
    Print("kvgateway: " + line);
}

void Console::ShowProgress(const std::string& text) {
    const std::lock_guard lock(g_Mutex);
    if (text != g_Progress && isatty(STDERR_FILENO) != 0) {
        g_Progress = text;
        Write(CLEAR_LINE + text);
    }
}
