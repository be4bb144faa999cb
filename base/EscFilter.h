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
// Anything else stands as written. The text, the record and the time stamp must outlive the filter.
class KVBASE_API EscFilter {
public:
    // The service, the flag and the last number are reserved; they change nothing.
    EscFilter(IKernelService* service, const wchar_t* text, const void* record, bool reserved1, const ETimeStamp* stamp,
              int reserved2);
    EscFilter(const EscFilter&) = delete;
    EscFilter& operator=(const EscFilter&) = delete;

    virtual const wchar_t* GetText() const; // the text as it was handed in
    virtual void Rewind();                  // begins again
    // The next piece of expanded text, valid until the next call; null at the end. `stop` is set to 1 when the expansion
    // cannot go on, because the text asks for a record or a time stamp that was not given; that piece is not to be used.
    virtual const wchar_t* GetNextPiece(int& stop);
    virtual ~EscFilter();

private:
    bool Expand(wchar_t escape, int& stop);
    void ExpandTime(wchar_t escape);

    const wchar_t* m_pszText;
    const EONEVENTSTRUCT* m_pRecord;
    const ETimeStamp* m_pStamp;
    const wchar_t* m_pNext;
    EString m_Piece;
};

// Appends the name of a file of a set: the pattern, expanded for its index and the moment. A name never leads into another
// directory: '/' and ':' become '-'.
KVBASE_API void AppendFileName(const wchar_t* pattern, int index, const ETimeStamp& moment, EString& name);
