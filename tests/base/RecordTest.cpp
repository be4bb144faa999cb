#include "base/EFileIO.h"
#include "tests/Workplace.h"

#include <gtest/gtest.h>

#include <array>
#include <cstring>

using namespace std::string_literals;

namespace {

const std::string BYTES =                                                  // of a saved record
    "\x85\x45\xBA\x65\x2A\0\xFE\xFF\xFF\xFF\7\0\0\0\6\0"s                  // time stamp, code, alarm number, state
    "\1\0\0\0\xFF\xFF\xFF\xFF\xFF\xFF\xFF\x7F\5\0\0\0\0\0\0\x80\52\0\0\0"s // prefix numbers, identifier, index
    "\3\x40\0\0\0\xFF\xFF\xFF\xFF\2\0\x9A\x99\x99\x99\x99\x99\xB9\x3F"s    // value of 0.1
    "\1\0\0\0\2\0\0\0\0\0\0\0\1\0\0\0\0\0\0\0"s                            // lengths of the texts
    "N\0\0\0\xE9\0\0\0\0\xF6\1\0D\0\0\0"s;

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

TEST(Record, EachFieldStandsAtItsPlace) {
    EONEVENTSTRUCT record = MakeRecord(L"N", L"\u00e9\U0001F600");
    record.m_pszSource = nullptr;
    record.m_nCode = -2;
    record.m_wState = EONEVENTSTRUCT::STATE_ACTIVE | EONEVENTSTRUCT::STATE_ACKED;
    std::ranges::copy(std::array{1, -1, INT32_MAX, 5}, record.m_nPrefixNumbers);
    record.m_nIdentifier = INT32_MIN;
    record.m_nIndex = 42;
    record.m_Value.SetDouble(0.1);
    record.m_Value.SetQuality(64);
    record.m_Value.SetTimestamp({0xFFFFFFFF, 2});
    EXPECT_EQ(Saved(record), BYTES);
}

TEST(Record, ValuesOfEveryTypeComeBack) {
    EONEVENTSTRUCT record;
    std::string bytes = BYTES;
    for (const auto& [type, number] :
         {std::pair<char, std::uint64_t>{0, 0}, {1, 0}, {1, 1}, {2, 1ULL << 63}, {3, 0x7FF8ULL << 48}, {4, 0}}) {
        bytes[40] = type;
        std::memcpy(&bytes[51], &number, sizeof number);
        EXPECT_TRUE(Restore(record, bytes)) << type;
        EXPECT_EQ(Saved(record), bytes) << type;
    }
    bytes[62] = bytes[66] = '\x80'; // lengths whose sum is 0 in 32 bits
    EXPECT_FALSE(Restore(record, bytes));
}

} // namespace
