#include "files/ELogFilterHTML.h"

#include "base/Contract.h"

namespace {

constexpr const wchar_t* PAGE_HEAD_1 = L"<!DOCTYPE HTML PUBLIC \"-//W3C//DTD HTML 4.0 Transitional//EN\">\n"
                                       L"<HTML><HEAD><TITLE>";
constexpr const wchar_t* PAGE_HEAD_2 = L"</TITLE>\n"
                                       L"<META http-equiv=\"Content-Type\" content=\"text/html; charset=utf-8\">\n"
                                       L"</HEAD>\n"
                                       L"<BODY>\n"
                                       L"<TABLE cellspacing=\"0\" cellpadding=\"4\" border=\"1\">\n"
                                       L"<THEAD>\n";
constexpr const wchar_t* ROW_START = L"<TR>\n";
constexpr const wchar_t* HEADING_CELL_START = L"<TH>";
constexpr const wchar_t* HEADING_CELL_END = L"</TH>\n";
constexpr const wchar_t* BODY_CELL_START = L"<TD>";
constexpr const wchar_t* BODY_CELL_END = L"</TD>\n";
constexpr const wchar_t* EMPTY_CELL = L"&nbsp;";
constexpr const wchar_t* PAGE_END_1 = L"</TBODY>\n</TABLE>\n<P>\n";
constexpr const wchar_t* PAGE_END_2 = L"</BODY>\n</HTML>\n";

} // namespace

ELogFilterHTML::ELogFilterHTML(bool unicode) : ELogFilter(unicode) {}

ELogFilterHTML::~ELogFilterHTML() = default;

void ELogFilterHTML::FormatHeader(const EString* title, const EStringArray* headers, EByteArray* out) {
    m_bInBody = false;
    WriteASCII(PAGE_HEAD_1, out);
    WriteUTF8(*title, out);
    WriteASCII(PAGE_HEAD_2, out);
    FormatRow(headers, out);
    WriteASCII(HTML_HEAD_END, out);
    m_bInBody = true;
}

void ELogFilterHTML::FormatRow(const EStringArray* row, EByteArray* out) {
    WriteASCII(ROW_START, out);
    for (int i = 0; i < row->GetSize(); ++i) {
        const EString& cell = (*row)[i];
        WriteASCII(m_bInBody ? BODY_CELL_START : HEADING_CELL_START, out);
        WriteUTF8(cell.IsEmpty() ? EMPTY_CELL : static_cast<const wchar_t*>(cell), out);
        WriteASCII(m_bInBody ? BODY_CELL_END : HEADING_CELL_END, out);
    }
    WriteASCII(HTML_ROW_END, out);
}

void ELogFilterHTML::FormatFooter(const EString* title, EByteArray* out) {
    WriteASCII(PAGE_END_1, out);
    WriteUTF8(*title, out);
    WriteASCII(PAGE_END_2, out);
}
