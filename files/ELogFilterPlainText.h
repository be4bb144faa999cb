#pragma once

#include "files/ELogFilter.h"

// Lines of cells with a delimiter between them, in 8-bit characters or UTF-16LE with a byte order mark. Cells are not
// quoted.
class ELogFilterPlainText : public ELogFilter {
public:
    explicit ELogFilterPlainText(bool unicode);
    ~ELogFilterPlainText() override;
    void FormatHeader(const EString* title, const EStringArray* headers, EByteArray* out) override;
    void FormatRow(const EStringArray* row, EByteArray* out) override;
    void FormatFooter(const EString* title, EByteArray* out) override;

    void SetDelimeter(const wchar_t* delimiter);

private:
    unsigned char* Put(const EString& text, unsigned char* at) const;

    EString m_Delimiter;
};
