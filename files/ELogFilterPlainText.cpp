#include "files/ELogFilterPlainText.h"

#include "base/LittleEndian.h"

namespace {

constexpr std::uint16_t BYTE_ORDER_MARK = 0xFEFF;
const EString LINE_END = L"\n";

} // namespace

ELogFilterPlainText::ELogFilterPlainText(bool unicode) : ELogFilter(unicode) {}

ELogFilterPlainText::~ELogFilterPlainText() = default;

void ELogFilterPlainText::SetDelimeter(const wchar_t* delimiter) {
    m_Delimiter = delimiter;
}

unsigned char* ELogFilterPlainText::Put(const EString& text, unsigned char* at) const {
    const auto length = static_cast<std::size_t>(text.GetLength());
    return m_bUnicode ? PutUnicode(text, length, at) : PutASCII(text, length, at);
}

void ELogFilterPlainText::FormatHeader(const EString* /*title*/, const EStringArray* headers, EByteArray* out) {
    if (m_bUnicode) {
        PutU16(ExpandOutput(out, 2), BYTE_ORDER_MARK);
    }
    FormatRow(headers, out);
}

void ELogFilterPlainText::FormatRow(const EStringArray* row, EByteArray* out) {
    const int last = row->GetSize() - 1;
    if (last < 0) {
        return;
    }
    int length = last * m_Delimiter.GetLength() + 1;
    for (int i = 0; i <= last; ++i) {
        length += (*row)[i].GetLength();
    }
    unsigned char* at = ExpandOutput(out, m_bUnicode ? 2 * length : length);
    for (int i = 0; i <= last; ++i) {
        at = Put((*row)[i], at);
        at = Put(i < last ? m_Delimiter : LINE_END, at);
    }
}

void ELogFilterPlainText::FormatFooter(const EString* title, EByteArray* out) {
    m_bUnicode ? WriteUnicode(*title, out) : WriteASCII(*title, out);
}
