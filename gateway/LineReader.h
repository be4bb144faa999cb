#pragma once

#include <cstdint>
#include <string>

// Cuts what comes from a file, a pipe or a terminal into lines.
class LineReader {
public:
    static constexpr std::size_t MAX_LINE = 1U << 20U; // bytes

    enum class Result { None, Line, TooLong }; // None: more has to be read first, or the input has ended

    explicit LineReader(int file) : m_nFile(file) {} // stays the caller's

    // Reads what there is; waits when there is nothing. To be called when no line is left. Throws std::system_error.
    void Read();

    // The next line, without its end. Of a line that is too long nothing is kept. The last line needs no end.
    Result Take(std::string& line);

    bool AtEnd() const { return m_bEnd && m_nBegin >= m_Buffer.size(); }
    std::uint64_t LineNumber() const { return m_nLine; } // of the line taken last, from 1
    std::uint64_t BytesTaken() const { return m_nBytes; }

private:
    int m_nFile;
    std::string m_Buffer;
    std::size_t m_nBegin = 0;    // of the next line
    std::size_t m_nSearched = 0; // no line ends before this
    bool m_bSkipping = false;    // inside a line that is too long
    bool m_bEnd = false;
    std::uint64_t m_nLine = 0;
    std::uint64_t m_nBytes = 0;
};
