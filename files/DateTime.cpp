#include "service/ELogFile.h"

#include "base/ETime.h"

namespace {

constexpr int YEAR_BASE = 1900;

// Appends a number of at most DIGITS digits, with leading zeros.
template <int DIGITS>
void AppendPadded(EString& out, int number) {
    if constexpr (DIGITS > 1) {
        AppendPadded<DIGITS - 1>(out, number / 10);
    }
    out += static_cast<wchar_t>(L'0' + number % 10);
}

// The letters of an unfinished token. A token that is never finished is dropped.
struct Pending {
    int Count(wchar_t letter) const { return m_Letter == letter ? m_nCount : 0; }
    void Set(wchar_t letter, int count) {
        m_Letter = letter;
        m_nCount = count;
    }
    void Clear() { Set(L'\0', 0); }

    wchar_t m_Letter = L'\0';
    int m_nCount = 0;
};

int TimeField(const ETime& time, wchar_t letter) {
    return letter == L'H' ? time.m_nHour : letter == L'm' ? time.m_nMinute : time.m_nSecond;
}

} // namespace

EResult ELogFile::FormatTimeStr(ETime& time, EString& out) {
    time.ComputeCalendar(true);
    Pending pending;
    for (const wchar_t* at = m_TimeFormat; *at != L'\0'; ++at) {
        switch (*at) {
        case L'H':
        case L'm':
        case L'S':
            if (pending.Count(*at) == 1) {
                AppendPadded<2>(out, TimeField(time, *at));
                pending.Clear();
            } else {
                pending.Set(*at, 1);
            }
            break;
        case L's':
            if (pending.Count(*at) == 2) {
                AppendPadded<3>(out, time.m_nMillisecond);
                pending.Clear();
            } else {
                pending.Set(*at, pending.Count(*at) + 1);
            }
            break;
        default:
            out += *at;
            pending.Clear();
        }
    }
    return RC_OK;
}

EResult ELogFile::FormatDateStr(ETime& time, EString& out) {
    time.ComputeCalendar(true);
    Pending pending;
    for (const wchar_t* at = m_DateFormat; *at != L'\0'; ++at) {
        switch (*at) {
        case L'M':
        case L'D':
            if (pending.Count(*at) == 1) {
                AppendPadded<2>(out, *at == L'M' ? time.m_nMonth + 1 : time.m_nDay);
                pending.Clear();
            } else {
                pending.Set(*at, 1);
            }
            break;
        case L'Y':
            if (pending.Count(*at) == 0) {
                pending.Set(*at, 1);
                break;
            }
            if (at[1] == L'Y') {
                AppendPadded<4>(out, time.m_nYear + YEAR_BASE);
                at += at[2] == L'Y' ? 2 : 1; // three Y are a year, too; the character after them is kept
            } else {
                AppendPadded<2>(out, time.m_nYear % 100);
            }
            pending.Clear();
            break;
        default:
            out += *at;
            pending.Clear();
        }
    }
    return RC_OK;
}
