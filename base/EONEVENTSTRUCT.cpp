#include "base/EONEVENTSTRUCT.h"

#include "base/EFileIO.h"
#include "base/EString.h"
#include "base/LittleEndian.h"

#include <array>
#include <bit>
#include <cwchar>
#include <memory>
#include <numeric>
#include <utility>

// A saved record, all numbers little-endian:
//
//    0  time stamp              4 + 2        41  value: quality                4
//    6  code                    4            45  value: time stamp             4 + 2
//   10  alarm number            4            51  value: number, or 0           8
//   14  state                   2            59  lengths of the five texts     5 x 4
//   16  prefix numbers          4 x 4            (name, text, source, detail, value), in characters
//   32  identifier              4            79  the five texts, 4 bytes a character, without terminators
//   36  index                   4
//   40  value: type             1

namespace {

constexpr std::size_t TEXTS = 5; // name, text, source, detail, and the text of the value
constexpr std::size_t LENGTHS_AT = 59;

static_assert(EONEVENTSTRUCT::SAVED_SIZE_MIN == LENGTHS_AT + 4 * TEXTS);

using Texts = std::array<const wchar_t*, TEXTS>;
using Lengths = std::array<std::size_t, TEXTS>;

Texts TextsOf(const EONEVENTSTRUCT& record) {
    const CDataValue& value = record.m_Value;
    Texts texts{record.m_pszName, record.m_pszText, record.m_pszSource, record.m_pszDetail,
                value.GetType() == CDataValue::Type::Text ? value.GetText() : nullptr};
    for (const wchar_t*& text : texts) {
        text = OrEmpty(text);
    }
    return texts;
}

Lengths LengthsOf(const Texts& texts) {
    Lengths lengths{};
    for (std::size_t i = 0; i < TEXTS; ++i) {
        lengths[i] = std::wcslen(texts[i]);
    }
    return lengths;
}

// Points the record's texts at a room that holds them one behind the other, each with its end.
void PointInto(EONEVENTSTRUCT& record, const wchar_t* room, const Lengths& lengths) {
    Texts texts{};
    for (std::size_t i = 0; i < TEXTS; ++i) {
        texts[i] = room;
        room += lengths[i] + 1;
    }
    record.m_pszName = texts[0];
    record.m_pszText = texts[1];
    record.m_pszSource = texts[2];
    record.m_pszDetail = texts[3];
    if (record.m_Value.GetType() == CDataValue::Type::Text) {
        record.m_Value.SetText(texts[4]);
    }
}

std::size_t Sum(const Lengths& lengths) {
    return std::accumulate(lengths.begin(), lengths.end(), std::size_t{0});
}

unsigned char* PutStamp(unsigned char* out, const ETimeStamp& stamp) {
    return PutU16(PutU32(out, stamp.m_nSeconds), stamp.m_nMilliseconds);
}

ETimeStamp GetStamp(const unsigned char* in) {
    ETimeStamp stamp;
    stamp.m_nSeconds = GetU32(in);
    stamp.m_nMilliseconds = GetU16(in + 4);
    return stamp;
}

unsigned char* PutSigned(unsigned char* out, std::int32_t value) {
    return PutU32(out, static_cast<std::uint32_t>(value));
}

std::int32_t GetSigned(const unsigned char* in) {
    return static_cast<std::int32_t>(GetU32(in));
}

std::uint64_t NumberOf(const CDataValue& value) {
    switch (value.GetType()) {
    case CDataValue::Type::Boolean:
        return value.GetBoolean() ? 1 : 0;
    case CDataValue::Type::Integer:
        return static_cast<std::uint64_t>(value.GetInteger());
    case CDataValue::Type::Double:
        return std::bit_cast<std::uint64_t>(value.GetDouble());
    default:
        return 0;
    }
}

// False for a type that no value has.
bool SetNumber(CDataValue& value, unsigned char type, std::uint64_t number) {
    switch (static_cast<CDataValue::Type>(type)) {
    case CDataValue::Type::Nothing:
        value.SetNothing();
        return true;
    case CDataValue::Type::Boolean:
        value.SetBoolean(number != 0);
        return true;
    case CDataValue::Type::Integer:
        value.SetInteger(static_cast<std::int64_t>(number));
        return true;
    case CDataValue::Type::Double:
        value.SetDouble(std::bit_cast<double>(number));
        return true;
    case CDataValue::Type::Text:
        value.SetText(nullptr);
        return true;
    }
    return false;
}

void PutHead(unsigned char* out, const EONEVENTSTRUCT& record, const Lengths& lengths) {
    out = PutStamp(out, record.m_TimeStamp);
    out = PutSigned(out, record.m_nCode);
    out = PutSigned(out, record.m_nAlarmNumber);
    out = PutU16(out, record.m_wState);
    for (const std::int32_t number : record.m_nPrefixNumbers) {
        out = PutSigned(out, number);
    }
    out = PutSigned(out, record.m_nIdentifier);
    out = PutSigned(out, record.m_nIndex);
    *out++ = static_cast<unsigned char>(record.m_Value.GetType());
    out = PutU32(out, record.m_Value.GetQuality());
    out = PutStamp(out, record.m_Value.GetTimestamp());
    out = PutU64(out, NumberOf(record.m_Value));
    for (const std::size_t length : lengths) {
        out = PutU32(out, static_cast<std::uint32_t>(length));
    }
}

bool GetHead(const unsigned char* in, EONEVENTSTRUCT& record) {
    record.m_TimeStamp = GetStamp(in);
    record.m_nCode = GetSigned(in + 6);
    record.m_nAlarmNumber = GetSigned(in + 10);
    record.m_wState = GetU16(in + 14);
    for (std::size_t i = 0; i < 4; ++i) {
        record.m_nPrefixNumbers[i] = GetSigned(in + 16 + 4 * i);
    }
    record.m_nIdentifier = GetSigned(in + 32);
    record.m_nIndex = GetSigned(in + 36);
    record.m_Value.SetQuality(GetU32(in + 41));
    record.m_Value.SetTimestamp(GetStamp(in + 45));
    return SetNumber(record.m_Value, in[40], GetU64(in + 51));
}

} // namespace

EONEVENTSTRUCT::EONEVENTSTRUCT(const EONEVENTSTRUCT* source, bool deep) : EEventFields(*source) {
    if (!deep) {
        return;
    }
    const Texts texts = TextsOf(*source);
    const Lengths lengths = LengthsOf(texts);
    m_pTexts = std::make_unique_for_overwrite<wchar_t[]>(Sum(lengths) + TEXTS);
    wchar_t* at = m_pTexts.get();
    for (std::size_t i = 0; i < TEXTS; ++i) {
        std::wmemcpy(at, texts[i], lengths[i] + 1);
        at += lengths[i] + 1;
    }
    PointInto(*this, m_pTexts.get(), lengths);
}

int EONEVENTSTRUCT::Save(EFileIO* file) const {
    const Texts texts = TextsOf(*this);
    const Lengths lengths = LengthsOf(texts);
    unsigned char head[SAVED_SIZE_MIN];
    PutHead(head, *this, lengths);
    unsigned long written = 0;
    int saved = file->WriteToFile(head, sizeof head, written);
    for (std::size_t i = 0; i < TEXTS && saved != 0; ++i) {
        saved = file->WriteToFile(texts[i], 4 * lengths[i], written);
    }
    return saved;
}

int EONEVENTSTRUCT::Restore(EFileIO* file) {
    unsigned char head[SAVED_SIZE_MIN];
    unsigned long read = 0;
    if (file->ReadFrmFile(head, sizeof head, read) == 0 || read != sizeof head) {
        return 0;
    }
    EONEVENTSTRUCT restored;
    if (!GetHead(head, restored)) {
        return 0;
    }
    Lengths lengths{};
    std::uint64_t sum = 0;
    for (std::size_t i = 0; i < TEXTS; ++i) {
        lengths[i] = GetU32(head + LENGTHS_AT + 4 * i);
        sum += lengths[i];
    }
    if (sum > LONGEST_TEXT || sum > file->GetBytesLeft() / 4) {
        return 0;
    }
    restored.m_pTexts = std::make_unique_for_overwrite<wchar_t[]>(static_cast<std::size_t>(sum) + TEXTS);
    wchar_t* out = restored.m_pTexts.get();
    const wchar_t* in = out + TEXTS; // they move to the front, by one place less each, to get their ends
    if (file->ReadFrmFile(out + TEXTS, 4 * static_cast<std::size_t>(sum), read) == 0 || read != 4 * sum) {
        return 0;
    }
    for (const std::size_t length : lengths) {
        std::wmemmove(out, in, length);
        out[length] = L'\0';
        out += length + 1;
        in += length;
    }
    PointInto(restored, restored.m_pTexts.get(), lengths);
    *this = std::move(restored);
    return 1;
}
