#pragma once

#include "tests/Workplace.h"

#include <numeric>

// What log files hold, as tests expect it; and reports whose order across threads can be told from the rows.

inline const std::string ALARM_COLUMNS = "H956,H957,H958,H959,H960,H961,H962,H963,H964,H965\n";

// The begin of an HTML file with these headings, a row of it, and its end. Cells are separated by commas.
inline std::string PageRow(const std::string& cells, const std::string& tag = "TD") {
    const std::string begin = '<' + tag + '>';
    std::string row = begin + Replaced(Replaced(cells, "\n", ","), ",", "</" + tag + ">\n" + begin);
    row.resize(row.size() - begin.size());
    return "<TR>\n" + row + "</TR>\n";
}
inline std::string PageBegin(const std::string& columns) {
    return "<!DOCTYPE HTML PUBLIC \"-//W3C//DTD HTML 4.0 Transitional//EN\">\n<HTML><HEAD><TITLE></TITLE>\n"
           "<META http-equiv=\"Content-Type\" content=\"text/html; charset=utf-8\">\n</HEAD>\n<BODY>\n"
           "<TABLE cellspacing=\"0\" cellpadding=\"4\" border=\"1\">\n<THEAD>\n" +
           PageRow(columns, "TH") + "</THEAD>\n<TBODY>\n";
}
inline const std::string PAGE_END = "</TBODY>\n</TABLE>\n<P>\n</BODY>\n</HTML>\n";

inline std::string Utf16(const std::string& text) {
    std::string bytes;
    for (const char character : text) {
        bytes += {character, '\0'};
    }
    return bytes;
}

// Runs `work(thread)` on so many threads, and returns when all have ended.
template <class Work>
void OnThreads(int count, Work work) {
    std::vector<std::jthread> threads;
    for (int thread = 0; thread < count; ++thread) {
        threads.emplace_back(work, thread);
    }
}

// The numbers of the reports that were found, or are expected, by the thread that made them.
using Marks = std::map<int, std::vector<int>>;

// 0, 1, ... as far as `end`, without it.
inline std::vector<int> UpTo(int end) {
    std::vector<int> numbers(static_cast<std::size_t>(end));
    std::iota(numbers.begin(), numbers.end(), 0);
    return numbers;
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
