#pragma once

#include "tests/TempDir.h"

#include <algorithm>
#include <chrono>
#include <map>
#include <numeric>
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
    std::vector<std::jthread> threads;
    for (int thread = 0; thread < count; ++thread) {
        threads.emplace_back(work, thread);
    }
}

// The reports that were found, or are expected, by the thread that made them.
using Marks = std::map<int, std::vector<int>>;

// 0, 1, ... as far as `end`, without it.
inline std::vector<int> UpTo(int end) {
    std::vector<int> numbers(static_cast<std::size_t>(end));
    std::iota(numbers.begin(), numbers.end(), 0);
    return numbers;
}

// 0, 1, ... from each of so many threads.
inline Marks FromThreads(int threads, int count) {
    Marks marks;
    for (const int thread : UpTo(threads)) {
        marks[thread] = UpTo(count);
    }
    return marks;
}

// The text by which a report is known in a row; the threads are 0 to 9.
inline std::wstring Mark(int thread, int number) {
    return L"r" + std::to_wstring(thread) + L"#" + std::to_wstring(number) + L";";
}

// The numbers in the rows of a log file, by thread, as they stand. Takes UTF-16LE files too.
inline Marks MarksIn(const std::string& path) {
    std::string bytes = ReadWhole(path);
    std::erase(bytes, '\0');
    Marks marks;
    for (std::size_t at = bytes.find('#'); at != std::string::npos; at = bytes.find('#', at + 1)) {
        marks[bytes[at - 1] - '0'].push_back(std::atoi(bytes.c_str() + at + 1));
    }
    return marks;
}

// UTF-16LE, of ASCII text.
inline std::string Utf16(const std::string& text) {
    std::string bytes;
    for (const char character : text) {
        bytes += {character, '\0'};
    }
    return bytes;
}
