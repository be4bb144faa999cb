#pragma once

#include <cstdint>
#include <string>

// Cuts what comes from a file, a pipe or a terminal into lines.
class LineReader {
public:
    static constexpr std::size_t MAX_LINE = 1U << 20U; // bytes

    enum class Result { None, Line, TooLong }; // None: more has to be read first, or the input has ended

    explicit LineReader(int file) : m_nFile(file) {} // stays the caller's

    // Reads more input, and waits for it. To be called when Take has no line left. Throws std::system_error.
    void Read();

    // The next line without its newline, which the last one may lack. A line that is too long is dropped.
    Result Take(std::string& line);

    bool AtEnd() const { return m_bEnd && m_nBegin >= m_Buffer.size(); }
    std::int64_t LineNumber() const { return m_nLine; } // of the line taken last, from 1

private:
    int m_nFile;
    std::string m_Buffer;
    std::size_t m_nBegin = 0;    // of the next line
    std::size_t m_nSearched = 0; // no line ends before this
    bool m_bSkipping = false;    // inside a line that is too long
    bool m_bEnd = false;
    std::int64_t m_nLine = 0;
};
