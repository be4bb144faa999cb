#include "base/EONEVENTSTRUCT.h"

#include "base/EFileIO.h"
#include "base/EString.h"
#include "base/LittleEndian.h"

#include <array>
#include <cstring>
#include <cwchar>
#include <memory>
#include <numeric>
#include <utility>

namespace {

constexpr std::size_t TEXTS = 5; // name, text, source, detail, and the text of the value

using Texts = std::array<const wchar_t*, TEXTS>;
using Lengths = std::array<std::size_t, TEXTS>; // in characters

// What a saved record begins with. The texts follow, 4 bytes a character, without terminators.
struct __attribute__((packed)) Head {
    ETimeStamp m_TimeStamp;
    std::int32_t m_nCode;
    std::int32_t m_nAlarmNumber;
    std::uint16_t m_wState;
    std::int32_t m_nPrefixNumbers[4];
    std::int32_t m_nIdentifier;
    std::int32_t m_nIndex;
    CDataValue::Type m_ValueType;
    std::uint32_t m_nValueQuality;
    ETimeStamp m_ValueTimeStamp;
    std::uint64_t m_nValueBits;
    std::uint32_t m_nLengths[TEXTS];
};

static_assert(sizeof(Head) == EONEVENTSTRUCT::SAVED_SIZE_MIN);

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

// Points the record's texts into `room`, which holds them one after the other, each with its terminator.
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

Head MakeHead(const EONEVENTSTRUCT& record, const Lengths& lengths) {
    Head head;
    head.m_TimeStamp = record.m_TimeStamp;
    head.m_nCode = record.m_nCode;
    head.m_nAlarmNumber = record.m_nAlarmNumber;
    head.m_wState = record.m_wState;
    std::memcpy(head.m_nPrefixNumbers, record.m_nPrefixNumbers, sizeof head.m_nPrefixNumbers);
    head.m_nIdentifier = record.m_nIdentifier;
    head.m_nIndex = record.m_nIndex;
    head.m_ValueType = record.m_Value.GetType();
    head.m_nValueQuality = record.m_Value.GetQuality();
    head.m_ValueTimeStamp = record.m_Value.GetTimestamp();
    head.m_nValueBits = record.m_Value.GetBits();
    for (std::size_t i = 0; i < TEXTS; ++i) {
        head.m_nLengths[i] = static_cast<std::uint32_t>(lengths[i]);
    }
    return head;
}

// False for a value of an unknown type.
bool TakeHead(const Head& head, EONEVENTSTRUCT& record) {
    record.m_TimeStamp = head.m_TimeStamp;
    record.m_nCode = head.m_nCode;
    record.m_nAlarmNumber = head.m_nAlarmNumber;
    record.m_wState = head.m_wState;
    std::memcpy(record.m_nPrefixNumbers, head.m_nPrefixNumbers, sizeof head.m_nPrefixNumbers);
    record.m_nIdentifier = head.m_nIdentifier;
    record.m_nIndex = head.m_nIndex;
    record.m_Value.SetQuality(head.m_nValueQuality);
    record.m_Value.SetTimestamp(head.m_ValueTimeStamp);
    return record.m_Value.SetBits(head.m_ValueType, head.m_nValueBits);
}

} // namespace

EONEVENTSTRUCT::EONEVENTSTRUCT(const EONEVENTSTRUCT* source, bool deep) : EEventFields(*source) {
    if (!deep) {
        return;
    }
    const Texts texts = TextsOf(*source);
    const Lengths lengths = LengthsOf(texts);
    m_pTexts = std::make_unique_for_overwrite<wchar_t[]>(std::accumulate(lengths.begin(), lengths.end(), TEXTS));
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
    const Head head = MakeHead(*this, lengths);
    unsigned long written = 0;
    int saved = file->WriteToFile(&head, sizeof head, written);
    for (std::size_t i = 0; i < TEXTS && saved != 0; ++i) {
        saved = file->WriteToFile(texts[i], sizeof(wchar_t) * lengths[i], written);
    }
    return saved;
}

int EONEVENTSTRUCT::Restore(EFileIO* file) {
    Head head;
    unsigned long read = 0;
    EONEVENTSTRUCT restored;
    if (file->ReadFrmFile(&head, sizeof head, read) == 0 || read != sizeof head || !TakeHead(head, restored)) {
        return 0;
    }
    Lengths lengths{};
    std::uint64_t sum = 0;
    for (std::size_t i = 0; i < TEXTS; ++i) {
        lengths[i] = head.m_nLengths[i];
        sum += lengths[i];
    }
    if (sum > LONGEST_TEXT || sum > file->GetBytesLeft() / 4) {
        return 0;
    }
    restored.m_pTexts = std::make_unique_for_overwrite<wchar_t[]>(static_cast<std::size_t>(sum) + TEXTS);
    wchar_t* out = restored.m_pTexts.get();
    const wchar_t* in = out + TEXTS; // each text then moves down to make room for its terminator
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
