#include "base/EscFilter.h"

#include "base/EONEVENTSTRUCT.h"

#include <cwchar>

EscFilter::EscFilter(IKernelService* /*service*/, const wchar_t* text, const void* record, bool /*reserved1*/,
                     const ETimeStamp* stamp, int /*reserved2*/)
    : m_pszText(OrEmpty(text)),
      m_pRecord(static_cast<const EONEVENTSTRUCT*>(record)),
      m_pStamp(stamp),
      m_pNext(m_pszText) {}

const wchar_t* EscFilter::GetText() const {
    return m_pszText;
}

void EscFilter::Rewind() {
    m_pNext = m_pszText;
}

const wchar_t* EscFilter::GetNextPiece(int& stop) {
    if (*m_pNext == L'\0') {
        return nullptr;
    }
    if (*m_pNext != L'%') {
        const std::size_t length = std::wcscspn(m_pNext, L"%");
        m_Piece = EString(m_pNext, length);
        m_pNext += length;
        return m_Piece;
    }
    if (Expand(m_pNext[1], stop)) {
        m_pNext += 2;
    } else {
        m_Piece = L"%"; // no escape sequence: left as it is
        ++m_pNext;
    }
    return m_Piece;
}

// Makes the piece of one escape sequence; false when there is none of that letter.
bool EscFilter::Expand(wchar_t escape, int& stop) {
    switch (escape) {
    case L'%':
        m_Piece = L"%";
        return true;
    case L'i':
        stop = m_pRecord == nullptr ? 1 : stop;
        m_Piece.Format(L"%d", m_pRecord != nullptr ? m_pRecord->m_nIndex : 0);
        return true;
    default:
        if (escape == L'\0' || std::wcschr(L"YymdHMSs", escape) == nullptr) {
            return false;
        }
        stop = m_pStamp == nullptr ? 1 : stop;
        ExpandTime(escape);
        return true;
    }
}

void EscFilter::ExpandTime(wchar_t escape) {
    ETime time(m_pStamp != nullptr ? *m_pStamp : ETimeStamp{});
    time.ComputeCalendar(true);
    const struct {
        const wchar_t* m_pszFormat;
        int m_nNumber;
        wchar_t m_Escape;
    } fields[] = {{L"%04d", time.m_nYear + 1900, L'Y'}, {L"%02d", time.m_nYear % 100, L'y'},
                  {L"%02d", time.m_nMonth + 1, L'm'},   {L"%02d", time.m_nDay, L'd'},
                  {L"%02d", time.m_nHour, L'H'},        {L"%02d", time.m_nMinute, L'M'},
                  {L"%02d", time.m_nSecond, L'S'},      {L"%03d", static_cast<int>(time.m_nMillisecond), L's'}};
    for (const auto& [format, number, letter] : fields) {
        if (letter == escape) {
            m_Piece.Format(format, number);
        }
    }
}

void AppendFileName(const wchar_t* pattern, int index, const ETimeStamp& moment, EString& name) {
    EONEVENTSTRUCT record;
    record.m_nIndex = index;
    EscFilter filter(nullptr, pattern, &record, false, &moment, -1);
    int stop = 0;
    while (const wchar_t* piece = filter.GetNextPiece(stop)) {
        for (; *piece != L'\0'; ++piece) {
            name += *piece == L':' || *piece == L'/' ? L'-' : *piece;
        }
    }
}
