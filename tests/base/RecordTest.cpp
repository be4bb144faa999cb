#include "base/EFileIO.h"
#include "base/EONEVENTSTRUCT.h"
#include "base/EString.h"
#include "base/LittleEndian.h"
#include "tests/AllocationCount.h"
#include "tests/TempDir.h"

#include <gtest/gtest.h>

#include <bit>

using namespace std::string_literals;

namespace {

// clang-format off
const std::string BYTES = // of a saved record
    "\x01\x21\x43\x65\xE7\x03\xFE\xFF\xFF\xFF\x04\x03\x02\x01\6\0"s           // time stamp, code, alarm number, state
    "\1\0\0\0\xFF\xFF\xFF\xFF\xFF\xFF\xFF\x7F\0\0\0\x80\7\0\0\0\52\0\0\0"s    // prefix numbers, identifier, index
    "\3\x40\0\0\0\xFF\xFF\xFF\xFF\2\0\x9A\x99\x99\x99\x99\x99\xB9\x3F"s       // value of 0.1
    "\1\0\0\0\2\0\0\0\0\0\0\0\1\0\0\0\0\0\0\0N\0\0\0\xE9\0\0\0\0\xF6\1\0d\0\0\0"s; // lengths of the texts, texts
// clang-format on

std::string Saved(const EONEVENTSTRUCT& record) {
    const TempDir dir;
    EFileIO file(Wide(dir.Path("record")), EFileIO::OPEN_FOR_WRITING);
    EXPECT_TRUE(record.Save(&file));
    return ReadWhole(dir.Path("record"));
}

bool Restore(EONEVENTSTRUCT& record, const std::string& bytes) {
    const TempDir dir;
    WriteWhole(dir.Path("record"), bytes);
    EFileIO file(Wide(dir.Path("record")), EFileIO::OPEN_FOR_READING);
    return record.Restore(&file) != 0;
}

TEST(Record, EachFieldStandsAtItsPlaceAndADeepCopyOutlivesItsSource) {
    EONEVENTSTRUCT record;
    ASSERT_TRUE(Restore(record, BYTES));
    const std::int32_t* prefix = record.m_nPrefixNumbers;
    const ETimeStamp stamp = record.m_Value.GetTimestamp();
    EString text;
    text.Format(L"%u.%u %d %d %u %d %d %d %d %d %d %u %u.%u %s|%s|%s|%s", +record.m_TimeStamp.m_nSeconds,
                +record.m_TimeStamp.m_nMilliseconds, record.m_nCode, record.m_nAlarmNumber, +record.m_wState, prefix[0],
                prefix[1], prefix[2], prefix[3], record.m_nIdentifier, record.m_nIndex, record.m_Value.GetQuality(),
                +stamp.m_nSeconds, +stamp.m_nMilliseconds, record.m_pszName, record.m_pszText, record.m_pszSource,
                record.m_pszDetail);
    EXPECT_STREQ(text, L"1698898177.999 -2 16909060 6 1 -1 2147483647 -2147483648 7 42 64 4294967295.2 "
                       L"N|\u00e9\U0001F600||d");
    EXPECT_EQ(Saved(record), BYTES);

    std::wstring value = L"a value that lives no longer";
    record.m_Value.SetText(value.c_str());
    const std::string saved = Saved(record);
    const AllocationCount allocations;
    EONEVENTSTRUCT deep(&record, true);
    const EONEVENTSTRUCT copy(std::move(deep));
    EXPECT_LE(allocations.Count(), 1U);
    record = EONEVENTSTRUCT();
    value.assign(value.size(), L'#');
    EXPECT_EQ(Saved(copy), saved);
}

TEST(Record, ValuesOfEveryTypeComeBackAndPrint) {
    const auto bits = [](double number) { return std::bit_cast<std::uint64_t>(number); };
    for (const auto& [type, number, expected] : {std::tuple<char, std::uint64_t, const wchar_t*>{'\0', 0, L""},
                                                 {'\1', 1, L"true"},
                                                 {'\1', 0, L"false"},
                                                 {'\2', 1ULL << 63, L"-9223372036854775808"},
                                                 {'\3', bits(0.1 + 0.2), L"0.30000000000000004"},
                                                 {'\3', 0x7FF8ULL << 48, L"nan"}}) {
        std::string bytes = BYTES;
        bytes[40] = type;
        PutU64(reinterpret_cast<unsigned char*>(&bytes[51]), number);
        EONEVENTSTRUCT record;
        EXPECT_TRUE(Restore(record, bytes)) << expected;
        EXPECT_EQ(Saved(record), bytes) << expected;
        EString text(L"old");
        record.m_Value.GetString(text, 0, 0, 0);
        EXPECT_STREQ(text, expected);
    }
    EONEVENTSTRUCT record;
    std::string bytes = BYTES;
    bytes[62] = bytes[66] = '\x80'; // lengths whose sum is 0 in 32 bits
    EXPECT_FALSE(Restore(record, bytes));
}

} // namespace
