#pragma once

#include "files/ELogFilter.h"

// One HTML table in UTF-8. Cells are written as they are, without escapes; an empty one as a blank.
class ELogFilterHTML : public ELogFilter {
public:
    explicit ELogFilterHTML(bool unicode); // the encoding is UTF-8 either way
    ~ELogFilterHTML() override;
    void FormatHeader(const EString* title, const EStringArray* headers, EByteArray* out) override;
    void FormatRow(const EStringArray* row, EByteArray* out) override;
    void FormatFooter(const EString* title, EByteArray* out) override;

private:
    // Rows are heading rows until the first header is complete; also those that continue the file of an earlier run.
    bool m_bInBody = false;
};
