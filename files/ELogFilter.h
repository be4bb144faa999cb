#pragma once

#include "base/EByteArray.h"
#include "base/EStringArray.h"

// Turns the parts of a log file into bytes; docs/file-formats.md has the layouts. Operations append to `out` and touch
// no file. A filter belongs to one file specification and to the thread that processes requests.
class ELogFilter {
public:
    explicit ELogFilter(bool unicode) : m_bUnicode(unicode) {}
    ELogFilter(const ELogFilter&) = delete;
    ELogFilter& operator=(const ELogFilter&) = delete;

    virtual ~ELogFilter() = 0;
    virtual void FormatHeader(const EString* title, const EStringArray* headers,
                              EByteArray* out) = 0; // begins a file
    virtual void FormatRow(const EStringArray* row, EByteArray* out) = 0;
    virtual void FormatFooter(const EString* title, EByteArray* out) = 0; // ends a file

protected:
    // Appends `count` bytes for the caller to fill in, and returns the first.
    unsigned char* ExpandOutput(EByteArray* out, int count);

    // Write a text to bytes from ExpandOutput, and return the end of it.
    static unsigned char* PutASCII(const wchar_t* text, std::size_t length, unsigned char* at);
    static unsigned char* PutUnicode(const wchar_t* text, std::size_t length, unsigned char* at);

    // Append a text: the low 8 bits of each character, the low 16 bits in little-endian order, or UTF-8.
    void WriteASCII(const wchar_t* text, EByteArray* out);
    void WriteUnicode(const wchar_t* text, EByteArray* out);
    void WriteUTF8(const wchar_t* text, EByteArray* out);

    bool m_bUnicode;
};
