#include "gateway/LineReader.h"

#include <cerrno>
#include <system_error>

#include <unistd.h>

void LineReader::Read() {
    constexpr std::size_t CHUNK = 1U << 16U;
    m_Buffer.erase(0, m_nBegin);
    m_nSearched -= m_nBegin;
    m_nBegin = 0;
    const std::size_t size = m_Buffer.size();
    m_Buffer.resize(size + CHUNK);
    const ssize_t read = ::read(m_nFile, m_Buffer.data() + size, CHUNK);
    m_Buffer.resize(size + static_cast<std::size_t>(read > 0 ? read : 0));
    m_bEnd = read == 0;
    if (read < 0 && errno != EAGAIN && errno != EINTR) {
        throw std::system_error(errno, std::generic_category(), "the input cannot be read");
    }
}

LineReader::Result LineReader::Take(std::string& line) {
    const std::size_t end = m_Buffer.find('\n', m_nSearched);
    const bool found = end != std::string::npos;
    if (!found && !(m_bEnd && (m_bSkipping || m_nBegin < m_Buffer.size()))) {
        m_nSearched = m_Buffer.size();
        if (m_Buffer.size() - m_nBegin > MAX_LINE) {
            m_nBegin = m_Buffer.size();
            m_bSkipping = true;
        }
        return Result::None;
    }
    const std::size_t stop = found ? end : m_Buffer.size();
    const bool tooLong = m_bSkipping || stop - m_nBegin > MAX_LINE;
    line.assign(m_Buffer, m_nBegin, stop - m_nBegin);
    m_nBegin = m_nSearched = found ? end + 1 : stop;
    m_bSkipping = false;
    ++m_nLine;
    return tooLong ? Result::TooLong : Result::Line;
}
