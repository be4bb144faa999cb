#include "files/ELogFilterPlainText.h"

#include "base/LittleEndian.h"

namespace {

constexpr std::uint16_t BYTE_ORDER_MARK = 0xFEFF;

} // namespace

ELogFilterPlainText::ELogFilterPlainText(bool unicode) : ELogFilter(unicode) {}

ELogFilterPlainText::~ELogFilterPlainText() = default;

void ELogFilterPlainText::SetDelimeter(const wchar_t* delimiter) {
    m_Delimiter = delimiter;
}

void ELogFilterPlainText::Write(const wchar_t* text, EByteArray* out) {
    m_bUnicode ? WriteUnicode(text, out) : WriteASCII(text, out);
}

void ELogFilterPlainText::FormatHeader(const EString* /*title*/, const EStringArray* headers,
                                       EByteArray* out) {
    if (m_bUnicode) {
        PutU16(ExpandOutput(out, 2), BYTE_ORDER_MARK);
    }
    FormatRow(headers, out);
}

void ELogFilterPlainText::FormatRow(const EStringArray* row, EByteArray* out) {
    const int last = row->GetSize() - 1;
    for (int i = 0; i <= last; ++i) {
        Write((*row)[i], out);
        Write(i < last ? static_cast<const wchar_t*>(m_Delimiter) : L"\n", out);
    }
}

void ELogFilterPlainText::FormatFooter(const EString* title, EByteArray* out) {
    Write(*title, out);
}
