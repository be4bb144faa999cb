#include "base/EFileIO.h"
#include "base/EONEVENTSTRUCT.h"
#include "base/EString.h"
#include "tests/AllocationCount.h"
#include "tests/TempDir.h"

#include <gtest/gtest.h>

#include <climits>
#include <limits>

namespace {

// Every field as text.
std::wstring Described(const EONEVENTSTRUCT& record) {
    const CDataValue& value = record.m_Value;
    EString number;
    value.GetString(number, 0, 0, 0);
    const ETimeStamp stamps[] = {record.m_TimeStamp, value.GetTimestamp()};
    EString text;
    text.Format(L"%s,%s,%s,%s,%d:%s q%u,%u.%u,%u.%u,%u,%d,%d,%d %d %d %d,%d,%d", record.m_pszName, record.m_pszText,
                record.m_pszSource, record.m_pszDetail, static_cast<int>(value.GetType()),
                static_cast<const wchar_t*>(number), value.GetQuality(), +stamps[0].m_nSeconds,
                +stamps[0].m_nMilliseconds, +stamps[1].m_nSeconds, +stamps[1].m_nMilliseconds, +record.m_wState,
                record.m_nCode, record.m_nAlarmNumber, record.m_nPrefixNumbers[0], record.m_nPrefixNumbers[1],
                record.m_nPrefixNumbers[2], record.m_nPrefixNumbers[3], record.m_nIdentifier, record.m_nIndex);
    return std::wstring(text);
}

EONEVENTSTRUCT Filled() {
    EONEVENTSTRUCT record;
    record.m_pszName = L"N";
    record.m_pszText = L"\u00e9\U0001F600";
    record.m_pszDetail = L"d";
    record.m_TimeStamp = {0x65432101, 999};
    record.m_wState = EONEVENTSTRUCT::STATE_ACTIVE | EONEVENTSTRUCT::STATE_ACKED;
    record.m_nCode = -2;
    record.m_nAlarmNumber = 0x01020304;
    std::copy_n(std::begin({1, -1, INT_MAX, INT_MIN}), 4, record.m_nPrefixNumbers);
    record.m_nIdentifier = 7;
    record.m_nIndex = 42;
    record.m_Value.SetDouble(0.1);
    record.m_Value.SetQuality(CDataValue::QUALITY_UNCERTAIN);
    record.m_Value.SetTimestamp({0xFFFFFFFF, 2});
    return record;
}

TEST(Record, DeepCopyOutlivesItsSourceInOneAllocation) {
    std::wstring name = L"a name that the reporter frees as soon as it has reported";
    std::wstring text = L"a value that lives no longer";
    EONEVENTSTRUCT source = Filled();
    source.m_pszName = name.c_str();
    source.m_Value.SetText(text.c_str());
    const std::wstring described = Described(source);

    const EONEVENTSTRUCT shallow(&source, false);
    EXPECT_EQ(shallow.m_pszName, source.m_pszName);
    const AllocationCount allocations;
    EONEVENTSTRUCT copy(&source, true);
    EXPECT_EQ(allocations.Count(), 1U);
    name.assign(name.size(), L'#');
    text.assign(text.size(), L'#');
    EXPECT_EQ(Described(copy), described);
    EXPECT_STREQ(copy.m_pszSource, L"") << "was null";

    EONEVENTSTRUCT assigned(&shallow, true);
    const AllocationCount moves;
    EONEVENTSTRUCT moved(std::move(copy));
    assigned = std::move(moved);
    EXPECT_EQ(moves.Count(), 0U);
    EXPECT_EQ(Described(assigned), described);
}

TEST(Record, SavedBytesAndEveryTypeOfValueComeBack) {
    const unsigned char bytes[] = {
        0x01, 0x21, 0x43, 0x65, 0xE7, 0x03,                      // time stamp
        0xFE, 0xFF, 0xFF, 0xFF, 0x04, 0x03, 0x02, 0x01, 6,    0, // code, alarm number, state
        1,    0,    0,    0,    0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x7F, 0,   0, 0, 0x80, // prefix numbers
        7,    0,    0,    0,    42,   0,    0,    0,                                             // identifier, index
        3,    64,   0,    0,    0,    0xFF, 0xFF, 0xFF, 0xFF, 2,    0, // value: type, quality, time stamp
        0x9A, 0x99, 0x99, 0x99, 0x99, 0x99, 0xB9, 0x3F,                // value: number
        1,    0,    0,    0,    2,    0,    0,    0,    0,    0,    0,    0,    1,   0, 0, 0,    0, 0, 0, 0, // lengths
        'N',  0,    0,    0,    0xE9, 0,    0,    0,    0x00, 0xF6, 0x01, 0,    'd', 0, 0, 0};
    CDataValue values[8] = {Filled().m_Value};
    values[1].SetBoolean(true);
    values[2].SetBoolean(false);
    values[3].SetInteger(INT64_MIN);
    values[4].SetDouble(-1e-300);
    values[5].SetText(L"on \U0001F600");
    values[6].SetText(nullptr);
    const TempDir dir;
    EONEVENTSTRUCT record = Filled();
    {
        EFileIO file(Wide(dir.Path("records")), EFileIO::OPEN_FOR_WRITING);
        for (const CDataValue& value : values) {
            record.m_Value = value;
            ASSERT_TRUE(record.Save(&file));
        }
    }
    EXPECT_EQ(ReadWhole(dir.Path("records")).substr(0, sizeof bytes), std::string(std::begin(bytes), std::end(bytes)));
    EFileIO file(Wide(dir.Path("records")), EFileIO::OPEN_FOR_READING);
    EONEVENTSTRUCT restored;
    for (const CDataValue& value : values) {
        record.m_Value = value;
        ASSERT_TRUE(restored.Restore(&file));
        EXPECT_EQ(Described(restored), Described(record));
        EXPECT_STREQ(restored.m_pszSource, L"") << "was null";
    }
    EXPECT_EQ(file.GetBytesLeft(), 0U);
}

TEST(Record, DamageFailsCheaplyAndChangesNothing) {
    const TempDir dir;
    const std::string path = dir.Path("record");
    EONEVENTSTRUCT record = Filled();
    record.m_Value.SetText(L"value");
    {
        EFileIO file(Wide(path), EFileIO::OPEN_FOR_WRITING);
        ASSERT_TRUE(record.Save(&file));
    }
    const std::string whole = ReadWhole(path);
    std::vector<std::string> damaged;
    for (std::size_t length = 0; length < whole.size(); ++length) {
        damaged.push_back(whole.substr(0, length));
    }
    const auto damage = [&](std::size_t at, int value) {
        (damaged.emplace_back(whole))[at] = static_cast<char>(value);
    };
    for (std::size_t i = 0; i < 5; ++i) {
        const std::size_t at = EONEVENTSTRUCT::SAVED_SIZE_MIN - 20 + 4 * i;
        damage(at, whole[at] + 1); // one character more than there are
        damage(at + 3, 0x40);      // four bytes for each come to nothing in 32 bits
        damage(at + 3, 0xFF);
        damage(at + 3, 0x80);
        damaged.back()[at == 59 ? 66 : 62] = '\x80'; // two that add up to a small number in 32 bits
    }
    damage(40, 5); // a type that no value has
    damage(40, 0xFF);
    const EString name = Wide(path);
    const std::wstring before = Described(record);
    for (const std::string& bytes : damaged) {
        WriteWhole(path, bytes);
        EFileIO file(name, EFileIO::OPEN_FOR_READING);
        const AllocationCount allocations;
        ASSERT_FALSE(record.Restore(&file)) << testing::PrintToString(bytes);
        EXPECT_LE(allocations.Largest(), 2 * whole.size());
        ASSERT_EQ(Described(record), before) << testing::PrintToString(bytes);
    }
}

TEST(Value, Text) {
    using Limits = std::numeric_limits<double>;
    CDataValue values[3];
    values[0].SetBoolean(true);
    values[1].SetBoolean(false);
    values[2].SetInteger(INT64_MIN);
    std::vector<std::pair<CDataValue, const wchar_t*>> cases = {
        {CDataValue(), L""}, {values[0], L"true"}, {values[1], L"false"}, {values[2], L"-9223372036854775808"}};
    for (const auto& [number, text] : {std::pair{0.1, L"0.1"},
                                       {0.1 + 0.2, L"0.30000000000000004"},
                                       {1.0, L"1"},
                                       {-0.0, L"-0"},
                                       {1e300, L"1e+300"},
                                       {Limits::quiet_NaN(), L"nan"},
                                       {-Limits::infinity(), L"-inf"},
                                       {123456.75, L"123456.75"},
                                       {-Limits::min(), L"-2.2250738585072014e-308"}}) {
        cases.emplace_back(CDataValue(), text);
        cases.back().first.SetDouble(number);
    }
    for (const auto& [value, expected] : cases) {
        EString text(L"old");
        value.GetString(text, 0, 0, 0);
        EXPECT_STREQ(text, expected);
    }
}

} // namespace
