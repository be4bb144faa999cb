#include "files/ELogFilter.h"

#include "base/EUtility.h"
#include "base/LittleEndian.h"

ELogFilter::~ELogFilter() = default;

unsigned char* ELogFilter::ExpandOutput(EByteArray* out, int count) {
    const int end = out->GetSize();
    out->SetSize(end + count, -1);
    return out->GetData() + end;
}

unsigned char* ELogFilter::PutASCII(const wchar_t* text, std::size_t length, unsigned char* at) {
    for (std::size_t i = 0; i < length; ++i) {
        at[i] = static_cast<unsigned char>(text[i]);
    }
    return at + length;
}

unsigned char* ELogFilter::PutUnicode(const wchar_t* text, std::size_t length, unsigned char* at) {
    for (std::size_t i = 0; i < length; ++i) {
        at = PutU16(at, static_cast<std::uint16_t>(text[i]));
    }
    return at;
}

void ELogFilter::WriteASCII(const wchar_t* text, EByteArray* out) {
    const std::size_t length = std::wcslen(text);
    PutASCII(text, length, ExpandOutput(out, static_cast<int>(length)));
}

void ELogFilter::WriteUnicode(const wchar_t* text, EByteArray* out) {
    const std::size_t length = std::wcslen(text);
    PutUnicode(text, length, ExpandOutput(out, 2 * static_cast<int>(length)));
}

void ELogFilter::WriteUTF8(const wchar_t* text, EByteArray* out) {
    EUtility::Utf8Encode(text, *out);
}
