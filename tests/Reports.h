#pragma once

#include "tests/TempDir.h"

#include <algorithm>
#include <chrono>
#include <map>
#include <string>
#include <thread>
#include <vector>

// Whether the condition comes true within a time that no healthy service needs.
template <class Condition>
bool Soon(Condition condition) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

// Runs `work(thread)` on so many threads, and returns when all have ended.
template <class Work>
void OnThreads(int count, Work work) {
    std::vector<std::thread> threads;
    for (int thread = 0; thread < count; ++thread) {
        threads.emplace_back(work, thread);
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

// The text by which a report is known in a row; the threads are 0 to 9.
inline std::wstring Mark(int thread, int number) {
    return L"r" + std::to_wstring(thread) + L"#" + std::to_wstring(number) + L";";
}

// The numbers in the rows of a log file, by thread, as they stand. Takes UTF-16LE files too.
inline std::map<int, std::vector<int>> MarksIn(const std::string& path) {
    std::string bytes = ReadWhole(path);
    std::erase(bytes, '\0');
    std::map<int, std::vector<int>> marks;
    for (std::size_t at = bytes.find('#'); at != std::string::npos; at = bytes.find('#', at + 1)) {
        marks[bytes[at - 1] - '0'].push_back(std::atoi(bytes.c_str() + at + 1));
    }
    return marks;
}

// Whether each thread's numbers ascend: nothing twice, nothing overtaken.
inline bool InOrder(const std::map<int, std::vector<int>>& marks) {
    return std::all_of(marks.begin(), marks.end(), [](const auto& of) {
        return std::adjacent_find(of.second.begin(), of.second.end(), std::greater_equal<>()) == of.second.end();
    });
}
