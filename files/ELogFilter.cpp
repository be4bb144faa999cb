#include "files/ELogFilter.h"

#include "base/EUtility.h"
#include "base/LittleEndian.h"

ELogFilter::~ELogFilter() = default;

unsigned char* ELogFilter::ExpandOutput(EByteArray* out, int count) {
    const int end = out->GetSize();
    out->SetSize(end + count, -1);
    return out->GetData() + end;
}

void ELogFilter::WriteASCII(const wchar_t* text, EByteArray* out) {
    unsigned char* at = ExpandOutput(out, static_cast<int>(std::wcslen(text)));
    for (; *text != L'\0'; ++text) {
        *at++ = static_cast<unsigned char>(*text);
    }
}

void ELogFilter::WriteUnicode(const wchar_t* text, EByteArray* out) {
    unsigned char* at = ExpandOutput(out, 2 * static_cast<int>(std::wcslen(text)));
    for (; *text != L'\0'; ++text) {
        at = PutU16(at, static_cast<std::uint16_t>(*text));
    }
}

void ELogFilter::WriteUTF8(const wchar_t* text, EByteArray* out) {
    EByteArray bytes;
    EUtility::Utf8Encode(text, bytes);
    out->Append(bytes);
}
