#pragma once

#include "files/ELogFilter.h"

// One HTML table in UTF-8. Cells are not escaped; an empty cell is written as a blank.
class ELogFilterHTML : public ELogFilter {
public:
    explicit ELogFilterHTML(bool unicode); // the encoding is UTF-8 either way
    ~ELogFilterHTML() override;
    void FormatHeader(const EString* title, const EStringArray* headers, EByteArray* out) override;
    void FormatRow(const EStringArray* row, EByteArray* out) override;
    void FormatFooter(const EString* title, EByteArray* out) override;

private:
    // False until this filter has written a header. Until then rows have heading cells, also in a file that is
    // continued.
    bool m_bInBody = false;
};
