#pragma once

#include "base/EString.h"
#include "base/ETime.h"

class EONEVENTSTRUCT;
class IKernelService;

// Expands the escape sequences of a text:
//   %i                     the record's file index, decimal
//   %Y %y %m %d %H %M %S   year (four and two digits), month, day, hour, minute, second of the time stamp, local time
//   %s                     its milliseconds, three digits
//   %%                     a percent sign
// Anything else is left as it is. The text, the record and the time stamp must outlive the filter.
class KVBASE_API EscFilter {
public:
    // The service, the flag and the last number are ignored.
    EscFilter(IKernelService* service, const wchar_t* text, const void* record, bool reserved1, const ETimeStamp* stamp,
              int reserved2);
    EscFilter(const EscFilter&) = delete;
    EscFilter& operator=(const EscFilter&) = delete;

    virtual const wchar_t* GetText() const; // the text that the filter was made with
    virtual void Rewind();
    // The next piece of expanded text, valid until the next call; null at the end. When the text needs a record or a
    // time stamp that was not given, sets `stop` to 1: do not use that piece. Otherwise leaves `stop` unchanged.
    virtual const wchar_t* GetNextPiece(int& stop);
    virtual ~EscFilter() = default;

private:
    bool Expand(wchar_t escape, int& stop);
    void ExpandTime(wchar_t escape);

    const wchar_t* m_pszText;
    const EONEVENTSTRUCT* m_pRecord;
    const ETimeStamp* m_pStamp;
    const wchar_t* m_pNext;
    EString m_Piece;
};

// Appends the name of a file of a set: the pattern, expanded with the index and the time. '/' and ':' become '-', so
// that the name stays in its directory.
KVBASE_API void AppendFileName(const wchar_t* pattern, int index, const ETimeStamp& moment, EString& name);
